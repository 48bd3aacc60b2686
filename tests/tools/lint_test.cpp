#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "config/support/installation.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

const char kClassId[] = "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}";

std::string GoodMapping() {
    return R"({"host": {"menu": {"extensionPointId": "adapter.web", "version": "1.0",
               "clsid": "{CLS}", "iid": "{IID}", "isSingleton": false}}})";
}

std::string GoodConfig(const std::string& extraArtifact = "") {
    return R"({"modules": [{"id": "core", "configurations": [{"key": "k", "value": "v"}]}],
               "ExtensionAuthInfo": {
                   "H5": {"https://a.example.com": [{"bundleId": "web", "accessKey": "k1"}]},
                   "Native": [{"bundleId": "n", "accessKey": "k2"}]},
               "artifacts": ["a", "adapter")" +
           extraArtifact + "]}";
}

// Bundle "a": a library, an entry class and one extension point "host.menu"
// with the given extensions, unless `root` replaces the root members.
std::string BundleA(const std::string& extensions, const std::string& root = "") {
    return R"({"id": "a", "version": "1.0", "foundationVersion": "3.0",
               "mainEntry": "bin/a.dll", "BundleClassId": ")" +
           std::string(kClassId) + "\"" + root + R"(,
               "extensionPoints": [{"id": "host.menu", "iid": "{IID}", "extensions": )" +
           extensions + "}]}";
}

const char kGoodExtension[] = R"({"id": "e1", "clsid": "{C}", "isSingleton": false,
    "payloads": {"title": "T"}, "constraints": [{"key": "os", "value": ["win"]}],
    "settingMap": {"modalPosition": "c", "modalSize": "s", "host": "h", "uri": "/u",
                   "openType": "tab"}})";

// A clean installation: the mapping, config.json, bundle "a" and the adapter.
void WriteGood(const Installation& install) {
    install.WriteMapping(GoodMapping());
    install.WriteConfig(GoodConfig());
    install.WriteManifest("a", BundleA(std::string("[") + kGoodExtension + "]"));
    install.Write("extensions/a/bin/a.dll", "library");
    install.WriteManifest("adapter", R"({"id": "extension_adapter", "mainEntry": "bin/ad.dll",
        "BundleClassId": ")" + std::string(kClassId) +
                                         R"(", "extensionPoints": [{"id": "adapter.web"}]})");
    install.Write("extensions/adapter/bin/ad.dll", "library");
}

std::vector<std::string> Lint(const Installation& install, std::vector<std::string> extra = {}) {
    extra.push_back(install.RootText());
    extra.insert(extra.begin(), "lint");
    return extra;
}

TEST(QzekitLint, EachBrokenElementGivesItsFinding) {
    struct Case {
        // Files below the host folder and their new bytes, or "<remove>".
        std::vector<std::pair<std::string, std::string>> files;
        std::string expected;  // the whole output
        std::vector<std::string> options = {};
    } cases[] = {
        {{{"extension_adapter_mapping.json", "<remove>"}},
         "extension_adapter_mapping.json: missing: the kit fails the whole load\n"},
        {{{"extension_adapter_mapping.json", "{\"host\": }"}},
         "extension_adapter_mapping.json: not JSON (line 1, column 10: Unexpected token.): the "
         "kit fails the whole load\n"},
        {{{"extension_adapter_mapping.json", R"({"host.menu": {"extensionPointId": "x"}})"}},
         "extension_adapter_mapping.json: [\"host.menu\"]: key holds \".\": the kit looks ids up "
         "by path and never finds this entry\n"},
        {{{"extension_adapter_mapping.json",
           R"({"host": {"menu": {"extensionPointId": "nope"}}})"}},
         "extension_adapter_mapping.json: host.menu.extensionPointId: no extension point "
         "\"nope\" in a bundle with id \"extension_adapter\": the kit derives no records from "
         "extension point \"host.menu\"\n"},
        // Mapped to the adapter: what the derived records lose.
        {{{"extension_adapter_mapping.json",
           R"({"host": {"menu": {"extensionPointId": "adapter.web", "isSingleton": "no"},
                        "x.y": {}}})"},
          {"extensions/a/manifest.json", BundleA(R"([{"id": "e1", "payloads": {"p.q": "1"}},
                       {"id": "e2", "payloads": {"extensionId": "e1"}}])")}},
         "extension_adapter_mapping.json: host[\"x.y\"]: key holds \".\": the kit looks ids up "
         "by path and never finds this entry\n"
         "extension_adapter_mapping.json: host.menu.isSingleton: not a boolean: the kit takes "
         "false\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[0].payloads[\"p.q\"]: key "
         "holds \".\": the kit leaves this payload out of the record it derives\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[1].payloads.extensionId: "
         "marks the record as derived: the kit derives no record from it\n"},
        {{{"extension_adapter_mapping.json", R"({"adapter": {"web": {"extensionPointId":
                                                   "adapter.web"}}})"}},
         "extension_adapter_mapping.json: adapter.web.extensionPointId: names its own extension "
         "point: the kit drops the records it derives\n"},
        {{{"extensions/config.json", "<remove>"}},
         "extensions/config.json: missing: the kit fails the whole load\n"},
        {{{"extensions/config.json", "[]"}},
         "extensions/config.json: root is not an object: the kit loads nothing from it and "
         "still succeeds\n"},
        {{{"extensions/config.json",
           R"({"modules": [{"configurations": []}, {"id": "m", "configurations": [{"key": "k"}]}],
             "artifacts": ["a", "adapter"]})"}},
         "extensions/config.json: modules[0]: no \"id\": the kit passes over the module\n"
         "extensions/config.json: modules[1].configurations[0]: no \"value\": the kit passes "
         "over the setting\n"},
        {{{"extensions/config.json",
           R"({"ExtensionAuthInfo": {"H5": {"https://a.example.com": [{"bundleId": "w"}]},
             "Native": [{"bundleId": "n", "accessKey": ""}]}, "artifacts": ["a", "adapter"]})"}},
         "extensions/config.json: ExtensionAuthInfo.H5[\"https://a.example.com\"][0]: no "
         "\"accessKey\": the kit makes no record\n"
         "extensions/config.json: ExtensionAuthInfo.Native[0].accessKey: empty: the kit makes "
         "no record\n"},
        {{{"extensions/config.json", GoodConfig(R"(, 5, "gone", "a")")}},
         "extensions/config.json: artifacts[2]: not a string: the kit passes over it\n"
         "extensions/config.json: artifacts[3]: no folder extensions/gone: the kit passes over "
         "the bundle\n"
         "extensions/config.json: artifacts[4]: names the folder of artifacts[0] again: the kit "
         "reads the bundle twice and drops the second copy's extensions as duplicates\n"},
        {{{"extensions/config.json", GoodConfig(R"(, "../x")")}, {"x/manifest.json", "{}"}},
         "extensions/../x/manifest.json: unreadable: the kit reads no path with a \"..\" part "
         "and passes over the bundle\n"},
        {{{"extensions/a/manifest.json", "{\"id\": \"a\",\n  \"version\": }"}},
         "extensions/a/manifest.json: not JSON (line 2, column 15: Unexpected token.): the kit "
         "passes over the bundle\n"},
        {{{"extensions/a/manifest.json", "[]"}},
         "extensions/a/manifest.json: root is not an object: the kit passes over the bundle\n"},
        {{{"extensions/a/manifest.json", BundleA("[{\"clsid\": \"{C}\"}, 7]")}},
         "extensions/a/manifest.json: extensionPoints[0].extensions[0]: no \"id\": the kit "
         "leaves a null entry\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[1]: not an object: the kit "
         "passes over it\n"},
        {{{"extensions/a/manifest.json",
           R"({"extensionPoints": [{"iid": "{I}", "extensions": [{"id": "e"}]}]})"}},
         "extensions/a/manifest.json: extensionPoints[0]: no \"id\": the kit passes over the "
         "extension point and its extensions\n"},
        {{{"extensions/a/manifest.json",
           BundleA(R"([{"id": "e1", "isSingleton": "false", "settingMap": {"uri": "/u"},
                     "payloads": {"a": "", "b.c": 2}, "constraints": [{"value": ["x", 1]}]}])")}},
         "extensions/a/manifest.json: extensionPoints[0].extensions[0].isSingleton: not a "
         "boolean: the kit takes true\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[0].payloads.a: empty: the "
         "kit leaves the payload out\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[0].payloads[\"b.c\"]: not a "
         "string: the kit leaves the payload out\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[0].constraints[0]: no "
         "\"key\": the kit files the values under the empty key\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[0].constraints[0].value[1]: "
         "not a string: the kit leaves it out\n"
         "extensions/a/manifest.json: extensionPoints[0].extensions[0].settingMap: missing "
         "\"modalPosition\", \"modalSize\", \"host\", \"openType\": the kit keeps an empty "
         "setting map\n"},
        {{{"extensions/a/manifest.json", BundleA(R"([{"id": "e1"}, {"id": "e2"}, {"id": "e1"}])")}},
         "extensions/a/manifest.json: extensionPoints[0].extensions[2]: id \"e1\" again in "
         "extension point \"host.menu\": the kit keeps the first (extensions/a/manifest.json: "
         "extensionPoints[0].extensions[0]) and drops this one\n"},
        // Too new for the host: nothing else of it is looked at.
        {{{"extensions/a/manifest.json", BundleA(R"([{"id": "e1"}, {"id": "e1"}])")}},
         "extensions/a/manifest.json: foundationVersion: \"3.0\" is above the foundation 2.9.9: "
         "the kit keeps the bundle but none of its extensions\n",
         {"--foundation", "2.9.9"}},
        {{{"extensions/a/manifest.json",
           BundleA("[]", R"(, "mainEntry": "bin/none.dll", "BundleClassId": "{0A1B}")")}},
         "extensions/a/manifest.json: mainEntry: no file extensions/a/bin/none.dll: the kit "
         "fails to load the bundle\n"
         "extensions/a/manifest.json: BundleClassId: 6 characters, not 38: the kit cannot "
         "create the bundle's entry object\n"},
        {{{"extensions/a/manifest.json", BundleA("[]", R"(, "version": 1, "foundationVersion": "01",
                    "BundleClassId": "[0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9]")")}},
         "extensions/a/manifest.json: version: not a string: the kit takes the empty text\n"
         "extensions/a/manifest.json: foundationVersion: \"01\" is not a version: the kit lets "
         "the bundle run on every foundation\n"
         "extensions/a/manifest.json: BundleClassId: not a class id in braces: the kit cannot "
         "create the bundle's entry object\n",
         {"--foundation", "3"}},
    };
    for (const Case& c : cases) {
        Installation install;
        WriteGood(install);
        for (const auto& file : c.files) {
            if (file.second == "<remove>") {
                install.Remove(file.first);
            } else {
                install.Write(file.first, file.second);
            }
        }
        ToolRun run = RunTool(Lint(install, c.options));
        EXPECT_EQ(run.out, c.expected) << c.files[0].first << ": " << c.files[0].second;
        EXPECT_EQ(run.status, 1) << run.err;
    }
}

TEST(QzekitLint, CleanEncryptedAndJson) {
    Installation install;
    WriteGood(install);
    ToolRun clean = RunTool(Lint(install));
    EXPECT_EQ(clean.status, 0) << clean.out << clean.err;
    EXPECT_EQ(clean.out, "");
    EXPECT_EQ(RunTool(Lint(install, {"--json", "--foundation", "3.0.0"})).out,
              "{\"findings\": []}\n");

    // Encrypted; blanks fill the last block, as the kit leaves them.
    const std::string key = "0123456789abcdef0123456789ABCDEF";
    std::string plain = GoodConfig();
    plain.append((16 - plain.size() % 16) % 16, ' ');
    install.WriteConfig(EncryptForConfig(plain, key));
    install.Write("host.key", key + "\n");
    const std::string keyFile = (install.root() / "host.key").u8string();
    EXPECT_EQ(RunTool(Lint(install, {"--key-file", keyFile})).status, 0);
    ToolRun noKey = RunTool(Lint(install));
    EXPECT_EQ(noKey.status, 1);
    EXPECT_NE(noKey.out.find("extensions/config.json: not JSON (line 1, column 1: "),
              std::string::npos)
        << noKey.out;
    EXPECT_NE(noKey.out.find("the kit fails the whole load; if it is encrypted, give --key-file"),
              std::string::npos);

    // The JSON document names file, path and message of each finding.
    install.WriteConfig(R"({"artifacts": ["a", "adapter", ""]})");
    EXPECT_EQ(RunTool(Lint(install, {"--json"})).out,
              "{\"findings\": [\n  {\"file\": \"extensions/config.json\", \"path\": "
              "\"artifacts[2]\", \"message\": \"empty: the kit passes over it\"}\n]}\n");
    // With a key, plain text fails as the kit fails it.
    ToolRun keyed = RunTool(Lint(install, {"--key-file", keyFile}));
    EXPECT_EQ(keyed.out,
              "extensions/config.json: not base64 text: the kit fails the whole load; it reads as "
              "plain JSON, which the kit reads only when the host sets no key\n");
}

}  // namespace
}  // namespace qzetest
