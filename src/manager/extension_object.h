#pragma once

// Extension classes that offer an interface of their own.
//
// by::CComObject<T> answers the root id and one id of T's. An extension must
// answer IQZBaseExtension's id, which the kit asks for first, and the id its
// extension point names, which is the pointer the host gets. When those
// differ, list the class with QZE_PLUGIN_EXTENSION_CLASS instead of
// BY_PLUGIN_CLASS, naming the further interfaces:
//
//     class IGreeter : public by::IBaseUnknown {
//     public:
//         BY_DECLARE_INTERFACE_ID("{...id the extension point names...}")
//         virtual const char* Greet() = 0;
//     };
//
//     class Greeter : public qzextensionkit::QZBaseExtension, public IGreeter {
//     public:
//         const char* Greet() override { return "hello"; }
//     };
//
//     BY_PLUGIN_MODULE(QZE_PLUGIN_EXTENSION_CLASS("{...class id...}", Greeter, IGreeter))
//
// The object then answers the root id and IQZBaseExtension's id with its
// IQZBaseExtension pointer, and each listed interface's id with that
// interface's pointer.

#include "component/plugin.h"
#include "manager/base_extension.h"

namespace qzextensionkit {

// The type really allocated for an extension class T: it implements the
// root operations for T and every interface in Interfaces. Counting and
// creation follow by::CComObject<T>.
template <class T, class... Interfaces>
class QZExtensionObject : public T {
public:
    // One reference for the caller, then init_class(null, null); a non-zero
    // status destroys the object and leaves *out null.
    static by::Result CreateInstance(T** out) {
        if (out == nullptr) {
            return by::kPointer;
        }
        *out = nullptr;
        auto* object = new (std::nothrow) QZExtensionObject();
        if (object == nullptr) {
            return by::kOutOfMemory;
        }
        object->AddRef();
        by::Result result = static_cast<by::Result>(object->init_class(nullptr, nullptr));
        if (result != 0) {
            delete static_cast<by::CUnknownImp*>(object);
            return result;
        }
        *out = object;
        return result;
    }

    by::Result QueryInterface(const by::GUID& iid, void** out) override {
        void* found = nullptr;
        if (by::IsEqualId(iid, by::IBaseUnknown::InterfaceId()) ||
            by::IsEqualId(iid, IQZBaseExtension::InterfaceId())) {
            found = static_cast<IQZBaseExtension*>(this);
        } else {
            ((found = found != nullptr ? found : Match<Interfaces>(iid)), ...);
        }
        if (found == nullptr) {
            return by::kNoInterface;
        }
        *out = found;
        static_cast<IQZBaseExtension*>(this)->AddRef();
        return by::kOk;
    }

    uint32_t AddRef() override { return this->CountAddRef(); }
    uint32_t Release() override { return this->CountRelease(); }

private:
    template <class I>
    void* Match(const by::GUID& iid) {
        return by::IsEqualId(iid, I::InterfaceId()) ? static_cast<I*>(this) : nullptr;
    }
};

// A class factory's create function for QZExtensionObject<T, Interfaces...>:
// one object, asked for `iid`; the query holds the caller's reference.
template <class T, class... Interfaces>
by::Result CreateExtensionObject(const by::GUID& iid, void** out) {
    if (out == nullptr) {
        return by::kPointer;
    }
    *out = nullptr;
    T* object = nullptr;
    by::Result status = QZExtensionObject<T, Interfaces...>::CreateInstance(&object);
    if (status != 0) {
        return status;
    }
    auto* root = static_cast<IQZBaseExtension*>(object);
    status = root->QueryInterface(iid, out);
    root->Release();
    return status;
}

}  // namespace qzextensionkit

// One entry of a class table for an extension class T with further
// interfaces: QZE_PLUGIN_EXTENSION_CLASS("{...}", T, IFirst, ISecond).
#define QZE_PLUGIN_EXTENSION_CLASS(classIdText, ...)                       \
    ::by::plugin::ClassEntry {                                             \
        classIdText, &::qzextensionkit::CreateExtensionObject<__VA_ARGS__> \
    }
