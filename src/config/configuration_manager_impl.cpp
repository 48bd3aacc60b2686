#include "config/configuration_manager_impl.h"

#include <mutex>
#include <utility>

#include "base/values.h"
#include "config/extension_auth_info.h"
#include "kit/log_service.h"
#include "kit/singleton.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "model/extension_point.h"

namespace qzextensionkit {

namespace {

using Hold = std::lock_guard<platform::RecursiveLock>;

QZELogService* Log() {
    return QZELogService::GetInstance();
}

}  // namespace

std::shared_ptr<IQZEConfigurationManager> QZEConfigurationManagerImpl::GetInstance() {
    return internal::SharedInstance<IQZEConfigurationManager, QZEConfigurationManagerImpl>::Get();
}

QZEConfigurationManagerImpl::QZEConfigurationManagerImpl() = default;

// Fields go in reverse order: the records of extensionTable, which borrow
// their extension points, before the artifacts that own those points.
QZEConfigurationManagerImpl::~QZEConfigurationManagerImpl() = default;

void QZEConfigurationManagerImpl::SetFoundationVersion(const std::string& version) {
    Hold hold(lock);
    foundationVersion = base::Version(version);
    Log()->LogMessage(0, "configuration manager impl - set foundation version is %s",
                      version.c_str());
}

bool QZEConfigurationManagerImpl::LoadAllExtensionInfos() {
    if (LoadExtensionAdapterMapping() && LoadLocalConfigurations()) {
        Log()->LogMessage(0, "configuration manager impl - load all extension infos success");
        return true;
    }
    // Whatever a failed step stored stays.
    Log()->LogMessage(0,
                      "configuration manager impl - load all extension infos failed, because of "
                      "find extensions failed");
    return false;
}

bool QZEConfigurationManagerImpl::UnloadAllExtensionInfos() {
    Hold hold(lock);
    ClearExtensionTable();
    remoteExtensions.clear();
    remoteAuthInfos.clear();
    extensionPoints.clear();
    adapterPointIndex.clear();
    artifacts.clear();
    extensionAuthInfos.clear();
    // Module settings and the adapter mapping stay until a later load
    // replaces them.
    Log()->LogMessage(0, "configuration manager impl - unload all extension infos success");
    return true;
}

bool QZEConfigurationManagerImpl::GetExtensionInfoByID(const std::string& id,
                                                       Extension** extension) {
    // The last extension point in key order that holds the id gives the
    // answer; within one point the first record does.
    bool found = false;
    std::unique_ptr<Extension> copy;
    for (auto& entry : extensionTable) {
        for (auto& record : entry.second) {
            if (!record) {
                continue;
            }
            std::string recordId = record->GetId();
            if (recordId.empty() || recordId != id) {
                continue;
            }
            Extension* made = nullptr;
            ExtensionFactory::CopyExtension(record.get(), &made);
            if (made) {
                copy.reset(made);
            }
            found = true;
            break;
        }
    }
    if (!found) {
        Log()->LogMessage(0,
                          "configuration manager impl - get extension info by extension id:%s, "
                          "extension info is not founded",
                          id.c_str());
        return false;
    }
    if (copy) {
        *extension = copy.release();
    }
    Log()->LogMessage(0,
                      "configuration manager impl - get extension info by extension id:%s, "
                      "extension info is founded",
                      id.c_str());
    return true;
}

bool QZEConfigurationManagerImpl::GetExtensionInfosByExntensionPointID(
    const std::string& extensionPointId, std::vector<std::shared_ptr<Extension>>& extensions) {
    Hold hold(lock);
    auto entry = extensionTable.find(extensionPointId);
    if (entry == extensionTable.end()) {
        Log()->LogMessage(0,
                          "configuration manager impl - get extension infos by extension point "
                          "id:%s, extension infos is not founded",
                          extensionPointId.c_str());
        return false;
    }
    for (auto& record : entry->second) {
        if (!record) {
            Log()->LogMessage(0,
                              "configuration manager impl - get extension infos by extension "
                              "point id:%s, extension infos is founded, but is nullptr",
                              extensionPointId.c_str());
            continue;
        }
        if (std::shared_ptr<Extension> copy = CopyExtensionShared(record.get())) {
            extensions.push_back(std::move(copy));
        }
    }
    // The count includes what the caller's vector held before.
    Log()->LogMessage(0,
                      "configuration manager impl - get extension infos by extension point id:%s, "
                      "extension infos is founded, total(%d)",
                      extensionPointId.c_str(), static_cast<int>(extensions.size()));
    return true;
}

bool QZEConfigurationManagerImpl::SetSecKey(const std::string& key) {
    Hold hold(lock);
    if (key.size() == 0x20) {
        secKey = key;
        return true;
    }
    Log()->LogMessage(0,
                      "configuration manager impl - set sec key failed, becuase of the length of "
                      "key is not equal to 32");
    return false;
}

bool QZEConfigurationManagerImpl::SetDebugModeEnable(bool enable) {
    // Kept, and read by nothing: no debug behaviour can be switched on.
    Hold hold(lock);
    debugModeEnabled = enable;
    return true;
}

void QZEConfigurationManagerImpl::SetFetchExtensionAuthInfoCallback(
    const FetchExtensionAuthInfoCallback& callback) {
    Hold hold(lock);
    fetchExtensionAuthInfoCallback = callback;
}

void QZEConfigurationManagerImpl::GetAllExtensionInfos(std::vector<Extension*>& extensions) {
    for (auto& entry : extensionTable) {
        for (auto& record : entry.second) {
            extensions.push_back(record.get());
        }
    }
}

void QZEConfigurationManagerImpl::GetAllArtifacts(std::vector<Artifact*>& artifacts) {
    for (auto& artifact : this->artifacts) {
        artifacts.push_back(artifact.get());
    }
}

// ---- Paths ------------------------------------------------------------------

std::wstring QZEConfigurationManagerImpl::GetExecutableDir() {
    std::wstring path = platform::ExecutablePath();
    if (path.empty()) {
        return std::wstring();
    }
    // Windows gives "\\"; other systems their own separator.
    std::size_t cut = path.find_last_of(L"\\/");
    if (cut == std::wstring::npos) {
        return path;
    }
    return path.substr(0, cut);
}

base::FilePath QZEConfigurationManagerImpl::GetExtensionsDir() {
    std::wstring dir = GetExecutableDir();
    if (dir.empty()) {
        Log()->LogMessage(0, "configuration manager impl - extensions dir is empty");
        return base::FilePath();
    }
    base::FilePath extensionsDir = base::FilePath(dir).Append(L"extensions");
    Log()->LogMessage(0, "configuration manager impl - get extensions dir success");
    return extensionsDir;
}

base::FilePath QZEConfigurationManagerImpl::GetExtensionAdapterMappingFilePath() {
    std::wstring dir = GetExecutableDir();
    if (dir.empty()) {
        Log()->LogMessage(0,
                          "configuration manager impl - get extension adapter mapping file path "
                          "failed, becuase of extension_adapter_mapping.json is not exist");
        return base::FilePath();
    }
    return base::FilePath(dir).Append(L"extension_adapter_mapping.json");
}

base::FilePath QZEConfigurationManagerImpl::GetDebugExtensionConfigurationFilePath() {
    std::wstring dir = GetExecutableDir();
    if (dir.empty()) {
        Log()->LogMessage(0,
                          "configuration manager impl - get debug extension configuration file "
                          "path failed, becuase of debug_extension_configuration.json is not "
                          "exist");
        return base::FilePath();
    }
    return base::FilePath(dir).Append(L"vplus-toolkit-extension.json");
}

// ---- Modules and features ---------------------------------------------------

std::string QZEConfigurationManagerImpl::ModuleCodeToString(ModuleCode code) {
    static const std::map<int, std::string> kModules = {
        {kModuleInstantMessaging, "instantmessaging"},
        {kModuleRicheng, "richeng"},
        {kModuleDaiban, "daiban"},
        {kModuleVornDisk, "vorndisk"},
        {kModuleOnlineFile, "onlinefile"},
        {kModuleAnnouncement, "announcement"},
        {kModuleWorkNotice, "worknotice"},
        {kModuleVorn, "vorn"},
        {kModuleUserWorkbench, "user_workbench"},
        {kModuleTongxunlu, "tongxunlu"},
        {kModuleManagementBack, "managementback"},
        {kModuleMail, "mail"},
        {kModuleSecurity, "security"},
        {kModuleNavi, "navi"},
        {kModuleHulianhutong, "hulianhutong"},
        {kModuleDenglu, "denglu"},
        {kModuleEiVideo, "ei-video"},
        {kModuleVornVideo, "vorn_video"},
        {kModuleZhanghao, "zhanghao"},
        {kModulePersonalSetting, "personalsetting"},
        {kModuleBlog, "blog"},
        {kModuleDes, "des"},
        {kModulePreProclamationSystem, "pre-proclamation-system"},
        {kModuleApiGateway, "api-gateway"},
        {kModuleFilePreview, "filepreview"},
        {kModuleEmass, "emass"},
        {kModuleProclamationSystemOld, "proclamation-systemold"},
        {kModuleOpenPlatformAdvanced, "openplatform_advanced"},
        {kModuleVornScreenProjection, "vorn-screen-projection"},
        {kModuleMappingPosition, "mappingposition"},
        {kModuleSystemSettingCenter, "system_setting_center"},
        {kModuleCore, "core"},
        {kModuleMetax, "metax"},
        {kModuleVornGuardNationsky, "vornguard_nationsky"},
        {kModuleVornGuard, "vornguard"},
        {kModuleVornProjector, "vorn_projector"},
    };
    auto found = kModules.find(code);
    return found == kModules.end() ? std::string() : found->second;
}

std::string QZEConfigurationManagerImpl::FeatureCodeToString(FeatureCode code) {
    // The keys of 7 to 9 are spelled as configuration files hold them.
    static const std::map<int, std::string> kFeatures = {
        {kFeatureImBigGroupManagement, "im_big_group_management"},
        {kFeatureHulianhutong, "hulianhutong"},
        {kFeatureImEnableParseLink, "im_enable_parse_link"},
        {kFeatureImEnableServerEncrypt, "im_enable_server_encrypt"},
        {kFeatureImEnableBurnChat, "im_enable_burn_chat"},
        {kFeatureAvMeetingEnableMeetingToLive, "avmeeting_enable_meeting_to_live"},
        {kFeatureAvMeetingEnableMeetingRecord, "avmeeting_enable_meeting_record"},
        {kFeatureVvVideoMeetingRecord, "vv_video_meeting_record"},
        {kFeatureVvVideoMeetingLive, "vv_video_meetting_live"},
        {kFeatureVvVideoMeetingStart, "vv_video_meetting_start"},
        {kFeatureVvVideoCallStart, "vv_video_call_start"},
        {kFeatureSmsEnabled, "vorn.feature.sms.enabled"},
        {kFeatureVmsEnabled, "vorn.feature.vms.enabled"},
        {kFeatureCommentEnabled, "vorn.feature.comment.enabled"},
    };
    auto found = kFeatures.find(code);
    return found == kFeatures.end() ? std::string() : found->second;
}

bool QZEConfigurationManagerImpl::IsModuleEnabled(ModuleCode code, bool& enabled) {
    Hold hold(lock);
    std::string moduleId = ModuleCodeToString(code);
    enabled = false;
    if (code == kModuleInvalid) {
        Log()->LogMessage(0,
                          "configuration manager impl - query module is enabled failed, becuase "
                          "of module code:%s module is invalid",
                          moduleId.c_str());
        return false;
    }
    // A module listed with no settings is on too.
    enabled = moduleConfigurations.count(moduleId) != 0;
    Log()->LogMessage(0,
                      "configuration manager impl - query module is enabled success, module "
                      "code:%s module is %s",
                      moduleId.c_str(), enabled ? "true" : "false");
    return true;
}

bool QZEConfigurationManagerImpl::IsFeatueEnabled(FeatureCode code, bool& enabled) {
    Hold hold(lock);
    std::string featureKey = FeatureCodeToString(code);
    // Any module may hold a feature's key; the first in key order decides.
    for (auto& module : moduleConfigurations) {
        auto setting = module.second.find(featureKey);
        if (setting == module.second.end()) {
            continue;
        }
        enabled = setting->second == "true";
        Log()->LogMessage(0,
                          "configuration manager impl - query feature is enabled success, "
                          "feature code:%s feature is %s",
                          featureKey.c_str(), enabled ? "true" : "false");
        return true;
    }
    Log()->LogMessage(0,
                      "configuration manager impl - query feature is enabled failed, feature "
                      "code:%s feature is not founded",
                      featureKey.c_str());
    return false;
}

bool QZEConfigurationManagerImpl::GetConfigurationsByID(
    ModuleCode code, std::map<std::string, std::string>* configurations) {
    std::string moduleId = ModuleCodeToString(code);
    auto module = moduleConfigurations.find(moduleId);
    if (module == moduleConfigurations.end()) {
        Log()->LogMessage(0,
                          "configuration manager impl - get configurations by module code:%s, "
                          "configurations is not founded",
                          moduleId.c_str());
        return false;
    }
    *configurations = module->second;
    Log()->LogMessage(0,
                      "configuration manager impl - get configurations by module code:%s, "
                      "configurations is founded, total(%d)",
                      moduleId.c_str(), static_cast<int>(module->second.size()));
    return true;
}

bool QZEConfigurationManagerImpl::GetMuduleConfig(const std::string& moduleId,
                                                  const std::string& key, std::string& value) {
    Hold hold(lock);
    auto module = moduleConfigurations.find(moduleId);
    if (module != moduleConfigurations.end()) {
        auto setting = module->second.find(key);
        if (setting != module->second.end()) {
            value = setting->second;
            Log()->LogMessage(0,
                              "configuration manager impl - query module config success, module "
                              "code:%s key:%s,value:%s",
                              moduleId.c_str(), key.c_str(), value.c_str());
            return true;
        }
    }
    Log()->LogMessage(0,
                      "configuration manager impl - query module config failed, module code:%s "
                      "key:%s",
                      moduleId.c_str(), key.c_str());
    return false;
}

}  // namespace qzextensionkit
