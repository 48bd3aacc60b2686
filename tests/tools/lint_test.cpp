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

std::string GoodConfig(const std::string& extraArtifact = "") {
    return R"({"modules": [{"id": "core", "configurations": [{"key": "k", "value": "v"}]}],
               "ExtensionAuthInfo": {
                   "H5": {"https://a.example.com": [{"bundleId": "web", "accessKey": "k1"}]},
                   "Native": [{"bundleId": "n", "accessKey": "k2"}]},
               "artifacts": ["a", "adapter")" +
           extraArtifact + "]}";
}

// Bundle "a" with one extension point "host.menu" holding `extensions`;
// `root` adds or overrides root members.
std::string BundleA(const std::string& extensions, const std::string& root = "") {
    return R"({"id": "a", "version": "1.0", "foundationVersion": "3.0", "mainEntry": "bin/a.dll",
               "BundleClassId": "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}")" +
           root + R"(, "extensionPoints": [{"id": "host.menu", "iid": "{IID}", "extensions": )" +
           extensions + "}]}";
}

// A clean installation: the mapping, config.json, bundle "a" and the adapter.
void WriteGood(const Installation& install) {
    install.WriteMapping(R"({"host": {"menu": {"extensionPointId": "adapter.web", "version": "1.0",
               "clsid": "{CLS}", "iid": "{IID}", "isSingleton": false}}})");
    install.WriteConfig(GoodConfig());
    install.WriteManifest("a", BundleA(R"([{"id": "e1", "clsid": "{C}", "isSingleton": false,
        "payloads": {"title": "T"}, "constraints": [{"key": "os", "value": ["win"]}],
        "settingMap": {"modalPosition": "c", "modalSize": "s", "host": "h", "uri": "/u",
                       "openType": "tab"}}])"));
    install.Write("extensions/a/bin/a.dll", "library");
    install.WriteManifest("adapter", R"({"id": "extension_adapter", "mainEntry": "bin/ad.dll",
        "BundleClassId": "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}",
        "extensionPoints": [{"id": "adapter.web"}]})");
    install.Write("extensions/adapter/bin/ad.dll", "library");
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
        std::vector<std::string> lines;                          // the whole output
        std::vector<std::string> options;
    } cases[] = {
        {{{kMap, ""}}, {X + "missing: the kit fails the whole load"}, {}},
        {{{kMap, R"({"host": {"menu": {"extensionPointId": "nope"}}})"}},
         {X + "host.menu.extensionPointId: no extension point \"nope\" in a bundle with id "
              "\"extension_adapter\": the kit derives no records from extension point "
              "\"host.menu\""},
         {}},
        // Mapped to the adapter: what the derived records lose.
        {{{kMap, R"({"host": {"menu": {"extensionPointId": "adapter.web", "isSingleton": "no"},
                  "x.y": {}}})"},
          {kA, BundleA(R"([{"id": "e1", "payloads": {"p.q": "1"}},
                           {"id": "e2", "payloads": {"extensionId": "e1"}}])")}},
         {X + "host[\"x.y\"]: key holds \".\": the kit looks ids up by path and never finds this "
              "entry",
          X + "host.menu.isSingleton: not a boolean: the kit takes false",
          E + "0].payloads[\"p.q\"]: key holds \".\": the kit leaves this payload out of the "
              "record it derives",
          E + "1].payloads.extensionId: marks the record as derived: the kit derives no record "
              "from it"},
         {}},
        {{{kMap, R"({"adapter": {"web": {"extensionPointId": "adapter.web"}}})"}},
         {X + "adapter.web.extensionPointId: names its own extension point: the kit drops the "
              "records it derives"},
         {}},
        {{{kConfig, "[]"}},
         {C + "root is not an object: the kit loads nothing from it and still succeeds"},
         {}},
        {{{kConfig, R"({"modules": [{"configurations": []},
                        {"id": "m", "configurations": [{"key": "k"}]}],
                        "ExtensionAuthInfo": {"H5": {"https://a.example.com": [{"bundleId": "w"}]},
                        "Native": [{"bundleId": "n", "accessKey": ""}]},
                        "artifacts": ["a", "adapter", 5, "gone", "a"]})"}},
         {C + "modules[0]: no \"id\": the kit passes over the module",
          C + "modules[1].configurations[0]: no \"value\": the kit passes over the setting",
          C + "ExtensionAuthInfo.H5[\"https://a.example.com\"][0]: no \"accessKey\": the kit "
              "makes no record",
          C + "ExtensionAuthInfo.Native[0].accessKey: empty: the kit makes no record",
          C + "artifacts[2]: not a string: the kit passes over it",
          C + "artifacts[3]: no folder extensions/gone: the kit passes over the bundle",
          C + "artifacts[4]: names the folder of artifacts[0] again: the kit reads the bundle "
              "twice and drops the second copy's extensions as duplicates"},
         {}},
        {{{kConfig, GoodConfig(R"(, "../x")")}, {"x/manifest.json", "{}"}},
         {"extensions/../x/manifest.json: unreadable: the kit reads no path with a \"..\" part "
          "and passes over the bundle"},
         {}},
        {{{kA, "{\"id\": \"a\",\n  \"version\": }"}},
         {M + "not JSON (line 2, column 15: Unexpected token.): the kit passes over the bundle"},
         {}},
        {{{kA, R"({"extensionPoints": [{"iid": "{I}", "extensions": [{"id": "e"}]}]})"}},
         {M + "extensionPoints[0]: no \"id\": the kit passes over the extension point and its "
              "extensions"},
         {}},
        {{{kA, BundleA(R"([{"id": "e1", "isSingleton": "false", "settingMap": {"uri": "/u"},
                          "payloads": {"a": "", "b.c": 2}, "constraints": [{"value": ["x", 1]}]},
                          {"clsid": "{C}"}, 7, {"id": "e2"}, {"id": "e1"}])")}},
         {E + "0].isSingleton: not a boolean: the kit takes true",
          E + "0].payloads.a: empty: the kit leaves the payload out",
          E + "0].payloads[\"b.c\"]: not a string: the kit leaves the payload out",
          E + "0].constraints[0]: no \"key\": the kit files the values under the empty key",
          E + "0].constraints[0].value[1]: not a string: the kit leaves it out",
          E + "0].settingMap: missing \"modalPosition\", \"modalSize\", \"host\", \"openType\": "
              "the kit keeps an empty setting map",
          E + "1]: no \"id\": the kit leaves a null entry",
          E + "2]: not an object: the kit passes over it",
          E + "4]: id \"e1\" again in extension point \"host.menu\": the kit keeps the first (" +
              kA + ": extensionPoints[0].extensions[0]) and drops this one"},
         {}},
        // Too new for the host: nothing else of it is looked at.
        {{{kA, BundleA(R"([{"id": "e1"}, {"id": "e1"}])")}},
         {M + "foundationVersion: \"3.0\" is above the foundation 2.9.9: the kit keeps the "
              "bundle but none of its extensions"},
         {"--foundation", "2.9.9"}},
        {{{kA, BundleA("[]", R"(, "mainEntry": "bin/none.dll", "BundleClassId": "{0A1B}")")}},
         {M + "mainEntry: no file extensions/a/bin/none.dll: the kit fails to load the bundle",
          M + "BundleClassId: 6 characters, not 38: the kit cannot create the bundle's entry "
              "object"},
         {}},
        {{{kA, BundleA("[]", R"(, "version": 1, "foundationVersion": "01",
                    "BundleClassId": "[0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9]")")}},
         {M + "version: not a string: the kit takes the empty text",
          M + "foundationVersion: \"01\" is not a version: the kit lets the bundle run on every "
              "foundation",
          M + "BundleClassId: not a class id in braces: the kit cannot create the bundle's entry "
              "object"},
         {"--foundation", "3"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lines[0]);
        Installation install;
        WriteGood(install);
        for (const auto& [file, bytes] : c.files) {
            bytes.empty() ? install.Remove(file) : install.Write(file, bytes);
        }
        std::string expected;
        for (const std::string& line : c.lines) {
            expected += line + "\n";
        }
        ToolRun run = Lint(install, c.options);
        EXPECT_EQ(run.out, expected);
        EXPECT_EQ(run.status, 1) << run.err;
    }
}

TEST(QzekitLint, CleanEncryptedAndJson) {
    Installation install;
    WriteGood(install);
    ToolRun clean = Lint(install);
    EXPECT_EQ(clean.status, 0) << clean.out << clean.err;
    EXPECT_EQ(clean.out, "");
    EXPECT_EQ(Lint(install, {"--json", "--foundation", "3.0.0"}).out, "{\"findings\": []}\n");

    // Encrypted; blanks fill the last block, as the kit leaves them.
    std::string plain = GoodConfig();
    plain.append((16 - plain.size() % 16) % 16, ' ');
    install.WriteConfig(EncryptForConfig(plain, kKey));
    install.Write("host.key", kKey + "\n");
    const std::string keyFile = (install.root() / "host.key").u8string();
    EXPECT_EQ(Lint(install, {"--key-file", keyFile}).status, 0);
    ToolRun noKey = Lint(install);
    EXPECT_EQ(noKey.status, 1);
    EXPECT_EQ(noKey.out.rfind(kConfig + ": not JSON (line 1, column 1: ", 0), 0u) << noKey.out;
    EXPECT_NE(noKey.out.find("the kit fails the whole load; if it is encrypted, give --key-file"),
              std::string::npos);

    install.WriteConfig(R"({"artifacts": ["a", "adapter", ""]})");
    EXPECT_EQ(Lint(install, {"--json"}).out,
              "{\"findings\": [\n  {\"file\": \"extensions/config.json\", \"path\": "
              "\"artifacts[2]\", \"message\": \"empty: the kit passes over it\"}\n]}\n");
    // With a key, plain text fails as the kit fails it.
    EXPECT_EQ(Lint(install, {"--key-file", keyFile}).out,
              "extensions/config.json: not base64 text: the kit fails the whole load; it reads as "
              "plain JSON, which the kit reads only when the host sets no key\n");
}

}  // namespace
}  // namespace qzetest
