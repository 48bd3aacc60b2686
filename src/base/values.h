#pragma once

// The value tree in which every configuration and manifest is held.
//
// Nodes are handed around as raw pointers: a container owns its children and
// deletes them with itself; Set/Append take ownership of what they are given.
// Lookups hand out borrowed pointers that live as long as their container.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/export.h"

namespace base {

class BinaryValue;
class DictionaryValue;
class ListValue;
class StringValue;

namespace internal {

struct TextBorrowing;

// Small blocks from the same per-thread chunks as the nodes; used for the
// entries of dictionaries and the storage of lists.
QZEKIT_EXPORT void* AllocateSmallBlock(std::size_t size);
QZEKIT_EXPORT void FreeSmallBlock(void* p, std::size_t size);
// Chunks the pool holds now, for tests.
QZEKIT_EXPORT std::size_t CountPoolChunks();

template <typename T>
struct SmallBlockAllocator {
    using value_type = T;
    SmallBlockAllocator() = default;
    template <typename U>
    SmallBlockAllocator(const SmallBlockAllocator<U>&) {}
    T* allocate(std::size_t n) { return static_cast<T*>(AllocateSmallBlock(n * sizeof(T))); }
    void deallocate(T* p, std::size_t n) { FreeSmallBlock(p, n * sizeof(T)); }
    template <typename U>
    bool operator==(const SmallBlockAllocator<U>&) const {
        return true;
    }
    template <typename U>
    bool operator!=(const SmallBlockAllocator<U>&) const {
        return false;
    }
};

// Byte order, as std::string compares; most keys differ in the first byte,
// which is settled without a call.
struct KeyLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
        if (!a.empty() && !b.empty() && a[0] != b[0]) {
            return static_cast<unsigned char>(a[0]) < static_cast<unsigned char>(b[0]);
        }
        return a < b;
    }
};

}  // namespace internal

class QZEKIT_EXPORT Value {
public:
    enum Type : int32_t {
        TYPE_NULL = 0,
        TYPE_BOOLEAN = 1,
        TYPE_INTEGER = 2,
        TYPE_DOUBLE = 3,
        TYPE_STRING = 4,
        TYPE_BINARY = 5,
        TYPE_DICTIONARY = 6,
        TYPE_LIST = 7,
    };

    // A null node.
    Value();
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
    virtual ~Value();

    static std::unique_ptr<Value> CreateNullValue();

    Type GetType() const { return type_; }
    bool IsType(Type type) const { return type_ == type; }

    // Each answers true when the node is of that type and then stores the
    // result when |out| is not null.
    virtual bool GetAsBoolean(bool* out) const;
    virtual bool GetAsInteger(int32_t* out) const;
    // Integers answer too, converted.
    virtual bool GetAsDouble(double* out) const;
    virtual bool GetAsStringValue(const StringValue** out) const;
    virtual bool GetAsWideString(std::wstring* out) const;
    virtual bool GetAsString(std::string* out) const;
    virtual bool GetAsBinary(const BinaryValue** out) const;
    virtual bool GetAsList(ListValue** out);
    virtual bool GetAsList(const ListValue** out) const;
    virtual bool GetAsDictionary(DictionaryValue** out);
    virtual bool GetAsDictionary(const DictionaryValue** out) const;
    // A new tree that the caller owns. It never borrows from anything.
    virtual Value* DeepCopy() const;
    virtual bool Equals(const Value* other) const;

    std::unique_ptr<Value> CreateDeepCopy() const;

    // Parsed trees are many small nodes: nodes come from per-thread chunks
    // instead of the general heap, and a chunk goes back to the heap when
    // its last node is freed.
    static void* operator new(std::size_t size);
    static void operator delete(void* p, std::size_t size);

protected:
    explicit Value(Type type);

private:
    Type type_;
};

// A boolean, a 32-bit integer or a double.
class QZEKIT_EXPORT FundamentalValue : public Value {
public:
    explicit FundamentalValue(bool value);
    explicit FundamentalValue(int32_t value);
    explicit FundamentalValue(double value);
    ~FundamentalValue() override;

    bool GetAsBoolean(bool* out) const override;
    bool GetAsInteger(int32_t* out) const override;
    bool GetAsDouble(double* out) const override;
    FundamentalValue* DeepCopy() const override;
    bool Equals(const Value* other) const override;

private:
    union {
        bool boolean_value_;
        int32_t integer_value_;
        double double_value_;
    };
};

// A string in UTF-8.
class QZEKIT_EXPORT StringValue : public Value {
public:
    explicit StringValue(const std::string& value);
    explicit StringValue(std::string&& value);
    explicit StringValue(const char* value);
    explicit StringValue(const std::wstring& value);
    ~StringValue() override;

    const std::string& GetString() const { return value_; }
    std::string* GetStringPointer() { return &value_; }

    bool GetAsStringValue(const StringValue** out) const override;
    bool GetAsWideString(std::wstring* out) const override;
    bool GetAsString(std::string* out) const override;
    StringValue* DeepCopy() const override;
    bool Equals(const Value* other) const override;

private:
    std::string value_;
};

// A buffer of bytes. The node owns its buffer.
class QZEKIT_EXPORT BinaryValue : public Value {
public:
    BinaryValue();
    BinaryValue(std::unique_ptr<char[]> buffer, std::size_t size);
    ~BinaryValue() override;

    static std::unique_ptr<BinaryValue> CreateWithCopiedBuffer(const char* buffer,
                                                               std::size_t size);

    const char* GetBuffer() const { return buffer_.get(); }
    std::size_t GetSize() const { return size_; }

    bool GetAsBinary(const BinaryValue** out) const override;
    BinaryValue* DeepCopy() const override;
    bool Equals(const Value* other) const override;

private:
    std::unique_ptr<char[]> buffer_;
    std::size_t size_;
};

// Keys ordered by their bytes. Operations that take a |path| treat "." as
// a level separator; the WithoutPathExpansion ones and HasKey take the key
// literally.
class QZEKIT_EXPORT DictionaryValue : public Value {
public:
    using Storage = std::map<std::string, Value*, internal::KeyLess,
                             internal::SmallBlockAllocator<std::pair<const std::string, Value*>>>;

    DictionaryValue();
    ~DictionaryValue() override;

    // The node as a dictionary, or null after deleting a node of any other type.
    static std::unique_ptr<DictionaryValue> From(std::unique_ptr<Value> value);

    bool GetAsDictionary(DictionaryValue** out) override;
    bool GetAsDictionary(const DictionaryValue** out) const override;
    DictionaryValue* DeepCopy() const override;
    bool Equals(const Value* other) const override;

    // Removes the node at |path|, handing it to |out_value| or deleting it
    // when |out_value| is null.
    virtual bool Remove(const std::string& path, std::unique_ptr<Value>* out_value);
    virtual bool RemoveWithoutPathExpansion(const std::string& key,
                                            std::unique_ptr<Value>* out_value);
    // Like Remove, and also removes the dictionaries on the path that the
    // removal leaves empty.
    virtual bool RemovePath(const std::string& path, std::unique_ptr<Value>* out_value);
    virtual void Swap(DictionaryValue* other);

    std::unique_ptr<DictionaryValue> CreateDeepCopy() const;

    bool HasKey(const std::string& key) const;
    std::size_t size() const { return dictionary_.size(); }
    bool empty() const { return dictionary_.empty(); }
    void Clear();

    // Takes ownership of |in_value|. Missing levels, and levels that hold
    // something other than a dictionary, are replaced by new dictionaries.
    // A null |in_value| is ignored.
    void Set(const std::string& path, Value* in_value);
    void Set(const std::string& path, std::unique_ptr<Value> in_value);
    void SetBoolean(const std::string& path, bool value);
    void SetInteger(const std::string& path, int32_t value);
    void SetDouble(const std::string& path, double value);
    void SetString(const std::string& path, const std::string& value);
    // An old value under |key| is deleted and replaced.
    void SetWithoutPathExpansion(const std::string& key, Value* in_value);
    void SetWithoutPathExpansion(std::string&& key, Value* in_value);

    // Lookups store nothing on failure; |out| may be null.
    bool Get(const std::string& path, const Value** out) const;
    bool Get(const std::string& path, Value** out);
    bool Get(const char* path, std::size_t path_length, const Value** out) const;
    bool Get(const char* path, std::size_t path_length, Value** out);
    bool GetBoolean(const std::string& path, bool* out) const;
    bool GetInteger(const std::string& path, int32_t* out) const;
    bool GetDouble(const std::string& path, double* out) const;
    bool GetString(const std::string& path, std::string* out) const;
    bool GetString(const std::string& path, std::wstring* out) const;
    bool GetDictionary(const std::string& path, const DictionaryValue** out) const;
    bool GetDictionary(const std::string& path, DictionaryValue** out);
    bool GetList(const std::string& path, const ListValue** out) const;
    bool GetList(const std::string& path, ListValue** out);

    bool GetWithoutPathExpansion(const std::string& key, const Value** out) const;
    bool GetWithoutPathExpansion(const std::string& key, Value** out);
    bool GetDictionaryWithoutPathExpansion(const std::string& key,
                                           const DictionaryValue** out) const;
    bool GetDictionaryWithoutPathExpansion(const std::string& key, DictionaryValue** out);
    bool GetListWithoutPathExpansion(const std::string& key, const ListValue** out) const;
    bool GetListWithoutPathExpansion(const std::string& key, ListValue** out);

    // Walks the entries in key order.
    class QZEKIT_EXPORT Iterator {
    public:
        explicit Iterator(const DictionaryValue& target);
        bool IsAtEnd() const { return it_ == target_.dictionary_.end(); }
        void Advance() { ++it_; }
        const std::string& key() const { return it_->first; }
        const Value& value() const { return *it_->second; }

    private:
        const DictionaryValue& target_;
        Storage::const_iterator it_;
    };

    Storage::const_iterator begin() const { return dictionary_.begin(); }
    Storage::const_iterator end() const { return dictionary_.end(); }

private:
    friend struct internal::TextBorrowing;

    bool GetPath(std::string_view path, const Value** out) const;
    // Replaces every entry by its deep copy, so that none points into text
    // that this node does not own.
    void DetachChildren();

    // Set by the reader on every level above a string that points into the
    // parsed text: whatever leaves such a level leaves as a deep copy.
    bool borrows_text_ = false;
    Storage dictionary_;
};

class QZEKIT_EXPORT ListValue : public Value {
public:
    using Storage = std::vector<Value*, internal::SmallBlockAllocator<Value*>>;

    ListValue();
    ~ListValue() override;

    bool GetAsList(ListValue** out) override;
    bool GetAsList(const ListValue** out) const override;
    ListValue* DeepCopy() const override;
    bool Equals(const Value* other) const override;

    // Removes the element at |index|, handing it to |out_value| or deleting
    // it when |out_value| is null. Later elements move up.
    virtual bool Remove(std::size_t index, std::unique_ptr<Value>* out_value);
    virtual void Swap(ListValue* other);

    std::unique_ptr<ListValue> CreateDeepCopy() const;

    std::size_t GetSize() const { return list_.size(); }
    bool empty() const { return list_.empty(); }
    void Clear();
    void Reserve(std::size_t count) { list_.reserve(count); }

    // Each is false when |index| is out of range or the element is of
    // another type.
    bool Get(std::size_t index, const Value** out) const;
    bool Get(std::size_t index, Value** out);
    bool GetBoolean(std::size_t index, bool* out) const;
    bool GetInteger(std::size_t index, int32_t* out) const;
    bool GetDouble(std::size_t index, double* out) const;
    bool GetString(std::size_t index, std::string* out) const;
    bool GetDictionary(std::size_t index, const DictionaryValue** out) const;
    bool GetDictionary(std::size_t index, DictionaryValue** out);
    bool GetList(std::size_t index, const ListValue** out) const;
    bool GetList(std::size_t index, ListValue** out);

    // Takes ownership. A null |in_value| is ignored.
    void Append(Value* in_value);
    void Append(std::unique_ptr<Value> in_value);
    void AppendString(const std::string& value);
    void AppendBoolean(bool value);
    void AppendInteger(int32_t value);
    void AppendDouble(double value);

    Storage::const_iterator begin() const { return list_.begin(); }
    Storage::const_iterator end() const { return list_.end(); }

private:
    friend struct internal::TextBorrowing;

    void DetachChildren();

    // As in DictionaryValue.
    bool borrows_text_ = false;
    Storage list_;
};

}  // namespace base
