#include "model/extension_point_payload_meta_item.h"

#include <utility>

namespace qzextensionkit {

ExtensionPointPayloadMetaItem::ExtensionPointPayloadMetaItem(
    const std::string& firstText, const std::string& secondText,
    ExtensionPointPayloadMetaItemType itemType, bool flag, std::vector<std::string>& values)
    : firstText(firstText),
      secondText(secondText),
      itemType(itemType),
      flag(flag),
      values(values) {}

ExtensionPointPayloadMetaItem::ExtensionPointPayloadMetaItem(
    const ExtensionPointPayloadMetaItem& other) = default;

ExtensionPointPayloadMetaItem::ExtensionPointPayloadMetaItem(ExtensionPointPayloadMetaItem&& other)
    : firstText(std::move(other.firstText)),
      secondText(std::move(other.secondText)),
      itemType(other.itemType),
      flag(other.flag),
      values(std::move(other.values)) {
    // A moved-from string or vector need not be empty; this one promises it.
    other.firstText.clear();
    other.secondText.clear();
    other.values.clear();
}

ExtensionPointPayloadMetaItem::~ExtensionPointPayloadMetaItem() = default;

ExtensionPointPayloadMetaItem& ExtensionPointPayloadMetaItem::operator=(
    const ExtensionPointPayloadMetaItem& other) = default;

ExtensionPointPayloadMetaItem& ExtensionPointPayloadMetaItem::operator=(
    ExtensionPointPayloadMetaItem&& other) {
    if (this != &other) {
        firstText = std::move(other.firstText);
        secondText = std::move(other.secondText);
        itemType = other.itemType;
        flag = other.flag;
        values = std::move(other.values);
        other.firstText.clear();
        other.secondText.clear();
        other.values.clear();
    }
    return *this;
}

}  // namespace qzextensionkit
