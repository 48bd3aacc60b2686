// A library whose one class fails its second construction step.

#include <atomic>

#include "component/plugin.h"
#include "plugins/test_interfaces.h"

namespace {

std::atomic<long> g_liveObjects{0};
std::atomic<long> g_built{0};

class Refuser : public qzetest::ITestGreeter, public by::CUnknownImp {
public:
    Refuser() {
        ++g_liveObjects;
        ++g_built;
    }
    ~Refuser() override { --g_liveObjects; }
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) {
        return qzetest::kInitFailsStatus;
    }
    const char* Greet() override { return "never handed out"; }
};

}  // namespace

BY_PLUGIN_MODULE(BY_PLUGIN_CLASS(qzetest::kInitFailsClass, Refuser))

QZETEST_COUNT_EXPORTS(g_liveObjects.load())
BY_PLUGIN_API long TestObjectsBuilt() {
    return g_built.load();
}
