#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kit/extension_manager.h"

namespace qzextensionkit {

class Extension;

// Builds extension objects for the host. It keeps no table of what it made:
// records come from the configuration manager, libraries from the bundle
// manager, objects from the object container. Its only state is the two
// verification switches, which the bundle manager reads through the facade.
//
// No lock of its own: every call arrives through QZExtensionManager, which
// holds its recursive mutex for the whole call.
class QZExtensionManagerImpl : public IQZExtensionManager {
public:
    // The process-wide instance, built on first use.
    static std::shared_ptr<IQZExtensionManager> GetInstance();

    QZExtensionManagerImpl();
    ~QZExtensionManagerImpl() override;
    QZExtensionManagerImpl(const QZExtensionManagerImpl&) = delete;
    QZExtensionManagerImpl& operator=(const QZExtensionManagerImpl&) = delete;

    void SetFoundationVersion(const std::string& version) override;
    // Reads every record, then opens every bundle. The result is the
    // records'; a bundle that fails to open changes nothing in it.
    bool Load() override;
    // Empties the configuration's tables only: libraries, loaders,
    // singletons and registrations stay, so objects handed out stay valid.
    bool Unload() override;
    // Builds every extension of the point and hands out the first; the
    // others are neither returned nor released.
    bool GetExtension(const std::string& extensionPointId, void** extension) override;
    // Appends an object for each record that could be built. `extensions`
    // is not cleared, and what it held counts as content.
    bool GetExtensionList(const std::string& extensionPointId,
                          std::vector<void*>& extensions) override;
    bool GetExtensionById(const std::string& extensionId, void** extension) override;
    bool RegisterExtension(const ExtensionCreator& creator, const std::string& classId,
                           bool isSingleton) override;
    bool unRegisterExtension(const std::string& classId) override;
    bool GetLibFileVerifyEnable() override;
    void SetLibFileVerifyEnable(bool enable) override;
    bool GetSignVerifyEnable() override;
    void SetSignVerifyEnable(bool enable) override;
    bool SetSecKey(const std::string& key) override;
    bool SetDebugModeEnable(bool enable) override;
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback& callback) override;

private:
    // Picks the route for a record: its library if it names one, else the
    // creator registered for its class.
    bool CreateExtensionInstance(const Extension& record, void** extension);
    bool CreateExtensionInstanceFromDynamicLibrary(const Extension& record, void** extension);
    bool CreateExtensionInstanceFromRegistry(const Extension& record, void** extension);

    bool libFileVerifyEnabled_ = false;
    bool signVerifyEnabled_ = false;
};

}  // namespace qzextensionkit
