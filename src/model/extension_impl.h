#pragma once

#include <map>
#include <memory>
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

    // A copy that shares this record's data until either of them is changed;
    // the extension point stays borrowed, the resources path is resolved.
    std::unique_ptr<ExtensionImpl> Copy() const;
    std::shared_ptr<ExtensionImpl> CopyShared() const;

    void SetId(const std::string& id);
    void SetId(std::string&& id);
    void SetVersion(const std::string& version);
    void SetVersion(std::string&& version);
    void SetExtensionPointId(const std::string& extensionPointId);
    void SetExtensionPointId(std::string&& extensionPointId);
    void SetClsid(const std::string& clsid);
    void SetClsid(std::string&& clsid);
    void SetPayloads(const std::map<std::string, std::string>& payloads);
    void SetPayloads(std::map<std::string, std::string>&& payloads);
    void SetConstraints(const std::map<std::string, std::vector<std::string>>& constraints);
    void SetConstraints(std::map<std::string, std::vector<std::string>>&& constraints);
    void SetSettingMap(const SettingMap& settingMap);
    void SetSettingMap(SettingMap&& settingMap);
    void SetSingleton(bool isSingleton);
    void SetExtensionPoint(ExtensionPoint* extensionPoint);
    void SetResourcesPath(const std::wstring& resourcesPath);
    void SetUnifiedId(const std::string& unifiedId);
    void SetUnifiedId(std::string&& unifiedId);

    ExtensionPoint* GetExtensionPoint() const;

private:
    // What a record says about itself. Records are filled once and then only
    // read, and the table of extensions in force holds a copy of every
    // record: copies share this block, and a setter on a shared block
    // changes a private clone of it.
    struct Data {
        std::string id;
        std::string version;
        std::string extensionPointId;
        // Never assigned: the interface id always comes from the extension
        // point.
        std::string iid;
        std::string clsid;
        bool isSingleton = false;
        std::map<std::string, std::string> payloads;
        std::map<std::string, std::vector<std::string>> constraints;
        SettingMap settingMap;
        std::string unifiedId;
    };
    Data& Mutable();

    std::shared_ptr<Data> data_;
    ExtensionPoint* extensionPoint_ = nullptr;
    // Null unless the record is a copy: then it holds the resolved path,
    // shared with the artifact it came from.
    std::shared_ptr<const std::wstring> resourcesPath_;
    std::shared_ptr<const std::wstring> ResolvedResourcesPath() const;
};

}  // namespace qzextensionkit
