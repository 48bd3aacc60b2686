#include "model/artifact.h"

#include "model/extension_point.h"

namespace qzextensionkit {

Artifact::Artifact(const base::FilePath& rootPath)
    : rootPath_(rootPath), revision_("0"), channel_("unknown") {}

Artifact::~Artifact() = default;

std::string Artifact::GetId() const {
    return id_;
}

void Artifact::SetId(const std::string& id) {
    id_ = id;
}

std::vector<uint32_t> Artifact::GetVersion() const {
    return version_;
}

void Artifact::SetVersion(const std::vector<uint32_t>& version) {
    version_ = version;
}

std::vector<uint32_t> Artifact::GetFoundationVersion() const {
    return foundationVersion_;
}

void Artifact::SetFoundationVersion(const std::vector<uint32_t>& foundationVersion) {
    foundationVersion_ = foundationVersion;
}

std::wstring Artifact::GetMainEntry() const {
    return mainEntry_;
}

void Artifact::SetMainEntry(const std::wstring& mainEntry) {
    mainEntry_ = mainEntry;
}

base::FilePath Artifact::GetRootPath() const {
    return rootPath_;
}

std::wstring Artifact::GetResourcesPath() const {
    return resourcesPath_ ? *resourcesPath_ : std::wstring();
}

void Artifact::SetResourcesPath(const std::wstring& resourcesPath) {
    if (!resourcesPath_ || resourcesPath_.get() != &resourcesPath) {
        resourcesPath_ =
            resourcesPath.empty() ? nullptr : std::make_shared<const std::wstring>(resourcesPath);
    }
}

std::string Artifact::GetLibFileMD5() const {
    return libFileMD5_;
}

void Artifact::SetLibFileMD5(const std::string& libFileMD5) {
    libFileMD5_ = libFileMD5;
}

std::string Artifact::GetSignMD5() const {
    return signMD5_;
}

void Artifact::SetSignMD5(const std::string& signMD5) {
    signMD5_ = signMD5;
}

std::string Artifact::GetBundleClassId() const {
    return bundleClassId_;
}

void Artifact::SetBundleClassId(const std::string& bundleClassId) {
    bundleClassId_ = bundleClassId;
}

void Artifact::AddExtensionPoint(ExtensionPoint* extensionPoint) {
    extensionPoints_.emplace_back(extensionPoint);
}

bool Artifact::GetExtensionPoints(std::list<ExtensionPoint*>& extensionPoints) const {
    for (const auto& point : extensionPoints_) {
        extensionPoints.push_back(point.get());
    }
    return true;
}

}  // namespace qzextensionkit
