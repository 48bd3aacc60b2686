// Cost of Notify against calling the same observers' Observe directly, in
// one run, with 1, 10 and 100 observers on one list, and the allocations
// made while dispatching (global operator new is counted here).
//
//   qzekit_notification_bench [--reps=N]
//
// Prints, per size, the median time of one event each way over N
// interleaved repetitions, their ratio and the allocations per event.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "kit/qzextensionkit.h"
#include "services/notification_registrar.h"
#include "services/notification_service.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

using qzextensionkit::IQZNotificationService;
using qzextensionkit::QZNotificationObserver;
using qzextensionkit::QZNotificationParameters;
using qzextensionkit::QZNotificationSource;
using Clock = std::chrono::steady_clock;

constexpr int kType = 5;

// Work an observer can't skip: it folds what it is told into a sum. Kept
// out of line, so that the direct loop makes a real call per observer as
// the service does, rather than an inlined add.
class SummingObserver : public QZNotificationObserver {
public:
    ~SummingObserver() override = default;
    __attribute__((noinline)) void Observe(int type, const QZNotificationSource& source,
                                           const QZNotificationParameters& params) override {
        sum += static_cast<unsigned>(type) + source.map_key() + params.map_key();
    }
    unsigned sum = 0;
};

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    int reps = 7;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--reps=", 7) == 0) {
            reps = std::max(1, std::atoi(argv[i] + 7));
        }
    }
    qzextensionkit::QZExtensionKit::InitSDK();
    IQZNotificationService* service =
        qzextensionkit::QZServiceManager::GetInstance()->GetService<IQZNotificationService>(
            qzextensionkit::kNotificationServiceName);
    if (service == nullptr) {
        std::fprintf(stderr, "error: no notification service\n");
        return 1;
    }

    std::printf("observers  notify ns  direct ns  notify/direct  allocations/event\n");
    bool ok = true;
    int source = 0;
    const qzextensionkit::Source<int> from(&source);
    const auto params = IQZNotificationService::NoParams();
    for (int n : {1, 10, 100}) {
        std::vector<std::unique_ptr<SummingObserver>> observers;
        std::vector<QZNotificationObserver*> direct;
        qzextensionkit::QZNotificationRegistrar registrar;
        for (int i = 0; i < n; ++i) {
            observers.push_back(std::make_unique<SummingObserver>());
            direct.push_back(observers.back().get());
            registrar.Add(observers.back().get(), kType, from);
        }
        // The first event makes the type-0 entry that every Notify looks up.
        service->Notify(kType, from, params);

        const long events = 2000000 / n;
        std::vector<double> notifyNs, directNs;
        long allocations = 0;
        for (int r = 0; r < reps; ++r) {
            long before = g_allocations.load();
            auto t0 = Clock::now();
            for (long e = 0; e < events; ++e) {
                service->Notify(kType, from, params);
            }
            auto t1 = Clock::now();
            allocations += g_allocations.load() - before;
            for (long e = 0; e < events; ++e) {
                for (QZNotificationObserver* o : direct) {
                    o->Observe(kType, from, params);
                }
            }
            auto t2 = Clock::now();
            notifyNs.push_back(std::chrono::duration<double, std::nano>(t1 - t0).count() / events);
            directNs.push_back(std::chrono::duration<double, std::nano>(t2 - t1).count() / events);
        }
        unsigned total = 0;
        for (auto& o : observers) {
            total += o->sum;
        }
        const double ratio = Median(notifyNs) / Median(directNs);
        std::printf("%9d  %9.1f  %9.1f  %13.2f  %17.3f   (sum %u)\n", n, Median(notifyNs),
                    Median(directNs), ratio,
                    static_cast<double>(allocations) / (static_cast<double>(events) * reps), total);
        if (allocations != 0 || (n == 100 && ratio > 1.5)) {
            ok = false;
        }
    }
    std::printf(ok ? "within target: no allocation, at most 1.5x at 100 observers\n"
                   : "OUTSIDE TARGET\n");
    return ok ? 0 : 2;
}
