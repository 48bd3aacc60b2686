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

namespace {

void ToOwnedCopy(std::unique_ptr<Value>* value) {
    if (*value) {
        value->reset((*value)->DeepCopy());
    }
}

}  // namespace

DictionaryHiddenRootValue::DictionaryHiddenRootValue(std::unique_ptr<char[]> text)
    : text_(std::move(text)) {}

// The children go first, while the text they point into is still there.
DictionaryHiddenRootValue::~DictionaryHiddenRootValue() {
    Clear();
}

void DictionaryHiddenRootValue::DetachChildren() {
    std::unique_ptr<DictionaryValue> copy(DictionaryValue::DeepCopy());
    SwapStorage(copy.get());
}

bool DictionaryHiddenRootValue::Remove(const std::string& path, std::unique_ptr<Value>* out_value) {
    if (!DictionaryValue::Remove(path, out_value)) {
        return false;
    }
    if (out_value) {
        ToOwnedCopy(out_value);
    }
    return true;
}

bool DictionaryHiddenRootValue::RemoveWithoutPathExpansion(const std::string& key,
                                                           std::unique_ptr<Value>* out_value) {
    if (!DictionaryValue::RemoveWithoutPathExpansion(key, out_value)) {
        return false;
    }
    if (out_value) {
        ToOwnedCopy(out_value);
    }
    return true;
}

bool DictionaryHiddenRootValue::RemovePath(const std::string& path,
                                           std::unique_ptr<Value>* out_value) {
    if (!DictionaryValue::RemovePath(path, out_value)) {
        return false;
    }
    if (out_value) {
        ToOwnedCopy(out_value);
    }
    return true;
}

void DictionaryHiddenRootValue::Swap(DictionaryValue* other) {
    if (other == nullptr || other == this) {
        return;
    }
    DetachChildren();
    if (auto* other_root = dynamic_cast<DictionaryHiddenRootValue*>(other)) {
        other_root->DetachChildren();
    }
    SwapStorage(other);
}

ListHiddenRootValue::ListHiddenRootValue(std::unique_ptr<char[]> text) : text_(std::move(text)) {}

ListHiddenRootValue::~ListHiddenRootValue() {
    Clear();
}

void ListHiddenRootValue::DetachChildren() {
    std::unique_ptr<ListValue> copy(ListValue::DeepCopy());
    SwapStorage(copy.get());
}

bool ListHiddenRootValue::Remove(std::size_t index, std::unique_ptr<Value>* out_value) {
    if (!ListValue::Remove(index, out_value)) {
        return false;
    }
    if (out_value) {
        ToOwnedCopy(out_value);
    }
    return true;
}

void ListHiddenRootValue::Swap(ListValue* other) {
    if (other == nullptr || other == this) {
        return;
    }
    DetachChildren();
    if (auto* other_root = dynamic_cast<ListHiddenRootValue*>(other)) {
        other_root->DetachChildren();
    }
    SwapStorage(other);
}

}  // namespace internal
}  // namespace base
