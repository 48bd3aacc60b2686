#pragma once

#include <map>
#include <string>
#include <vector>

#include "model/extension.h"
#include "model/setting_map.h"
#include "platform/export.h"

namespace qzextensionkit {

class ExtensionPoint;

// The kit's own extension record. Bundle details (library, root, digests,
// entry class) are not stored here but reached through the extension point
// and its artifact, so they read as empty for a record without a point.
//
// A host sees only Extension. The class is exported because the test
// programs, which link the kit as a shared library, build and inspect
// records directly.
class QZEKIT_EXPORT ExtensionImpl : public Extension {
public:
    ExtensionImpl();
    // `extensionPoint` is borrowed: its artifact owns it.
    explicit ExtensionImpl(ExtensionPoint* extensionPoint);
    ExtensionImpl(const ExtensionImpl& other);
    ExtensionImpl& operator=(const ExtensionImpl& other);
    ~ExtensionImpl() override;

    std::string GetId() const override;
    std::string GetVersion() const override;
    std::string GetExtensionPointId() const override;
    std::string GetIid() const override;
    std::string GetClsid() const override;
    std::map<std::string, std::string> GetPayloads() const override;
    std::wstring GetMainEntry() const override;
    std::map<std::string, std::vector<std::string>> GetConstraints() const override;
    base::FilePath GetRootPath() const override;
    SettingMap GetSettingMap() const override;
    std::wstring GetResourcesPath() const override;
    bool IsSingleton() const override;
    std::string GetLibFileMD5() const override;
    std::string GetSignMD5() const override;
    std::string GetBundleClassId() const override;
    bool IsNative() const override;
    std::string GetUnifiedId() const override;

    void SetId(const std::string& id);
    void SetVersion(const std::string& version);
    void SetExtensionPointId(const std::string& extensionPointId);
    void SetClsid(const std::string& clsid);
    void SetPayloads(const std::map<std::string, std::string>& payloads);
    void SetConstraints(const std::map<std::string, std::vector<std::string>>& constraints);
    void SetSettingMap(const SettingMap& settingMap);
    void SetSingleton(bool isSingleton);
    void SetExtensionPoint(ExtensionPoint* extensionPoint);
    void SetResourcesPath(const std::wstring& resourcesPath);
    void SetUnifiedId(const std::string& unifiedId);

    ExtensionPoint* GetExtensionPoint() const;

private:
    std::string id_;
    std::string version_;
    std::string extensionPointId_;
    // Never assigned: the interface id always comes from the extension point.
    std::string iid_;
    std::string clsid_;
    bool isSingleton_ = false;
    std::map<std::string, std::string> payloads_;
    std::map<std::string, std::vector<std::string>> constraints_;
    SettingMap settingMap_;
    ExtensionPoint* extensionPoint_ = nullptr;
    // Empty unless the record is a copy: then it holds the resolved path.
    std::wstring resourcesPath_;
    std::string unifiedId_;
};

}  // namespace qzextensionkit
