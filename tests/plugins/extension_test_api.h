#pragma once

// What the extension test library and the manager tests share. The marker
// library is loaded with the test program, so every copy of the extension
// library that the kit opens reports to the same counters.

#include "component/unknown.h"

#if defined(_WIN32)
#if defined(QZETEST_MARKER_BUILDING)
#define QZETEST_MARKER_API extern "C" __declspec(dllexport)
#else
#define QZETEST_MARKER_API extern "C" __declspec(dllimport)
#endif
#else
#define QZETEST_MARKER_API extern "C" __attribute__((visibility("default")))
#endif

// Named counters: adds `delta` and returns the new value.
QZETEST_MARKER_API long QzeTestCounterAdd(const char* name, long delta);
QZETEST_MARKER_API long QzeTestCounter(const char* name);
// Extension objects alive, so that a test can release what the kit made and
// dropped: writes at most `capacity` and returns how many there are.
QZETEST_MARKER_API void QzeTestTrackObject(by::IBaseUnknown* object, int alive);
QZETEST_MARKER_API int QzeTestTrackedObjects(by::IBaseUnknown** out, int capacity);
// A gate, open at the start: while closed, QzeTestLatchWait adds 1 to
// "latch.waiting" and blocks.
QZETEST_MARKER_API void QzeTestLatchClose();
QZETEST_MARKER_API void QzeTestLatchOpen();
QZETEST_MARKER_API void QzeTestLatchWait();

namespace qzetest {

// Each copy of the extension library adds one to "loads" as it is opened.
constexpr const char kLoadsCounter[] = "extension.loads";
constexpr const char kInitializationsCounter[] = "extension.initializations";
constexpr const char kLatchWaitingCounter[] = "latch.waiting";

// What the probe classes show of themselves.
class ITestExtensionProbe : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1C01}")
    // What the context held when Initialization last ran:
    // "ext=<id>;unified=<id>;res=<path>;bin=<path>;launch=<pos>,<size>,<url>,<type>;
    //  title=<payload>;color=<payload>;os=<constraint values joined by |>",
    // with "-" for a key that is missing. Empty before the first run.
    virtual const char* Seen() = 0;
    virtual long Initializations() = 0;
    // What the reentrant class's call into the kit gave: "none" before it
    // ran, else "ok" or "failed".
    virtual const char* Reentry() = 0;
};

constexpr const char kProbeIid[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1C01}";

// The probe is listed twice: one class id for singleton records, one for the rest.
constexpr const char kProbeClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1C11}";
constexpr const char kSingletonProbeClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1C12}";
// A probe whose Initialization asks the kit, through QZExtensionManager, for
// the extension whose id is its payload "reenter".
constexpr const char kReentrantClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1C13}";
// A bare extension on by::CComObject: it answers the root and base ids only.
constexpr const char kPlainExtensionClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1C14}";
// A bundle entry whose Initialize waits at the marker's latch.
constexpr const char kLatchBundleClass[] = "{7E3A5C10-2B4D-4E6F-8A1C-3D5E7F9B1C21}";

}  // namespace qzetest
