#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/support/installation.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

const std::string kMap = "extension_adapter_mapping.json", kConfig = "extensions/config.json",
                  kA = "extensions/a/manifest.json";
const std::string kKey = "0123456789abcdef0123456789ABCDEF";
const std::string kGoodConfig = R"({"artifacts": ["a", "adapter"]})";

// Bundle "a", its extension point "host.menu" holding `extensions`.
std::string BundleA(const std::string& extensions) {
    return R"({"id": "a", "version": "1.0", "foundationVersion": "3.0", "mainEntry": "bin/a.dll",
               "BundleClassId": "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}",
               "extensionPoints": [{"id": "host.menu", "iid": "{IID}", "extensions": )" +
           extensions + "}]}";
}

// A clean installation: the mapping, config.json, bundle "a" and the adapter.
void WriteGood(const Installation& install) {
    install.WriteMapping(R"({"host": {"menu": {"extensionPointId": "adapter.web"}}})");
    install.WriteConfig(kGoodConfig);
    install.WriteManifest("a", BundleA(R"([{"id": "e1", "clsid": "{C}", "isSingleton": false,
        "payloads": {"title": "T"}, "constraints": [{"key": "os", "value": ["win"]}],
        "settingMap": {"modalPosition": "c", "modalSize": "s", "host": "h", "uri": "/u",
                       "openType": "tab"}}])"));
    install.Write("extensions/a/bin/a.dll", "library");
    install.WriteManifest(
        "adapter", R"({"id": "extension_adapter", "extensionPoints": [{"id": "adapter.web"}]})");
}

ToolRun Lint(const Installation& install, std::vector<std::string> options = {}) {
    options.insert(options.begin(), "lint");
    options.push_back(install.RootText());
    return RunTool(options);
}

TEST(QzekitLint, EachBrokenElementGivesItsFinding) {
    const std::string X = kMap + ": ", C = kConfig + ": ", M = kA + ": ",
                      E = M + "extensionPoints[0].extensions[";
    const struct {
        std::vector<std::pair<std::string, std::string>> files;  // "" removes the file
        std::string out;  // the whole output but its last line end
    } cases[] = {
        {{{kMap, ""}, {kConfig, "[]"}},
         {X + "missing: the kit fails the whole load\n" + C +
          "root is not an object: the kit loads nothing from it and still succeeds"}},
        {{{kMap, R"({"host": {"menu": {"extensionPointId": "nope"}}})"}},
         {X + "host.menu.extensionPointId: no extension point \"nope\" in a bundle with id "
              "\"extension_adapter\": the kit derives no records from extension point "
              "\"host.menu\""}},
        {{{kConfig,
           R"({"modules": [{"configurations": []}], "artifacts": ["a", "adapter", "gone"]})"}},
         {C + "modules[0]: no \"id\": the kit passes over the module\n" + C +
          "artifacts[2]: no folder extensions/gone: the kit passes over the bundle"}},
        {{{kA, BundleA(R"([{"id": "e1", "isSingleton": "false", "settingMap": {"uri": "/u"},
                          "payloads": {"p.q": "1"}},
                          {"id": "e1"}])")}},
         {E + "0].isSingleton: not a boolean: the kit takes true\n" + E +
          "0].settingMap: missing \"modalPosition\", \"modalSize\", \"host\", \"openType\": "
          "the kit keeps an empty setting map\n" +
          E + "1]: id \"e1\" again in extension point \"host.menu\": the kit keeps the first (" +
          kA + ": extensionPoints[0].extensions[0]) and drops this one\n" + E +
          "0].payloads[\"p.q\"]: key holds \".\": the kit leaves this payload out of the record "
          "it derives"}},
    };
    for (const auto& c : cases) {
        Installation install;
        WriteGood(install);
        for (const auto& [file, bytes] : c.files) {
            bytes.empty() ? install.Remove(file) : install.Write(file, bytes);
        }
        ToolRun run = Lint(install);
        EXPECT_EQ(run.out + std::to_string(run.status), c.out + "\n1") << run.err;
    }
}

TEST(QzekitLint, CleanEncryptedAndJson) {
    Installation install;
    WriteGood(install);
    ToolRun clean = Lint(install);
    EXPECT_EQ(clean.out + std::to_string(clean.status), "0") << clean.err;

    // Encrypted; blanks fill the last block, as the kit leaves them.
    std::string plain = kGoodConfig;
    plain.append((16 - plain.size() % 16) % 16, ' ');
    install.WriteConfig(EncryptForConfig(plain, kKey));
    install.Write("host.key", kKey + "\n");
    const std::string keyFile = (install.root() / "host.key").u8string();
    EXPECT_EQ(Lint(install, {"--key-file", keyFile}).status, 0);

    install.WriteConfig(R"({"artifacts": ["a", "adapter", ""]})");
    EXPECT_EQ(Lint(install, {"--json"}).out,
              "{\"findings\": [\n  {\"file\": \"extensions/config.json\", \"path\": "
              "\"artifacts[2]\", \"message\": \"empty: the kit passes over it\"}\n]}\n");
}

}  // namespace
}  // namespace qzetest
