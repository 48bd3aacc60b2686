// Asks GetH5ExtensionBundleId about page addresses against access-key
// records, both taken from the input, and checks the answer against the
// rule: the first record whose scheme and host are the page's, and whose
// port, when it has one, is the page's too; with an "appName_<name>" first
// path segment only a record of bundle <name> counts.
//
// Input: lines. Records "host bundleId" (cut at the first space) up to the
// first empty line, page addresses after it. The records reach the manager
// as a host's remote access keys.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/configuration_manager_impl.h"
#include "config/extension_auth_info.h"
#include "config/remote_config_data_source.h"
#include "fuzz_support.h"
#include "platform/platform.h"
#include "util/url_parser.h"

using namespace qzextensionkit;
using fuzzing::Check;

namespace {

using AuthInfos = std::list<std::shared_ptr<QZExtensionAuthInfo>>;

class Source : public IQZERemoteConfigDataSource {
public:
    void FetchConfig(const std::function<void()>& onSuccess,
                     const std::function<void(const std::string&)>&) override {
        onSuccess();
    }
    void GetConfig(std::map<std::string, std::list<std::shared_ptr<Extension>>>&,
                   AuthInfos& outAuthInfos) override {
        outAuthInfos = authInfos;
    }
    bool HasFetchedConfig() override { return true; }
    bool HasCachedConfig() override { return true; }

    AuthInfos authInfos;
};

// A manager that has loaded an installation with no bundles and no keys of
// its own, so that the remote keys are all it holds.
struct Kit {
    Kit() : folder("qzekit_h5_fuzz_") {
        fuzzing::WriteFile(folder.path() / "extension_adapter_mapping.json", "{}");
        fuzzing::WriteFile(folder.path() / "extensions" / "config.json", "{}");
        platform::testing::SetExecutablePathOverride(folder.Wide() + L"\\host.exe");
        Check(manager.LoadAllExtensionInfos());
        source = std::make_shared<Source>();
        manager.SetRemoteConfigDataSource(source);
    }
    fuzzing::TempFolder folder;
    QZEConfigurationManagerImpl manager;
    std::shared_ptr<Source> source;
};

struct Address {
    std::string scheme, host, port, path;
};

Address Parse(const std::string& text) {
    QZEUrlParser* parser = QZEUrlParser::parseUrl(text);
    Address address{parser->scheme, parser->host, parser->port, parser->path};
    QZEUrlParser::destroy(&parser);
    return address;
}

// The name in a first path segment "appName_<name>", when the segment is
// closed by a second "/".
std::string AppName(const std::string& path) {
    const std::string prefix = "appName_";
    const std::size_t close =
        path.empty() || path[0] != '/' ? std::string::npos : path.find('/', 1);
    if (close == std::string::npos) {
        return std::string();
    }
    const std::string segment = path.substr(1, close - 1);
    return segment.compare(0, prefix.size(), prefix) == 0 ? segment.substr(prefix.size())
                                                          : std::string();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static Kit kit;
    const std::vector<std::string> lines =
        fuzzing::Split(std::string(reinterpret_cast<const char*>(data), size), "\n");
    std::size_t line = 0;
    AuthInfos records;
    for (; line < lines.size() && !lines[line].empty(); ++line) {
        const std::size_t space = lines[line].find(' ');
        records.push_back(std::make_shared<QZExtensionAuthInfo>(
            lines[line].substr(0, space),
            space == std::string::npos ? std::string() : lines[line].substr(space + 1), "key"));
    }
    kit.manager.UnloadAllExtensionInfos();
    kit.source->authInfos = records;
    Check(kit.manager.LoadRemoteConfig());

    for (++line; line < lines.size(); ++line) {
        const std::string& url = lines[line];
        const std::string answer = kit.manager.GetH5ExtensionBundleId(url);
        std::string expected;
        if (!url.empty()) {
            const Address page = Parse(url);
            const std::string app = AppName(page.path);
            for (auto& record : records) {
                const Address served = Parse(record->GetHost());
                if (served.scheme.empty() || served.host.empty() || served.scheme != page.scheme ||
                    served.host != page.host ||
                    (!served.port.empty() && served.port != page.port)) {
                    continue;
                }
                if (app.empty() || app == record->GetBundleId()) {
                    expected = record->GetBundleId();
                    break;
                }
            }
        }
        Check(answer == expected);
    }
    return 0;
}
