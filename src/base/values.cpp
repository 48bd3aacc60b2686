#include "base/values.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "base/json/json_value_internals.h"
#include "base/utf_string_conversions.h"
#include "platform/platform.h"

namespace base {

// ---------------------------------------------------------------- node pool

namespace {

// Small blocks (every node class, dictionary entries, short lists) are cut
// one after another from 32 KB chunks, which are aligned to their size so
// that a block finds its chunk by masking its address. A chunk goes back to
// the heap when its last block is freed: the memory a freed tree leaves is
// what the next allocation, ours or anyone's, takes while it is still in
// the cache, and the blocks of one tree lie side by side.
constexpr std::size_t kChunkBytes = 32 * 1024;
constexpr std::size_t kBlockAlign = 8;
constexpr std::size_t kMaxBlock = 256;

struct Chunk {
    // Blocks handed out minus blocks freed, where the blocks handed out
    // are added once, when the chunk stops handing out. So it reaches zero
    // exactly once, after both, and whoever takes it there frees the chunk.
    std::atomic<std::int64_t> balance{0};
    // Every live chunk is on one list, so that memory checkers see it held.
    Chunk* prev = nullptr;
    Chunk* next = nullptr;
};

constexpr std::size_t kHeaderBytes = (sizeof(Chunk) + kBlockAlign - 1) & ~(kBlockAlign - 1);

// Plain data only, so the per-thread block needs no constructor or
// destructor to run. Its few bytes fit the static TLS reserve, which spares
// a call on every allocation.
struct ThreadPool {
    char* next;
    char* end;
    Chunk* current;
    std::int64_t handed;
    // Frees are counted here while they fall in one chunk, and subtracted
    // from it in one step: a tree is mostly freed chunk by chunk.
    Chunk* freed_chunk;
    std::int64_t freed;
    bool end_hooked;
};

#if defined(__GNUC__) && !defined(_WIN32)
__attribute__((tls_model("initial-exec")))
#endif
thread_local ThreadPool t_pool;

std::mutex& ChunkMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

Chunk* g_chunks = nullptr;

void ReleaseChunk(Chunk* chunk) {
    {
        std::lock_guard<std::mutex> lock(ChunkMutex());
        (chunk->prev ? chunk->prev->next : g_chunks) = chunk->next;
        if (chunk->next) {
            chunk->next->prev = chunk->prev;
        }
    }
    chunk->~Chunk();
    ::operator delete(static_cast<void*>(chunk), std::align_val_t(kChunkBytes));
}

void Settle(Chunk* chunk, std::int64_t delta) {
    if (chunk->balance.fetch_add(delta, std::memory_order_acq_rel) + delta == 0) {
        ReleaseChunk(chunk);
    }
}

void FlushFrees(ThreadPool& pool) {
    if (pool.freed_chunk) {
        Chunk* chunk = pool.freed_chunk;
        pool.freed_chunk = nullptr;
        Settle(chunk, -pool.freed);
        pool.freed = 0;
    }
}

void RetireCurrent(ThreadPool& pool) {
    if (pool.current) {
        Chunk* chunk = pool.current;
        pool.current = nullptr;
        pool.next = pool.end = nullptr;
        Settle(chunk, pool.handed);
    }
}

void GiveUpChunks(ThreadPool& pool) {
    FlushFrees(pool);
    RetireCurrent(pool);
}

// A thread that ends gives up its chunk and its uncounted frees, so that
// nothing stays held for it (where the platform can tell: elsewhere up to
// two chunks stay held per ended thread).
void ThreadEnded() {
    GiveUpChunks(t_pool);
}

void TakeChunk(ThreadPool& pool) {
    GiveUpChunks(pool);
    auto* chunk = new (::operator new(kChunkBytes, std::align_val_t(kChunkBytes))) Chunk();
    {
        std::lock_guard<std::mutex> lock(ChunkMutex());
        chunk->next = g_chunks;
        if (g_chunks) {
            g_chunks->prev = chunk;
        }
        g_chunks = chunk;
    }
    pool.current = chunk;
    pool.next = reinterpret_cast<char*>(chunk) + kHeaderBytes;
    pool.end = reinterpret_cast<char*>(chunk) + kChunkBytes;
    pool.handed = 0;
    if (!pool.end_hooked) {
        pool.end_hooked = true;
        qzextensionkit::platform::SetThreadEndCallback(&ThreadEnded);
    }
}

// Under AddressSanitizer every block goes to the general heap, so that a
// node used after it was freed is caught.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kUsePool = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kUsePool = false;
#else
constexpr bool kUsePool = true;
#endif
#else
constexpr bool kUsePool = true;
#endif

// An empty block goes to the heap: cut from a chunk it could point at the
// chunk's end, which is the next chunk's address.
bool InPool(std::size_t size) {
    return kUsePool && size != 0 && size <= kMaxBlock;
}

}  // namespace

namespace internal {

void* AllocateSmallBlock(std::size_t size) {
    if (!InPool(size)) {
        return ::operator new(size);
    }
    size = (size + kBlockAlign - 1) & ~(kBlockAlign - 1);
    ThreadPool& pool = t_pool;
    if (static_cast<std::size_t>(pool.end - pool.next) < size) {
        TakeChunk(pool);
    }
    void* block = pool.next;
    pool.next += size;
    ++pool.handed;
    return block;
}

void FreeSmallBlock(void* p, std::size_t size) {
    if (p == nullptr) {
        return;
    }
    if (!InPool(size)) {
        ::operator delete(p);
        return;
    }
    auto* chunk = reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(p) &
                                           ~static_cast<std::uintptr_t>(kChunkBytes - 1));
    ThreadPool& pool = t_pool;
    if (chunk != pool.freed_chunk) {
        FlushFrees(pool);
        pool.freed_chunk = chunk;
    }
    ++pool.freed;
}

std::size_t CountPoolChunks() {
    std::lock_guard<std::mutex> lock(ChunkMutex());
    std::size_t count = 0;
    for (const Chunk* chunk = g_chunks; chunk; chunk = chunk->next) {
        ++count;
    }
    return count;
}

}  // namespace internal

void* Value::operator new(std::size_t size) {
    return internal::AllocateSmallBlock(size);
}

void Value::operator delete(void* p, std::size_t size) {
    internal::FreeSmallBlock(p, size);
}

// ---------------------------------------------------------------- Value

Value::Value() : type_(TYPE_NULL) {}

Value::Value(Type type) : type_(type) {}

Value::~Value() = default;

std::unique_ptr<Value> Value::CreateNullValue() {
    return std::make_unique<Value>();
}

bool Value::GetAsBoolean(bool*) const {
    return false;
}

bool Value::GetAsInteger(int32_t*) const {
    return false;
}

bool Value::GetAsDouble(double*) const {
    return false;
}

bool Value::GetAsStringValue(const StringValue**) const {
    return false;
}

bool Value::GetAsWideString(std::wstring*) const {
    return false;
}

bool Value::GetAsString(std::string*) const {
    return false;
}

bool Value::GetAsBinary(const BinaryValue**) const {
    return false;
}

bool Value::GetAsList(ListValue**) {
    return false;
}

bool Value::GetAsList(const ListValue**) const {
    return false;
}

bool Value::GetAsDictionary(DictionaryValue**) {
    return false;
}

bool Value::GetAsDictionary(const DictionaryValue**) const {
    return false;
}

Value* Value::DeepCopy() const {
    // Only null nodes are of this class itself; every other type overrides.
    return new Value();
}

bool Value::Equals(const Value* other) const {
    return other != nullptr && other->GetType() == TYPE_NULL && GetType() == TYPE_NULL;
}

std::unique_ptr<Value> Value::CreateDeepCopy() const {
    return std::unique_ptr<Value>(DeepCopy());
}

// ---------------------------------------------------------------- FundamentalValue

FundamentalValue::FundamentalValue(bool value) : Value(TYPE_BOOLEAN), boolean_value_(value) {}

FundamentalValue::FundamentalValue(int32_t value) : Value(TYPE_INTEGER), integer_value_(value) {}

FundamentalValue::FundamentalValue(double value) : Value(TYPE_DOUBLE), double_value_(value) {}

FundamentalValue::~FundamentalValue() = default;

bool FundamentalValue::GetAsBoolean(bool* out) const {
    if (GetType() != TYPE_BOOLEAN) {
        return false;
    }
    if (out) {
        *out = boolean_value_;
    }
    return true;
}

bool FundamentalValue::GetAsInteger(int32_t* out) const {
    if (GetType() != TYPE_INTEGER) {
        return false;
    }
    if (out) {
        *out = integer_value_;
    }
    return true;
}

bool FundamentalValue::GetAsDouble(double* out) const {
    if (GetType() == TYPE_DOUBLE) {
        if (out) {
            *out = double_value_;
        }
        return true;
    }
    if (GetType() == TYPE_INTEGER) {
        if (out) {
            *out = static_cast<double>(integer_value_);
        }
        return true;
    }
    return false;
}

FundamentalValue* FundamentalValue::DeepCopy() const {
    switch (GetType()) {
        case TYPE_BOOLEAN:
            return new FundamentalValue(boolean_value_);
        case TYPE_INTEGER:
            return new FundamentalValue(integer_value_);
        default:
            return new FundamentalValue(double_value_);
    }
}

bool FundamentalValue::Equals(const Value* other) const {
    if (other == nullptr || other->GetType() != GetType()) {
        return false;
    }
    switch (GetType()) {
        case TYPE_BOOLEAN: {
            bool b = false;
            return other->GetAsBoolean(&b) && b == boolean_value_;
        }
        case TYPE_INTEGER: {
            int32_t i = 0;
            return other->GetAsInteger(&i) && i == integer_value_;
        }
        default: {
            double d = 0;
            return other->GetAsDouble(&d) && d == double_value_;
        }
    }
}

// ---------------------------------------------------------------- StringValue

StringValue::StringValue(const std::string& value) : Value(TYPE_STRING), value_(value) {}

StringValue::StringValue(std::string&& value) : Value(TYPE_STRING), value_(std::move(value)) {}

StringValue::StringValue(const char* value) : Value(TYPE_STRING), value_(value ? value : "") {}

StringValue::StringValue(const std::wstring& value)
    : Value(TYPE_STRING), value_(WideToUTF8(value)) {}

StringValue::~StringValue() = default;

bool StringValue::GetAsStringValue(const StringValue** out) const {
    if (out) {
        *out = this;
    }
    return true;
}

bool StringValue::GetAsWideString(std::wstring* out) const {
    if (out) {
        *out = UTF8ToWide(value_);
    }
    return true;
}

bool StringValue::GetAsString(std::string* out) const {
    if (out) {
        *out = value_;
    }
    return true;
}

StringValue* StringValue::DeepCopy() const {
    return new StringValue(value_);
}

bool StringValue::Equals(const Value* other) const {
    const char* data = nullptr;
    std::size_t length = 0;
    if (!internal::GetStringView(other, &data, &length)) {
        return false;
    }
    return length == value_.size() &&
           (length == 0 || std::memcmp(data, value_.data(), length) == 0);
}

// ---------------------------------------------------------------- BinaryValue

BinaryValue::BinaryValue() : Value(TYPE_BINARY), size_(0) {}

BinaryValue::BinaryValue(std::unique_ptr<char[]> buffer, std::size_t size)
    : Value(TYPE_BINARY), buffer_(std::move(buffer)), size_(buffer_ ? size : 0) {}

BinaryValue::~BinaryValue() = default;

std::unique_ptr<BinaryValue> BinaryValue::CreateWithCopiedBuffer(const char* buffer,
                                                                 std::size_t size) {
    if (buffer == nullptr || size == 0) {
        return std::make_unique<BinaryValue>();
    }
    std::unique_ptr<char[]> copy(new char[size]);
    std::memcpy(copy.get(), buffer, size);
    return std::make_unique<BinaryValue>(std::move(copy), size);
}

bool BinaryValue::GetAsBinary(const BinaryValue** out) const {
    if (out) {
        *out = this;
    }
    return true;
}

BinaryValue* BinaryValue::DeepCopy() const {
    return CreateWithCopiedBuffer(buffer_.get(), size_).release();
}

bool BinaryValue::Equals(const Value* other) const {
    const BinaryValue* that = nullptr;
    if (other == nullptr || !other->GetAsBinary(&that)) {
        return false;
    }
    return that->size_ == size_ &&
           (size_ == 0 || std::memcmp(that->buffer_.get(), buffer_.get(), size_) == 0);
}

// ---------------------------------------------------------------- DictionaryValue

namespace {

const DictionaryValue* AsDictionary(const Value* value) {
    // Every node of dictionary type is a DictionaryValue.
    return value->GetType() == Value::TYPE_DICTIONARY ? static_cast<const DictionaryValue*>(value)
                                                      : nullptr;
}

const ListValue* AsList(const Value* value) {
    return value->GetType() == Value::TYPE_LIST ? static_cast<const ListValue*>(value) : nullptr;
}

}  // namespace

DictionaryValue::DictionaryValue() : Value(TYPE_DICTIONARY) {}

DictionaryValue::~DictionaryValue() {
    Clear();
}

std::unique_ptr<DictionaryValue> DictionaryValue::From(std::unique_ptr<Value> value) {
    DictionaryValue* dictionary = nullptr;
    if (value && value->GetAsDictionary(&dictionary)) {
        value.release();
        return std::unique_ptr<DictionaryValue>(dictionary);
    }
    return nullptr;
}

bool DictionaryValue::GetAsDictionary(DictionaryValue** out) {
    if (out) {
        *out = this;
    }
    return true;
}

bool DictionaryValue::GetAsDictionary(const DictionaryValue** out) const {
    if (out) {
        *out = this;
    }
    return true;
}

DictionaryValue* DictionaryValue::DeepCopy() const {
    auto* copy = new DictionaryValue();
    for (const auto& entry : dictionary_) {
        copy->dictionary_.emplace_hint(copy->dictionary_.end(), entry.first,
                                       entry.second->DeepCopy());
    }
    return copy;
}

bool DictionaryValue::Equals(const Value* other) const {
    const DictionaryValue* that = other ? AsDictionary(other) : nullptr;
    if (that == nullptr || that->dictionary_.size() != dictionary_.size()) {
        return false;
    }
    auto a = dictionary_.begin();
    auto b = that->dictionary_.begin();
    for (; a != dictionary_.end(); ++a, ++b) {
        if (a->first != b->first || !a->second->Equals(b->second)) {
            return false;
        }
    }
    return true;
}

bool DictionaryValue::Remove(const std::string& path, std::unique_ptr<Value>* out_value) {
    std::size_t dot = path.rfind('.');
    if (dot == std::string::npos) {
        return RemoveWithoutPathExpansion(path, out_value);
    }
    DictionaryValue* parent = nullptr;
    if (!GetDictionary(path.substr(0, dot), &parent)) {
        return false;
    }
    return parent->RemoveWithoutPathExpansion(path.substr(dot + 1), out_value);
}

bool DictionaryValue::RemoveWithoutPathExpansion(const std::string& key,
                                                 std::unique_ptr<Value>* out_value) {
    auto it = dictionary_.find(key);
    if (it == dictionary_.end()) {
        return false;
    }
    std::unique_ptr<Value> taken(it->second);
    dictionary_.erase(it);
    if (out_value) {
        // A node that may point into the parsed text leaves as a copy.
        out_value->reset(borrows_text_ ? taken->DeepCopy() : taken.release());
    }
    return true;
}

bool DictionaryValue::RemovePath(const std::string& path, std::unique_ptr<Value>* out_value) {
    std::size_t dot = path.find('.');
    if (dot == std::string::npos) {
        return RemoveWithoutPathExpansion(path, out_value);
    }
    std::string key = path.substr(0, dot);
    DictionaryValue* child = nullptr;
    if (!GetDictionaryWithoutPathExpansion(key, &child)) {
        return false;
    }
    bool removed = child->RemovePath(path.substr(dot + 1), out_value);
    if (removed && child->empty()) {
        RemoveWithoutPathExpansion(key, nullptr);
    }
    return removed;
}

void DictionaryValue::Swap(DictionaryValue* other) {
    if (other == nullptr || other == this) {
        return;
    }
    // Entries that may point into parsed text are copied before they move
    // to a node whose lifetime is not tied to that text.
    DetachChildren();
    other->DetachChildren();
    dictionary_.swap(other->dictionary_);
}

void DictionaryValue::DetachChildren() {
    if (!borrows_text_) {
        return;
    }
    for (auto& entry : dictionary_) {
        Value* copy = entry.second->DeepCopy();
        delete entry.second;
        entry.second = copy;
    }
    borrows_text_ = false;
}

std::unique_ptr<DictionaryValue> DictionaryValue::CreateDeepCopy() const {
    return std::unique_ptr<DictionaryValue>(DeepCopy());
}

bool DictionaryValue::HasKey(const std::string& key) const {
    return dictionary_.find(key) != dictionary_.end();
}

void DictionaryValue::Clear() {
    for (auto& entry : dictionary_) {
        delete entry.second;
    }
    dictionary_.clear();
}

void DictionaryValue::Set(const std::string& path, Value* in_value) {
    if (in_value == nullptr) {
        return;
    }
    DictionaryValue* current = this;
    std::string_view rest(path);
    for (std::size_t dot = rest.find('.'); dot != std::string_view::npos; dot = rest.find('.')) {
        std::string_view key = rest.substr(0, dot);
        auto it = current->dictionary_.find(key);
        DictionaryValue* next = nullptr;
        if (it != current->dictionary_.end() && it->second->GetType() == TYPE_DICTIONARY) {
            next = static_cast<DictionaryValue*>(it->second);
        } else {
            next = new DictionaryValue();
            current->SetWithoutPathExpansion(std::string(key), next);
        }
        current = next;
        rest.remove_prefix(dot + 1);
    }
    current->SetWithoutPathExpansion(std::string(rest), in_value);
}

void DictionaryValue::Set(const std::string& path, std::unique_ptr<Value> in_value) {
    Set(path, in_value.release());
}

void DictionaryValue::SetBoolean(const std::string& path, bool value) {
    Set(path, new FundamentalValue(value));
}

void DictionaryValue::SetInteger(const std::string& path, int32_t value) {
    Set(path, new FundamentalValue(value));
}

void DictionaryValue::SetDouble(const std::string& path, double value) {
    Set(path, new FundamentalValue(value));
}

void DictionaryValue::SetString(const std::string& path, const std::string& value) {
    Set(path, new StringValue(value));
}

void DictionaryValue::SetWithoutPathExpansion(const std::string& key, Value* in_value) {
    SetWithoutPathExpansion(std::string(key), in_value);
}

void DictionaryValue::SetWithoutPathExpansion(std::string&& key, Value* in_value) {
    if (in_value == nullptr) {
        return;
    }
    auto result = dictionary_.try_emplace(std::move(key), in_value);
    if (!result.second) {
        Value*& slot = result.first->second;
        if (slot != in_value) {
            delete slot;
            slot = in_value;
        }
    }
}

bool DictionaryValue::GetPath(std::string_view path, const Value** out) const {
    const DictionaryValue* current = this;
    for (std::size_t dot = path.find('.'); dot != std::string_view::npos; dot = path.find('.')) {
        auto it = current->dictionary_.find(path.substr(0, dot));
        if (it == current->dictionary_.end()) {
            return false;
        }
        current = AsDictionary(it->second);
        if (current == nullptr) {
            return false;
        }
        path.remove_prefix(dot + 1);
    }
    auto it = current->dictionary_.find(path);
    if (it == current->dictionary_.end()) {
        return false;
    }
    if (out) {
        *out = it->second;
    }
    return true;
}

bool DictionaryValue::Get(const std::string& path, const Value** out) const {
    return GetPath(path, out);
}

bool DictionaryValue::Get(const std::string& path, Value** out) {
    return GetPath(path, const_cast<const Value**>(out));
}

bool DictionaryValue::Get(const char* path, std::size_t path_length, const Value** out) const {
    if (path == nullptr) {
        return false;
    }
    return GetPath(std::string_view(path, path_length), out);
}

bool DictionaryValue::Get(const char* path, std::size_t path_length, Value** out) {
    if (path == nullptr) {
        return false;
    }
    return GetPath(std::string_view(path, path_length), const_cast<const Value**>(out));
}

bool DictionaryValue::GetBoolean(const std::string& path, bool* out) const {
    const Value* value = nullptr;
    return GetPath(path, &value) && value->GetAsBoolean(out);
}

bool DictionaryValue::GetInteger(const std::string& path, int32_t* out) const {
    const Value* value = nullptr;
    return GetPath(path, &value) && value->GetAsInteger(out);
}

bool DictionaryValue::GetDouble(const std::string& path, double* out) const {
    const Value* value = nullptr;
    return GetPath(path, &value) && value->GetAsDouble(out);
}

bool DictionaryValue::GetString(const std::string& path, std::string* out) const {
    const Value* value = nullptr;
    return GetPath(path, &value) && value->GetAsString(out);
}

bool DictionaryValue::GetString(const std::string& path, std::wstring* out) const {
    const Value* value = nullptr;
    return GetPath(path, &value) && value->GetAsWideString(out);
}

bool DictionaryValue::GetDictionary(const std::string& path, const DictionaryValue** out) const {
    const Value* value = nullptr;
    if (!GetPath(path, &value) || value->GetType() != TYPE_DICTIONARY) {
        return false;
    }
    if (out) {
        *out = AsDictionary(value);
    }
    return true;
}

bool DictionaryValue::GetDictionary(const std::string& path, DictionaryValue** out) {
    return static_cast<const DictionaryValue*>(this)->GetDictionary(
        path, const_cast<const DictionaryValue**>(out));
}

bool DictionaryValue::GetList(const std::string& path, const ListValue** out) const {
    const Value* value = nullptr;
    if (!GetPath(path, &value) || value->GetType() != TYPE_LIST) {
        return false;
    }
    if (out) {
        *out = AsList(value);
    }
    return true;
}

bool DictionaryValue::GetList(const std::string& path, ListValue** out) {
    return static_cast<const DictionaryValue*>(this)->GetList(path,
                                                              const_cast<const ListValue**>(out));
}

bool DictionaryValue::GetWithoutPathExpansion(const std::string& key, const Value** out) const {
    auto it = dictionary_.find(key);
    if (it == dictionary_.end()) {
        return false;
    }
    if (out) {
        *out = it->second;
    }
    return true;
}

bool DictionaryValue::GetWithoutPathExpansion(const std::string& key, Value** out) {
    return static_cast<const DictionaryValue*>(this)->GetWithoutPathExpansion(
        key, const_cast<const Value**>(out));
}

bool DictionaryValue::GetDictionaryWithoutPathExpansion(const std::string& key,
                                                        const DictionaryValue** out) const {
    const Value* value = nullptr;
    if (!GetWithoutPathExpansion(key, &value) || value->GetType() != TYPE_DICTIONARY) {
        return false;
    }
    if (out) {
        *out = AsDictionary(value);
    }
    return true;
}

bool DictionaryValue::GetDictionaryWithoutPathExpansion(const std::string& key,
                                                        DictionaryValue** out) {
    return static_cast<const DictionaryValue*>(this)->GetDictionaryWithoutPathExpansion(
        key, const_cast<const DictionaryValue**>(out));
}

bool DictionaryValue::GetListWithoutPathExpansion(const std::string& key,
                                                  const ListValue** out) const {
    const Value* value = nullptr;
    if (!GetWithoutPathExpansion(key, &value) || value->GetType() != TYPE_LIST) {
        return false;
    }
    if (out) {
        *out = AsList(value);
    }
    return true;
}

bool DictionaryValue::GetListWithoutPathExpansion(const std::string& key, ListValue** out) {
    return static_cast<const DictionaryValue*>(this)->GetListWithoutPathExpansion(
        key, const_cast<const ListValue**>(out));
}

DictionaryValue::Iterator::Iterator(const DictionaryValue& target)
    : target_(target), it_(target.dictionary_.begin()) {}

// ---------------------------------------------------------------- ListValue

ListValue::ListValue() : Value(TYPE_LIST) {}

ListValue::~ListValue() {
    Clear();
}

bool ListValue::GetAsList(ListValue** out) {
    if (out) {
        *out = this;
    }
    return true;
}

bool ListValue::GetAsList(const ListValue** out) const {
    if (out) {
        *out = this;
    }
    return true;
}

ListValue* ListValue::DeepCopy() const {
    auto* copy = new ListValue();
    copy->list_.reserve(list_.size());
    for (const Value* element : list_) {
        copy->list_.push_back(element->DeepCopy());
    }
    return copy;
}

bool ListValue::Equals(const Value* other) const {
    const ListValue* that = other ? AsList(other) : nullptr;
    if (that == nullptr || that->list_.size() != list_.size()) {
        return false;
    }
    for (std::size_t i = 0; i < list_.size(); ++i) {
        if (!list_[i]->Equals(that->list_[i])) {
            return false;
        }
    }
    return true;
}

bool ListValue::Remove(std::size_t index, std::unique_ptr<Value>* out_value) {
    if (index >= list_.size()) {
        return false;
    }
    std::unique_ptr<Value> taken(list_[index]);
    list_.erase(list_.begin() + static_cast<std::ptrdiff_t>(index));
    if (out_value) {
        out_value->reset(borrows_text_ ? taken->DeepCopy() : taken.release());
    }
    return true;
}

void ListValue::Swap(ListValue* other) {
    if (other == nullptr || other == this) {
        return;
    }
    DetachChildren();
    other->DetachChildren();
    list_.swap(other->list_);
}

void ListValue::DetachChildren() {
    if (!borrows_text_) {
        return;
    }
    for (Value*& element : list_) {
        Value* copy = element->DeepCopy();
        delete element;
        element = copy;
    }
    borrows_text_ = false;
}

std::unique_ptr<ListValue> ListValue::CreateDeepCopy() const {
    return std::unique_ptr<ListValue>(DeepCopy());
}

void ListValue::Clear() {
    for (Value* element : list_) {
        delete element;
    }
    list_.clear();
}

bool ListValue::Get(std::size_t index, const Value** out) const {
    if (index >= list_.size()) {
        return false;
    }
    if (out) {
        *out = list_[index];
    }
    return true;
}

bool ListValue::Get(std::size_t index, Value** out) {
    return static_cast<const ListValue*>(this)->Get(index, const_cast<const Value**>(out));
}

bool ListValue::GetBoolean(std::size_t index, bool* out) const {
    return index < list_.size() && list_[index]->GetAsBoolean(out);
}

bool ListValue::GetInteger(std::size_t index, int32_t* out) const {
    return index < list_.size() && list_[index]->GetAsInteger(out);
}

bool ListValue::GetDouble(std::size_t index, double* out) const {
    return index < list_.size() && list_[index]->GetAsDouble(out);
}

bool ListValue::GetString(std::size_t index, std::string* out) const {
    return index < list_.size() && list_[index]->GetAsString(out);
}

bool ListValue::GetDictionary(std::size_t index, const DictionaryValue** out) const {
    if (index >= list_.size() || list_[index]->GetType() != TYPE_DICTIONARY) {
        return false;
    }
    if (out) {
        *out = AsDictionary(list_[index]);
    }
    return true;
}

bool ListValue::GetDictionary(std::size_t index, DictionaryValue** out) {
    return static_cast<const ListValue*>(this)->GetDictionary(
        index, const_cast<const DictionaryValue**>(out));
}

bool ListValue::GetList(std::size_t index, const ListValue** out) const {
    if (index >= list_.size() || list_[index]->GetType() != TYPE_LIST) {
        return false;
    }
    if (out) {
        *out = AsList(list_[index]);
    }
    return true;
}

bool ListValue::GetList(std::size_t index, ListValue** out) {
    return static_cast<const ListValue*>(this)->GetList(index, const_cast<const ListValue**>(out));
}

void ListValue::Append(Value* in_value) {
    if (in_value != nullptr) {
        list_.push_back(in_value);
    }
}

void ListValue::Append(std::unique_ptr<Value> in_value) {
    Append(in_value.release());
}

void ListValue::AppendString(const std::string& value) {
    list_.push_back(new StringValue(value));
}

void ListValue::AppendBoolean(bool value) {
    list_.push_back(new FundamentalValue(value));
}

void ListValue::AppendInteger(int32_t value) {
    list_.push_back(new FundamentalValue(value));
}

void ListValue::AppendDouble(double value) {
    list_.push_back(new FundamentalValue(value));
}

}  // namespace base
