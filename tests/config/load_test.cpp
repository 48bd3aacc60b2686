#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/json/json_reader.h"
#include "config/extension_auth_info.h"
#include "config/support/installation.h"
#include "model/support/record_text.h"

namespace qzextensionkit {

// Reaches the auth records and the debug reader, which no public operation shows.
class QZEConfigurationManagerImplTestPeer {
public:
    static bool HasMappingEntry(QZEConfigurationManagerImpl& manager, const std::string& point) {
        return manager.GetAdapterMappingEntry(point) != nullptr;
    }
    static std::vector<std::string> AuthInfos(QZEConfigurationManagerImpl& manager) {
        std::vector<std::string> texts;
        for (auto& info : manager.extensionAuthInfos) {
            texts.push_back(info->GetHost() + "|" + info->GetBundleId() + "|" +
                            info->GetAccessKey());
        }
        return texts;
    }
    static void HandleDebug(QZEConfigurationManagerImpl& manager) {
        manager.HandleDebugExtensionConfigurations(
            [&](const std::string& id) { return manager.GetAdapterMappingEntry(id); },
            [&](const std::string& id) { return manager.FindAdapterExtensionPoint(id); });
    }
};

namespace {

using Peer = QZEConfigurationManagerImplTestPeer;
using qzetest::Describe;
using qzetest::Ids;
using qzetest::InForce;
using qzetest::Joined;
using qzetest::LoadedSample;
using Strings = std::vector<std::string>;

std::vector<Artifact*> Artifacts(IQZEConfigurationManager& manager) {
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    return artifacts;
}

// Without the adapter mapping config.json is never opened. The kit's foundation
// version ("-" never set) decides which bundles contribute records.
TEST(ConfigurationLoad, StagesMessagesAndFoundationVersion) {
    std::string parseError;
    base::JSONReader::ReadAndReturnError("{\"modules\": [", 0, nullptr, &parseError);
    const std::string failed = "load all extension infos failed, because of find extensions failed";
    const std::string loaded = "get extensions dir success\nload all extension infos success";
    const struct {
        const char* mapping;
        const char* config;
        const char* kit;
        const char* needs;
        std::string log;
        bool inForce;
    } cases[] = {
        {"[]", "{}", "-", "", failed, false},
        {"{}", "{\"modules\": [", "-", "",
         "get extensions dir success\nload local configurations failed, becuase of parse json "
         "config.json failed, " +
             parseError + "\n" + failed,
         false},
        {"{}", "[1, 2]", "-", "", loaded, false},
        {"{}", "{\"artifacts\": [\"b\"]}", "-", "", loaded, true},
        {"{}", "{\"artifacts\": [\"b\"]}", "-", "1", loaded, false},
        {"{}", "{\"artifacts\": [\"b\"]}", "1.2.0", "1.2", loaded, true},
        {"{}", "{\"artifacts\": [\"b\"]}", "1.2", "1.2.1", loaded, false},
        {"{}", "{\"artifacts\": [\"b\"]}", "abc", "0", loaded, true},
        {"{}", "{\"artifacts\": [\"b\"]}", "1.0", "01.2", loaded, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.config) + " " + c.kit + " vs " + c.needs);
        qzetest::Installation install;
        install.WriteMapping(c.mapping);
        install.WriteConfig(c.config);
        install.WriteManifest("b", qzetest::Manifest("bundle.b", c.needs, R"([
            {"id": "host.menu", "extensions": [{"id": "e"}]}])"));
        QZEConfigurationManagerImpl manager;
        auto log = qzetest::CaptureLog();
        std::string expected = c.log;
        if (std::string(c.kit) != "-") {
            manager.SetFoundationVersion(c.kit);
            expected = std::string("set foundation version is ") + c.kit + "\n" + expected;
        }
        EXPECT_EQ(manager.LoadAllExtensionInfos(), c.log == loaded);
        EXPECT_EQ(Joined(*log), expected);
        EXPECT_EQ(Ids(InForce(manager, "host.menu")), c.inForce ? Strings{"e"} : Strings{});
        // A bundle passed over stays installed.
        EXPECT_EQ(Artifacts(manager).size(),
                  std::string(c.config).find("artifacts") != std::string::npos);
    }
}

TEST_F(LoadedSample, BrokenBundlesDuplicatesAndLookups) {
    // The first record of an id stays, also across bundles; each dropped
    // duplicate is one level-2 call with an empty text.
    auto records = InForce(manager, "host.list");
    ASSERT_EQ(Ids(records), (Strings{"e1", "e2"}));
    EXPECT_EQ(records.front()->GetVersion(), "first");
    EXPECT_EQ(std::count(loadLog->lines.begin(), loadLog->lines.end(),
                         std::make_pair(2, std::string("[QZExtensionKit] "))),
              2);
    // The manifest that is JSON but no object leaves an empty place.
    auto artifacts = Artifacts(manager);
    ASSERT_EQ(artifacts.size(), 7u);
    EXPECT_EQ(std::count(artifacts.begin(), artifacts.end(), nullptr), 1);
    EXPECT_EQ(artifacts[1], nullptr);

    // By id the point that sorts last answers; a miss leaves the pointer
    // alone. By point the count takes in what the vector held before.
    log->Clear();
    Extension* found = nullptr;
    ASSERT_TRUE(manager.GetExtensionInfoByID("same", &found));
    EXPECT_EQ(std::unique_ptr<Extension>(std::exchange(found, nullptr))->GetVersion(), "from b");
    EXPECT_FALSE(manager.GetExtensionInfoByID("", &found) || found);
    std::vector<std::shared_ptr<Extension>> held;
    for (const char* point : {"p.a", "p.empty"}) {
        EXPECT_TRUE(manager.GetExtensionInfosByExntensionPointID(point, held));
    }
    EXPECT_FALSE(manager.GetExtensionInfosByExntensionPointID("p.none", held));
    EXPECT_EQ(held.size(), 2u);
    const std::string byId = "get extension info by extension id:";
    const std::string byPoint = "get extension infos by extension point id:";
    EXPECT_EQ(Joined(*log), byId + "same, extension info is founded\n" + byId +
                                ", extension info is not founded\n" + byPoint +
                                "p.a, extension infos is founded, total(2)\n" + byPoint +
                                "p.empty, extension infos is founded, total(2)\n" + byPoint +
                                "p.none, extension infos is not founded");
}

TEST_F(LoadedSample, AdapterMappingDerivesRecordsOntoTheAdapterBundle) {
    EXPECT_EQ(Ids(InForce(manager, "host.menu")), (Strings{"s1", "s2", "s3"}));
    // A mapped point without an adapter point gets nothing; a mapping onto
    // its own point loses the derived record.
    EXPECT_EQ(Ids(InForce(manager, "host.other")), Strings{"o1"});
    std::vector<std::shared_ptr<Extension>> none;
    EXPECT_FALSE(manager.GetExtensionInfosByExntensionPointID("adapter.none", none));
    EXPECT_EQ(Ids(InForce(manager, "self")), Strings{"z"});

    // s2 names a source already: not derived again. The dotted payload key
    // went into a nested object and is not a text.
    auto derived = InForce(manager, "adapter.web");
    ASSERT_EQ(derived.size(), 3u);
    EXPECT_EQ(derived[0]->GetId(), "local");
    EXPECT_EQ(Describe(*derived[1]) + " " + Describe(*derived[2]),
              "9.9|{CLS}|1|a=1;extensionId=s1;|k:v,;|u1|c,s,h/u,tab,h,/u "
              "9.9|{CLS}|1|extensionId=s3;|||,,,,,");
    for (std::size_t i = 1; i < derived.size(); ++i) {
        EXPECT_EQ(derived[i]->GetExtensionPointId() + derived[i]->GetIid(),
                  "adapter.web{POINT-IID}");
        // It runs on the adapter bundle's library, with the source's resources.
        EXPECT_EQ(derived[i]->GetMainEntry(), L"bin/adapter.dll");
        EXPECT_EQ(derived[i]->GetResourcesPath(),
                  InForce(manager, "host.menu")[0]->GetResourcesPath());
    }
    EXPECT_NE(derived[1]->GetId(), derived[2]->GetId());
}

TEST_F(LoadedSample, ReloadAndUnload) {
    auto count = [&] {
        std::vector<Extension*> records;
        manager.GetAllExtensionInfos(records);
        return records.size();
    };
    EXPECT_EQ(count(), 13u);
    EXPECT_EQ(Peer::AuthInfos(manager), (Strings{"https://a.example.com:8443|web|k1",
                                                 "https://b.example.com|web|k2", "|native|k3"}));
    // A second load adds the bundles again, but no record twice.
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    EXPECT_EQ(Artifacts(manager).size(), 14u);
    EXPECT_EQ(count(), 13u);
    log->Clear();
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
    EXPECT_EQ(Joined(*log), "unload all extension infos success");
    EXPECT_TRUE(Artifacts(manager).empty());
    EXPECT_EQ(count(), 0u);
    EXPECT_TRUE(Peer::AuthInfos(manager).empty());
    // Modules and mapping stay.
    bool enabled = false;
    EXPECT_TRUE(manager.IsModuleEnabled(kModuleCore, enabled) && enabled);
    EXPECT_TRUE(Peer::HasMappingEntry(manager, "host.menu"));
}

// Nothing in the kit calls the debug reader; only its failures are pinned.
TEST_F(LoadedSample, DebugReaderFailures) {
    install.Write("vplus-toolkit-extension.json", "[1,]");
    Peer::HandleDebug(manager);
    std::filesystem::remove(install.root() / "vplus-toolkit-extension.json");
    Peer::HandleDebug(manager);
    const std::string failed = "handle debug extension configurations failed, becuase of ";
    EXPECT_EQ(Joined(*log), failed +
                                "read debug_extension_configuration.json failed, Line: 1, column: "
                                "4, Trailing comma not allowed.\n" +
                                failed + "debug_extension_configuration.json file path not exist");
}

}  // namespace
}  // namespace qzextensionkit
