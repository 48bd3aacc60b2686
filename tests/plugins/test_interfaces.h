#pragma once

// What the test component libraries and the tests that load them share.

#include "component/unknown.h"

namespace qzetest {

class ITestGreeter : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A21}")
    virtual const char* Greet() = 0;
};

class ITestCounter : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A22}")
    virtual int Increment() = 0;
};

constexpr const char kGreeterIid[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A21}";
constexpr const char kCounterIid[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A22}";

// Classes of the complete library (and of those that miss an export).
constexpr const char kGreeterClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A11}";
constexpr const char kCounterClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A12}";

// Classes of the faulty library, one fault each.
constexpr const char kGetterFailsClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A31}";
constexpr const char kNullFactoryClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A32}";
constexpr const char kPlainFactoryClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A33}";
constexpr const char kCreateFailsClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A34}";
constexpr by::Result kCreateFailsStatus = static_cast<by::Result>(0x80070057);  // E_INVALIDARG

// The class of the library that needs a second library from its bundle.
constexpr const char kDependentClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A51}";

// Entry classes of the bundle library: one that counts its Initialize calls
// and one that keeps the base class's Initialize.
constexpr const char kBundleClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A61}";
constexpr const char kQuietBundleClass[] = "{5A1C3E0B-7D42-4F8A-9B61-0C2E4D6F8A62}";

// Given with TestBundleSetEventSink, hears "bundle released" when an entry
// object goes and "library closed" when the library is unloaded.
using TestEventSink = void (*)(const char* event);
using TestSetEventSinkFunc = void (*)(TestEventSink sink);

// TestLiveObjects (objects of the library's classes) and TestLiveFactories
// (factories and module objects), which every test library exports.
using TestCountFunc = long (*)();
// Defines both in a library that includes component/plugin.h.
#define QZETEST_COUNT_EXPORTS(liveObjects)     \
    BY_PLUGIN_API long TestLiveObjects() {     \
        return (liveObjects);                  \
    }                                          \
    BY_PLUGIN_API long TestLiveFactories() {   \
        return by::plugin::LiveCount().load(); \
    }

}  // namespace qzetest
