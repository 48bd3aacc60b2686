// The extension library of the extension manager benchmark: one extension
// class with an interface of its own, as a bundle would ship it.

#include <string>

#include "component/plugin.h"
#include "manager/extension_object.h"

namespace {

class IBenchPanel : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{3C7D9E21-5A4B-4C6D-8E0F-1A2B3C4D5E60}")
    virtual int Width() = 0;
};

// Reads its settings in Initialization, as extensions do.
class BenchPanel : public qzextensionkit::QZBaseExtension, public IBenchPanel {
public:
    long Initialization() override {
        std::string title;
        ValueForKey("title", title);
        width_ = static_cast<int>(title.size());
        return 0;
    }
    int Width() override { return width_; }

private:
    int width_ = 0;
};

}  // namespace

BY_PLUGIN_MODULE(QZE_PLUGIN_EXTENSION_CLASS("{3C7D9E21-5A4B-4C6D-8E0F-1A2B3C4D5E61}", BenchPanel,
                                            IBenchPanel))
