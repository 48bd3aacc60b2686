#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/module_codes.h"
#include "kit/extension_manager.h"
#include "platform/export.h"

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

class Artifact;
class Extension;
class IQZERemoteConfigDataSource;

// Everything the kit is configured with. The order of the operations,
// the destructor's place in the middle included, is binary interface.
class QZEKIT_EXPORT IQZEConfigurationManager {
public:
    virtual void SetFoundationVersion(const std::string& version) = 0;
    virtual bool LoadAllExtensionInfos() = 0;
    virtual bool UnloadAllExtensionInfos() = 0;
    virtual bool GetExtensionInfoByID(const std::string& id, Extension** extension) = 0;
    virtual bool GetExtensionInfosByExntensionPointID(
        const std::string& extensionPointId,
        std::vector<std::shared_ptr<Extension>>& extensions) = 0;
    virtual bool GetConfigurationsByID(ModuleCode code,
                                       std::map<std::string, std::string>* configurations) = 0;
    virtual bool IsModuleEnabled(ModuleCode code, bool& enabled) = 0;
    virtual bool IsFeatueEnabled(FeatureCode code, bool& enabled) = 0;
    virtual std::string GetH5ExtensionBundleId(const std::string& url) = 0;
    virtual std::string GetExtensionAccessKey(const std::string& bundleId) = 0;
    virtual bool SetSecKey(const std::string& key) = 0;
    virtual bool SetDebugModeEnable(bool enable) = 0;
    virtual void SetFetchExtensionAuthInfoCallback(
        const FetchExtensionAuthInfoCallback& callback) = 0;
    virtual void CheckAndFetchExtensionAuthInfo() = 0;
    virtual void GetAllExtensionInfos(std::vector<Extension*>& extensions) = 0;
    virtual ~IQZEConfigurationManager();
    virtual void GetAllArtifacts(std::vector<Artifact*>& artifacts) = 0;
    virtual void FetchRemoteConfig(bool applyFetched, const std::function<void()>& onSuccess,
                                   const std::function<void(const std::string&)>& onFailure) = 0;
    virtual bool LoadRemoteConfig() = 0;
    virtual void SetRemoteConfigDataSource(
        std::shared_ptr<IQZERemoteConfigDataSource> dataSource) = 0;
    virtual bool GetMuduleConfig(const std::string& moduleId, const std::string& key,
                                 std::string& value) = 0;
};

// Plain facade: forwards with no lock and no test. Calling it before
// InitSDK (or after UnInitialize) is a programming error of the host.
class QZEKIT_EXPORT QZEConfigurationManager : public IQZEConfigurationManager {
public:
    static QZEConfigurationManager* GetInstance();

    void Initialize(std::shared_ptr<IQZEConfigurationManager> impl);
    void UnInitialize();

    void SetFoundationVersion(const std::string& version) override;
    bool LoadAllExtensionInfos() override;
    bool UnloadAllExtensionInfos() override;
    bool GetExtensionInfoByID(const std::string& id, Extension** extension) override;
    bool GetExtensionInfosByExntensionPointID(
        const std::string& extensionPointId,
        std::vector<std::shared_ptr<Extension>>& extensions) override;
    bool GetConfigurationsByID(ModuleCode code,
                               std::map<std::string, std::string>* configurations) override;
    bool IsModuleEnabled(ModuleCode code, bool& enabled) override;
    bool IsFeatueEnabled(FeatureCode code, bool& enabled) override;
    std::string GetH5ExtensionBundleId(const std::string& url) override;
    std::string GetExtensionAccessKey(const std::string& bundleId) override;
    bool SetSecKey(const std::string& key) override;
    bool SetDebugModeEnable(bool enable) override;
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback& callback) override;
    void CheckAndFetchExtensionAuthInfo() override;
    void GetAllExtensionInfos(std::vector<Extension*>& extensions) override;
    void GetAllArtifacts(std::vector<Artifact*>& artifacts) override;
    void FetchRemoteConfig(bool applyFetched, const std::function<void()>& onSuccess,
                           const std::function<void(const std::string&)>& onFailure) override;
    bool LoadRemoteConfig() override;
    void SetRemoteConfigDataSource(std::shared_ptr<IQZERemoteConfigDataSource> dataSource) override;
    bool GetMuduleConfig(const std::string& moduleId, const std::string& key,
                         std::string& value) override;

private:
    friend class internal::ProcessSingleton<QZEConfigurationManager>;
    QZEConfigurationManager();
    ~QZEConfigurationManager() override;

    std::shared_ptr<IQZEConfigurationManager> impl_;
};

}  // namespace qzextensionkit
