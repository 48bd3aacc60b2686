#pragma once

// Writing a component library
// ===========================
//
// A component library is a shared library (a DLL on Windows) that the kit
// opens by path. It must export four functions by their plain names:
// DllGetClassObject, DllCanUnloadNow, DllRegisterServer and
// DllUnregisterServer. The kit calls only DllGetClassObject, but refuses a
// library that lacks any of the four.
//
// This header writes all four for you, together with the library's module
// object and a class factory per class. A library with two classes:
//
//     #include "component/plugin.h"
//
//     class Greeter : public IGreeter, public by::CUnknownImp {
//     public:
//         by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
//         const char* Greet() override { return "hello"; }
//     };
//
//     class Counter : public ICounter, public by::CUnknownImp { ... };
//
//     BY_PLUGIN_MODULE(
//         BY_PLUGIN_CLASS("{0c0f6a63-4a3e-4f0e-9d3e-2b8f3c1d5a01}", Greeter),
//         BY_PLUGIN_CLASS("{0c0f6a63-4a3e-4f0e-9d3e-2b8f3c1d5a02}", Counter))
//
// Each interface declares its id with BY_DECLARE_INTERFACE_ID in its body
// (see component/unknown.h); an object answers its interface id and the
// root id. Objects are made with by::CComObject<T>::CreateInstance, so a
// failing init_class makes the creation fail with its status.
//
// The library links the kit (for by::ParseGuid and the well-known ids).
// Libraries it depends on go in the bundle's "bin" directory; the kit puts
// that directory on the search path while it opens the library.
//
// For unusual libraries the pieces are available one by one:
// BY_PLUGIN_CLASS_TABLE names the class table, the four BY_PLUGIN_EXPORT_*
// macros each define one export, and by::plugin::GetClassObject answers a
// DllGetClassObject call from a class table.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "component/guid.h"
#include "component/unknown.h"

// Plug-ins are libraries of their own: they export with their own attribute,
// not the kit's.
#if defined(_WIN32)
#define BY_PLUGIN_API extern "C" __declspec(dllexport)
#else
#define BY_PLUGIN_API extern "C" __attribute__((visibility("default")))
#endif

namespace by {
namespace plugin {

// CLASS_E_CLASSNOTAVAILABLE: the library offers no class of that id.
constexpr Result kClassNotAvailable = static_cast<Result>(0x80040111);
// E_NOTIMPL.
constexpr Result kNotImplemented = static_cast<Result>(0x80004001);

// Makes one object and asks it for `iid`. The caller of the factory gets
// the one reference of the query.
using CreateFunc = Result (*)(const GUID& iid, void** out);

struct ClassEntry {
    const char* classId;  // braced text form
    CreateFunc create;
};

template <class T>
Result CreateObject(const GUID& iid, void** out) {
    if (out == nullptr) {
        return kPointer;
    }
    *out = nullptr;
    T* object = nullptr;
    Result status = CComObject<T>::CreateInstance(&object);
    if (status != 0) {
        return status;
    }
    status = object->QueryInterface(iid, out);
    // The query holds the reference now (or the object goes).
    object->Release();
    return status;
}

// Factories and module objects of the library that are alive; the objects
// the factories made are not counted. DllCanUnloadNow answers from it, but
// the kit never asks: it keeps every library open to the end.
inline std::atomic<long>& LiveCount() {
    static std::atomic<long> count{0};
    return count;
}

// Reference counting shared by the factory and the module object.
class RefCounted {
protected:
    RefCounted() { LiveCount().fetch_add(1); }
    virtual ~RefCounted() { LiveCount().fetch_sub(1); }

    uint32_t AddRefImpl() { return static_cast<uint32_t>(refs_.fetch_add(1) + 1); }
    uint32_t ReleaseImpl() {
        long now = refs_.fetch_sub(1) - 1;
        if (now == 0) {
            delete this;
        }
        return static_cast<uint32_t>(now);
    }

private:
    std::atomic<long> refs_{1};
};

// The factory of one class. The kit asks DllGetClassObject for the plain
// IClassFactory, then queries it for IOFClassFactory; it answers both.
class ClassFactory : public IOFClassFactory, public IClassFactory, private RefCounted {
public:
    explicit ClassFactory(CreateFunc create) : create_(create) {}

    Result QueryInterface(const GUID& iid, void** out) override {
        if (out == nullptr) {
            return kPointer;
        }
        if (IsEqualId(iid, IID_IBaseUnknown) || IsEqualId(iid, IID_IOFClassFactory)) {
            *out = static_cast<IOFClassFactory*>(this);
        } else if (IsEqualId(iid, IID_IClassFactory)) {
            *out = static_cast<IClassFactory*>(this);
        } else {
            return kNoInterface;
        }
        AddRefImpl();
        return kOk;
    }
    uint32_t AddRef() override { return AddRefImpl(); }
    uint32_t Release() override { return ReleaseImpl(); }

    Result LockServer(int) override { return kOk; }
    Result CanUnloadNow() override { return LiveCount().load() == 0 ? 0 : 1; }
    Result CreateInstance(IBaseUnknown* outer, const GUID& iid, void** out) override {
        return CreateInstance(outer, nullptr, iid, out);
    }
    Result CreateInstance(IBaseUnknown*, void*, const GUID& iid, void** out) override {
        return create_(iid, out);
    }

private:
    CreateFunc create_;
};

// The library's module object: the kit holds it while the library is loaded
// and calls nothing on it but Release. It is a factory that makes nothing.
inline Result CreateNothing(const GUID&, void**) {
    return kNotImplemented;
}

// Answers DllGetClassObject from a table of classes: the module object for
// CLSID_ModuleObject, otherwise a factory of the matching class.
inline Result GetClassObject(const ClassEntry* classes, std::size_t count, const GUID& classId,
                             const GUID& iid, void** out) {
    if (out == nullptr) {
        return kPointer;
    }
    *out = nullptr;
    IBaseUnknown* object = nullptr;
    if (IsEqualId(classId, CLSID_ModuleObject)) {
        object = static_cast<IOFClassFactory*>(new (std::nothrow) ClassFactory(&CreateNothing));
    } else {
        for (std::size_t i = 0; i < count && object == nullptr; ++i) {
            if (IsEqualId(ParseGuid(classes[i].classId, true), classId)) {
                object = static_cast<IOFClassFactory*>(new (std::nothrow)
                                                           ClassFactory(classes[i].create));
            }
        }
        if (object == nullptr) {
            return kClassNotAvailable;
        }
    }
    if (object == nullptr) {
        return kOutOfMemory;
    }
    Result status = object->QueryInterface(iid, out);
    object->Release();
    return status;
}

}  // namespace plugin
}  // namespace by

// One entry of a class table: the class id text and the component class.
#define BY_PLUGIN_CLASS(classIdText, T)             \
    ::by::plugin::ClassEntry {                      \
        classIdText, &::by::plugin::CreateObject<T> \
    }

// The table the exports below answer from.
#define BY_PLUGIN_CLASS_TABLE(...) \
    static const ::by::plugin::ClassEntry by_plugin_classes[] = {__VA_ARGS__};

#define BY_PLUGIN_EXPORT_GET_CLASS_OBJECT()                                                        \
    BY_PLUGIN_API ::by::Result DllGetClassObject(const ::by::GUID& classId, const ::by::GUID& iid, \
                                                 void** out) {                                     \
        return ::by::plugin::GetClassObject(                                                       \
            by_plugin_classes, sizeof(by_plugin_classes) / sizeof(by_plugin_classes[0]), classId,  \
            iid, out);                                                                             \
    }

// S_OK (0) when nothing of the library is alive, S_FALSE (1) otherwise.
#define BY_PLUGIN_EXPORT_CAN_UNLOAD_NOW()                     \
    BY_PLUGIN_API ::by::Result DllCanUnloadNow() {            \
        return ::by::plugin::LiveCount().load() == 0 ? 0 : 1; \
    }

// Nothing to write to a system registry: the kit finds classes by manifest.
#define BY_PLUGIN_EXPORT_REGISTER_SERVER()           \
    BY_PLUGIN_API ::by::Result DllRegisterServer() { \
        return 0;                                    \
    }

#define BY_PLUGIN_EXPORT_UNREGISTER_SERVER()           \
    BY_PLUGIN_API ::by::Result DllUnregisterServer() { \
        return 0;                                      \
    }

// A whole component library: the class table and the four exports.
#define BY_PLUGIN_MODULE(...)           \
    BY_PLUGIN_CLASS_TABLE(__VA_ARGS__)  \
    BY_PLUGIN_EXPORT_GET_CLASS_OBJECT() \
    BY_PLUGIN_EXPORT_CAN_UNLOAD_NOW()   \
    BY_PLUGIN_EXPORT_REGISTER_SERVER()  \
    BY_PLUGIN_EXPORT_UNREGISTER_SERVER()
