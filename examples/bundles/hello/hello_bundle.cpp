// A sample component library: one class, written with the kit's plug-in
// helpers.

#include <cstdio>

#include "component/plugin.h"
#include "hello_api.h"

class HelloGreeter : public IHelloGreeter, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }

    int Greet(const char* name, char* out, int size) override {
        ++given_;
        return std::snprintf(out, static_cast<size_t>(size), "Hello, %s, from the hello bundle!",
                             name ? name : "stranger");
    }
    int GreetingsGiven() override { return given_; }

private:
    int given_ = 0;
};

BY_PLUGIN_MODULE(BY_PLUGIN_CLASS(HELLO_GREETER_CLSID, HelloGreeter))
