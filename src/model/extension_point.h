#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "model/extension_point_payload_meta_item.h"
#include "platform/export.h"

namespace qzextensionkit {

class Extension;

// A place in the host that extensions plug into, with the interface id
// that its extensions' objects answer. The order of the virtual operations
// is binary interface.
class QZEKIT_EXPORT ExtensionPoint {
public:
    ExtensionPoint();
    ExtensionPoint(const ExtensionPoint& other);
    ExtensionPoint& operator=(const ExtensionPoint& other);
    virtual ~ExtensionPoint();

    virtual std::string GetId() const = 0;
    virtual std::string GetAttribute1() const = 0;
    virtual std::string GetAttribute2() const = 0;
    virtual std::string GetAttribute3() const = 0;
    virtual std::string GetAttribute4() const = 0;
    virtual std::string GetIid() const = 0;
    virtual std::vector<uint32_t> GetVersionNumbers1() const = 0;
    virtual std::vector<uint32_t> GetVersionNumbers2() const = 0;
    virtual std::vector<int32_t> GetEntries() const = 0;
    virtual int32_t GetKind() const = 0;
    virtual std::vector<ExtensionPointPayloadMetaItem> GetPayloadMetaItems() const = 0;
    // Appends the point's extensions, in order, to `extensions` (borrowed
    // pointers; an entry may be null) and answers true.
    virtual bool GetExtensions(std::list<Extension*>& extensions) const = 0;
    virtual bool GetFlag() const = 0;
};

}  // namespace qzextensionkit
