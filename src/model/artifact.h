#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "base/files/file_path.h"
#include "platform/export.h"

namespace qzextensionkit {

class ExtensionPoint;

// One bundle on disk as its manifest describes it. Owns its extension points,
// which own their extension records; holds no loaded library.
//
// Internal: a host sees an Artifact* only as a handle. Exported for the test
// programs, which link the kit as a shared library and read artifacts that
// ReadManifest built.
class QZEKIT_EXPORT Artifact {
public:
    explicit Artifact(const base::FilePath& rootPath);
    Artifact(const Artifact&) = delete;
    Artifact& operator=(const Artifact&) = delete;
    ~Artifact();

    std::string GetId() const;
    void SetId(const std::string& id);
    std::vector<uint32_t> GetVersion() const;
    void SetVersion(const std::vector<uint32_t>& version);
    std::vector<uint32_t> GetFoundationVersion() const;
    void SetFoundationVersion(const std::vector<uint32_t>& foundationVersion);
    // The library, relative to the root.
    std::wstring GetMainEntry() const;
    void SetMainEntry(const std::wstring& mainEntry);
    base::FilePath GetRootPath() const;
    std::wstring GetResourcesPath() const;
    void SetResourcesPath(const std::wstring& resourcesPath);
    // The same text without a copy, for the records that resolve to it.
    std::shared_ptr<const std::wstring> SharedResourcesPath() const { return resourcesPath_; }
    std::string GetLibFileMD5() const;
    void SetLibFileMD5(const std::string& libFileMD5);
    std::string GetSignMD5() const;
    void SetSignMD5(const std::string& signMD5);
    std::string GetBundleClassId() const;
    void SetBundleClassId(const std::string& bundleClassId);

    // Takes ownership of `extensionPoint`.
    void AddExtensionPoint(ExtensionPoint* extensionPoint);
    // Appends each point, in order, to `extensionPoints` as a borrowed
    // pointer and answers true.
    bool GetExtensionPoints(std::list<ExtensionPoint*>& extensionPoints) const;

private:
    std::string id_;
    // Three texts the manifest format reserves; nothing fills them.
    std::string reserved1_;
    std::string reserved2_;
    std::string reserved3_;
    std::vector<uint32_t> version_;
    std::vector<uint32_t> foundationVersion_;
    std::wstring mainEntry_;
    base::FilePath rootPath_;
    // Shared with the copies of this bundle's records; a new value replaces
    // the pointer, so what a copy holds never changes under it. Null when
    // empty.
    std::shared_ptr<const std::wstring> resourcesPath_;
    std::string libFileMD5_;
    std::string signMD5_;
    std::string bundleClassId_;
    std::list<std::unique_ptr<ExtensionPoint>> extensionPoints_;
    // Set once by the constructor and never read.
    std::string revision_;
    std::string channel_;
};

}  // namespace qzextensionkit
