#pragma once

// The interface the sample bundle offers, shared by the bundle and the host.

#include "component/unknown.h"

class IHelloGreeter : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{5d0b9d0e-9a43-4c39-8f2e-6b1f3f0c7a10}")
    // Writes a greeting for `name` into `out` (at most `size` bytes, always
    // terminated) and returns its length.
    virtual int Greet(const char* name, char* out, int size) = 0;
    virtual int GreetingsGiven() = 0;
};

// The class the bundle's library builds.
#define HELLO_GREETER_CLSID "{5d0b9d0e-9a43-4c39-8f2e-6b1f3f0c7a11}"
