// An extension library: classes on the kit's extension base class that show
// the tests what the kit gave them, and a bundle entry that can hold a load.

#include "bundle/base_bundle.h"
#include "component/plugin.h"
#include "manager/extension_object.h"
#include "plugins/extension_test_api.h"
#include "plugins/probe_extension.h"

namespace {

// Counts each copy of this library as the system opens it.
struct LoadMarker {
    LoadMarker() { QzeTestCounterAdd(qzetest::kLoadsCounter, 1); }
} g_loadMarker;

class LatchBundle : public qzextensionkit::QZEBaseBundle {
public:
    void Initialize() override { QzeTestLatchWait(); }
};

}  // namespace

BY_PLUGIN_MODULE(QZE_PLUGIN_EXTENSION_CLASS(qzetest::kProbeClass, qzetest::ProbeExtension,
                                            qzetest::ITestExtensionProbe),
                 QZE_PLUGIN_EXTENSION_CLASS(qzetest::kSingletonProbeClass, qzetest::ProbeExtension,
                                            qzetest::ITestExtensionProbe),
                 QZE_PLUGIN_EXTENSION_CLASS(qzetest::kReentrantClass, qzetest::ReentrantExtension,
                                            qzetest::ITestExtensionProbe),
                 BY_PLUGIN_CLASS(qzetest::kPlainExtensionClass, qzetest::PlainExtension),
                 BY_PLUGIN_CLASS(qzetest::kLatchBundleClass, LatchBundle))
