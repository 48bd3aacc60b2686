#include "model/extension_impl.h"

#include "model/artifact.h"
#include "model/extension_point_impl.h"

namespace qzextensionkit {
namespace {

// The artifact behind a record's extension point, or null when there is no
// point or the point is not one of ours.
Artifact* ArtifactOf(ExtensionPoint* point) {
    auto* impl = dynamic_cast<ExtensionPointImpl*>(point);
    return impl ? impl->GetArtifact() : nullptr;
}

template <typename T>
void Assign(T& field, const T& value) {
    if (&field != &value) {
        field = value;
    }
}

}  // namespace

ExtensionImpl::ExtensionImpl() = default;

ExtensionImpl::ExtensionImpl(ExtensionPoint* extensionPoint) : extensionPoint_(extensionPoint) {}

ExtensionImpl::ExtensionImpl(const ExtensionImpl& other) = default;
ExtensionImpl& ExtensionImpl::operator=(const ExtensionImpl& other) = default;
ExtensionImpl::~ExtensionImpl() = default;

std::string ExtensionImpl::GetId() const {
    return id_;
}

std::string ExtensionImpl::GetVersion() const {
    return version_;
}

std::string ExtensionImpl::GetExtensionPointId() const {
    return extensionPointId_;
}

std::string ExtensionImpl::GetIid() const {
    return extensionPoint_ ? extensionPoint_->GetIid() : std::string();
}

std::string ExtensionImpl::GetClsid() const {
    return clsid_;
}

std::map<std::string, std::string> ExtensionImpl::GetPayloads() const {
    return payloads_;
}

std::wstring ExtensionImpl::GetMainEntry() const {
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetMainEntry() : std::wstring();
}

std::map<std::string, std::vector<std::string>> ExtensionImpl::GetConstraints() const {
    return constraints_;
}

base::FilePath ExtensionImpl::GetRootPath() const {
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetRootPath() : base::FilePath();
}

SettingMap ExtensionImpl::GetSettingMap() const {
    return settingMap_;
}

std::wstring ExtensionImpl::GetResourcesPath() const {
    if (!resourcesPath_.empty()) {
        return resourcesPath_;
    }
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetResourcesPath() : std::wstring();
}

bool ExtensionImpl::IsSingleton() const {
    return isSingleton_;
}

std::string ExtensionImpl::GetLibFileMD5() const {
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetLibFileMD5() : std::string();
}

std::string ExtensionImpl::GetSignMD5() const {
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetSignMD5() : std::string();
}

std::string ExtensionImpl::GetBundleClassId() const {
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetBundleClassId() : std::string();
}

bool ExtensionImpl::IsNative() const {
    // A property of the bundle reached through the point, not a stored flag:
    // a remote record parented on a bundle with a library is native too.
    return !GetMainEntry().empty();
}

std::string ExtensionImpl::GetUnifiedId() const {
    return unifiedId_;
}

void ExtensionImpl::SetId(const std::string& id) {
    Assign(id_, id);
}

void ExtensionImpl::SetVersion(const std::string& version) {
    Assign(version_, version);
}

void ExtensionImpl::SetExtensionPointId(const std::string& extensionPointId) {
    Assign(extensionPointId_, extensionPointId);
}

void ExtensionImpl::SetClsid(const std::string& clsid) {
    Assign(clsid_, clsid);
}

void ExtensionImpl::SetPayloads(const std::map<std::string, std::string>& payloads) {
    Assign(payloads_, payloads);
}

void ExtensionImpl::SetConstraints(
    const std::map<std::string, std::vector<std::string>>& constraints) {
    Assign(constraints_, constraints);
}

void ExtensionImpl::SetSettingMap(const SettingMap& settingMap) {
    Assign(settingMap_, settingMap);
}

void ExtensionImpl::SetSingleton(bool isSingleton) {
    isSingleton_ = isSingleton;
}

void ExtensionImpl::SetExtensionPoint(ExtensionPoint* extensionPoint) {
    extensionPoint_ = extensionPoint;
}

void ExtensionImpl::SetResourcesPath(const std::wstring& resourcesPath) {
    Assign(resourcesPath_, resourcesPath);
}

void ExtensionImpl::SetUnifiedId(const std::string& unifiedId) {
    Assign(unifiedId_, unifiedId);
}

ExtensionPoint* ExtensionImpl::GetExtensionPoint() const {
    return extensionPoint_;
}

}  // namespace qzextensionkit
