#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/json/json_reader.h"
#include "common/capture_logger.h"
#include "config/configuration_manager_impl.h"
#include "config/support/installation.h"
#include "model/extension.h"
#include "platform/platform.h"

namespace qzextensionkit {
namespace {

using qzetest::ConfigLine;
using qzetest::ConfigWithArtifacts;
using qzetest::Installation;
using qzetest::Manifest;

using qzetest::Ids;
using qzetest::InForce;

TEST(ConfigurationLoad, StagesAndTheirMessages) {
    std::string parseError;
    base::JSONReader::ReadAndReturnError("{\"modules\": [", 0, nullptr, &parseError);
    const std::string failed = "load all extension infos failed, because of find extensions failed";
    const std::string dir = "get extensions dir success\n";
    const std::string local = dir + "load local configurations failed, becuase of ";
    const std::string loaded = dir + "load all extension infos success";
    enum Setup { kNoExtensionsDir = 1, kNoExecutablePath = 2 };
    struct Case {
        const char* mapping;  // null: no file
        const char* config;   // null: no file
        int setup;
        bool result;
        std::string log;
    };
    const Case cases[] = {
        {nullptr, "{}", 0, false, failed},
        {"{oops", "{}", 0, false, failed},
        {"[]", "{}", 0, false, failed},
        {"{}", "{}", kNoExecutablePath, false,
         "get extension adapter mapping file path failed, becuase of "
         "extension_adapter_mapping.json is not exist\n" +
             failed},
        {"{}", nullptr, 0, false, local + "config.json is not exist\n" + failed},
        {"{}", nullptr, kNoExtensionsDir, false, local + "config.json is not exist\n" + failed},
        {"{}", "{\"modules\": [", 0, false,
         local + "parse json config.json failed, " + parseError + "\n" + failed},
        {"{}", "[1, 2]", 0, true, loaded},
        {"{}", "{}", 0, true, loaded},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.log);
        Installation install;
        if (c.mapping) {
            install.WriteMapping(c.mapping);
        }
        if (c.config) {
            install.WriteConfig(c.config);
        } else if (!(c.setup & kNoExtensionsDir)) {
            install.Write("extensions/readme.txt", "");
        }
        QZEConfigurationManagerImpl manager;
        auto log = qzetest::CaptureLog();
        if (c.setup & kNoExecutablePath) {
            platform::testing::InjectFailure(platform::testing::Operation::kExecutablePath);
        }
        EXPECT_EQ(manager.LoadAllExtensionInfos(), c.result);
        platform::testing::ClearFailures();
        EXPECT_EQ(qzetest::Joined(*log), c.log);
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

using qzetest::LoadedSample;

TEST_F(LoadedSample, BrokenBundlesKeepNoneOfTheOthersOut) {
    auto records = InForce(manager, "host.list");
    EXPECT_EQ(Ids(records), (std::vector<std::string>{"e1", "e2"}));
    EXPECT_EQ(records.front()->GetVersion(), "first");
    EXPECT_EQ(records.front()->GetExtensionPointId(), "host.list");

    // Each dropped duplicate is one level-2 call with an empty text.
    int duplicates = 0;
    for (auto& line : loadLog->lines) {
        duplicates += line.first == 2 && line.second == "[QZExtensionKit] ";
    }
    EXPECT_EQ(duplicates, 2);
    EXPECT_TRUE(loadLog->Contains(
        ConfigLine("collect extension infos passed over bundle " + install.RootText() +
                   "\\extensions\\listroot, because of its manifest.json is not an object")));

    // The manifest that is JSON but no object leaves an empty place.
    std::vector<Artifact*> artifacts;
    manager.GetAllArtifacts(artifacts);
    ASSERT_EQ(artifacts.size(), 7u);
    EXPECT_EQ(std::count(artifacts.begin(), artifacts.end(), nullptr), 1);
    EXPECT_EQ(artifacts[1], nullptr);
}

TEST_F(LoadedSample, LookupsByIdAndByPoint) {
    // The point that sorts last gives the answer; a miss leaves the out
    // pointer alone.
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
    EXPECT_EQ(qzetest::Joined(*log), byId + "same, extension info is founded\n" + byId +
                                         ", extension info is not founded\n" + byId +
                                         "unknown, extension info is not founded\n" + byPoint +
                                         "p.a, extension infos is founded, total(2)\n" + byPoint +
                                         "p.a, extension infos is founded, total(4)\n" + byPoint +
                                         "p.empty, extension infos is founded, total(4)\n" +
                                         byPoint + "p.none, extension infos is not founded");
}

TEST_F(LoadedSample, AdapterMappingDerivesRecordsOntoTheAdapterBundle) {
    EXPECT_EQ(Ids(InForce(manager, "host.menu")), (std::vector<std::string>{"s1", "s2", "s3"}));
    // A mapped point without an adapter point gets nothing derived.
    EXPECT_EQ(Ids(InForce(manager, "host.other")), std::vector<std::string>{"o1"});
    std::vector<std::shared_ptr<Extension>> none;
    EXPECT_FALSE(manager.GetExtensionInfosByExntensionPointID("adapter.none", none));
    // A mapping onto its own point loses the derived record.
    EXPECT_EQ(Ids(InForce(manager, "self")), std::vector<std::string>{"z"});

    auto derived = InForce(manager, "adapter.web");
    ASSERT_EQ(derived.size(), 3u);
    EXPECT_EQ(derived[0]->GetId(), "local");
    // The dotted payload key went into a nested object and is not a text.
    EXPECT_EQ(qzetest::Describe(*derived[1]),
              "9.9|{CLS}|{POINT-IID}|single|u1|a=1;extensionId=s1;|k=v,;|c,s,tab,h/u");
    EXPECT_EQ(qzetest::Describe(*derived[2]), "9.9|{CLS}|{POINT-IID}|single||extensionId=s3;||,,,");
    for (std::size_t i = 1; i < derived.size(); ++i) {
        EXPECT_EQ(derived[i]->GetId().size(), 38u);
        EXPECT_EQ(derived[i]->GetId().front(), '{');
        EXPECT_EQ(derived[i]->GetExtensionPointId(), "adapter.web");
        // It runs on the adapter bundle's library, with the source's resources.
        EXPECT_EQ(derived[i]->GetMainEntry(), L"bin/adapter.dll");
        EXPECT_EQ(derived[i]->GetResourcesPath(),
                  InForce(manager, "host.menu")[0]->GetResourcesPath());
    }
    EXPECT_NE(derived[1]->GetId(), derived[2]->GetId());
}

}  // namespace
}  // namespace qzextensionkit
