#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/capture_logger.h"
#include "config/configuration_manager_impl.h"
#include "config/support/installation.h"

namespace qzextensionkit {
namespace {

using qzetest::ConfigLine;
using qzetest::Installation;

const std::pair<ModuleCode, const char*> kModuleTexts[] = {
    {ModuleCode(0), "instantmessaging"},
    {ModuleCode(2), "richeng"},
    {ModuleCode(1), "daiban"},
    {ModuleCode(6), "vorndisk"},
    {ModuleCode(5), "onlinefile"},
    {ModuleCode(7), "announcement"},
    {ModuleCode(8), "worknotice"},
    {ModuleCode(9), "vorn"},
    {ModuleCode(10), "user_workbench"},
    {ModuleCode(11), "tongxunlu"},
    {ModuleCode(12), "managementback"},
    {ModuleCode(21), "mail"},
    {ModuleCode(19), "security"},
    {ModuleCode(13), "navi"},
    {ModuleCode(15), "hulianhutong"},
    {ModuleCode(14), "denglu"},
    {ModuleCode(3), "ei-video"},
    {ModuleCode(4), "vorn_video"},
    {ModuleCode(16), "zhanghao"},
    {ModuleCode(17), "personalsetting"},
    {ModuleCode(20), "blog"},
    {ModuleCode(22), "des"},
    {ModuleCode(23), "pre-proclamation-system"},
    {ModuleCode(24), "api-gateway"},
    {ModuleCode(25), "filepreview"},
    {ModuleCode(26), "emass"},
    {ModuleCode(27), "proclamation-systemold"},
    {ModuleCode(28), "openplatform_advanced"},
    {ModuleCode(29), "vorn-screen-projection"},
    {ModuleCode(30), "mappingposition"},
    {ModuleCode(31), "system_setting_center"},
    {ModuleCode(32), "core"},
    {ModuleCode(33), "metax"},
    {ModuleCode(35), "vornguard_nationsky"},
    {ModuleCode(36), "vornguard"},
    {ModuleCode(37), "vorn_projector"},
};

const std::pair<FeatureCode, const char*> kFeatureTexts[] = {
    {FeatureCode(0), "im_big_group_management"},
    {FeatureCode(4), "hulianhutong"},
    {FeatureCode(1), "im_enable_parse_link"},
    {FeatureCode(2), "im_enable_server_encrypt"},
    {FeatureCode(3), "im_enable_burn_chat"},
    {FeatureCode(6), "avmeeting_enable_meeting_to_live"},
    {FeatureCode(5), "avmeeting_enable_meeting_record"},
    {FeatureCode(7), "vv_video_meeting_record"},
    {FeatureCode(8), "vv_video_meetting_live"},
    {FeatureCode(9), "vv_video_meetting_start"},
    {FeatureCode(10), "vv_video_call_start"},
    {FeatureCode(11), "vorn.feature.sms.enabled"},
    {FeatureCode(12), "vorn.feature.vms.enabled"},
    {FeatureCode(13), "vorn.feature.comment.enabled"},
};

// Every module listed, one feature per module, each switched on.
TEST(ModulesAndFeatures, EveryCodeMeansItsText) {
    std::string modules;
    for (auto& module : kModuleTexts) {
        modules +=
            std::string(modules.empty() ? "" : ",") + R"({"id": ")" + module.second + R"("})";
    }
    std::string settings;
    for (auto& feature : kFeatureTexts) {
        settings += std::string(settings.empty() ? "" : ",") + R"({"key": ")" + feature.second +
                    R"(", "value": "true"})";
    }
    Installation install;
    install.WriteMapping("{}");
    install.WriteConfig(R"({"modules": [)" + modules + R"(, {"id": "zz", "configurations": [)" +
                        settings + "]}]}");
    QZEConfigurationManagerImpl manager;
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    auto log = qzetest::CaptureLog();
    for (auto& module : kModuleTexts) {
        bool enabled = false;
        EXPECT_TRUE(manager.IsModuleEnabled(module.first, enabled));
        EXPECT_TRUE(enabled) << module.second;
        EXPECT_EQ(log->Texts().back(),
                  ConfigLine(std::string("query module is enabled success, module code:") +
                             module.second + " module is true"));
    }
    for (auto& feature : kFeatureTexts) {
        bool enabled = false;
        EXPECT_TRUE(manager.IsFeatueEnabled(feature.first, enabled));
        EXPECT_TRUE(enabled) << feature.second;
        EXPECT_EQ(log->Texts().back(),
                  ConfigLine(std::string("query feature is enabled success, feature code:") +
                             feature.second + " feature is true"));
    }
}

class ModuleAnswers : public ::testing::Test {
protected:
    void SetUp() override {
        install.WriteMapping("{}");
        install.WriteConfig(R"({"modules": [
            {"id": "core"},
            {"id": "a_mod", "configurations": [{"key": "vv_video_meetting_live", "value": "false"}]},
            {"id": "b_mod", "configurations": [
                {"key": "vv_video_meetting_live", "value": "true"},
                {"key": "im_enable_burn_chat", "value": "TRUE"},
                {"key": "vorn.feature.sms.enabled", "value": "true"},
                {"key": "with_default", "value": "", "defaultValue": "dflt"},
                {"key": "no_value", "defaultValue": "x"},
                {"key": "number", "value": 5},
                {"key": "empty", "value": ""},
                {"value": "no key"},
                {"key": "", "value": "empty key"},
                {"key": "dup", "value": "1"}, {"key": "dup", "value": "2"}, "not an object"]},
            {"id": ""}, {"configurations": []}, "not an object",
            {"id": "mail", "configurations": [{"key": "old", "value": "1"}]},
            {"id": "mail", "configurations": [{"key": "new", "value": "2"}]}]})");
        ASSERT_TRUE(manager.LoadAllExtensionInfos());
        log = qzetest::CaptureLog();
    }

    Installation install;
    QZEConfigurationManagerImpl manager;
    std::shared_ptr<qzetest::CapturedLines> log;
};

TEST_F(ModuleAnswers, IsModuleEnabled) {
    struct Case {
        int code;
        bool result;
        bool enabled;
        std::string line;
    };
    const std::string success = "query module is enabled success, module code:";
    const Case cases[] = {
        {32, true, true, success + "core module is true"},
        {21, true, true, success + "mail module is true"},
        {2, true, false, success + "richeng module is false"},
        {18, true, false, success + " module is false"},
        {34, true, false, success + " module is false"},
        {-1, false, false,
         "query module is enabled failed, becuase of module code: module is invalid"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        bool enabled = true;
        EXPECT_EQ(manager.IsModuleEnabled(ModuleCode(c.code), enabled), c.result);
        EXPECT_EQ(enabled, c.enabled);
        EXPECT_EQ(log->Texts().back(), ConfigLine(c.line));
    }
}

TEST_F(ModuleAnswers, IsFeatueEnabled) {
    struct Case {
        FeatureCode code;
        bool enabledBefore;
        bool result;
        bool enabled;
        std::string line;
    };
    const std::string success = "query feature is enabled success, feature code:";
    const Case cases[] = {
        // "a_mod" sorts before "b_mod" and decides.
        {kFeatureVvVideoMeetingLive, true, true, false,
         success + "vv_video_meetting_live feature is false"},
        {kFeatureImEnableBurnChat, true, true, false,
         success + "im_enable_burn_chat feature is false"},
        {kFeatureSmsEnabled, false, true, true,
         success + "vorn.feature.sms.enabled feature is true"},
        {kFeatureImBigGroupManagement, true, false, true,
         "query feature is enabled failed, feature code:im_big_group_management feature is not "
         "founded"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        bool enabled = c.enabledBefore;
        EXPECT_EQ(manager.IsFeatueEnabled(c.code, enabled), c.result);
        EXPECT_EQ(enabled, c.enabled);
        EXPECT_EQ(log->Texts().back(), ConfigLine(c.line));
    }
}

TEST_F(ModuleAnswers, ModuleSettings) {
    using Settings = std::map<std::string, std::string>;
    struct ByCode {
        ModuleCode code;
        bool result;
        Settings settings;
        std::string line;
    };
    const std::string prefix = "get configurations by module code:";
    const ByCode byCode[] = {
        {kModuleCore, true, {}, prefix + "core, configurations is founded, total(0)"},
        // The later "mail" replaced the earlier one whole.
        {kModuleMail, true, {{"new", "2"}}, prefix + "mail, configurations is founded, total(1)"},
        {kModuleRicheng,
         false,
         {{"kept", "as is"}},
         prefix + "richeng, configurations is not founded"},
    };
    for (const ByCode& c : byCode) {
        SCOPED_TRACE(c.line);
        Settings settings{{"kept", "as is"}};
        EXPECT_EQ(manager.GetConfigurationsByID(c.code, &settings), c.result);
        EXPECT_EQ(settings, c.settings);
        EXPECT_EQ(log->Texts().back(), ConfigLine(c.line));
    }

    struct ByKey {
        const char* module;
        const char* key;
        bool result;
        std::string value;
    };
    const ByKey byKey[] = {
        {"b_mod", "with_default", true, "dflt"},
        {"b_mod", "empty", true, ""},
        {"b_mod", "dup", true, "2"},
        {"b_mod", "", true, "empty key"},
        {"b_mod", "no_value", false, "before"},
        {"b_mod", "number", false, "before"},
        {"core", "anything", false, "before"},
        {"nomodule", "dup", false, "before"},
    };
    for (const ByKey& c : byKey) {
        SCOPED_TRACE(std::string(c.module) + "/" + c.key);
        std::string value = "before";
        EXPECT_EQ(manager.GetMuduleConfig(c.module, c.key, value), c.result);
        EXPECT_EQ(value, c.value);
        const std::string where = std::string("module code:") + c.module + " key:" + c.key;
        EXPECT_EQ(
            log->Texts().back(),
            ConfigLine(c.result ? "query module config success, " + where + ",value:" + c.value
                                : "query module config failed, " + where));
    }
}

}  // namespace
}  // namespace qzextensionkit
