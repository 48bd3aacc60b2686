// Feeds remote records and access keys, decoded from the input, through a
// host data source into a configuration manager that has loaded a fixed
// installation, and checks the merge: lookups agree with each other, points
// that no remote entry targets keep their records, the target of "menu"
// holds exactly the remote records that found a local one of the same id,
// and each access key is the one the merge rules give.
//
// Input: one byte of flags (1 fetch instead of loading the cache, 2 apply
// what the fetch brought, 4 the fetch fails, 8 merge a second time), then
// items: a byte whose low bit picks an extension record or an access key,
// followed by its fields, each a choice among known texts or a short text
// of its own.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "config/configuration_manager_impl.h"
#include "config/extension_auth_info.h"
#include "config/remote_config_data_source.h"
#include "fuzz_support.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "model/setting_map.h"
#include "platform/platform.h"

using namespace qzextensionkit;
using fuzzing::Check;

namespace {

using RemoteExtensions = std::map<std::string, std::list<std::shared_ptr<Extension>>>;
using RemoteAuthInfos = std::list<std::shared_ptr<QZExtensionAuthInfo>>;

// "src.a" feeds the adapter point "adapter.web", "menu" replaces
// "menu.items", "self" an adapter point by itself, "nowhere" a point that no
// bundle has.
const char kMapping[] = R"({
  "src": {"a": {"extensionPointId": "adapter.web", "version": "1.0", "clsid": "{C1}",
                "iid": "{I1}", "isSingleton": true}},
  "menu": {"extensionPointId": "menu.items", "clsid": "{C2}", "iid": "{I2}"},
  "self": {"extensionPointId": "self"},
  "nowhere": {"extensionPointId": "missing.point"}})";
const char kConfig[] = R"({
  "artifacts": ["native", "adapter"],
  "ExtensionAuthInfo": {
    "H5": {"https://h5.example.com": [{"bundleId": "b1", "accessKey": "k1"}],
           "http://x.y:8080": [{"bundleId": "b2", "accessKey": "k2"}]},
    "Native": [{"bundleId": "b2", "accessKey": "k3"}, {"bundleId": "b3", "accessKey": "k4"}]}})";
const char kNative[] = R"({"id": "native", "version": "1.0", "mainEntry": "bin\\native.dll",
  "extensionPoints": [
    {"id": "menu.items", "iid": "{I2}", "extensions": [
      {"id": "e1", "clsid": "{C3}", "payloads": {"title": "one"}}, {"id": "e2", "clsid": "{C3}"},
      {"id": "e3", "clsid": "{C4}", "isSingleton": true}]},
    {"id": "other", "iid": "{I3}", "extensions": [{"id": "o1", "clsid": "{C5}"}]},
    {"id": "src.a", "iid": "{I4}", "extensions": [{"id": "s1", "clsid": "{C6}"}]}]})";
const char kAdapter[] = R"({"id": "extension_adapter", "version": "1.0",
  "mainEntry": "bin\\adapter.dll", "extensionPoints": [
    {"id": "adapter.web", "iid": "{I1}", "extensions": []},
    {"id": "self", "iid": "{I5}", "extensions": [{"id": "x1", "clsid": "{C7}"}]}]})";

// The local keys in the order the load keeps them: "H5" by host, then
// "Native".
const std::vector<std::string> kLocalAuth[] = {
    {"http://x.y:8080", "b2", "k2"},
    {"https://h5.example.com", "b1", "k1"},
    {"", "b2", "k3"},
    {"", "b3", "k4"},
};

fuzzing::TempFolder& Host() {
    static fuzzing::TempFolder folder("qzekit_remote_merge_fuzz_");
    static bool written = [] {
        const std::filesystem::path root = folder.path();
        fuzzing::WriteFile(root / "extension_adapter_mapping.json", kMapping);
        fuzzing::WriteFile(root / "extensions" / "config.json", kConfig);
        fuzzing::WriteFile(root / "extensions" / "native" / "manifest.json", kNative);
        fuzzing::WriteFile(root / "extensions" / "adapter" / "manifest.json", kAdapter);
        platform::testing::SetExecutablePathOverride(folder.Wide() + L"\\host.exe");
        return true;
    }();
    (void)written;
    return folder;
}

class Reader {
public:
    Reader(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool More() const { return at_ < size_; }
    uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
    // One of `known`, or a text of up to 15 bytes of the input.
    std::string Text(const std::vector<std::string>& known) {
        const uint8_t pick = Byte();
        if (pick < known.size()) {
            return known[pick];
        }
        std::string text;
        for (int n = pick % 16; n > 0 && More(); --n) {
            text += static_cast<char>(Byte());
        }
        return text;
    }

private:
    const uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

const std::vector<std::string> kPointKeys = {"src.a", "menu",       "self", "nowhere",
                                             "other", "menu.items", "src",  ""};
const std::vector<std::string> kIds = {"e1", "e2", "e3", "o1", "s1", "x1", "r1", ""};
const std::vector<std::string> kPayloadKeys = {"title", "extensionId", "a.b", ""};
const std::vector<std::string> kHosts = {"https://h5.example.com", "http://x.y:8080", "http://x.y",
                                         ""};
const std::vector<std::string> kBundles = {"b1", "b2", "b3", "b4", ""};

std::shared_ptr<Extension> DecodeRecord(Reader& in) {
    const std::string id = in.Text(kIds);
    const std::string pointId = in.Text(kPointKeys);
    std::map<std::string, std::string> payloads;
    for (int n = in.Byte() % 4; n > 0; --n) {
        const std::string key = in.Text(kPayloadKeys);
        payloads[key] = in.Text({"v", ""});
    }
    std::map<std::string, std::vector<std::string>> constraints;
    for (int n = in.Byte() % 3; n > 0; --n) {
        std::vector<std::string>& values = constraints[in.Text({"os", ""})];
        for (int m = in.Byte() % 3; m > 0; --m) {
            values.push_back(in.Text({"win", ""}));
        }
    }
    SettingMap setting;
    const uint8_t which = in.Byte();
    if (which & 1) {
        setting.openType = in.Text({"modal", ""});
    }
    if (which & 2) {
        setting.host = in.Text({"https://h5.example.com", ""});
    }
    if (which & 4) {
        setting.uri = in.Text({"/page", ""});
    }
    if (which & 8) {
        setting.modalSize = in.Text({"300,200", ""});
    }
    setting.url = setting.host + setting.uri;
    return ExtensionFactory::createExtension(id, pointId, payloads, constraints, setting,
                                             in.Text({"u1", ""}));
}

class Source : public IQZERemoteConfigDataSource {
public:
    void FetchConfig(const std::function<void()>& onSuccess,
                     const std::function<void(const std::string&)>& onFailure) override {
        if (fail) {
            onFailure("offline");
        } else {
            onSuccess();
        }
    }
    void GetConfig(RemoteExtensions& outExtensions, RemoteAuthInfos& outAuthInfos) override {
        outExtensions = extensions;
        outAuthInfos = authInfos;
    }
    bool HasFetchedConfig() override { return true; }
    bool HasCachedConfig() override { return true; }

    bool fail = false;
    RemoteExtensions extensions;
    RemoteAuthInfos authInfos;
};

std::vector<std::string> IdsOf(QZEConfigurationManagerImpl& manager, const std::string& point) {
    std::vector<std::shared_ptr<Extension>> records;
    manager.GetExtensionInfosByExntensionPointID(point, records);
    std::vector<std::string> ids;
    for (auto& record : records) {
        ids.push_back(record->GetId());
    }
    return ids;
}

// Each record in force is found again by its point and by its id, once.
void CheckLookups(QZEConfigurationManagerImpl& manager) {
    std::vector<Extension*> records;
    manager.GetAllExtensionInfos(records);
    for (Extension* record : records) {
        Check(record != nullptr);
        int sameId = 0;
        for (const std::string& id : IdsOf(manager, record->GetExtensionPointId())) {
            sameId += id == record->GetId() ? 1 : 0;
        }
        Check(sameId == 1);
        Extension* copy = nullptr;
        const bool found = manager.GetExtensionInfoByID(record->GetId(), &copy);
        std::unique_ptr<Extension> owned(copy);
        Check(found == !record->GetId().empty() && (!found || copy->GetId() == record->GetId()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Host();
    Reader in(data, size);
    const uint8_t flags = in.Byte();
    auto source = std::make_shared<Source>();
    source->fail = (flags & 4) != 0;
    while (in.More()) {
        if (in.Byte() & 1) {
            const std::string host = in.Text(kHosts);
            const std::string bundle = in.Text(kBundles);
            source->authInfos.push_back(
                std::make_shared<QZExtensionAuthInfo>(host, bundle, in.Text({"key"})));
        } else {
            const std::string key = in.Text(kPointKeys);
            source->extensions[key].push_back(DecodeRecord(in));
        }
    }

    QZEConfigurationManagerImpl manager;
    Check(manager.LoadAllExtensionInfos());
    manager.SetRemoteConfigDataSource(source);
    const std::vector<std::string> others = IdsOf(manager, "other");
    const std::vector<std::string> sources = IdsOf(manager, "src.a");
    std::vector<std::string> menu = IdsOf(manager, "menu.items");
    std::vector<std::vector<std::string>> auth(std::begin(kLocalAuth), std::end(kLocalAuth));

    const int merges = (flags & 8) ? 2 : 1;
    for (int round = 0; round < merges; ++round) {
        bool merged = false;
        if (flags & 1) {
            int successes = 0;
            int failures = 0;
            manager.FetchRemoteConfig(
                (flags & 2) != 0, [&successes] { ++successes; },
                [&failures](const std::string& why) { failures += why == "offline" ? 1 : 100; });
            Check(successes + failures == 1 && (failures == 1) == source->fail);
            merged = successes == 1 && (flags & 2);
        } else {
            Check(manager.LoadRemoteConfig());
            merged = true;
        }
        if (!merged) {
            continue;
        }
        // "menu" keeps the remote records that found a local one, the first
        // of each id.
        auto remoteMenu = source->extensions.find("menu");
        if (remoteMenu != source->extensions.end()) {
            std::vector<std::string> kept;
            for (auto& record : remoteMenu->second) {
                const std::string& id = record->GetId();
                bool local = false;
                bool twice = false;
                for (auto& m : menu) {
                    local = local || m == id;
                }
                for (auto& k : kept) {
                    twice = twice || k == id;
                }
                if (local && !twice) {
                    kept.push_back(id);
                }
            }
            menu = kept;
        }
        // A remote key replaces the first record of the same bundle and host.
        for (auto& remote : source->authInfos) {
            std::vector<std::string> entry = {remote->GetHost(), remote->GetBundleId(),
                                              remote->GetAccessKey()};
            bool replaced = false;
            for (auto& local : auth) {
                if (!replaced && local[0] == entry[0] && local[1] == entry[1]) {
                    local = entry;
                    replaced = true;
                }
            }
            if (!replaced) {
                auth.push_back(entry);
            }
        }
    }

    CheckLookups(manager);
    Check(IdsOf(manager, "other") == others && IdsOf(manager, "src.a") == sources);
    Check(IdsOf(manager, "menu.items") == menu);
    std::set<std::string> bundles(kBundles.begin(), kBundles.end());
    for (auto& remote : source->authInfos) {
        bundles.insert(remote->GetBundleId());
    }
    for (const std::string& bundle : bundles) {
        std::string expected;
        for (auto& entry : auth) {
            if (!bundle.empty() && entry[1] == bundle) {
                expected = entry[2];
                break;
            }
        }
        Check(manager.GetExtensionAccessKey(bundle) == expected);
    }
    return 0;
}
