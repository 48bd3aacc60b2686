// Cost of GetService: a singleton through the facade, the same lookup on the
// implementation alone (no facade mutex), and a non-singleton, which builds
// a new object each call.
//
//   qzekit_service_bench [--calls=N] [--reps=R]
//
// Each repetition times N calls of each kind, interleaved; the references
// the calls hand out are given back after the clock stops. It prints the
// median nanoseconds per call.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "component/unknown.h"
#include "kit/log_service.h"
#include "kit/qzextensionkit.h"
#include "services/service_manager_impl.h"

using Clock = std::chrono::steady_clock;
using namespace qzextensionkit;

namespace {

class IPing : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{7D6C5B4A-3928-4716-A5B4-C3D2E1F00911}")
    virtual int Ping() = 0;
};

class PingService : public IPing, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    int Ping() override { return 1; }
};

// Lines are formatted as for a real host, and dropped.
class DiscardingLogger : public IQZELogger {
public:
    void Log(int, std::string text) override { bytes_ += text.size(); }
    std::size_t bytes_ = 0;
};

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Times `calls` requests, keeping each pointer; releases them untimed.
template <class Get>
double NanosPerCall(int calls, std::vector<IPing*>& out, Get get) {
    out.clear();
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < calls; ++i) {
        out.push_back(get());
    }
    const double ns = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    for (IPing* p : out) {
        if (p == nullptr) {
            std::fprintf(stderr, "error: a request failed\n");
            std::exit(1);
        }
        p->Release();
    }
    return ns / calls;
}

}  // namespace

int main(int argc, char** argv) {
    int calls = 200000;
    int reps = 5;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--calls=", 8) == 0) {
            calls = std::max(1, std::atoi(argv[i] + 8));
        } else if (std::strncmp(argv[i], "--reps=", 7) == 0) {
            reps = std::max(1, std::atoi(argv[i] + 7));
        } else {
            std::fprintf(stderr, "usage: %s [--calls=N] [--reps=R]\n", argv[0]);
            return 2;
        }
    }

    QZExtensionKit::InitSDK();
    QZELogService::GetInstance()->RegisterLogger(new DiscardingLogger);
    const std::string iid = "{7D6C5B4A-3928-4716-A5B4-C3D2E1F00911}";
    QZServiceManager* facade = QZServiceManager::GetInstance();
    if (!facade->RegisterService<PingService>("Bench.Single", "{single}", iid, true) ||
        !facade->RegisterService<PingService>("Bench.Plain", "{plain}", iid, false)) {
        std::fprintf(stderr, "error: registration failed\n");
        return 1;
    }
    std::shared_ptr<IQZServiceManager> impl = QZServiceManagerImpl::GetInstance();
    // The first request makes the singleton; only later ones are timed.
    facade->GetService<IPing>("Bench.Single")->Release();

    std::vector<IPing*> kept;
    kept.reserve(static_cast<std::size_t>(calls));
    std::vector<double> single, direct, plain;
    for (int r = 0; r < reps; ++r) {
        single.push_back(
            NanosPerCall(calls, kept, [&] { return facade->GetService<IPing>("Bench.Single"); }));
        direct.push_back(NanosPerCall(
            calls, kept, [&] { return static_cast<IPing*>(impl->GetService("Bench.Single")); }));
        plain.push_back(
            NanosPerCall(calls, kept, [&] { return facade->GetService<IPing>("Bench.Plain"); }));
    }
    std::printf("GetService, %d calls x %d repetitions, median ns per call\n", calls, reps);
    std::printf("  singleton, facade          %8.1f\n", Median(single));
    std::printf("  singleton, implementation  %8.1f\n", Median(direct));
    std::printf("  non-singleton, facade      %8.1f\n", Median(plain));
    return 0;
}
