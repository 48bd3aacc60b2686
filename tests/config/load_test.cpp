#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "config/support/installation.h"
#include "model/support/record_text.h"

namespace qzextensionkit {

namespace {

using qzetest::ConfigLine;
using qzetest::Describe;
using qzetest::EncryptForConfig;
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

// The kit's foundation version ("-" never set) decides which bundles
// contribute records. Unreadable files are the bad installation corpus' cases.
TEST(ConfigurationLoad, StagesMessagesAndFoundationVersion) {
    const std::string bundle = "{\"artifacts\": [\"b\"]}";
    // Rows: config.json, the kit's version, the bundle's, records in force.
    const std::tuple<std::string, std::string, const char*, bool> cases[] = {
        {"[1, 2]", "-", "", false},     {bundle, "-", "", true},         {bundle, "-", "1", false},
        {bundle, "1.2.0", "1.2", true}, {bundle, "1.2", "1.2.1", false},
    };
    for (const auto& [config, kit, needs, inForce] : cases) {
        SCOPED_TRACE(config + " " + kit + " vs " + needs);
        qzetest::Installation install;
        install.WriteMapping("{}");
        install.WriteConfig(config);
        install.WriteManifest("b", qzetest::Manifest("bundle.b", needs, R"([
            {"id": "host.menu", "extensions": [{"id": "e"}]}])"));
        QZEConfigurationManagerImpl manager;
        auto log = qzetest::CaptureLog();
        std::string expected = "get extensions dir success\nload all extension infos success";
        if (kit != "-") {
            manager.SetFoundationVersion(kit);
            expected = "set foundation version is " + kit + "\n" + expected;
        }
        EXPECT_TRUE(manager.LoadAllExtensionInfos());
        EXPECT_EQ(Joined(*log), expected);
        EXPECT_EQ(Ids(InForce(manager, "host.menu")), inForce ? Strings{"e"} : Strings{});
        // A bundle passed over stays installed.
        EXPECT_EQ(Artifacts(manager).size(), config == bundle);
    }
}

const std::string kKey = "0123456789abcdef0123456789ABCDEF";

// Each case loads over a good load, which a failure leaves in place. A last
// byte of 0-16 is cut unchecked, 17-127 kept, 0x80 up refused (as a wrong key
// leaves it).
TEST(EncryptedConfiguration, PaddingAndBadFiles) {
    const std::string core = R"({"modules":[{"id":"core"}]})";  // 27 bytes
    const std::string good = R"({"modules":[{"id":"mail"}]})";
    const std::string goodFile = EncryptForConfig(good + std::string(32 - good.size(), '\0'), kKey);
    const std::string decryptFailed =
        "decrypt configurations failed, becuase of decrypt config.json failed";
    const std::string loaded = "load all extension infos success";
    // Rows: config.json, "core" on, a failure's line or the start of it.
    const std::tuple<std::string, bool, std::string> cases[] = {
        {EncryptForConfig(core + "\x01\x02\x03\x04\x05", kKey), true, loaded},
        {EncryptForConfig("{}" + std::string(29, ' ') + "\x11", kKey), false,
         "load local configurations failed, becuase of parse json config.json failed, "},
        {EncryptForConfig(std::string(16, '\x10'), kKey), false, decryptFailed},  // all cut
        {EncryptForConfig(core + "    \x80", kKey), false, decryptFailed},
        {R"({"modules":[]})", false,  // plain text with a key set
         "decrypt configurations failed, becuase of base64 decode encrypted configs failed"},
        {goodFile.substr(0, goodFile.size() - 4), false, decryptFailed},  // a block cut short
    };
    for (const auto& [file, coreOn, line] : cases) {
        SCOPED_TRACE(file);
        qzetest::Installation install;
        install.WriteMapping("{}");
        install.WriteConfig(goodFile);
        QZEConfigurationManagerImpl manager;
        ASSERT_TRUE(manager.SetSecKey(kKey));
        ASSERT_TRUE(manager.LoadAllExtensionInfos());
        install.WriteConfig(file);
        auto log = qzetest::CaptureLog();
        EXPECT_EQ(manager.LoadAllExtensionInfos(), line == loaded);
        Strings lines = log->Texts();
        ASSERT_GE(lines.size(), 2u);
        EXPECT_EQ((line == loaded ? lines.back() : lines[1]).rfind(qzetest::ConfigLine(line), 0),
                  0u)
            << Joined(*log);
        bool core = false, mail = false;
        EXPECT_EQ(manager.IsModuleEnabled(kModuleCore, core) && core, coreOn);
        EXPECT_TRUE(manager.IsModuleEnabled(kModuleMail, mail) && mail);
        for (auto& text : lines) {
            EXPECT_EQ(text.find(kKey), std::string::npos) << text;
        }
    }
    QZEConfigurationManagerImpl manager;
    auto log = qzetest::CaptureLog();
    EXPECT_FALSE(manager.SetSecKey(std::string(31, 'k')));
    EXPECT_EQ(Joined(*log), "set sec key failed, becuase of the length of key is not equal to 32");
}

// Codes at both ends and one with no module; a module with an empty id is
// skipped, so such a code stays off.
TEST(Modules, CodesMeanTheirTexts) {
    qzetest::Installation install;
    install.WriteMapping("{}");
    install.WriteConfig(
        R"({"modules": [{"id": ""}, {"id": "instantmessaging"}, {"id": "vorn_projector"}]})");
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    auto log = qzetest::CaptureLog();
    std::string results;
    for (ModuleCode code :
         {kModuleInstantMessaging, ModuleCode(18), kModuleVornProjector, kModuleInvalid}) {
        bool on = true;
        const bool result = manager.IsModuleEnabled(code, on);
        results += std::to_string(result) + std::to_string(on);
    }
    EXPECT_EQ(results, "11101100");
    const std::string module = "query module is enabled success, module code:";
    EXPECT_EQ(Joined(*log), module + "instantmessaging module is true\n" + module +
                                " module is false\n" + module +
                                "vorn_projector module is true\nquery module is enabled failed, "
                                "becuase of module code: module is invalid");
}

// The sample's "a_mod" and "b_mod" hold features and settings; "a_mod" sorts
// first and decides; only "true" is true; a later "mail" replaces an earlier one.
using ModuleAnswers = qzetest::LoadedSample;

TEST_F(ModuleAnswers, FeaturesAndSettings) {
    // Rows: feature, the caller's value before, result and value after.
    const std::tuple<FeatureCode, bool, std::string> features[] = {
        {kFeatureVvVideoMeetingLive, true, "10"},
        {kFeatureImEnableBurnChat, true, "10"},
        {kFeatureSmsEnabled, false, "11"},
        {kFeatureImBigGroupManagement, true, "01"}};
    for (const auto& [code, before, after] : features) {
        bool enabled = before;
        const bool result = manager.IsFeatueEnabled(code, enabled);
        EXPECT_EQ(std::to_string(result) + std::to_string(enabled), after) << code;
    }
    const std::string success = "query feature is enabled success, feature code:";
    EXPECT_EQ(Joined(*log),
              success + "vv_video_meetting_live feature is false\n" + success +
                  "im_enable_burn_chat feature is false\n" + success +
                  "vorn.feature.sms.enabled feature is true\nquery feature is enabled failed, "
                  "feature code:im_big_group_management feature is not founded");
    log->Clear();

    using Settings = std::map<std::string, std::string>;
    Settings settings{{"kept", "as is"}};
    EXPECT_FALSE(manager.GetConfigurationsByID(kModuleRicheng, &settings));
    EXPECT_EQ(settings, (Settings{{"kept", "as is"}}));
    EXPECT_TRUE(manager.GetConfigurationsByID(kModuleCore, &settings) && settings.empty());
    EXPECT_TRUE(manager.GetConfigurationsByID(kModuleMail, &settings));
    EXPECT_EQ(settings, (Settings{{"new", "2"}}));
    const std::string prefix = "get configurations by module code:";
    EXPECT_EQ(Joined(*log), prefix + "richeng, configurations is not founded\n" + prefix +
                                "core, configurations is founded, total(0)\n" + prefix +
                                "mail, configurations is founded, total(1)");

    // Rows: module, key, value (null: not found).
    const std::tuple<std::string, std::string, const char*> byKey[] = {
        {"b_mod", "with_default", "dflt"},
        {"b_mod", "dup", "2"},
        {"b_mod", "no_value", nullptr},
        {"nomodule", "dup", nullptr}};
    for (const auto& [module, key, expected] : byKey) {
        std::string value = "before";
        const bool result = manager.GetMuduleConfig(module, key, value);
        EXPECT_EQ(std::to_string(result) + value,
                  expected ? "1" + std::string(expected) : "0before");
        const std::string where = "module code:" + module + " key:" + key;
        EXPECT_EQ(
            log->Texts().back(),
            ConfigLine(expected ? "query module config success, " + where + ",value:" + expected
                                : "query module config failed, " + where));
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
    EXPECT_TRUE(std::count(artifacts.begin(), artifacts.end(), nullptr) == 1 && !artifacts[1]);

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
    // It runs on the adapter bundle's library, with the source's resources.
    EXPECT_EQ(
        derived[1]->GetExtensionPointId() + derived[1]->GetIid() + " " +
            base::WideToUTF8(derived[1]->GetMainEntry() + L" " + derived[1]->GetResourcesPath()),
        "adapter.web{POINT-IID} bin/adapter.dll " +
            base::WideToUTF8(InForce(manager, "host.menu")[0]->GetResourcesPath()));
    EXPECT_NE(derived[1]->GetId(), derived[2]->GetId());
}

TEST_F(LoadedSample, ReloadAndUnload) {
    auto count = [&] {
        std::vector<Extension*> records;
        manager.GetAllExtensionInfos(records);
        return records.size();
    };
    auto keys = [&] {
        return manager.GetExtensionAccessKey("web") + "|" + manager.GetExtensionAccessKey("native");
    };
    EXPECT_EQ(std::to_string(count()) + "|" + keys(), "13|k1|k3");
    log->Clear();
    EXPECT_TRUE(manager.UnloadAllExtensionInfos());
    EXPECT_EQ(Joined(*log), "unload all extension infos success");
    EXPECT_TRUE(Artifacts(manager).empty());
    EXPECT_EQ(std::to_string(count()) + "|" + keys(), "0||");
    bool enabled = false;  // modules stay
    EXPECT_TRUE(manager.IsModuleEnabled(kModuleCore, enabled) && enabled);
}

}  // namespace
}  // namespace qzextensionkit
