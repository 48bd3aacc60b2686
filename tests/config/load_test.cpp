#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/json/json_reader.h"
#include "base/utf_string_conversions.h"
#include "common/capture_logger.h"
#include "config/configuration_manager_impl.h"
#include "config/extension_auth_info.h"
#include "config/support/installation.h"
#include "model/extension.h"

namespace qzextensionkit {

// Reaches what no public operation shows: the adapter mapping kept between
// loads, the auth records, and the debug reader that nothing calls.
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

using qzetest::ConfigLine;
using qzetest::Ids;
using qzetest::InForce;
using qzetest::Installation;
using qzetest::Joined;
using qzetest::LoadedSample;

// Without the adapter mapping config.json is never opened.
TEST(ConfigurationLoad, StagesAndTheirMessages) {
    std::string parseError;
    base::JSONReader::ReadAndReturnError("{\"modules\": [", 0, nullptr, &parseError);
    const std::string failed = "load all extension infos failed, because of find extensions failed";
    const std::string loaded = "get extensions dir success\nload all extension infos success";
    const struct {
        const char* mapping;
        const char* config;
        std::string log;
    } cases[] = {
        {"[]", "{}", failed},
        {"{}", "{\"modules\": [",
         "get extensions dir success\nload local configurations failed, becuase of parse json "
         "config.json failed, " +
             parseError + "\n" + failed},
        {"{}", "[1, 2]", loaded},
        {"{}", "{}", loaded},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.log);
        Installation install;
        install.WriteMapping(c.mapping);
        install.WriteConfig(c.config);
        QZEConfigurationManagerImpl manager;
        auto log = qzetest::CaptureLog();
        EXPECT_EQ(manager.LoadAllExtensionInfos(), c.log == loaded);
        EXPECT_EQ(Joined(*log), c.log);
    }
}

TEST(ConfigurationLoad, FoundationVersionDecidesWhichBundlesContribute) {
    const struct {
        const char* kitVersion;  // null: never set
        const char* bundleNeeds;
        bool inForce;
    } cases[] = {
        {nullptr, "", true}, {nullptr, "0.0", true},  {nullptr, "1", false}, {"1.2.0", "1.2", true},
        {"10", "9.9", true}, {"1.2", "1.2.1", false}, {"abc", "0", true},    {"1.0", "01.2", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.kitVersion ? c.kitVersion : "(unset)") + " vs " + c.bundleNeeds);
        Installation install;
        install.WriteMapping("{}");
        install.WriteConfig("{\"artifacts\": [\"b\"]}");
        install.WriteManifest("b", qzetest::Manifest("bundle.b", c.bundleNeeds, R"([
            {"id": "host.menu", "extensions": [{"id": "e"}]}])"));
        QZEConfigurationManagerImpl manager;
        auto log = qzetest::CaptureLog();
        if (c.kitVersion) {
            manager.SetFoundationVersion(c.kitVersion);
            EXPECT_EQ(Joined(*log), std::string("set foundation version is ") + c.kitVersion);
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

TEST_F(LoadedSample, BrokenBundlesKeepNoneOfTheOthersOut) {
    // The first record of an id stays, also across bundles.
    auto records = InForce(manager, "host.list");
    ASSERT_EQ(Ids(records), (std::vector<std::string>{"e1", "e2"}));
    EXPECT_EQ(records.front()->GetVersion(), "first");
    // Each dropped duplicate is one level-2 call with an empty text.
    int duplicates = 0;
    for (auto& line : loadLog->lines) {
        duplicates += line.first == 2 && line.second == "[QZExtensionKit] ";
    }
    EXPECT_EQ(duplicates, 2);
    EXPECT_TRUE(loadLog->Contains(ConfigLine(
        "collect extension infos passed over bundle " + base::WideToUTF8(install.root().wstring()) +
        "\\extensions\\listroot, because of its manifest.json is not an object")));

    // The manifest that is JSON but no object leaves an empty place.
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    ASSERT_EQ(artifacts.size(), 7u);
    EXPECT_EQ(std::count(artifacts.begin(), artifacts.end(), nullptr), 1);
    EXPECT_EQ(artifacts[1], nullptr);
}

TEST_F(LoadedSample, LookupsByIdAndByPoint) {
    // The point that sorts last answers; a miss leaves the pointer alone.
    Extension* found = nullptr;
    ASSERT_TRUE(manager.GetExtensionInfoByID("same", &found));
    EXPECT_EQ(std::unique_ptr<Extension>(std::exchange(found, nullptr))->GetVersion(), "from b");
    EXPECT_FALSE(manager.GetExtensionInfoByID("", &found));
    EXPECT_FALSE(manager.GetExtensionInfoByID("unknown", &found));
    EXPECT_EQ(found, nullptr);
    // The count takes in what the vector held before.
    std::vector<std::shared_ptr<Extension>> records;
    EXPECT_TRUE(manager.GetExtensionInfosByExntensionPointID("p.a", records));
    EXPECT_TRUE(manager.GetExtensionInfosByExntensionPointID("p.a", records));
    EXPECT_TRUE(manager.GetExtensionInfosByExntensionPointID("p.empty", records));
    EXPECT_FALSE(manager.GetExtensionInfosByExntensionPointID("p.none", records));
    EXPECT_EQ(records.size(), 4u);
    const std::string byId = "get extension info by extension id:";
    const std::string byPoint = "get extension infos by extension point id:";
    EXPECT_EQ(Joined(*log), byId + "same, extension info is founded\n" + byId +
                                ", extension info is not founded\n" + byId +
                                "unknown, extension info is not founded\n" + byPoint +
                                "p.a, extension infos is founded, total(2)\n" + byPoint +
                                "p.a, extension infos is founded, total(4)\n" + byPoint +
                                "p.empty, extension infos is founded, total(4)\n" + byPoint +
                                "p.none, extension infos is not founded");
}

TEST_F(LoadedSample, AdapterMappingDerivesRecordsOntoTheAdapterBundle) {
    EXPECT_EQ(Ids(InForce(manager, "host.menu")), (std::vector<std::string>{"s1", "s2", "s3"}));
    // A mapped point without an adapter point gets nothing derived.
    EXPECT_EQ(Ids(InForce(manager, "host.other")), std::vector<std::string>{"o1"});
    std::vector<std::shared_ptr<Extension>> none;
    EXPECT_FALSE(manager.GetExtensionInfosByExntensionPointID("adapter.none", none));
    // A mapping onto its own point loses the derived record.
    EXPECT_EQ(Ids(InForce(manager, "self")), std::vector<std::string>{"z"});

    // s2 names a source already: not derived again. The dotted payload key
    // went into a nested object and is not a text.
    auto derived = InForce(manager, "adapter.web");
    ASSERT_EQ(derived.size(), 3u);
    EXPECT_EQ(derived[0]->GetId(), "local");
    EXPECT_EQ(qzetest::Describe(*derived[1]),
              "9.9|{CLS}|{POINT-IID}|single|u1|a=1;extensionId=s1;|k=v,;|c,s,tab,h/u");
    EXPECT_EQ(qzetest::Describe(*derived[2]), "9.9|{CLS}|{POINT-IID}|single||extensionId=s3;||,,,");
    for (std::size_t i = 1; i < derived.size(); ++i) {
        EXPECT_EQ(derived[i]->GetId().size(), 38u);
        EXPECT_EQ(derived[i]->GetId()[0], '{');
        EXPECT_EQ(derived[i]->GetExtensionPointId(), "adapter.web");
        // It runs on the adapter bundle's library, with the source's resources.
        EXPECT_EQ(derived[i]->GetMainEntry(), L"bin/adapter.dll");
        EXPECT_EQ(derived[i]->GetResourcesPath(),
                  InForce(manager, "host.menu")[0]->GetResourcesPath());
    }
    EXPECT_NE(derived[1]->GetId(), derived[2]->GetId());
}

std::size_t CountRecords(IQZEConfigurationManager& manager) {
    std::vector<Extension*> records;
    manager.GetAllExtensionInfos(records);
    return records.size();
}

TEST_F(LoadedSample, UnloadEmptiesTheTablesButKeepsModulesAndMapping) {
    EXPECT_EQ(CountRecords(manager), 13u);
    EXPECT_EQ(Peer::AuthInfos(manager),
              (std::vector<std::string>{"https://a.example.com:8443|web|k1",
                                        "https://b.example.com|web|k2", "|native|k3"}));

    // A second load adds the bundles again, but no record twice.
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    EXPECT_EQ(artifacts.size(), 14u);
    EXPECT_EQ(CountRecords(manager), 13u);

    log->Clear();
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
    EXPECT_EQ(qzetest::Joined(*log), "unload all extension infos success");
    artifacts.clear();
    manager.GetAllArtifacts(artifacts);
    EXPECT_TRUE(artifacts.empty());
    EXPECT_EQ(CountRecords(manager), 0u);
    EXPECT_TRUE(Peer::AuthInfos(manager).empty());

    bool enabled = false;
    EXPECT_TRUE(manager.IsModuleEnabled(kModuleCore, enabled));
    EXPECT_TRUE(enabled);
    EXPECT_TRUE(Peer::HasMappingEntry(manager, "host.menu"));
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
}

TEST_F(LoadedSample, DebugReaderStandsReadyButNothingCallsIt) {
    Peer::HandleDebug(manager);
    auto records = qzetest::InForce(manager, "adapter.web");
    ASSERT_EQ(records.size(), 5u);  // three from the load, two from the debug file
    EXPECT_EQ(qzetest::Describe(*records[3]), "9.9|{CLS}|{POINT-IID}|single||p=first;||,,,/x");
    EXPECT_EQ(qzetest::Describe(*records[4]), qzetest::Describe(*records[3]));
    EXPECT_EQ(Peer::AuthInfos(manager).back(), "https://d.example.com|dbg|");

    log->Clear();
    install.Write("vplus-toolkit-extension.json", "[1,]");
    Peer::HandleDebug(manager);
    std::filesystem::remove(install.root() / "vplus-toolkit-extension.json");
    Peer::HandleDebug(manager);
    const std::string failed = "handle debug extension configurations failed, becuase of ";
    EXPECT_EQ(qzetest::Joined(*log),
              failed +
                  "read debug_extension_configuration.json failed, Line: 1, column: 4, Trailing "
                  "comma not allowed.\n" +
                  failed + "debug_extension_configuration.json file path not exist");
}

}  // namespace
}  // namespace qzextensionkit
