#include "model/extension_point_impl.h"

#include "model/extension.h"

namespace qzextensionkit {

ExtensionPointAttachment::~ExtensionPointAttachment() = default;

ExtensionPointImpl::ExtensionPointImpl(Artifact* artifact) : artifact_(artifact) {}

ExtensionPointImpl::~ExtensionPointImpl() = default;

std::string ExtensionPointImpl::GetId() const {
    return id_;
}

std::string ExtensionPointImpl::GetAttribute1() const {
    return attribute1_;
}

std::string ExtensionPointImpl::GetAttribute2() const {
    return attribute2_;
}

std::string ExtensionPointImpl::GetAttribute3() const {
    return attribute3_;
}

std::string ExtensionPointImpl::GetAttribute4() const {
    return attribute4_;
}

std::string ExtensionPointImpl::GetIid() const {
    return iid_;
}

std::vector<uint32_t> ExtensionPointImpl::GetVersionNumbers1() const {
    return versionNumbers1_;
}

std::vector<uint32_t> ExtensionPointImpl::GetVersionNumbers2() const {
    return versionNumbers2_;
}

std::vector<int32_t> ExtensionPointImpl::GetEntries() const {
    return entries_;
}

int32_t ExtensionPointImpl::GetKind() const {
    return kind_;
}

std::vector<ExtensionPointPayloadMetaItem> ExtensionPointImpl::GetPayloadMetaItems() const {
    return payloadMetaItems_;
}

bool ExtensionPointImpl::GetExtensions(std::list<Extension*>& extensions) const {
    for (const auto& extension : extensions_) {
        extensions.push_back(extension.get());
    }
    return true;
}

bool ExtensionPointImpl::GetFlag() const {
    return false;
}

void ExtensionPointImpl::SetIdentifiers(const std::string& id, const std::string& iid) {
    id_ = id;
    iid_ = iid;
}

void ExtensionPointImpl::SetEntries(const std::vector<int32_t>& entries) {
    if (&entries_ != &entries) {
        entries_ = entries;
    }
}

void ExtensionPointImpl::AddExtension(Extension* extension) {
    extensions_.emplace_back(extension);
}

Artifact* ExtensionPointImpl::GetArtifact() const {
    return artifact_;
}

}  // namespace qzextensionkit
