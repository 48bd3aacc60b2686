#include "kit/singleton.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

struct Counted {
    static std::atomic<int> built;
    Counted() { ++built; }
    virtual ~Counted() = default;
};
std::atomic<int> Counted::built{0};
struct Shared : Counted {};

template <class T, class Get>
std::vector<T> OnThreads(int n, Get get) {
    std::vector<T> seen(n);
    std::vector<std::thread> threads;
    for (int i = 0; i < n; ++i) {
        threads.emplace_back([&, i] { seen[i] = get(); });
    }
    for (auto& t : threads) {
        t.join();
    }
    return seen;
}

std::atomic<uintptr_t> g_word{0};
std::atomic<bool> g_release{false};

TEST(Singleton, RacingThreadsGetOneObjectAndTheLosersWait) {
    const int before = Counted::built;
    std::thread checker([before] {
        // The builder holds the marker until released; threads start late under valgrind.
        while (g_word.load() != 1u) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(g_word.load() * 10 + (Counted::built - before), 10u);
        g_release = true;
    });
    auto seen = OnThreads<Counted*>(8, [] {
        return qzextensionkit::internal::MarkerWordInstance<Counted>(g_word, [] {
            while (!g_release.load()) {
                std::this_thread::yield();
            }
            return new Counted();
        });
    });
    checker.join();
    EXPECT_EQ(Counted::built - before, 1);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), seen[0]), 8);
    delete seen[0];
    // The shared accessor too builds once.
    auto got = OnThreads<std::shared_ptr<Counted>>(
        6, [] { return qzextensionkit::internal::SharedInstance<Counted, Shared>::Get(); });
    EXPECT_EQ(Counted::built - before, 2);
    EXPECT_EQ(std::count(got.begin(), got.end(), got[0]), 6);
}

}  // namespace
