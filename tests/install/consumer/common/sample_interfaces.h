#pragma once

// The sample host's extension point, shared by the host and the bundle.

#include <string>

#include "component/unknown.h"

class ISampleGreeter : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{3a9c2f10-6b7d-4e21-9f08-1c2d3e4f5a60}")
    // The manifest's "greeting", the name and the bundle's motto.
    virtual std::string Greet(const std::string& name) = 0;
    virtual int BundleStarts() = 0;

protected:
    ~ISampleGreeter() = default;
};

#define SAMPLE_GREETER_CLSID "{3a9c2f10-6b7d-4e21-9f08-1c2d3e4f5a61}"
#define SAMPLE_BUNDLE_CLSID "{3a9c2f10-6b7d-4e21-9f08-1c2d3e4f5a62}"
