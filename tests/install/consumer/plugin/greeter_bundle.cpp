// A bundle as its author writes it: an entry object and one extension that
// reads its payload and its resources.

#include <string>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "bundle/base_bundle.h"
#include "component/plugin.h"
#include "manager/base_extension.h"
#include "manager/extension_object.h"
#include "sample_interfaces.h"

namespace {

int g_starts = 0;

class SampleBundle : public qzextensionkit::QZEBaseBundle {
public:
    void Initialize() override { ++g_starts; }
};

class SampleGreeter : public qzextensionkit::QZBaseExtension, public ISampleGreeter {
public:
    long Initialization() override {
        ValueForKey("greeting", greeting_);
        return 0;
    }
    std::string Greet(const std::string& name) override {
        std::string motto = "(no motto)";
        base::ReadFileToString(base::FilePath(GetResourcesPath()).AppendASCII("motto.txt"), &motto);
        while (!motto.empty() && (motto.back() == '\n' || motto.back() == '\r')) {
            motto.pop_back();
        }
        return greeting_ + ", " + name + "! " + motto;
    }
    int BundleStarts() override { return g_starts; }

private:
    std::string greeting_;
};

}  // namespace

BY_PLUGIN_MODULE(BY_PLUGIN_CLASS(SAMPLE_BUNDLE_CLSID, SampleBundle),
                 QZE_PLUGIN_EXTENSION_CLASS(SAMPLE_GREETER_CLSID, SampleGreeter, ISampleGreeter))
