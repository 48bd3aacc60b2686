#include "model/extension_impl.h"

#include <utility>

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

ExtensionImpl::ExtensionImpl() : data_(std::make_shared<Data>()) {}

ExtensionImpl::ExtensionImpl(ExtensionPoint* extensionPoint)
    : data_(std::make_shared<Data>()), extensionPoint_(extensionPoint) {}

ExtensionImpl::ExtensionImpl(const ExtensionImpl& other) = default;
ExtensionImpl& ExtensionImpl::operator=(const ExtensionImpl& other) = default;
ExtensionImpl::~ExtensionImpl() = default;

std::unique_ptr<ExtensionImpl> ExtensionImpl::Copy() const {
    auto copy = std::make_unique<ExtensionImpl>(*this);
    copy->resourcesPath_ = ResolvedResourcesPath();
    return copy;
}

std::shared_ptr<ExtensionImpl> ExtensionImpl::CopyShared() const {
    auto copy = std::make_shared<ExtensionImpl>(*this);
    copy->resourcesPath_ = ResolvedResourcesPath();
    return copy;
}

std::shared_ptr<const std::wstring> ExtensionImpl::ResolvedResourcesPath() const {
    if (resourcesPath_ && !resourcesPath_->empty()) {
        return resourcesPath_;
    }
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->SharedResourcesPath() : nullptr;
}

ExtensionImpl::Data& ExtensionImpl::Mutable() {
    if (data_.use_count() > 1) {
        data_ = std::make_shared<Data>(*data_);
    }
    return *data_;
}

std::string ExtensionImpl::GetId() const {
    return data_->id;
}

std::string ExtensionImpl::GetVersion() const {
    return data_->version;
}

std::string ExtensionImpl::GetExtensionPointId() const {
    return data_->extensionPointId;
}

std::string ExtensionImpl::GetIid() const {
    return extensionPoint_ ? extensionPoint_->GetIid() : std::string();
}

std::string ExtensionImpl::GetClsid() const {
    return data_->clsid;
}

std::map<std::string, std::string> ExtensionImpl::GetPayloads() const {
    return data_->payloads;
}

std::wstring ExtensionImpl::GetMainEntry() const {
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetMainEntry() : std::wstring();
}

std::map<std::string, std::vector<std::string>> ExtensionImpl::GetConstraints() const {
    return data_->constraints;
}

base::FilePath ExtensionImpl::GetRootPath() const {
    Artifact* artifact = ArtifactOf(extensionPoint_);
    return artifact ? artifact->GetRootPath() : base::FilePath();
}

SettingMap ExtensionImpl::GetSettingMap() const {
    return data_->settingMap;
}

std::wstring ExtensionImpl::GetResourcesPath() const {
    std::shared_ptr<const std::wstring> path = ResolvedResourcesPath();
    return path ? *path : std::wstring();
}

bool ExtensionImpl::IsSingleton() const {
    return data_->isSingleton;
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
    return data_->unifiedId;
}

void ExtensionImpl::SetId(const std::string& id) {
    Assign(Mutable().id, id);
}

void ExtensionImpl::SetVersion(const std::string& version) {
    Assign(Mutable().version, version);
}

void ExtensionImpl::SetExtensionPointId(const std::string& extensionPointId) {
    Assign(Mutable().extensionPointId, extensionPointId);
}

void ExtensionImpl::SetClsid(const std::string& clsid) {
    Assign(Mutable().clsid, clsid);
}

void ExtensionImpl::SetPayloads(const std::map<std::string, std::string>& payloads) {
    Assign(Mutable().payloads, payloads);
}

void ExtensionImpl::SetConstraints(
    const std::map<std::string, std::vector<std::string>>& constraints) {
    Assign(Mutable().constraints, constraints);
}

void ExtensionImpl::SetId(std::string&& id) {
    Mutable().id = std::move(id);
}

void ExtensionImpl::SetVersion(std::string&& version) {
    Mutable().version = std::move(version);
}

void ExtensionImpl::SetExtensionPointId(std::string&& extensionPointId) {
    Mutable().extensionPointId = std::move(extensionPointId);
}

void ExtensionImpl::SetClsid(std::string&& clsid) {
    Mutable().clsid = std::move(clsid);
}

void ExtensionImpl::SetUnifiedId(std::string&& unifiedId) {
    Mutable().unifiedId = std::move(unifiedId);
}

void ExtensionImpl::SetPayloads(std::map<std::string, std::string>&& payloads) {
    Mutable().payloads = std::move(payloads);
}

void ExtensionImpl::SetConstraints(std::map<std::string, std::vector<std::string>>&& constraints) {
    Mutable().constraints = std::move(constraints);
}

void ExtensionImpl::SetSettingMap(SettingMap&& settingMap) {
    Mutable().settingMap = std::move(settingMap);
}

void ExtensionImpl::SetSettingMap(const SettingMap& settingMap) {
    Assign(Mutable().settingMap, settingMap);
}

void ExtensionImpl::SetSingleton(bool isSingleton) {
    Mutable().isSingleton = isSingleton;
}

void ExtensionImpl::SetExtensionPoint(ExtensionPoint* extensionPoint) {
    extensionPoint_ = extensionPoint;
}

void ExtensionImpl::SetResourcesPath(const std::wstring& resourcesPath) {
    if (!resourcesPath_ || resourcesPath_.get() != &resourcesPath) {
        resourcesPath_ = std::make_shared<const std::wstring>(resourcesPath);
    }
}

void ExtensionImpl::SetUnifiedId(const std::string& unifiedId) {
    Assign(Mutable().unifiedId, unifiedId);
}

ExtensionPoint* ExtensionImpl::GetExtensionPoint() const {
    return extensionPoint_;
}

}  // namespace qzextensionkit
