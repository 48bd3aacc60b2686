#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/platform_internal.h"

namespace qzextensionkit {
namespace platform {
namespace {

struct FailurePlan {
    std::atomic<int> skip{0};       // calls that still succeed first
    std::atomic<int> remaining{0};  // < 0: fail until cleared
    std::atomic<uint32_t> code{0};
};

FailurePlan g_plans[static_cast<int>(testing::Operation::kCount)];
std::atomic<bool> g_anyPlan{false};

std::mutex& OverrideMutex() {
    static std::mutex m;
    return m;
}
std::wstring& OverridePath() {
    static std::wstring path;
    return path;
}

thread_local uint32_t t_lastError = 0;

using DebugCapture = std::function<void(const char*)>;
std::mutex& CaptureMutex() {
    static std::mutex m;
    return m;
}
// Held by shared_ptr so that a capture being replaced stays alive for a call
// already under way on another thread.
std::shared_ptr<DebugCapture>& Capture() {
    static std::shared_ptr<DebugCapture> capture;
    return capture;
}

}  // namespace

namespace internal {

bool ShouldFail(testing::Operation op) {
    if (!g_anyPlan.load(std::memory_order_acquire)) {
        return false;
    }
    FailurePlan& plan = g_plans[static_cast<int>(op)];
    int skipping = plan.skip.load();
    while (skipping > 0) {
        if (plan.skip.compare_exchange_weak(skipping, skipping - 1)) {
            return false;
        }
    }
    int left = plan.remaining.load();
    while (left != 0) {
        if (left < 0 || plan.remaining.compare_exchange_weak(left, left - 1)) {
            t_lastError = plan.code.load();
            return true;
        }
    }
    return false;
}

void SetLastErrorCode(uint32_t code) {
    t_lastError = code;
}
uint32_t GetLastErrorCode() {
    return t_lastError;
}

std::wstring ExecutablePathOverride() {
    std::lock_guard<std::mutex> hold(OverrideMutex());
    return OverridePath();
}

bool CaptureDebugOutput(const char* text) {
    std::shared_ptr<DebugCapture> capture;
    {
        std::lock_guard<std::mutex> hold(CaptureMutex());
        capture = Capture();
    }
    if (!capture) {
        return false;
    }
    (*capture)(text);
    return true;
}

}  // namespace internal

uint32_t LastError() {
    return internal::GetLastErrorCode();
}

namespace testing {

void InjectFailure(Operation op, int times, uint32_t errorCode, int skip) {
    FailurePlan& plan = g_plans[static_cast<int>(op)];
    plan.code.store(errorCode);
    plan.skip.store(skip > 0 ? skip : 0);
    plan.remaining.store(times);
    g_anyPlan.store(true, std::memory_order_release);
}

void ClearFailures() {
    for (auto& plan : g_plans) {
        plan.skip.store(0);
        plan.remaining.store(0);
    }
}

void SetExecutablePathOverride(const std::wstring& path) {
    std::lock_guard<std::mutex> hold(OverrideMutex());
    OverridePath() = path;
}

void SetDebugOutputCapture(std::function<void(const char*)> capture) {
    std::shared_ptr<DebugCapture> next;
    if (capture) {
        next = std::make_shared<DebugCapture>(std::move(capture));
    }
    std::lock_guard<std::mutex> hold(CaptureMutex());
    Capture() = std::move(next);
}

}  // namespace testing
}  // namespace platform
}  // namespace qzextensionkit
