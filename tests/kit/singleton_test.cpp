#include "kit/singleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "kit/qzextensionkit.h"

namespace {

struct Counted {
    static std::atomic<int> built;
    Counted() { ++built; }
};
std::atomic<int> Counted::built{0};

std::atomic<bool> g_release{false};

Counted* SlowCreate() {
    // Hold the marker long enough for every other thread to see it.
    while (!g_release.load()) {
        std::this_thread::yield();
    }
    return new Counted();
}

TEST(Singleton, RacingThreadsGetOneObjectAndTheLosersWait) {
    static std::atomic<uintptr_t> word{0};
    constexpr int kThreads = 8;
    std::vector<Counted*> seen(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(
            [&, i] { seen[i] = qzextensionkit::internal::MarkerWordInstance(word, &SlowCreate); });
    }
    // Let the losers reach the wait loop with the marker set.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(word.load(), 1u);
    g_release = true;
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(Counted::built.load(), 1);
    ASSERT_NE(seen[0], nullptr);
    for (Counted* p : seen) {
        EXPECT_EQ(p, seen[0]);
    }
    delete seen[0];
}

TEST(Singleton, FailedCreationLeavesTheWordEmptyForALaterTry) {
    static std::atomic<uintptr_t> word{0};
    auto fail = []() -> Counted* { return nullptr; };
    EXPECT_EQ(qzextensionkit::internal::MarkerWordInstance<Counted>(word, fail), nullptr);
    EXPECT_EQ(word.load(), 0u);
}

struct ISharedThing {
    virtual ~ISharedThing() = default;
    virtual int Value() = 0;
};
struct SharedThing : ISharedThing {
    static std::atomic<int> built;
    SharedThing() { ++built; }
    int Value() override { return 7; }
};
std::atomic<int> SharedThing::built{0};

TEST(Singleton, SharedImplementationIsBuiltOnceAcrossThreads) {
    using Accessor = qzextensionkit::internal::SharedInstance<ISharedThing, SharedThing>;
    std::vector<std::shared_ptr<ISharedThing>> got(6);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < got.size(); ++i) {
        threads.emplace_back([&, i] { got[i] = Accessor::Get(); });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(SharedThing::built.load(), 1);
    for (auto& p : got) {
        EXPECT_EQ(p.get(), got[0].get());
    }
    EXPECT_EQ(Accessor::Get()->Value(), 7);
}

TEST(Singleton, FacadesAreOnePerProcessFromAnyThread) {
    using namespace qzextensionkit;
    QZExtensionManager* fromOther = nullptr;
    QZServiceManager* serviceFromOther = nullptr;
    std::thread t([&] {
        fromOther = QZExtensionManager::GetInstance();
        serviceFromOther = QZServiceManager::GetInstance();
    });
    QZExtensionManager* here = QZExtensionManager::GetInstance();
    t.join();
    EXPECT_EQ(here, fromOther);
    EXPECT_EQ(QZServiceManager::GetInstance(), serviceFromOther);
    EXPECT_NE(QZEBundleManager::GetInstance(), nullptr);
    EXPECT_EQ(QZEConfigurationManager::GetInstance(), QZEConfigurationManager::GetInstance());
}

}  // namespace
