#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/files/file_path.h"
#include "base/version.h"
#include "config/module_codes.h"
#include "kit/configuration_manager.h"
#include "platform/export.h"
#include "platform/platform.h"

namespace base {
class DictionaryValue;
}  // namespace base

namespace qzextensionkit {

class Artifact;
class Extension;
class ExtensionPoint;
class QZExtensionAuthInfo;

// The one object that knows what the kit is configured with: the extensions
// in force per extension point, the installed bundles, the module settings
// and the access keys. Filled from "extension_adapter_mapping.json" and
// "extensions\config.json" beside the host's executable.
//
// Internal: the host reaches it through QZEConfigurationManager. Exported
// for the test programs, which build fresh instances of their own.
class QZEKIT_EXPORT QZEConfigurationManagerImpl : public IQZEConfigurationManager {
public:
    // The process-wide instance, built on first use.
    static std::shared_ptr<IQZEConfigurationManager> GetInstance();

    QZEConfigurationManagerImpl();
    QZEConfigurationManagerImpl(const QZEConfigurationManagerImpl&) = delete;
    QZEConfigurationManagerImpl& operator=(const QZEConfigurationManagerImpl&) = delete;

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
    ~QZEConfigurationManagerImpl() override;
    void GetAllArtifacts(std::vector<Artifact*>& artifacts) override;
    void FetchRemoteConfig(bool applyFetched, const std::function<void()>& onSuccess,
                           const std::function<void(const std::string&)>& onFailure) override;
    bool LoadRemoteConfig() override;
    void SetRemoteConfigDataSource(std::shared_ptr<IQZERemoteConfigDataSource> dataSource) override;
    bool GetMuduleConfig(const std::string& moduleId, const std::string& key,
                         std::string& value) override;

    // The module id and feature key by which config.json names a code; empty
    // for a code the kit doesn't know. Public for the qzekit tool, which
    // lists what is switched on.
    static std::string ModuleCodeToString(ModuleCode code);
    static std::string FeatureCodeToString(FeatureCode code);

private:
    using ExtensionList = std::list<std::shared_ptr<Extension>>;

    // Paths, all beside the host's executable.
    static std::wstring GetExecutableDir();
    base::FilePath GetExtensionsDir();
    base::FilePath GetExtensionAdapterMappingFilePath();
    base::FilePath GetDebugExtensionConfigurationFilePath();

    // The local configuration.
    bool LoadLocalConfigurations();
    bool DecryptConfigurations(const std::string& encrypted, std::string* plain);
    void LoadModuleConfigurations(base::DictionaryValue* root);
    void LoadExtensionAuthInfos(base::DictionaryValue* root);
    void LoadArtifacts(base::DictionaryValue* root, const base::FilePath& extensionsDir);
    void CollectExtensionInfos();

    // Adapter mapping and the table of extensions in force.
    bool LoadExtensionAdapterMapping();
    void AddExtensionsToPoint(const std::string& extensionPointId,
                              std::unique_ptr<std::list<Extension*>> extensions);
    void AdaptExtension(Extension* source);
    ExtensionPoint* FindAdapterExtensionPoint(const std::string& extensionPointId);
    base::DictionaryValue* GetAdapterMappingEntry(const std::string& extensionPointId);
    // Reads "vplus-toolkit-extension.json". Nothing calls it: the kit has no
    // debug behaviour that can be switched on from outside.
    void HandleDebugExtensionConfigurations(
        const std::function<base::DictionaryValue*(const std::string&)>& findEntry,
        const std::function<ExtensionPoint*(const std::string&)>& findPoint);

    // Every change of extensionPoints and extensionTable goes through these,
    // which keep the indexes beside them in step.
    void AppendExtensionPoint(ExtensionPoint* point);
    void AppendToExtensionTable(const std::string& extensionPointId,
                                std::shared_ptr<Extension> extension);
    void ClearExtensionTable();
    // Empties one point's list and its ids; the key stays.
    void EmptyExtensionList(const std::string& extensionPointId);

    // Remote records over the local tables; called with `lock` held.
    void MergeRemoteConfig();
    void MergeRemoteExtensions();
    void MergeRemoteAuthInfos();

    platform::RecursiveLock lock;
    // Every point of every bundle that passed the foundation check; the
    // artifacts own them.
    std::list<ExtensionPoint*> extensionPoints;
    // One per bundle named by config.json; null when the manifest held JSON
    // that is no object.
    std::list<std::unique_ptr<Artifact>> artifacts;
    std::map<std::string, std::map<std::string, std::string>> moduleConfigurations;
    std::list<std::unique_ptr<QZExtensionAuthInfo>> extensionAuthInfos;
    base::Version foundationVersion;
    std::string secKey;
    bool debugModeEnabled = false;
    FetchExtensionAuthInfoCallback fetchExtensionAuthInfoCallback;
    std::shared_ptr<IQZERemoteConfigDataSource> remoteConfigDataSource;
    std::map<std::string, ExtensionList> remoteExtensions;
    std::list<std::shared_ptr<QZExtensionAuthInfo>> remoteAuthInfos;
    // Extension point id to the kit's own copies of the extensions in force.
    std::map<std::string, ExtensionList> extensionTable;
    std::unique_ptr<base::DictionaryValue> adapterMapping;

    // Indexes, so that a load does not walk whole lists once per record.
    // Point id to the first point in extensionPoints with that id whose
    // bundle is "extension_adapter".
    std::unordered_map<std::string, ExtensionPoint*> adapterPointIndex;
    // Point id to the ids of the records in that point's extensionTable list.
    std::unordered_map<std::string, std::unordered_set<std::string>> extensionIdIndex;
};

}  // namespace qzextensionkit
