#pragma once

// The probe extension classes, built into the extension test library and,
// for the registry route, into the test programs as the host's own classes.

#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "kit/extension_manager.h"
#include "manager/base_extension.h"
#include "plugins/extension_test_api.h"

namespace qzetest {

// Shows through ITestExtensionProbe what its context held when
// Initialization ran, and reports its life to the marker library.
class ProbeExtension : public qzextensionkit::QZBaseExtension, public ITestExtensionProbe {
public:
    ProbeExtension() { QzeTestTrackObject(static_cast<IQZBaseExtension*>(this), 1); }
    ~ProbeExtension() override { QzeTestTrackObject(static_cast<IQZBaseExtension*>(this), 0); }

    long Initialization() override {
        ++initializations_;
        QzeTestCounterAdd(kInitializationsCounter, 1);
        qzextensionkit::QZExtensionContext* context = GetContext();
        qzextensionkit::LaunchParams launch = GetLaunchParams();
        std::vector<std::string> os;
        std::string osText = "-";
        if (ConstraintForKey("os", os)) {
            osText.clear();
            for (const std::string& value : os) {
                osText += (osText.empty() ? "" : "|") + value;
            }
        }
        seen_ = "ext=" + context->GetExtensionId() + ";unified=" + context->GetUnifiedId() +
                ";res=" + base::WideToUTF8(GetResourcesPath()) +
                ";bin=" + base::WideToUTF8(GetBinDirPath()) + ";launch=" + launch.modalPosition +
                "," + launch.modalSize + "," + launch.url + "," + launch.openType +
                ";title=" + Payload("title") + ";color=" + Payload("color") + ";os=" + osText;
        return 0;
    }

    const char* Seen() override { return seen_.c_str(); }
    long Initializations() override { return initializations_; }
    const char* Reentry() override { return reentry_.c_str(); }

protected:
    std::string reentry_ = "none";

private:
    std::string Payload(const char* key) {
        std::string value = "-";
        ValueForKey(key, value);
        return value;
    }

    std::string seen_;
    long initializations_ = 0;
};

// Asks the kit for the extension named by its payload "reenter" from inside
// Initialization, on the thread that holds the manager's lock.
class ReentrantExtension : public ProbeExtension {
public:
    long Initialization() override {
        ProbeExtension::Initialization();
        std::string inner;
        if (ValueForKey("reenter", inner)) {
            void* object = nullptr;
            bool ok =
                qzextensionkit::QZExtensionManager::GetInstance()->GetExtensionById(inner, &object);
            reentry_ = ok && object != nullptr ? "ok" : "failed";
            if (object != nullptr) {
                static_cast<by::IBaseUnknown*>(object)->Release();
            }
        }
        return 0;
    }
};

// A bare extension for by::CComObject: it answers the root and base ids only.
class PlainExtension : public qzextensionkit::QZBaseExtension {
public:
    PlainExtension() { QzeTestTrackObject(static_cast<IQZBaseExtension*>(this), 1); }
    ~PlainExtension() override { QzeTestTrackObject(static_cast<IQZBaseExtension*>(this), 0); }
};

}  // namespace qzetest
