// Each bad part sits beside a good bundle that must still be served; each
// platform failure is followed by a load that works.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "kit/bundle_manager.h"
#include "kit/configuration_manager.h"
#include "manager/support/kit_host.h"
#include "platform/platform.h"

namespace qzetest {
namespace {

namespace fs = std::filesystem;

// expect.txt: "artifacts <folders...>", "load false", "log <text>" ("{root}"
// for the root).
struct Expectation {
    std::vector<std::string> artifacts{"bad", "good"};
    bool loads = true;
    std::vector<std::string> lines{};
};

Expectation ReadExpectation(const fs::path& file) {
    Expectation expect;
    std::ifstream in(file);
    for (std::string line, word; std::getline(in, line);) {
        std::istringstream words(line);
        words >> word;
        if (word == "artifacts") {
            expect.artifacts.assign(std::istream_iterator<std::string>(words), {});
        } else if (word == "load") {
            expect.loads = !(words >> word && word == "false");
        } else if (word == "log") {
            expect.lines.push_back(line.substr(4));
        }
    }
    return expect;
}

std::string BadManifest(const std::string& mainEntry) {
    return R"({"id": "bad", "mainEntry": ")" + mainEntry + R"(", "extensionPoints": [)" +
           Point("bad.point", kProbeIid, {{"bad.ext", kProbeClass}}) + "]}";
}

void CopyPlugin(const fs::path& target) {
    fs::create_directories(target.parent_path());
    fs::copy_file(BuiltPlugin("qzekit_plugin_extension"), target);
}

void AddGoodBundle(const Installation& install, const std::string& library = kExtensionLibrary) {
    install.WriteManifest(
        "good", R"({"id": "good", "mainEntry": ")" + library + R"(", "extensionPoints": [)" +
                    Point("good.point", kProbeIid, {{"good.ext", kProbeClass}}) + "]}");
    CopyPlugin(install.root() / "extensions" / "good" / fs::u8path(library));
}

class BadInstallationsTest : public KitHost {
protected:
    void LoadAndCheck(const Installation& at, const Expectation& expect) {
        log->Clear();
        if (!fs::exists(at.root() / "extension_adapter_mapping.json")) {
            at.WriteMapping("{}");
        }
        if (!fs::exists(at.root() / "extensions" / "config.json")) {
            std::vector<std::string> escaped = expect.artifacts;
            for (std::string& text : escaped) {
                for (size_t i = 0; (i = text.find('\\', i)) != std::string::npos; i += 2) {
                    text.insert(i, "\\");
                }
            }
            at.WriteConfig(ConfigWithArtifacts(escaped));
        }
        void *good = nullptr, *bad = nullptr;
        EXPECT_EQ(kit()->Load(), expect.loads);
        EXPECT_EQ(kit()->GetExtension("good.point", &good), expect.loads);
        EXPECT_EQ(SeenField(good, "ext"), expect.loads ? "good.ext" : "?");
        EXPECT_FALSE(kit()->GetExtensionById("bad.ext", &bad) || bad != nullptr);
        ReleaseObject(good);
        std::string all;
        for (const std::string& line : log->Texts()) {
            all += line + "\n";
        }
        for (std::string wanted : expect.lines) {
            const size_t root = wanted.find("{root}");
            wanted = root == std::string::npos ? wanted : wanted.replace(root, 6, at.RootText());
            EXPECT_NE(all.find(wanted), std::string::npos) << "no log line holds: " << wanted;
        }
        kit()->Unload();
    }
};

TEST_F(BadInstallationsTest, EveryCaseOfTheCorpusLoadsAroundItsBadPart) {
    const fs::path corpus = fs::path(QZEKIT_TEST_DATA_DIR) / "bad_installations";
    const std::set<fs::path> cases((fs::directory_iterator(corpus)), fs::directory_iterator());
    ASSERT_GE(cases.size(), 10u);
    for (const fs::path& dir : cases) {
        SCOPED_TRACE(dir.filename().string());
        Installation at;
        fs::copy(dir, at.root(), fs::copy_options::recursive);
        fs::remove(at.root() / "expect.txt");
        AddGoodBundle(at);
        LoadAndCheck(at, ReadExpectation(dir / "expect.txt"));
    }
}

// Artifact text is widened byte by byte, so the UTF-8 folder is not found.
TEST_F(BadInstallationsTest, NonAsciiPathsLoadAroundTheirBadPart) {
    Installation at("Gr\xC3\xBC\xC3\x9F\x65-\xE6\x97\xA5\xE6\x9C\xAC");
    AddGoodBundle(at, "bin/biblioth\xC3\xA8que-\xE6\x97\xA5.lib");
    const std::string folder = "b\xC3\xBCndel";
    at.WriteManifest(folder, BadManifest(kExtensionLibrary));
    CopyPlugin(at.root() / "extensions" / fs::u8path(folder) / kExtensionLibrary);
    LoadAndCheck(at, Expectation{{folder, "good"}});
}

namespace pf = qzextensionkit::platform;
using Op = pf::testing::Operation;

class FaultsTest : public KitHost {
protected:
    void TearDown() override {
        pf::testing::ClearFailures();
        pf::SetLibraryDirectory(L"");
        KitHost::TearDown();
    }
};

// Bundle loads that fail on files as they are (missing root or library, a
// file that is no library, a wrong digest) are the bundle tests' rows; a
// library missing at the request is a case of the bad installations.
TEST_F(FaultsTest, EachPlatformFailureIsToldLeavesWhatItShouldAndTheNextCallWorks) {
    const std::string config = "configuration manager impl - load ";
    const std::string loaded = config + "all extension infos success";
    const std::string loadCom = "Bundle Loader - load bundle failed, because of load com failed";
    const std::string setDirectory = "Bundle Loader - Failed to set DLL directory, code:0x57";
    // kAtRequest: the load works and the failure comes at the request.
    enum Outcome { kFailed, kNoRecords, kLoaded, kAtRequest };
    // What is left: "p" a loader in the pool, "o" its library opened, "b" the
    // search directory at "bin", "r" the record served once the failure is gone.
    const struct {
        const char* name;
        Op op;
        int skip;
        std::string line;
        Outcome outcome;
        std::string left;
    } rows[] = {
        {"executable path empty", Op::kExecutablePath, 0,
         "configuration manager impl - get extension adapter mapping file path failed, becuase of "
         "extension_adapter_mapping.json is not exist",
         kFailed, "r"},
        // Existence tests: the mapping first, config.json second.
        {"config.json not found", Op::kFileExists, 1,
         config + "local configurations failed, becuase of config.json is not exist", kFailed, "r"},
        {"manifest not opened", Op::kOpenFile, 2, loaded, kNoRecords, "r"},
        {"class getter not exported", Op::kFindExport, 0, loadCom, kLoaded, "pob"},
        {"search directory not set", Op::kSetLibraryDirectory, 0, setDirectory, kLoaded, "p"},
        {"root gone at the request", Op::kFileExists, 0,
         "extension manager impl - create extension instance from dynamic library failed, "
         "because of root path not exist",
         kAtRequest, "por"},
    };
    const std::wstring marker = Backslashed(base::UTF8ToWide(install.RootText()));
    auto* configuration = qzextensionkit::QZEConfigurationManager::GetInstance();
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string number = std::to_string(++n), folder = "fault" + number;
        const std::string id = "f" + number, source = "src" + number, target = "web" + number;
        // The adapter of its own second point, so a Load derives a record.
        bundles.clear();
        AddBundle(folder, "");
        install.WriteManifest(folder, BundleManifest("extension_adapter",
                                                     Point(source, kProbeIid, {{id, kProbeClass}}) +
                                                         ", " + Point(target, kProbeIid, {}),
                                                     "", true));
        install.WriteMapping("{\"" + source + R"(": {"extensionPointId": ")" + target +
                             R"(", "clsid": ")" + kProbeClass + R"(", "iid": ")" + kProbeIid +
                             "\"}}");
        install.WriteConfig(ConfigWithArtifacts(bundles) + std::string(70000, ' '));
        pf::SetLibraryDirectory(marker.c_str());
        const long loads = QzeTestCounter(kLoadsCounter);
        log->Clear();
        if (row.outcome != kAtRequest) {
            pf::testing::InjectFailure(row.op, 1, 0x57, row.skip);
        }
        EXPECT_EQ(kit()->Load(), row.outcome != kFailed);
        void* object = nullptr;
        if (row.outcome == kAtRequest) {
            pf::testing::InjectFailure(row.op, 1, 0x57, row.skip);
            EXPECT_FALSE(kit()->GetExtensionById(id, &object) || object != nullptr);
        }
        pf::testing::ClearFailures();
        std::vector<std::string> lines = Lines();
        EXPECT_NE(std::find(lines.begin(), lines.end(), row.line), lines.end());
        std::vector<std::shared_ptr<qzextensionkit::Extension>> records, derived;
        configuration->GetExtensionInfosByExntensionPointID(target, derived);
        const bool read = row.outcome == kLoaded || row.outcome == kAtRequest;
        EXPECT_EQ(configuration->GetExtensionInfosByExntensionPointID(source, records), read);
        ASSERT_EQ(derived.size(), read ? 1u : 0u);
        EXPECT_TRUE(!read || derived[0]->GetId().size() == 38) << derived[0]->GetId();
        const bool pooled = qzextensionkit::QZEBundleManager::GetInstance()->ComLoaderIsExist(
            RootText(folder) + "\\" + kExtensionLibrary);
        const bool atBin =
            SearchDirectory() == Backslashed(base::UTF8ToWide(RootText(folder) + "\\bin"));
        std::string left = std::string(pooled ? "p" : "") +
                           (QzeTestCounter(kLoadsCounter) > loads ? "o" : "") + (atBin ? "b" : "");

        // Once the failure is gone a new load serves a new bundle, and a
        // loader left in the pool is not loaded again.
        kit()->Unload();
        log->Clear();
        AddBundle("next" + number,
                  Point("p.next" + number, kProbeIid, {{"n" + number, kProbeClass}}));
        install.WriteConfig(ConfigWithArtifacts(bundles));
        EXPECT_TRUE(kit()->Load());
        lines = Lines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "Bundle Loader - bundle has been loaded"),
                  pooled ? 1 : 0);
        ASSERT_TRUE(kit()->GetExtensionById("n" + number, &object));
        ReleaseObject(object);
        object = nullptr;
        left += kit()->GetExtensionById(id, &object) ? "r" : "";
        ReleaseObject(object);
        EXPECT_EQ(left, row.left);
        kit()->Unload();
    }
}

}  // namespace
}  // namespace qzetest
