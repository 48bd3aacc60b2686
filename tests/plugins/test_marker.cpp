// The marker library of the extension tests; see extension_test_api.h.

#define QZETEST_MARKER_BUILDING
#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "plugins/extension_test_api.h"

namespace {

struct State {
    std::mutex mutex;
    std::map<std::string, long> counters;
    std::vector<by::IBaseUnknown*> objects;
    std::condition_variable latchChanged;
    bool latchOpen = true;
};

// Never destroyed: library copies may report while the process ends.
State& Shared() {
    static State* state = new State();
    return *state;
}

}  // namespace

QZETEST_MARKER_API long QzeTestCounterAdd(const char* name, long delta) {
    State& s = Shared();
    std::lock_guard<std::mutex> hold(s.mutex);
    return s.counters[name] += delta;
}

QZETEST_MARKER_API long QzeTestCounter(const char* name) {
    return QzeTestCounterAdd(name, 0);
}

QZETEST_MARKER_API void QzeTestTrackObject(by::IBaseUnknown* object, int alive) {
    State& s = Shared();
    std::lock_guard<std::mutex> hold(s.mutex);
    if (alive) {
        s.objects.push_back(object);
    } else {
        s.objects.erase(std::remove(s.objects.begin(), s.objects.end(), object), s.objects.end());
    }
}

QZETEST_MARKER_API int QzeTestTrackedObjects(by::IBaseUnknown** out, int capacity) {
    State& s = Shared();
    std::lock_guard<std::mutex> hold(s.mutex);
    int n = static_cast<int>(s.objects.size());
    for (int i = 0; i < n && i < capacity; ++i) {
        out[i] = s.objects[static_cast<size_t>(i)];
    }
    return n;
}

static void SetLatch(bool open) {
    State& s = Shared();
    {
        std::lock_guard<std::mutex> hold(s.mutex);
        s.latchOpen = open;
    }
    s.latchChanged.notify_all();
}

QZETEST_MARKER_API void QzeTestLatchClose() {
    SetLatch(false);
}
QZETEST_MARKER_API void QzeTestLatchOpen() {
    SetLatch(true);
}

QZETEST_MARKER_API void QzeTestLatchWait() {
    State& s = Shared();
    std::unique_lock<std::mutex> hold(s.mutex);
    ++s.counters[qzetest::kLatchWaitingCounter];
    s.latchChanged.wait(hold, [&] { return s.latchOpen; });
}
