#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/json/json_reader.h"
#include "common/capture_logger.h"
#include "config/configuration_manager_impl.h"
#include "config/support/installation.h"
#include "model/extension.h"
#include "model/setting_map.h"
#include "platform/platform.h"

namespace qzextensionkit {
namespace {

using qzetest::ConfigLine;
using qzetest::ConfigWithArtifacts;
using qzetest::Installation;
using qzetest::Manifest;

// The records in force under one extension point, or none when the point is
// unknown.
std::vector<std::shared_ptr<Extension>> InForce(IQZEConfigurationManager& manager,
                                                const std::string& point) {
    std::vector<std::shared_ptr<Extension>> records;
    manager.GetExtensionInfosByExntensionPointID(point, records);
    return records;
}

std::vector<std::string> Ids(const std::vector<std::shared_ptr<Extension>>& records) {
    std::vector<std::string> ids;
    for (auto& record : records) {
        ids.push_back(record->GetId());
    }
    return ids;
}

std::vector<std::string> ConfigLines(const std::vector<std::string>& texts) {
    std::vector<std::string> lines;
    for (auto& text : texts) {
        lines.push_back(ConfigLine(text));
    }
    return lines;
}

const char kLoadFailed[] = "load all extension infos failed, because of find extensions failed";
const char kLoadSuccess[] = "load all extension infos success";
const char kDirSuccess[] = "get extensions dir success";

TEST(ConfigurationLoad, StagesAndTheirMessages) {
    std::string parseError;
    base::JSONReader::ReadAndReturnError("{\"modules\": [", 0, nullptr, &parseError);
    const std::string notExist =
        "load local configurations failed, becuase of config.json is not exist";
    struct Case {
        const char* name;
        const char* mapping;  // null: no file
        const char* config;   // null: no file
        bool extensionsDir;
        bool failExecutablePath;
        bool result;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {"no mapping file", nullptr, "{}", true, false, false, {kLoadFailed}},
        {"mapping not JSON", "{oops", "{}", true, false, false, {kLoadFailed}},
        {"mapping a list", "[]", "{}", true, false, false, {kLoadFailed}},
        {"no executable path",
         "{}",
         "{}",
         true,
         true,
         false,
         {"get extension adapter mapping file path failed, becuase of "
          "extension_adapter_mapping.json is not exist",
          kLoadFailed}},
        {"no config.json", "{}", nullptr, true, false, false, {kDirSuccess, notExist, kLoadFailed}},
        {"no extensions directory",
         "{}",
         nullptr,
         false,
         false,
         false,
         {kDirSuccess, notExist, kLoadFailed}},
        {"config not JSON",
         "{}",
         "{\"modules\": [",
         true,
         false,
         false,
         {kDirSuccess,
          "load local configurations failed, becuase of parse json config.json failed, " +
              parseError,
          kLoadFailed}},
        {"config a list", "{}", "[1, 2]", true, false, true, {kDirSuccess, kLoadSuccess}},
        {"config empty object", "{}", "{}", true, false, true, {kDirSuccess, kLoadSuccess}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Installation install;
        if (c.mapping) {
            install.WriteMapping(c.mapping);
        }
        if (c.config) {
            install.WriteConfig(c.config);
        } else if (c.extensionsDir) {
            install.Write("extensions/readme.txt", "");
        }
        QZEConfigurationManagerImpl manager;
        auto log = qzetest::CaptureLog();
        if (c.failExecutablePath) {
            platform::testing::InjectFailure(platform::testing::Operation::kExecutablePath);
        }
        EXPECT_EQ(manager.LoadAllExtensionInfos(), c.result);
        platform::testing::ClearFailures();
        EXPECT_EQ(log->Texts(), ConfigLines(c.lines));
        std::vector<Artifact*> artifacts;
        manager.GetAllArtifacts(artifacts);
        EXPECT_TRUE(artifacts.empty());
    }
}

TEST(ConfigurationLoad, FoundationVersionDecidesWhichBundlesContribute) {
    struct Case {
        const char* kitVersion;  // null: never set
        const char* bundleNeeds;
        bool inForce;
    };
    const Case cases[] = {
        {nullptr, "", true},    {nullptr, "0.0", true}, {nullptr, "1", false},
        {"1.2.0", "1.2", true}, {"1.3", "1.2", true},   {"1.2", "1.2.1", false},
        {"10", "9.9", true},    {"abc", "1", false},    {"abc", "0", true},
        {"1.0", "01.2", true},  {"1.2", "1..2", true},  {"2.0", "2.0.0.1", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.kitVersion ? c.kitVersion : "(unset)") + " vs " + c.bundleNeeds);
        Installation install;
        install.WriteMapping("{}");
        install.WriteConfig(ConfigWithArtifacts({"b"}));
        install.WriteManifest("b",
                              Manifest("bundle.b", c.bundleNeeds,
                                       R"([{"id": "host.menu", "extensions": [{"id": "e"}]}])"));
        QZEConfigurationManagerImpl manager;
        auto log = qzetest::CaptureLog();
        if (c.kitVersion) {
            manager.SetFoundationVersion(c.kitVersion);
            EXPECT_EQ(log->Texts().back(),
                      ConfigLine(std::string("set foundation version is ") + c.kitVersion));
        }
        ASSERT_TRUE(manager.LoadAllExtensionInfos());
        EXPECT_EQ(Ids(InForce(manager, "host.menu")),
                  c.inForce ? std::vector<std::string>{"e"} : std::vector<std::string>{});
        // A bundle passed over stays installed.
        std::vector<Artifact*> artifacts;
        manager.GetAllArtifacts(artifacts);
        EXPECT_EQ(artifacts.size(), 1u);
    }
}

TEST(ConfigurationLoad, BrokenBundlesKeepNoneOfTheOthersOut) {
    Installation install;
    install.WriteMapping("{}");
    install.WriteConfig(R"({"artifacts": ["good1", "missing", "notjson", "listroot", "", 5,
                                          "good2"]})");
    install.WriteManifest("good1", Manifest("bundle.1", "", R"([{"id": "host.menu", "extensions": [
            {"id": "e1", "version": "first"}, {"version": "no id"},
            {"id": "e1", "version": "second"}]},
            {"no id": "point skipped"}])"));
    install.WriteManifest("notjson", "{\"id\": ");
    install.WriteManifest("listroot", "[]");
    install.WriteManifest("good2", Manifest("bundle.2", "", R"([{"id": "host.menu", "extensions": [
            {"id": "e1", "version": "third"}, {"id": "e2"}]}])"));

    QZEConfigurationManagerImpl manager;
    auto log = qzetest::CaptureLog();
    ASSERT_TRUE(manager.LoadAllExtensionInfos());

    auto records = InForce(manager, "host.menu");
    EXPECT_EQ(Ids(records), (std::vector<std::string>{"e1", "e2"}));
    EXPECT_EQ(records.front()->GetVersion(), "first");
    EXPECT_EQ(records.front()->GetExtensionPointId(), "host.menu");

    // Each dropped duplicate is one level-2 call with an empty text.
    int duplicates = 0;
    for (auto& line : log->lines) {
        if (line.first == 2) {
            EXPECT_EQ(line.second, "[QZExtensionKit] ");
            ++duplicates;
        }
    }
    EXPECT_EQ(duplicates, 2);
    EXPECT_TRUE(log->Contains(
        ConfigLine("collect extension infos passed over bundle " + install.RootText() +
                   "\\extensions\\listroot, because of its manifest.json is not an object")));

    // The manifest that is JSON but no object leaves an empty place.
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    ASSERT_EQ(artifacts.size(), 3u);
    EXPECT_NE(artifacts[0], nullptr);
    EXPECT_EQ(artifacts[1], nullptr);
    EXPECT_NE(artifacts[2], nullptr);
}

TEST(ConfigurationLoad, LookupsByIdAndByPoint) {
    Installation install;
    install.WriteMapping("{}");
    install.WriteConfig(ConfigWithArtifacts({"b"}));
    install.WriteManifest("b", Manifest("bundle.b", "", R"([
        {"id": "p.b", "extensions": [{"id": "same", "version": "from b"}]},
        {"id": "p.a", "extensions": [{"id": "same", "version": "from a"}, {"id": ""}]},
        {"id": "p.empty", "extensions": []}])"));
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    auto log = qzetest::CaptureLog();

    // The point that sorts last gives the answer.
    Extension* found = nullptr;
    ASSERT_TRUE(manager.GetExtensionInfoByID("same", &found));
    std::unique_ptr<Extension> owned(found);
    EXPECT_EQ(owned->GetVersion(), "from b");
    EXPECT_EQ(log->Texts().back(),
              ConfigLine("get extension info by extension id:same, extension info is founded"));

    Extension* untouched = reinterpret_cast<Extension*>(&log);
    for (const char* id : {"", "unknown"}) {
        EXPECT_FALSE(manager.GetExtensionInfoByID(id, &untouched));
        EXPECT_EQ(untouched, reinterpret_cast<Extension*>(&log));
        EXPECT_EQ(log->Texts().back(),
                  ConfigLine(std::string("get extension info by extension id:") + id +
                             ", extension info is not founded"));
    }

    struct Case {
        const char* point;
        std::size_t heldBefore;
        bool result;
        std::string line;
    };
    const std::string prefix = "get extension infos by extension point id:";
    const Case cases[] = {
        {"p.a", 0, true, prefix + "p.a, extension infos is founded, total(2)"},
        {"p.a", 3, true, prefix + "p.a, extension infos is founded, total(5)"},
        {"p.empty", 0, true, prefix + "p.empty, extension infos is founded, total(0)"},
        {"p.none", 1, false, prefix + "p.none, extension infos is not founded"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.point);
        std::vector<std::shared_ptr<Extension>> records(c.heldBefore);
        EXPECT_EQ(manager.GetExtensionInfosByExntensionPointID(c.point, records), c.result);
        EXPECT_EQ(log->Texts().back(), ConfigLine(c.line));
    }

    std::vector<Extension*> all{nullptr};
    manager.GetAllExtensionInfos(all);
    EXPECT_EQ(all.size(), 4u);
}

// The adapter bundle, a look-alike that is not the adapter, a bundle whose
// extensions are derived onto the adapter's points, and a second adapter.
void WriteAdapterInstallation(const Installation& install) {
    install.WriteMapping(R"({
        "host": {"menu": {"extensionPointId": "adapter.web", "version": "9.9",
                          "clsid": "{CLS}", "iid": "{IID}", "isSingleton": true}},
        "host.other": {"extensionPointId": "adapter.none"},
        "self": {"extensionPointId": "self"}})");
    install.WriteConfig(ConfigWithArtifacts({"other", "adapter", "src", "adapter2"}));
    install.WriteManifest("other", Manifest("not_adapter", "", R"([{"id": "adapter.web"}])"));
    install.WriteManifest("adapter", Manifest("extension_adapter", "", R"([
        {"id": "adapter.web", "iid": "{POINT-IID}"},
        {"id": "self", "extensions": [{"id": "z"}]}])",
                                              "bin/adapter.dll"));
    // A second adapter bundle with the same point comes too late to serve.
    install.WriteManifest("adapter2", Manifest("extension_adapter", "",
                                               R"([{"id": "adapter.web", "iid": "{LATE}"}])"));
    install.WriteManifest("src", Manifest("bundle.src", "", R"([
        {"id": "host.menu", "extensions": [
            {"id": "s1", "unifiedId": "u1",
             "payloads": {"a": "1", "b": "", "x.y": "2"},
             "constraints": [{"key": "k", "value": ["", "v"]}, {"key": "gone", "value": [""]}],
             "settingMap": {"modalPosition": "c", "modalSize": "s", "host": "h", "uri": "/u",
                            "openType": "tab"}},
            {"id": "s2", "payloads": {"extensionId": "given"}},
            {"id": "s3"}]},
        {"id": "host.other", "extensions": [{"id": "o1"}]}])"));
}

TEST(ConfigurationLoad, AdapterMappingDerivesRecordsOntoTheAdapterBundle) {
    Installation install;
    WriteAdapterInstallation(install);
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.LoadAllExtensionInfos());

    EXPECT_EQ(Ids(InForce(manager, "host.menu")), (std::vector<std::string>{"s1", "s2", "s3"}));
    EXPECT_EQ(Ids(InForce(manager, "host.other")), std::vector<std::string>{"o1"});
    std::vector<std::shared_ptr<Extension>> none;
    EXPECT_FALSE(manager.GetExtensionInfosByExntensionPointID("adapter.none", none));
    // A mapping onto its own point loses the derived record.
    EXPECT_EQ(Ids(InForce(manager, "self")), std::vector<std::string>{"z"});

    auto derived = InForce(manager, "adapter.web");
    ASSERT_EQ(derived.size(), 2u);
    const Extension& d1 = *derived[0];
    EXPECT_EQ(d1.GetId().size(), 38u);
    EXPECT_EQ(d1.GetId().front(), '{');
    EXPECT_EQ(d1.GetId().back(), '}');
    EXPECT_NE(d1.GetId(), derived[1]->GetId());
    EXPECT_EQ(d1.GetExtensionPointId(), "adapter.web");
    EXPECT_EQ(d1.GetVersion(), "9.9");
    EXPECT_EQ(d1.GetClsid(), "{CLS}");
    EXPECT_EQ(d1.GetIid(), "{POINT-IID}");
    EXPECT_TRUE(d1.IsSingleton());
    EXPECT_EQ(d1.GetUnifiedId(), "u1");
    // The dotted payload key went into a nested object and is not a text.
    EXPECT_EQ(d1.GetPayloads(),
              (std::map<std::string, std::string>{{"a", "1"}, {"extensionId", "s1"}}));
    EXPECT_EQ(d1.GetConstraints(), (std::map<std::string, std::vector<std::string>>{{"k", {"v"}}}));
    SettingMap settings = d1.GetSettingMap();
    EXPECT_EQ(settings.modalPosition, "c");
    EXPECT_EQ(settings.modalSize, "s");
    EXPECT_EQ(settings.openType, "tab");
    EXPECT_EQ(settings.url, "h/u");
    // It runs on the adapter bundle's library, with the source's resources.
    EXPECT_EQ(d1.GetMainEntry(), L"bin/adapter.dll");
    EXPECT_TRUE(d1.IsNative());
    EXPECT_EQ(d1.GetResourcesPath(), InForce(manager, "host.menu")[0]->GetResourcesPath());
    EXPECT_NE(d1.GetResourcesPath(), std::wstring());

    const Extension& d3 = *derived[1];
    EXPECT_EQ(d3.GetPayloads(), (std::map<std::string, std::string>{{"extensionId", "s3"}}));
    EXPECT_TRUE(d3.GetConstraints().empty());
    EXPECT_EQ(d3.GetSettingMap().url, "");
    EXPECT_EQ(d3.GetSettingMap().host, "");
}

}  // namespace
}  // namespace qzextensionkit
