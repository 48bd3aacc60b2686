// A bundle library: entry classes built on the kit's bundle base class.

#include <atomic>

#include "bundle/base_bundle.h"
#include "component/plugin.h"
#include "plugins/test_interfaces.h"

namespace {

std::atomic<long> g_liveObjects{0};
std::atomic<long> g_initializeCalls{0};
// Initialize calls that found the context there and unchanged.
std::atomic<long> g_contextChecks{0};
std::atomic<qzetest::TestEventSink> g_sink{nullptr};

void Report(const char* event) {
    if (qzetest::TestEventSink sink = g_sink.load()) {
        sink(event);
    }
}

// Its destructor runs when the library is unloaded.
struct UnloadReporter {
    ~UnloadReporter() { Report("library closed"); }
} g_unloadReporter;

// Counts and reports the entry object that holds it.
struct Live {
    Live() { ++g_liveObjects; }
    ~Live() {
        --g_liveObjects;
        Report("bundle released");
    }
};

class CountingBundle : public qzextensionkit::QZEBaseBundle {
public:
    void Initialize() override {
        ++g_initializeCalls;
        qzextensionkit::QZEBundleContext* context = GetContext();
        if (context != nullptr && context == GetContext()) {
            ++g_contextChecks;
        }
    }

private:
    Live live_;
};

// Keeps the base class's Initialize, which does nothing.
class QuietBundle : public qzextensionkit::QZEBaseBundle {
    Live live_;
};

}  // namespace

BY_PLUGIN_MODULE(BY_PLUGIN_CLASS(qzetest::kBundleClass, CountingBundle),
                 BY_PLUGIN_CLASS(qzetest::kQuietBundleClass, QuietBundle))

QZETEST_COUNT_EXPORTS(g_liveObjects.load())
BY_PLUGIN_API long TestBundleInitializeCalls() {
    return g_initializeCalls.load();
}
BY_PLUGIN_API long TestBundleContextChecks() {
    return g_contextChecks.load();
}
BY_PLUGIN_API void TestBundleSetEventSink(qzetest::TestEventSink sink) {
    g_sink.store(sink);
}
