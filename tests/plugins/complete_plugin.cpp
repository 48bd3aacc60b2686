// A complete component library with two classes. Built several times, each
// time without one of the four exports (QZEKIT_TEST_OMIT_*), to give the
// libraries that the loader must refuse.

#include <atomic>

#include "component/plugin.h"
#include "plugins/test_interfaces.h"

namespace {

std::atomic<long> g_liveObjects{0};

// Counts the object that holds it.
struct Live {
    Live() { ++g_liveObjects; }
    ~Live() { --g_liveObjects; }
};

class Greeter : public qzetest::ITestGreeter, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    const char* Greet() override { return "hello from complete"; }

private:
    Live live_;
};

class Counter : public qzetest::ITestCounter, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    int Increment() override { return ++value_; }

private:
    int value_ = 0;
    Live live_;
};

}  // namespace

BY_PLUGIN_CLASS_TABLE(BY_PLUGIN_CLASS(qzetest::kGreeterClass, Greeter),
                      BY_PLUGIN_CLASS(qzetest::kCounterClass, Counter))

#if !defined(QZEKIT_TEST_OMIT_GET_CLASS_OBJECT)
BY_PLUGIN_EXPORT_GET_CLASS_OBJECT()
#else
// The getter under a name the loader doesn't look for.
BY_PLUGIN_API by::Result GetClassObjectMisnamed(const by::GUID& classId, const by::GUID& iid,
                                                void** out) {
    return by::plugin::GetClassObject(by_plugin_classes, 2, classId, iid, out);
}
#endif
#if !defined(QZEKIT_TEST_OMIT_CAN_UNLOAD_NOW)
BY_PLUGIN_EXPORT_CAN_UNLOAD_NOW()
#endif
#if !defined(QZEKIT_TEST_OMIT_REGISTER_SERVER)
BY_PLUGIN_EXPORT_REGISTER_SERVER()
#endif
#if !defined(QZEKIT_TEST_OMIT_UNREGISTER_SERVER)
BY_PLUGIN_EXPORT_UNREGISTER_SERVER()
#endif

QZETEST_COUNT_EXPORTS(g_liveObjects.load())
