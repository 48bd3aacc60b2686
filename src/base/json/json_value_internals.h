#pragma once

// Nodes that only the JSON reader makes. Nothing outside the library sees
// these types: to a caller they are plain string, dictionary and list nodes.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/values.h"

namespace base {
namespace internal {

// A string node over bytes of the reader's copy of the text. It owns no
// text, so it must never outlive the root that owns the copy.
class JSONStringValue : public Value {
public:
    JSONStringValue(const char* data, uint32_t length)
        : Value(TYPE_STRING), length_(length), data_(data) {}
    ~JSONStringValue() override;

    bool GetAsWideString(std::wstring* out) const override;
    bool GetAsString(std::string* out) const override;
    StringValue* DeepCopy() const override;
    bool Equals(const Value* other) const override;

    const char* data() const { return data_; }
    // Moves the node onto another copy of the same bytes.
    void set_data(const char* data) { data_ = data; }
    uint32_t length() const { return length_; }

private:
    // The length comes first so that it can share the word that holds the
    // node's type: the node stays at three words.
    uint32_t length_;
    const char* data_;
};

// Roots of parsed trees that borrow from the text. They own that text, and
// whatever leaves them (by Swap or removal) leaves as a deep copy with
// strings of its own.
class DictionaryHiddenRootValue : public DictionaryValue {
public:
    explicit DictionaryHiddenRootValue(std::unique_ptr<char[]> text);
    ~DictionaryHiddenRootValue() override;

    bool Remove(const std::string& path, std::unique_ptr<Value>* out_value) override;
    bool RemoveWithoutPathExpansion(const std::string& key,
                                    std::unique_ptr<Value>* out_value) override;
    bool RemovePath(const std::string& path, std::unique_ptr<Value>* out_value) override;
    void Swap(DictionaryValue* other) override;

    // Takes the entries of a freshly parsed dictionary, as they are.
    void Adopt(DictionaryValue* parsed) { SwapStorage(parsed); }
    // Replaces every child by its deep copy, so that none borrows the text.
    void DetachChildren();

private:
    std::unique_ptr<char[]> text_;
};

class ListHiddenRootValue : public ListValue {
public:
    explicit ListHiddenRootValue(std::unique_ptr<char[]> text);
    ~ListHiddenRootValue() override;

    bool Remove(std::size_t index, std::unique_ptr<Value>* out_value) override;
    void Swap(ListValue* other) override;

    void Adopt(ListValue* parsed) { SwapStorage(parsed); }
    void DetachChildren();

private:
    std::unique_ptr<char[]> text_;
};

// The text of a string node of either kind, without a copy.
bool GetStringView(const Value* value, const char** data, std::size_t* length);

}  // namespace internal
}  // namespace base
