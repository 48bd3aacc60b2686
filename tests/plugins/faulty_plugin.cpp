// A library that loads, but whose classes fail to be made, one fault per
// class id (see test_interfaces.h).

#include "component/plugin.h"
#include "plugins/test_interfaces.h"

namespace {

// A factory that answers the plain interface only.
class PlainOnlyFactory : public by::IClassFactory, private by::plugin::RefCounted {
public:
    by::Result QueryInterface(const by::GUID& iid, void** out) override {
        if (!by::IsEqualId(iid, by::IID_IBaseUnknown) &&
            !by::IsEqualId(iid, by::IID_IClassFactory)) {
            return by::kNoInterface;
        }
        *out = static_cast<by::IClassFactory*>(this);
        AddRefImpl();
        return by::kOk;
    }
    uint32_t AddRef() override { return AddRefImpl(); }
    uint32_t Release() override { return ReleaseImpl(); }
    by::Result CreateInstance(by::IBaseUnknown*, const by::GUID&, void**) override {
        return by::kFail;
    }
    by::Result LockServer(int) override { return by::kOk; }
};

by::Result CreateFails(const by::GUID&, void**) {
    return qzetest::kCreateFailsStatus;
}

bool Is(const by::GUID& id, const char* text) {
    return by::IsEqualId(id, by::ParseGuid(text, true));
}

}  // namespace

BY_PLUGIN_CLASS_TABLE(::by::plugin::ClassEntry{qzetest::kGetterFailsClass, &CreateFails},
                      ::by::plugin::ClassEntry{qzetest::kCreateFailsClass, &CreateFails})

BY_PLUGIN_API by::Result DllGetClassObject(const by::GUID& classId, const by::GUID& iid,
                                           void** out) {
    if (Is(classId, qzetest::kGetterFailsClass)) {
        // A failure status that still hands out a factory: the caller must
        // release it all the same.
        by::plugin::GetClassObject(by_plugin_classes, 2, classId, iid, out);
        return static_cast<by::Result>(0x8000FFFF);
    }
    if (Is(classId, qzetest::kNullFactoryClass)) {
        *out = nullptr;
        return by::kOk;
    }
    if (Is(classId, qzetest::kPlainFactoryClass)) {
        auto* factory = new PlainOnlyFactory();
        by::Result status = factory->QueryInterface(iid, out);
        factory->Release();
        return status;
    }
    return by::plugin::GetClassObject(by_plugin_classes, 2, classId, iid, out);
}
BY_PLUGIN_EXPORT_CAN_UNLOAD_NOW()
BY_PLUGIN_EXPORT_REGISTER_SERVER()
BY_PLUGIN_EXPORT_UNREGISTER_SERVER()

QZETEST_COUNT_EXPORTS(0)
