#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "model/extension_point.h"
#include "model/extension_point_payload_meta_item.h"
#include "platform/export.h"

namespace qzextensionkit {

class Artifact;
class Extension;

// Something a point may carry beside its records; deleted with the point.
class QZEKIT_EXPORT ExtensionPointAttachment {
public:
    virtual ~ExtensionPointAttachment();
};

// The kit's own extension point: owns its extension records and knows the
// artifact (bundle) it came from. Only the id, the interface id, the records
// and the artifact are ever filled; the other fields keep their defaults.
//
// Exported for the test programs, which link the kit as a shared library;
// a host sees only ExtensionPoint.
class QZEKIT_EXPORT ExtensionPointImpl : public ExtensionPoint {
public:
    // `artifact` is borrowed: it owns this point.
    explicit ExtensionPointImpl(Artifact* artifact);
    ExtensionPointImpl(const ExtensionPointImpl&) = delete;
    ExtensionPointImpl& operator=(const ExtensionPointImpl&) = delete;
    ~ExtensionPointImpl() override;

    std::string GetId() const override;
    std::string GetAttribute1() const override;
    std::string GetAttribute2() const override;
    std::string GetAttribute3() const override;
    std::string GetAttribute4() const override;
    std::string GetIid() const override;
    std::vector<uint32_t> GetVersionNumbers1() const override;
    std::vector<uint32_t> GetVersionNumbers2() const override;
    std::vector<int32_t> GetEntries() const override;
    int32_t GetKind() const override;
    std::vector<ExtensionPointPayloadMetaItem> GetPayloadMetaItems() const override;
    bool GetExtensions(std::list<Extension*>& extensions) const override;
    // Always false.
    bool GetFlag() const override;

    void SetIdentifiers(const std::string& id, const std::string& iid);
    void SetEntries(const std::vector<int32_t>& entries);
    // Takes ownership of `extension`, which may be null: a manifest entry
    // without an id leaves a null in the list, and readers must expect it.
    void AddExtension(Extension* extension);
    Artifact* GetArtifact() const;

private:
    std::string id_;
    std::string iid_;
    std::string attribute1_;
    std::string attribute2_;
    std::string attribute3_;
    std::string attribute4_;
    std::vector<uint32_t> versionNumbers1_;
    int32_t kind_ = -1;
    std::vector<uint32_t> versionNumbers2_;
    std::vector<ExtensionPointPayloadMetaItem> payloadMetaItems_;
    std::vector<int32_t> entries_;
    std::unique_ptr<ExtensionPointAttachment> attachment_;
    std::list<std::unique_ptr<Extension>> extensions_;
    Artifact* artifact_;
};

}  // namespace qzextensionkit
