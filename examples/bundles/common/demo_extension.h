#pragma once

// The base of the demo's extension classes: an extension on the kit's
// QZBaseExtension that also offers its extension point's interface, and
// that reads its context in Initialization, where the kit has filled it.
//
// A class is listed in its library with QZE_PLUGIN_EXTENSION_CLASS, naming
// the interface, so that the object answers both the kit's base id and the
// id the extension point names.

#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "demo_interfaces.h"
#include "manager/base_extension.h"

template <class Interface>
class DemoExtension : public qzextensionkit::QZBaseExtension, public Interface {
public:
    long Initialization() override {
        // A singleton runs this again on every request: start afresh.
        int runs = seen_.initializations;
        seen_ = DemoContextView();
        seen_.initializations = runs + 1;

        qzextensionkit::QZExtensionContext* context = GetContext();
        seen_.extensionId = context->GetExtensionId();
        seen_.unifiedId = context->GetUnifiedId();
        // The context has no list of its keys: an extension asks for the
        // ones its manifest gives it.
        for (const std::string& key : PayloadKeys()) {
            std::string value;
            if (ValueForKey(key, value)) {
                seen_.payloads[key] = value;
            }
        }
        for (const std::string& key : ConstraintKeys()) {
            std::vector<std::string> values;
            if (ConstraintForKey(key, values)) {
                seen_.constraints[key] = values;
            }
        }
        seen_.resourcesPath = base::WideToUTF8(GetResourcesPath());
        seen_.binDirPath = base::WideToUTF8(GetBinDirPath());
        qzextensionkit::LaunchParams launch = GetLaunchParams();
        seen_.modalPosition = launch.modalPosition;
        seen_.modalSize = launch.modalSize;
        seen_.url = launch.url;
        seen_.openType = launch.openType;
        return 0;
    }

    const DemoContextView& Seen() override { return seen_; }

protected:
    virtual std::vector<std::string> PayloadKeys() const = 0;
    virtual std::vector<std::string> ConstraintKeys() const { return {}; }

    std::string Payload(const std::string& key) const {
        auto found = seen_.payloads.find(key);
        return found == seen_.payloads.end() ? std::string() : found->second;
    }

private:
    DemoContextView seen_;
};
