#pragma once

// The interfaces of the demo's extension points, shared by the demo host and
// the sample bundles. Each extension point's "iid" in a manifest is the id
// of one of these.

#include <map>
#include <string>
#include <vector>

#include "component/unknown.h"

// What the kit put into an extension's context, as the extension read it in
// its Initialization. Paths are UTF-8.
struct DemoContextView {
    std::string extensionId;
    std::string unifiedId;
    std::map<std::string, std::string> payloads;
    std::map<std::string, std::vector<std::string>> constraints;
    std::string resourcesPath;
    std::string binDirPath;
    // The launch parameters, from the manifest's "settingMap".
    std::string modalPosition;
    std::string modalSize;
    std::string url;
    std::string openType;
    // How often the kit ran Initialization on this object.
    int initializations = 0;
};

// The part every demo extension shares: it can say what it was told.
class IDemoExtension : public by::IBaseUnknown {
public:
    // What the context held at the last Initialization; valid while the
    // caller holds the object.
    virtual const DemoContextView& Seen() = 0;
};

// "com.example.host.greeters": served by the hello bundle.
class IGreeter : public IDemoExtension {
public:
    BY_DECLARE_INTERFACE_ID("{5d0b9d0e-9a43-4c39-8f2e-6b1f3f0c7a10}")
    virtual std::string Greet(const std::string& name) = 0;
    // Greetings this object has given so far.
    virtual int GreetingsGiven() = 0;
};

// "com.example.adapter.webpanels": the adapter bundle's web container, which
// runs panels that bundles describe but do not implement.
class IWebPanel : public IDemoExtension {
public:
    BY_DECLARE_INTERFACE_ID("{8C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F}")
    // What the container would open, and whether it found the page.
    virtual std::string Open() = 0;
};

// "com.example.host.clocks": a class the host supplies itself.
class IClock : public IDemoExtension {
public:
    BY_DECLARE_INTERFACE_ID("{9b7f4a3c-2d1e-4f60-8a5b-3c2d1e0f9a01}")
    virtual int Tick() = 0;
};

// The class ids the manifests and the mapping name.
#define DEMO_FRIENDLY_GREETER_CLSID "{5d0b9d0e-9a43-4c39-8f2e-6b1f3f0c7a11}"
#define DEMO_FORMAL_GREETER_CLSID "{5d0b9d0e-9a43-4c39-8f2e-6b1f3f0c7a12}"
#define DEMO_HELLO_BUNDLE_CLSID "{5d0b9d0e-9a43-4c39-8f2e-6b1f3f0c7a13}"
#define DEMO_WEB_PANEL_HOST_CLSID "{2F1E0C7B-4A35-4E0C-9C61-7B1D2E3F4A5B}"
#define DEMO_HOST_CLOCK_CLSID "{9b7f4a3c-2d1e-4f60-8a5b-3c2d1e0f9a02}"
