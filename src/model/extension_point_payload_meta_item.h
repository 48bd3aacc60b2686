#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/export.h"

namespace qzextensionkit {

// What kind of value a payload key of an extension point takes. The kit
// only carries the number.
enum ExtensionPointPayloadMetaItemType : int32_t {
    PAYLOAD_META_ITEM_TEXT = 0,
    PAYLOAD_META_ITEM_NUMBER = 1,
    PAYLOAD_META_ITEM_BOOLEAN = 2,
    // One of `values`.
    PAYLOAD_META_ITEM_CHOICE = 3,
};

// Describes one payload key an extension point understands. Carried as it
// is; the kit never looks inside.
struct QZEKIT_EXPORT ExtensionPointPayloadMetaItem {
    ExtensionPointPayloadMetaItem(const std::string& firstText, const std::string& secondText,
                                  ExtensionPointPayloadMetaItemType itemType, bool flag,
                                  std::vector<std::string>& values);
    ExtensionPointPayloadMetaItem(const ExtensionPointPayloadMetaItem& other);
    // Takes the texts and the values, leaving them empty in `other`.
    ExtensionPointPayloadMetaItem(ExtensionPointPayloadMetaItem&& other);
    ~ExtensionPointPayloadMetaItem();
    ExtensionPointPayloadMetaItem& operator=(const ExtensionPointPayloadMetaItem& other);
    ExtensionPointPayloadMetaItem& operator=(ExtensionPointPayloadMetaItem&& other);

    std::string firstText;
    std::string secondText;
    ExtensionPointPayloadMetaItemType itemType;
    bool flag;
    std::vector<std::string> values;
};

}  // namespace qzextensionkit
