#pragma once

// The component object model shared by the kit and plug-in libraries.
//
// An object is reference counted, reached only through interfaces, and hands
// out its interfaces by a 128-bit id. A component class is written as
//
//     class MyThing : public IMyThing, public by::CUnknownImp {
//     public:
//         by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
//         ...IMyThing's operations...
//     };
//
// and created with by::CComObject<MyThing>::CreateInstance(&p). The interface
// declares its id with BY_DECLARE_INTERFACE_ID inside its body; the class
// inherits it from there (or declares its own), and CComObject<T> answers
// QueryInterface for that id and for the root id, nothing else.

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

#include "component/guid.h"

namespace by {

// Signed 32-bit status of component operations; 0 is success.
using Result = int32_t;

constexpr Result kOk = 0;
constexpr Result kNoInterface = static_cast<Result>(0x80004002);  // E_NOINTERFACE
constexpr Result kPointer = static_cast<Result>(0x80004003);      // E_POINTER
constexpr Result kFail = static_cast<Result>(0x80004005);         // E_FAIL
constexpr Result kOutOfMemory = static_cast<Result>(0x8007000E);  // E_OUTOFMEMORY

// Declares the interface id of an interface (or class) as a static function
// InterfaceId(). The text must be the braced, 38-character form.
#define BY_DECLARE_INTERFACE_ID(text)                             \
    static const ::by::GUID& InterfaceId() {                      \
        static const ::by::GUID id = ::by::ParseGuid(text, true); \
        return id;                                                \
    }

// The root of every interface. The three operations always stand first.
class IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{00000000-0000-0000-C000-000000000046}")

    virtual Result QueryInterface(const GUID& iid, void** out) = 0;
    virtual uint32_t AddRef() = 0;
    virtual uint32_t Release() = 0;

protected:
    // Objects go away through Release, never through a pointer to an
    // interface; a virtual destructor here would change the table.
    ~IBaseUnknown() = default;
};

// Holds the reference count of a component object. Its one virtual
// operation is the destructor, which CComObject<T> uses to delete.
class CUnknownImp {
public:
    CUnknownImp() = default;
    virtual ~CUnknownImp() = default;
    CUnknownImp(const CUnknownImp&) = delete;
    CUnknownImp& operator=(const CUnknownImp&) = delete;

protected:
    // The counting of AddRef and Release, for the classes that close the
    // root operations. The decision to delete rests on the count read again
    // after the decrement, not on the decrement's own result.
    uint32_t CountAddRef() {
        m_refCount.fetch_add(1);
        return static_cast<uint32_t>(m_refCount.load(std::memory_order_relaxed));
    }
    uint32_t CountRelease() {
        m_refCount.fetch_sub(1);
        const int32_t now = m_refCount.load(std::memory_order_relaxed);
        if (now == 0) {
            delete this;
            return 0;
        }
        return static_cast<uint32_t>(now);
    }

    // Signed 32 bits, starting at 0.
    std::atomic<int32_t> m_refCount{0};

    template <class T>
    friend class CComObject;
};

// The type that is really allocated for a component class T. It implements
// the root operations for T.
template <class T>
class CComObject : public T {
public:
    template <class... Args>
    explicit CComObject(Args&&... args) : T(std::forward<Args>(args)...) {}

    // Builds an object, gives it one reference and runs its second
    // construction step, init_class(null, null). On failure nothing is left
    // behind and *out stays null.
    static Result CreateInstance(T** out) {
        if (out == nullptr) {
            return kPointer;
        }
        *out = nullptr;
        Result result = kOutOfMemory;
        CComObject<T>* object = new (std::nothrow) CComObject<T>();
        if (object == nullptr) {
            return result;
        }
        object->AddRef();
        result = object->init_class(nullptr, nullptr);
        if (result != 0) {
            // Straight to the deleting destructor, not through Release.
            delete static_cast<CUnknownImp*>(object);
            return result;
        }
        *out = object;
        return result;
    }

    Result QueryInterface(const GUID& iid, void** out) override {
        if (!IsEqualId(iid, IBaseUnknown::InterfaceId()) && !IsEqualId(iid, T::InterfaceId())) {
            return kNoInterface;
        }
        *out = static_cast<IBaseUnknown*>(this);
        // Through the table, so that a class overriding AddRef is honoured.
        static_cast<IBaseUnknown*>(this)->AddRef();
        return kOk;
    }

    uint32_t AddRef() override { return this->CountAddRef(); }
    uint32_t Release() override { return this->CountRelease(); }
};

// A holder for interface pointers: AddRef on copy, Release on drop. Built
// from a query, it stays null when the query fails.
template <class I>
class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    // Takes over a reference the caller already owns.
    static ComPtr Adopt(I* p) {
        ComPtr r;
        r.p_ = p;
        return r;
    }
    // Queries `source` for `iid`; a negative status gives a null holder.
    static ComPtr Query(IBaseUnknown* source, const GUID& iid) {
        ComPtr r;
        if (source != nullptr) {
            void* out = nullptr;
            if (source->QueryInterface(iid, &out) >= 0 && out != nullptr) {
                r.p_ = static_cast<I*>(out);
            }
        }
        return r;
    }
    ComPtr(const ComPtr& other) : p_(other.p_) {
        if (p_) {
            p_->AddRef();
        }
    }
    ComPtr(ComPtr&& other) noexcept : p_(other.p_) { other.p_ = nullptr; }
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(p_, other.p_);
        return *this;
    }
    ~ComPtr() { Reset(); }

    void Reset() {
        if (p_) {
            I* p = p_;
            p_ = nullptr;
            p->Release();
        }
    }
    // Gives up the reference without releasing it.
    I* Detach() {
        I* p = p_;
        p_ = nullptr;
        return p;
    }
    I* Get() const { return p_; }
    I* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }

private:
    I* p_ = nullptr;
};

// The plain class factory: the kit asks for it by id and calls nothing on
// it but QueryInterface and Release.
class IClassFactory : public IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{00000001-0000-0000-C000-000000000046}")

    virtual Result CreateInstance(IBaseUnknown* outer, const GUID& iid, void** out) = 0;
    virtual Result LockServer(int lock) = 0;

protected:
    ~IClassFactory() = default;
};

// The extended class factory through which the kit builds objects. The two
// operations before CreateInstance are not called by the kit. The kit passes
// null for `outer` and `reserved`; a factory must accept that.
class IOFClassFactory : public IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{6966e385-dbfa-4131-a29e-d0e9464f3f53}")

    virtual Result LockServer(int lock) = 0;
    virtual Result CanUnloadNow() = 0;
    virtual Result CreateInstance(IBaseUnknown* outer, void* reserved, const GUID& iid,
                                  void** out) = 0;

protected:
    ~IOFClassFactory() = default;
};

}  // namespace by
