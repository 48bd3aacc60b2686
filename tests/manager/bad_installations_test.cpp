// Each bad part sits beside a good bundle that must still be served.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "manager/support/kit_host.h"

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

}  // namespace
}  // namespace qzetest
