#include "base/json/json_value_internals.h"

#include <cstring>
#include <utility>

#include "base/utf_string_conversions.h"

namespace base {
namespace internal {

bool GetStringView(const Value* value, const char** data, std::size_t* length) {
    if (value == nullptr || value->GetType() != Value::TYPE_STRING) {
        return false;
    }
    const StringValue* string_value = nullptr;
    if (value->GetAsStringValue(&string_value)) {
        *data = string_value->GetString().data();
        *length = string_value->GetString().size();
        return true;
    }
    // The only other string node is the borrowed one.
    const auto* borrowed = static_cast<const JSONStringValue*>(value);
    *data = borrowed->data();
    *length = borrowed->length();
    return true;
}

// ---------------------------------------------------------------- JSONStringValue

JSONStringValue::~JSONStringValue() = default;

bool JSONStringValue::GetAsWideString(std::wstring* out) const {
    if (out) {
        *out = UTF8ToWide(data_, length_);
    }
    return true;
}

bool JSONStringValue::GetAsString(std::string* out) const {
    if (out) {
        out->assign(data_, length_);
    }
    return true;
}

StringValue* JSONStringValue::DeepCopy() const {
    return new StringValue(std::string(data_, length_));
}

bool JSONStringValue::Equals(const Value* other) const {
    const char* data = nullptr;
    std::size_t length = 0;
    if (!GetStringView(other, &data, &length)) {
        return false;
    }
    return length == length_ && (length == 0 || std::memcmp(data, data_, length) == 0);
}

// ---------------------------------------------------------------- hidden roots

DictionaryHiddenRootValue::DictionaryHiddenRootValue(std::unique_ptr<char[]> text,
                                                     DictionaryValue* parsed)
    : text_(std::move(text)) {
    TextBorrowing::MoveEntries(parsed, this);
}

// The children go first, while the text they point into is still there.
DictionaryHiddenRootValue::~DictionaryHiddenRootValue() {
    Clear();
}

ListHiddenRootValue::ListHiddenRootValue(std::unique_ptr<char[]> text, ListValue* parsed)
    : text_(std::move(text)) {
    TextBorrowing::MoveEntries(parsed, this);
}

ListHiddenRootValue::~ListHiddenRootValue() {
    Clear();
}

}  // namespace internal
}  // namespace base
