#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/files/file_path.h"
#include "model/setting_map.h"
#include "platform/export.h"

namespace qzextensionkit {

// What one extension offers: which object to create, with which payloads
// and constraints, from which bundle. Everything is handed out as a copy.
// The order of the virtual operations is binary interface.
class QZEKIT_EXPORT Extension {
public:
    Extension();
    Extension(const Extension& other);
    Extension& operator=(const Extension& other);
    virtual ~Extension();

    virtual std::string GetId() const = 0;
    // Kept as text; never parsed.
    virtual std::string GetVersion() const = 0;
    virtual std::string GetExtensionPointId() const = 0;
    // The interface id named by the extension point.
    virtual std::string GetIid() const = 0;
    virtual std::string GetClsid() const = 0;
    virtual std::map<std::string, std::string> GetPayloads() const = 0;
    // The library, relative to the bundle root.
    virtual std::wstring GetMainEntry() const = 0;
    virtual std::map<std::string, std::vector<std::string>> GetConstraints() const = 0;
    virtual base::FilePath GetRootPath() const = 0;
    virtual SettingMap GetSettingMap() const = 0;
    virtual std::wstring GetResourcesPath() const = 0;
    virtual bool IsSingleton() const = 0;
    virtual std::string GetLibFileMD5() const = 0;
    virtual std::string GetSignMD5() const = 0;
    virtual std::string GetBundleClassId() const = 0;
    // True when the record reaches a bundle with a library of its own.
    virtual bool IsNative() const = 0;
    virtual std::string GetUnifiedId() const = 0;
};

}  // namespace qzextensionkit
