#include "kit/configuration_manager.h"

#include "kit/singleton.h"

namespace qzextensionkit {

IQZEConfigurationManager::~IQZEConfigurationManager() = default;

QZEConfigurationManager::QZEConfigurationManager() = default;
QZEConfigurationManager::~QZEConfigurationManager() = default;

QZEConfigurationManager* QZEConfigurationManager::GetInstance() {
    return internal::ProcessSingleton<QZEConfigurationManager>::Get();
}

void QZEConfigurationManager::Initialize(std::shared_ptr<IQZEConfigurationManager> impl) {
    impl_.swap(impl);
}

void QZEConfigurationManager::UnInitialize() {
    impl_.reset();
}

void QZEConfigurationManager::SetFoundationVersion(const std::string& version) {
    impl_->SetFoundationVersion(version);
}
bool QZEConfigurationManager::LoadAllExtensionInfos() {
    return impl_->LoadAllExtensionInfos();
}
bool QZEConfigurationManager::UnloadAllExtensionInfos() {
    return impl_->UnloadAllExtensionInfos();
}
bool QZEConfigurationManager::GetExtensionInfoByID(const std::string& id, Extension** extension) {
    return impl_->GetExtensionInfoByID(id, extension);
}
bool QZEConfigurationManager::GetExtensionInfosByExntensionPointID(
    const std::string& extensionPointId, std::vector<std::shared_ptr<Extension>>& extensions) {
    return impl_->GetExtensionInfosByExntensionPointID(extensionPointId, extensions);
}
bool QZEConfigurationManager::GetConfigurationsByID(
    ModuleCode code, std::map<std::string, std::string>* configurations) {
    return impl_->GetConfigurationsByID(code, configurations);
}
bool QZEConfigurationManager::IsModuleEnabled(ModuleCode code, bool& enabled) {
    return impl_->IsModuleEnabled(code, enabled);
}
bool QZEConfigurationManager::IsFeatueEnabled(FeatureCode code, bool& enabled) {
    return impl_->IsFeatueEnabled(code, enabled);
}
std::string QZEConfigurationManager::GetH5ExtensionBundleId(const std::string& url) {
    return impl_->GetH5ExtensionBundleId(url);
}
std::string QZEConfigurationManager::GetExtensionAccessKey(const std::string& bundleId) {
    return impl_->GetExtensionAccessKey(bundleId);
}
bool QZEConfigurationManager::SetSecKey(const std::string& key) {
    return impl_->SetSecKey(key);
}
bool QZEConfigurationManager::SetDebugModeEnable(bool enable) {
    return impl_->SetDebugModeEnable(enable);
}
void QZEConfigurationManager::SetFetchExtensionAuthInfoCallback(
    const FetchExtensionAuthInfoCallback& callback) {
    impl_->SetFetchExtensionAuthInfoCallback(callback);
}
void QZEConfigurationManager::CheckAndFetchExtensionAuthInfo() {
    impl_->CheckAndFetchExtensionAuthInfo();
}
void QZEConfigurationManager::GetAllExtensionInfos(std::vector<Extension*>& extensions) {
    impl_->GetAllExtensionInfos(extensions);
}
void QZEConfigurationManager::GetAllArtifacts(std::vector<Artifact*>& artifacts) {
    impl_->GetAllArtifacts(artifacts);
}
void QZEConfigurationManager::FetchRemoteConfig(
    bool applyFetched, const std::function<void()>& onSuccess,
    const std::function<void(const std::string&)>& onFailure) {
    impl_->FetchRemoteConfig(applyFetched, onSuccess, onFailure);
}
bool QZEConfigurationManager::LoadRemoteConfig() {
    return impl_->LoadRemoteConfig();
}
void QZEConfigurationManager::SetRemoteConfigDataSource(
    std::shared_ptr<IQZERemoteConfigDataSource> dataSource) {
    impl_->SetRemoteConfigDataSource(std::move(dataSource));
}
bool QZEConfigurationManager::GetMuduleConfig(const std::string& moduleId, const std::string& key,
                                              std::string& value) {
    return impl_->GetMuduleConfig(moduleId, key, value);
}

}  // namespace qzextensionkit
