// Each bad part sits beside a good bundle that must still be served; each
// platform failure is followed by a load that works.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "bundle/support/verify_pki.h"
#include "kit/bundle_manager.h"
#include "kit/configuration_manager.h"
#include "manager/support/kit_host.h"
#include "platform/platform.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace qzetest {
namespace {

namespace fs = std::filesystem;

constexpr char kNoLibraryLine[] =
    "Bundle Loader - load bundle failed, because of library file path not exist or empty";

// expect.txt: "artifacts <folders...>", "load false", "log <text>" ("{root}"
// for the root).
struct Expectation {
    std::vector<std::string> artifacts{"bad", "good"};
    bool loads = true;
    std::vector<std::string> lines;
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

std::string BadManifest(const std::string& mainEntry, const std::string& point = "bad.point") {
    return R"({"id": "bad", "mainEntry": ")" + mainEntry + R"(", "extensionPoints": [)" +
           Point(point, kProbeIid, {{"bad.ext", kProbeClass}}) + "]}";
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
    // Returns the log's lines.
    std::vector<std::string> LoadAndCheck(const Installation& at, const Expectation& expect) {
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
        const std::vector<std::string> lines = log->Texts();
        std::string all;
        for (const std::string& line : lines) {
            all += line + "\n";
        }
        for (std::string wanted : expect.lines) {
            const size_t root = wanted.find("{root}");
            wanted = root == std::string::npos ? wanted : wanted.replace(root, 6, at.RootText());
            EXPECT_NE(all.find(wanted), std::string::npos) << "no log line holds: " << wanted;
        }
        kit()->Unload();
        return lines;
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

TEST_F(BadInstallationsTest, MadeCasesLoadAroundTheirBadPart) {
    struct Row {
        const char* name;
        std::string rootName;
        std::function<void(const Installation&, Expectation&)> make;
    } const rows[] = {
        {"truncated library", "config",
         [](const Installation& at, Expectation& expect) {
             at.WriteManifest("bad", BadManifest("bin/plugin.dll"));
             const fs::path file = at.root() / "extensions" / "bad" / "bin" / "plugin.dll";
             CopyPlugin(file);
             fs::resize_file(file, 1024);
             expect.lines = {"Bundle Loader - load bundle failed, because of load com failed"};
         }},
        {"deeply nested manifest", "config",
         [](const Installation& at, Expectation& expect) {
             at.WriteManifest("bad", std::string(100000, '['));
             at.WriteManifest("bad2", std::string(50000, '{') + R"("id": "x")");
             expect.artifacts = {"bad", "bad2", "good"};
         }},
        // Artifact text is widened byte by byte, so the UTF-8 folder is not found.
        {"non-ASCII paths", "Gr\xC3\xBC\xC3\x9F\x65-\xE6\x97\xA5\xE6\x9C\xAC",
         [](const Installation& at, Expectation& expect) {
             at.Remove("extensions/good");
             AddGoodBundle(at, "bin/biblioth\xC3\xA8que-\xE6\x97\xA5.lib");
             const std::string folder = "b\xC3\xBCndel";
             at.WriteManifest(folder, BadManifest(kExtensionLibrary));
             CopyPlugin(at.root() / "extensions" / fs::u8path(folder) / kExtensionLibrary);
             expect.artifacts = {folder, "good"};
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Installation at(row.rootName);
        AddGoodBundle(at);
        Expectation expect;
        row.make(at, expect);
        LoadAndCheck(at, expect);
    }
}

// The bad bundles' library is missing: records are read, none built.
TEST_F(BadInstallationsTest, HugeCountOfBundlesIsReadWhole) {
#if defined(_WIN32)
    if (GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr) {
        GTEST_SKIP() << "10,000 bundle folders take about 150 s under Wine, all of it in "
                        "making and removing files";
    }
#endif
    constexpr int kBundles = 10000;
    AddGoodBundle(install);
    Expectation expect{{}, true, {}};
    for (int i = 0; i < kBundles; ++i) {
        expect.artifacts.push_back("b" + std::to_string(i));
        install.WriteManifest(expect.artifacts.back(),
                              BadManifest("bin/missing.dll", "many.b" + std::to_string(i)));
    }
    expect.artifacts.push_back("good");
    const std::vector<std::string> lines = LoadAndCheck(install, expect);
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), std::string("[QZExtensionKit] ") + kNoLibraryLine),
        kBundles);
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
    const std::string findFailed =
        config + "all extension infos failed, because of find extensions failed";
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
        {"executable path empty for config.json", Op::kExecutablePath, 1,
         config + "local configurations failed, because of get extensions dir failed", kFailed,
         "r"},
        // Existence tests: the mapping first, config.json second.
        {"mapping not found", Op::kFileExists, 0, findFailed, kFailed, "r"},
        {"config.json not found", Op::kFileExists, 1,
         config + "local configurations failed, becuase of config.json is not exist", kFailed, "r"},
        {"config.json not opened", Op::kOpenFile, 1,
         config + "local configurations failed, becuase of load config.json failed", kFailed, "r"},
        {"manifest not opened", Op::kOpenFile, 2, loaded, kNoRecords, "r"},
        {"class getter not exported", Op::kFindExport, 0, loadCom, kLoaded, "pob"},
        {"search directory not set", Op::kSetLibraryDirectory, 0, setDirectory, kLoaded, "p"},
        // Every identifier asked for fails.
        {"no identifier for the derived record", Op::kCreateGuid, 0, loaded, kLoaded, "por"},
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
        const int times = row.op == Op::kCreateGuid ? -1 : 1;
        if (row.outcome != kAtRequest) {
            pf::testing::InjectFailure(row.op, times, 0x57, row.skip);
        }
        EXPECT_EQ(kit()->Load(), row.outcome != kFailed);
        void* object = nullptr;
        if (row.outcome == kAtRequest) {
            pf::testing::InjectFailure(row.op, times, 0x57, row.skip);
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
        if (read) {
            const std::string derivedId = derived[0]->GetId();
            EXPECT_TRUE(row.op == Op::kCreateGuid ? derivedId == "{}"
                                                  : derivedId.size() == 38 && derivedId[0] == '{')
                << derivedId;
        }
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

// A wrong digest under the file check is the bundle tests' row.
TEST_F(KitHost, TheHostsSwitchesDecideWhatIsCheckedAndAFailedLibraryIsNeverOpened) {
    const std::string md5 = Md5Hex(ReadBytes(BuiltPlugin("qzekit_plugin_extension")));
    // Rows: file check, signature check, digest, the last line of the load
    // that is the checks' or the loader's failure ("" when none).
    const std::tuple<bool, bool, std::string, std::string> rows[] = {
        {true, false, md5, "[SignVerify] Verify lib file md5 success."},
        {true, true, md5, "Bundle Loader - load bundle failed, because of file sign verify failed"},
        {false, true, std::string(32, '0'), ""},
    };
    int n = 0;
    for (const auto& [fileCheck, signCheck, digest, last] : rows) {
        const std::string folder = "row" + std::to_string(++n), id = "e" + std::to_string(n);
        bundles.clear();
        AddBundle(folder, Point("p." + folder, kProbeIid, {{id, kProbeClass}}),
                  R"("libFileMD5": ")" + digest + "\"");
        kit()->SetLibFileVerifyEnable(fileCheck);
        kit()->SetSignVerifyEnable(signCheck);
        const long loads = QzeTestCounter(kLoadsCounter);
        log->Clear();
        EXPECT_TRUE(Load());
        std::string checked;
        for (const std::string& line : Lines()) {
            checked =
                line.rfind("[SignVerify] ", 0) == 0 || line.find("failed") != std::string::npos
                    ? line
                    : checked;
        }
        const bool loaded = last.find("failed") == std::string::npos;
        void* object = nullptr;
        EXPECT_EQ(kit()->GetExtensionById(id, &object), loaded);
        ReleaseObject(object);
        EXPECT_EQ(checked + "|" + std::to_string(QzeTestCounter(kLoadsCounter) - loads),
                  last + "|" + (loaded ? "1" : "0"));
        kit()->Unload();
    }
}

}  // namespace
}  // namespace qzetest
