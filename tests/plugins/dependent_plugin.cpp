// A library that needs a second library, found only in its bundle's "bin"
// directory.

#include "component/plugin.h"
#include "plugins/test_interfaces.h"

extern "C" const char* DepHelperGreeting();

namespace {

class Greeter : public qzetest::ITestGreeter, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    const char* Greet() override { return DepHelperGreeting(); }
};

}  // namespace

BY_PLUGIN_MODULE(BY_PLUGIN_CLASS(qzetest::kDependentClass, Greeter))
