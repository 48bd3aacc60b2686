#pragma once

#include <cstdint>

namespace qzextensionkit {

// The modules a host can ask about. The numbers travel as signed 32-bit
// values across the kit's boundary and never change; 18 and 34 are unused.
// Each stands for the module id that config.json lists under "modules".
enum ModuleCode : int32_t {
    kModuleInvalid = -1,
    kModuleInstantMessaging = 0,        // "instantmessaging"
    kModuleRicheng = 2,                 // "richeng"
    kModuleDaiban = 1,                  // "daiban"
    kModuleVornDisk = 6,                // "vorndisk"
    kModuleOnlineFile = 5,              // "onlinefile"
    kModuleAnnouncement = 7,            // "announcement"
    kModuleWorkNotice = 8,              // "worknotice"
    kModuleVorn = 9,                    // "vorn"
    kModuleUserWorkbench = 10,          // "user_workbench"
    kModuleTongxunlu = 11,              // "tongxunlu"
    kModuleManagementBack = 12,         // "managementback"
    kModuleMail = 21,                   // "mail"
    kModuleSecurity = 19,               // "security"
    kModuleNavi = 13,                   // "navi"
    kModuleHulianhutong = 15,           // "hulianhutong"
    kModuleDenglu = 14,                 // "denglu"
    kModuleEiVideo = 3,                 // "ei-video"
    kModuleVornVideo = 4,               // "vorn_video"
    kModuleZhanghao = 16,               // "zhanghao"
    kModulePersonalSetting = 17,        // "personalsetting"
    kModuleBlog = 20,                   // "blog"
    kModuleDes = 22,                    // "des"
    kModulePreProclamationSystem = 23,  // "pre-proclamation-system"
    kModuleApiGateway = 24,             // "api-gateway"
    kModuleFilePreview = 25,            // "filepreview"
    kModuleEmass = 26,                  // "emass"
    kModuleProclamationSystemOld = 27,  // "proclamation-systemold"
    kModuleOpenPlatformAdvanced = 28,   // "openplatform_advanced"
    kModuleVornScreenProjection = 29,   // "vorn-screen-projection"
    kModuleMappingPosition = 30,        // "mappingposition"
    kModuleSystemSettingCenter = 31,    // "system_setting_center"
    kModuleCore = 32,                   // "core"
    kModuleMetax = 33,                  // "metax"
    kModuleVornGuardNationsky = 35,     // "vornguard_nationsky"
    kModuleVornGuard = 36,              // "vornguard"
    kModuleVornProjector = 37,          // "vorn_projector"
};

// The features a host can ask about. A feature is on when some module's
// settings hold its key with the value "true".
enum FeatureCode : int32_t {
    kFeatureImBigGroupManagement = 0,          // "im_big_group_management"
    kFeatureHulianhutong = 4,                  // "hulianhutong"
    kFeatureImEnableParseLink = 1,             // "im_enable_parse_link"
    kFeatureImEnableServerEncrypt = 2,         // "im_enable_server_encrypt"
    kFeatureImEnableBurnChat = 3,              // "im_enable_burn_chat"
    kFeatureAvMeetingEnableMeetingToLive = 6,  // "avmeeting_enable_meeting_to_live"
    kFeatureAvMeetingEnableMeetingRecord = 5,  // "avmeeting_enable_meeting_record"
    kFeatureVvVideoMeetingRecord = 7,          // "vv_video_meeting_record"
    kFeatureVvVideoMeetingLive = 8,            // "vv_video_meetting_live"
    kFeatureVvVideoMeetingStart = 9,           // "vv_video_meetting_start"
    kFeatureVvVideoCallStart = 10,             // "vv_video_call_start"
    kFeatureSmsEnabled = 11,                   // "vorn.feature.sms.enabled"
    kFeatureVmsEnabled = 12,                   // "vorn.feature.vms.enabled"
    kFeatureCommentEnabled = 13,               // "vorn.feature.comment.enabled"
};

}  // namespace qzextensionkit
