// A library with all four exports whose getter yields no module object.

#include "component/plugin.h"
#include "plugins/test_interfaces.h"

namespace {

class Greeter : public qzetest::ITestGreeter, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    const char* Greet() override { return "never made"; }
};

}  // namespace

BY_PLUGIN_CLASS_TABLE(BY_PLUGIN_CLASS(qzetest::kGreeterClass, Greeter))

BY_PLUGIN_API by::Result DllGetClassObject(const by::GUID& classId, const by::GUID& iid,
                                           void** out) {
    if (by::IsEqualId(classId, by::CLSID_ModuleObject)) {
        // Success by status, but no object: only the pointer counts.
        *out = nullptr;
        return by::kOk;
    }
    return by::plugin::GetClassObject(by_plugin_classes, 1, classId, iid, out);
}
BY_PLUGIN_EXPORT_CAN_UNLOAD_NOW()
BY_PLUGIN_EXPORT_REGISTER_SERVER()
BY_PLUGIN_EXPORT_UNREGISTER_SERVER()
