#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "config/support/installation.h"

namespace qzextensionkit {
namespace {

using qzetest::ConfigLine;

std::vector<std::string> Words(const char* text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// Module ids and feature keys by code number; "-" for a code with no module.
TEST(ModulesAndFeatures, EveryCodeMeansItsText) {
    const std::vector<std::string> modules = Words(
        "instantmessaging daiban richeng ei-video vorn_video onlinefile vorndisk announcement "
        "worknotice vorn user_workbench tongxunlu managementback navi denglu hulianhutong zhanghao "
        "personalsetting - security blog mail des pre-proclamation-system api-gateway filepreview "
        "emass proclamation-systemold openplatform_advanced vorn-screen-projection "
        "mappingposition system_setting_center core metax - vornguard_nationsky vornguard "
        "vorn_projector");
    const std::vector<std::string> features = Words(
        "im_big_group_management im_enable_parse_link im_enable_server_encrypt "
        "im_enable_burn_chat hulianhutong avmeeting_enable_meeting_record "
        "avmeeting_enable_meeting_to_live vv_video_meeting_record vv_video_meetting_live "
        "vv_video_meetting_start vv_video_call_start vorn.feature.sms.enabled "
        "vorn.feature.vms.enabled vorn.feature.comment.enabled");
    ASSERT_EQ(modules.size(), 38u);
    // A module with an empty id is skipped, so unassigned codes stay off.
    std::string config = R"({"modules": [{"id": ""},)";
    for (auto& id : modules) {
        config += R"({"id": ")" + id + R"("},)";
    }
    config += R"({"id": "zz", "configurations": [)";
    for (auto& key : features) {
        config += R"({"key": ")" + key + R"(", "value": "true"},)";
    }
    config.back() = ']';
    qzetest::Installation install;
    install.WriteMapping("{}");
    install.WriteConfig(config + "}]}");
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    auto log = qzetest::CaptureLog();
    for (int code = 0; code < 38; ++code) {
        std::string id = modules[code] == "-" ? "" : modules[code];
        bool enabled = false;
        EXPECT_TRUE(manager.IsModuleEnabled(ModuleCode(code), enabled));
        EXPECT_EQ(enabled, !id.empty()) << code;
        EXPECT_EQ(log->Texts().back(),
                  ConfigLine("query module is enabled success, module code:" + id + " module is " +
                             (id.empty() ? "false" : "true")));
    }
    for (int code = 0; code < 14; ++code) {
        bool enabled = false;
        EXPECT_TRUE(manager.IsFeatueEnabled(FeatureCode(code), enabled) && enabled) << code;
        EXPECT_EQ(log->Texts().back(),
                  ConfigLine("query feature is enabled success, feature code:" + features[code] +
                             " feature is true"));
    }
    bool enabled = true;
    EXPECT_FALSE(manager.IsModuleEnabled(kModuleInvalid, enabled) || enabled);
    EXPECT_EQ(log->Texts().back(), ConfigLine("query module is enabled failed, becuase of module "
                                              "code: module is invalid"));
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
    EXPECT_EQ(qzetest::Joined(*log),
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
    EXPECT_EQ(qzetest::Joined(*log), prefix + "richeng, configurations is not founded\n" + prefix +
                                         "core, configurations is founded, total(0)\n" + prefix +
                                         "mail, configurations is founded, total(1)");

    // Rows: module, key, value (null: not found).
    const std::tuple<std::string, std::string, const char*> byKey[] = {
        {"b_mod", "with_default", "dflt"},
        {"b_mod", "empty", ""},
        {"b_mod", "dup", "2"},
        {"b_mod", "no_value", nullptr},
        {"core", "anything", nullptr},
        {"nomodule", "dup", nullptr}};
    for (const auto& [module, key, expected] : byKey) {
        std::string value = "before";
        EXPECT_EQ(manager.GetMuduleConfig(module, key, value), expected != nullptr);
        EXPECT_EQ(value, expected ? expected : "before");
        const std::string where = "module code:" + module + " key:" + key;
        EXPECT_EQ(
            log->Texts().back(),
            ConfigLine(expected ? "query module config success, " + where + ",value:" + expected
                                : "query module config failed, " + where));
    }
}

}  // namespace
}  // namespace qzextensionkit
