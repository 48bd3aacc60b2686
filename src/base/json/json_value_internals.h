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
    uint32_t length() const { return length_; }

private:
    // The length comes first so that it can share the word that holds the
    // node's type: the node stays at three words.
    uint32_t length_;
    const char* data_;
};

// Marks the levels of a parsed tree that hold strings pointing into the
// text. Only the reader does this.
struct TextBorrowing {
    static void Mark(DictionaryValue* node) { node->borrows_text_ = true; }
    static void Mark(ListValue* node) { node->borrows_text_ = true; }
    static void MoveEntries(DictionaryValue* from, DictionaryValue* to) {
        to->dictionary_.swap(from->dictionary_);
        to->borrows_text_ = from->borrows_text_;
        from->borrows_text_ = false;
    }
    static void MoveEntries(ListValue* from, ListValue* to) {
        to->list_.swap(from->list_);
        to->borrows_text_ = from->borrows_text_;
        from->borrows_text_ = false;
    }
};

// Roots of parsed trees that borrow from the text: they own that text. Every
// level that borrows is marked, so whatever leaves any of them (by Swap or
// removal) leaves as a deep copy with strings of its own.
class DictionaryHiddenRootValue : public DictionaryValue {
public:
    DictionaryHiddenRootValue(std::unique_ptr<char[]> text, DictionaryValue* parsed);
    ~DictionaryHiddenRootValue() override;

private:
    std::unique_ptr<char[]> text_;
};

class ListHiddenRootValue : public ListValue {
public:
    ListHiddenRootValue(std::unique_ptr<char[]> text, ListValue* parsed);
    ~ListHiddenRootValue() override;

private:
    std::unique_ptr<char[]> text_;
};

// The text of a string node of either kind, without a copy.
bool GetStringView(const Value* value, const char** data, std::size_t* length);

}  // namespace internal
}  // namespace base
