#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bundle/support/bundle_dirs.h"
#include "config/support/installation.h"
#include "plugins/test_interfaces.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

std::string Lib(const std::string& name) {
    return name + kLibrarySuffix;
}

// Bundle "b" whose bin/main is a copy of `plugin` (or, if none, `bytes`),
// with a copy of `dependency` beside it; "core" and one feature on.
void WriteInstallation(const Installation& install, const std::string& plugin,
                       const std::string& bytes, const std::string& classId,
                       const std::string& dependency = "", const std::string& foundation = "") {
    install.WriteMapping("{}");
    install.WriteConfig(R"({"artifacts": ["b"], "modules": [{"id": "core", "configurations": [
        {"key": "im_enable_burn_chat", "value": "true"}]}]})");
    install.WriteManifest(
        "b", R"({"id": "bundle.b", "version": "1.0.0", "foundationVersion": ")" + foundation +
                 R"(", "mainEntry": "bin/)" + Lib("main") + R"(", "BundleClassId": ")" + classId +
                 R"(", "extensionPoints": [{"id": "host.toolbar", "iid": "{IID-T}",
                 "extensions": [{"id": "hello.button", "clsid": "{CLS-H}", "isSingleton": true}]}]})");
    const std::filesystem::path bin = install.root() / "extensions" / "b" / "bin";
    std::filesystem::create_directories(bin);
    if (!plugin.empty()) {
        std::filesystem::copy_file(BuiltPlugin(plugin), bin / Lib("main"));
    } else if (!bytes.empty()) {
        install.Write("extensions/b/bin/" + Lib("main"), bytes);
    }
    if (!dependency.empty()) {
        const std::string name = std::filesystem::u8path(dependency).filename().u8string();
        std::filesystem::copy_file(BuiltPlugin(dependency), bin / Lib(name));
    }
}

TEST(QzekitInspect, SaysWhyEachBundleDoesOrDoesNotLoad) {
    const std::string unserved = "{0BADC1A5-0000-4000-8000-000000000001}";
    const std::string bundle = "qzekit_plugin_bundle";
    const struct {
        std::string plugin, bytes;
        std::vector<std::string> expected;
        int status = 1;
        std::string classId = kBundleClass, dependency = "";
        std::vector<std::string> options = {};
    } cases[] = {
        // clang-format off
        {bundle, "", {"Load: succeeded", "host.toolbar  iid {IID-T}\n    hello.button  clsid {CLS-H}"
          "  library bin/" + Lib("main") + "  singleton",
          "foundation -: fits", std::string("loaded; entry object ") + kBundleClass + " is live",
          "Modules on: core\nFeatures on: im_enable_burn_chat\n",
          "  [QZExtensionKit] Bundle Loader - initialze bundle entry success\n"}, 0},
        {"", "", {"FAILED: the library file does not exist\n    library: "}},
        {"dep_bundle/qzekit_plugin_dependent", "", {"FAILED: a library it depends on is missing",
          "system loader: ", "missing dependency: " + Lib("qzekit_plugin_dep_helper")},
         1, kDependentClass},
        {"qzekit_plugin_symbol_user", "", {"FAILED: a function or symbol it needs is missing",
          "missing symbol: ", "SymbolDepExtra"}, 1, kBundleClass,
         "symbol_short/qzekit_plugin_symbol_dep"},
        {"", "this is not a library\n", {"FAILED: the file is not a library"}},
        {bundle, "", {"FAILED: the library does not serve the entry class id " + unserved,
          "reports this as E_FAIL", "class id " + unserved + ": DllGetClassObject answered 0x"},
         1, unserved},
        {bundle, "", {"FAILED: the file check refused the library: its MD5 is ",
          "manifest.json says libFileMD5 \"\""}, 1, kBundleClass, "", {"--lib-file-verify"}},
        // clang-format on
    };
    for (const auto& c : cases) {
        Installation install;
        WriteInstallation(install, c.plugin, c.bytes, c.classId, c.dependency);
        std::vector<std::string> arguments{"inspect"};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        arguments.push_back(install.RootText());
        ToolRun run = RunTool(arguments);
        EXPECT_EQ(run.status, c.status) << c.expected[0] << run.err;
        for (const std::string& text : c.expected) {
            EXPECT_NE(run.out.find(text), std::string::npos) << text << " in\n" << run.out;
        }
    }
}

// The bundle wants foundation 2.0: it loads, but nothing of it is in force.
TEST(QzekitInspect, JsonAndSettings) {
    Installation install;
    WriteInstallation(install, "qzekit_plugin_bundle", "", kBundleClass, "", "2.0");
    const std::string key = "0123456789abcdef0123456789ABCDEF";
    std::string plain = R"({"artifacts": ["b"]})";
    plain.resize((plain.size() + 15) / 16 * 16, ' ');
    install.WriteConfig(EncryptForConfig(plain, key));
    install.Write("key.txt", key + "\n");
    const ToolRun run = RunTool({"inspect", "--json", "--foundation", "1.5", "--key-file",
                                 install.RootText() + "/key.txt", install.RootText()});
    for (const char* part :
         {"\"settings\": {\"foundationVersion\": \"1.5\", \"secKey\": true",
          "\"loaded\": true,\n  \"loadProblem\": \"\",\n  \"extensionPoints\": [],",
          "\"foundationFits\": false", ", \"loaded\": true, \"outcome\": "}) {
        EXPECT_TRUE(run.status == 0 && run.out.find(part) != std::string::npos) << part << run.out;
    }
}

}  // namespace
}  // namespace qzetest
