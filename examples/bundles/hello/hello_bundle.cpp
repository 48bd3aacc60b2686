// The hello bundle's library: an entry object that the kit starts when it
// loads the bundle, and two greeters for "com.example.host.greeters".

#include <string>
#include <vector>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "bundle/base_bundle.h"
#include "component/plugin.h"
#include "demo_extension.h"
#include "kit/log_service.h"
#include "manager/extension_object.h"

namespace {

// Set by the entry object; the greeters tell whether it ran before them.
bool g_bundleStarted = false;

class HelloBundle : public qzextensionkit::QZEBaseBundle {
public:
    void Initialize() override {
        g_bundleStarted = true;
        qzextensionkit::QZELogService::GetInstance()->LogMessage(
            0, "hello bundle - entry object started");
    }
};

// A greeter says its manifest's "greeting" and signs with a line from its
// bundle's resources.
class Greeter : public DemoExtension<IGreeter> {
public:
    std::string Greet(const std::string& name) override {
        ++given_;
        std::string signature;
        base::FilePath file = base::FilePath(GetResourcesPath()).AppendASCII(Payload("signature"));
        if (!base::ReadFileToString(file, &signature)) {
            signature = "(no signature file)";
        }
        while (!signature.empty() && (signature.back() == '\n' || signature.back() == '\r')) {
            signature.pop_back();
        }
        std::string text = Payload("greeting") + ", " + name + "! " + signature;
        if (!g_bundleStarted) {
            text += " (the bundle's entry object never ran)";
        }
        return text;
    }
    int GreetingsGiven() override { return given_; }

protected:
    std::vector<std::string> PayloadKeys() const override {
        return {"title", "greeting", "signature"};
    }
    std::vector<std::string> ConstraintKeys() const override { return {"platform", "locale"}; }

private:
    int given_ = 0;
};

// Two classes, so that the manifest can make one of them a singleton.
class FriendlyGreeter : public Greeter {};
class FormalGreeter : public Greeter {};

}  // namespace

BY_PLUGIN_MODULE(BY_PLUGIN_CLASS(DEMO_HELLO_BUNDLE_CLSID, HelloBundle),
                 QZE_PLUGIN_EXTENSION_CLASS(DEMO_FRIENDLY_GREETER_CLSID, FriendlyGreeter, IGreeter),
                 QZE_PLUGIN_EXTENSION_CLASS(DEMO_FORMAL_GREETER_CLSID, FormalGreeter, IGreeter))
