// Host threads on one loaded kit while remote configuration merges; sized
// for ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "config/support/remote_sample.h"
#include "kit/configuration_manager.h"
#include "manager/support/kit_host.h"

namespace qzetest {
namespace {

// Each thread keeps to one kind of request, so no call of its own orders it
// after a merge and hides a missing lock.
constexpr int kThreadsPerKind = 2;
constexpr int kRequestsPerThread = 150;
constexpr int kMinFetchRounds = 60;
constexpr int kFailEvery = 5;
constexpr int kCachedLoadEvery = 4;

const char kTitles[][2] = {"A", "B"};

// Every thread of a group spins here until all have started.
void SpinUntil(const std::atomic<int>& started, int all) {
    while (started.load() < all) {
        std::this_thread::yield();
    }
}

// Answers each fetch at once, on the fetching thread: merges and cached
// loads both hold the host's rules alone, so a thread of its own would add
// no race. Every fifth fetch fails; each success turns to the other round.
struct StressSource : qzextensionkit::IQZERemoteConfigDataSource {
    explicit StressSource(std::shared_mutex& hostRules) : hostRules_(hostRules) {}
    void FetchConfig(const std::function<void()>& onSuccess,
                     const std::function<void(const std::string&)>& onFailure) override {
        if (++fetches_ % kFailEvery == 0) {
            return onFailure("offline");
        }
        std::unique_lock<std::shared_mutex> exclusive(hostRules_);
        ++round_;
        onSuccess();
    }
    void GetConfig(RemoteExtensions& extensions, RemoteAuthInfos& authInfos) override {
        const std::map<std::string, std::string> title = {{"title", kTitles[round_.load() % 2]}};
        extensions = {{"remote.tools",
                       {RemoteRecord("t1", "remote.tools", title),
                        RemoteRecord("t2", "remote.tools", title)}},
                      {"web.panel", {RemoteRecord("w1", "web.panel", title)}}};
        authInfos = {RemoteAuth("", "tools", "n" + title.at("title"))};
    }
    bool HasFetchedConfig() override { return true; }
    bool HasCachedConfig() override { return true; }

    std::atomic<int> round_{0};
    int fetches_ = 0;
    std::shared_mutex& hostRules_;
};

// A sink without a lock, which would order every logging call.
struct CountingLogger : qzextensionkit::IQZELogger {
    void Log(int, std::string) override { lines.fetch_add(1, std::memory_order_relaxed); }
    inline static std::atomic<long> lines{0};
};

using ConcurrencyTest = KitHost;

TEST_F(ConcurrencyTest, LookupsStayConsistentWhileRemoteConfigurationMerges) {
    qzextensionkit::QZELogService::GetInstance()->RegisterLogger(new CountingLogger());
    std::shared_mutex hostRules;
    // Taken once before the threads start: MinGW's std::shared_mutex sets
    // itself up on first use, and two threads that first use it together can
    // both get in (seen under Wine as lookups beside a merge, and crashes).
    hostRules.lock();
    hostRules.unlock();
    auto source = std::make_shared<StressSource>(hostRules);
    AddBundle("tools", Point("stress.tools", kProbeIid,
                             {{"t1", kProbeClass, false, R"("payloads": {"title": "local"})"},
                              {"t2", kProbeClass}}));
    AddBundle("extension_adapter", Point("stress.panel", kProbeIid, {}));
    install.WriteMapping(std::string(R"({"remote": {"tools": {"extensionPointId": "stress.tools"}},
        "web": {"panel": {"extensionPointId": "stress.panel", "clsid": ")") +
                         kProbeClass + R"(", "isSingleton": false}}})");
    install.WriteConfig(R"({"artifacts": ["tools", "extension_adapter"],
        "ExtensionAuthInfo": {"Native": [{"bundleId": "tools", "accessKey": "n0"}]}})");
    ASSERT_TRUE(kit()->Load());
    auto* config = qzextensionkit::QZEConfigurationManager::GetInstance();
    config->SetRemoteConfigDataSource(source);
    ASSERT_TRUE(config->LoadRemoteConfig());

    auto check = [](bool ok, const char* what) { EXPECT_TRUE(ok) << what; };
    auto IsTitle = [](const std::string& title) { return title == "A" || title == "B"; };
    const std::vector<std::function<void()>> kinds = {
        [&] {
            std::vector<void*> list;
            check(kit()->GetExtensionList("stress.tools", list) && list.size() == 2 &&
                      SeenField(list[0], "ext") == "t1" && SeenField(list[1], "ext") == "t2" &&
                      IsTitle(SeenField(list[0], "title")) &&
                      SeenField(list[0], "title") == SeenField(list[1], "title"),
                  "tools list, in order, of one round");
            std::for_each(list.begin(), list.end(), ReleaseObject);
        },
        [&] {
            void* panel = nullptr;
            check(kit()->GetExtension("stress.panel", &panel) &&
                      SeenField(panel, "ext").size() == 38 && IsTitle(SeenField(panel, "title")),
                  "panel record");
            ReleaseObject(panel);
        },
        // The unlocked walk, kept apart from merges.
        [&] {
            std::shared_lock<std::shared_mutex> shared(hostRules);
            void* tool = nullptr;
            check(kit()->GetExtensionById("t2", &tool) && IsTitle(SeenField(tool, "title")),
                  "by id");
            ReleaseObject(tool);
        },
    };

    std::atomic<int> started{0}, finished{0}, successes{0}, failed{0};
    const int requestThreads = static_cast<int>(kinds.size()) * kThreadsPerKind;
    int fetchRounds = 0;
    std::thread fetcher([&] {
        SpinUntil(started, requestThreads);
        for (; fetchRounds < kMinFetchRounds || finished.load() < requestThreads; ++fetchRounds) {
            config->FetchRemoteConfig(
                true, [&] { ++successes; },
                [&](const std::string& reason) {
                    check(reason == "offline", "failure"), ++failed;
                });
            if (fetchRounds % kCachedLoadEvery == 0) {
                std::unique_lock<std::shared_mutex> exclusive(hostRules);
                check(config->LoadRemoteConfig(), "cached load");
            }
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < requestThreads; ++t) {
        threads.emplace_back([&, t] {
            ++started;
            SpinUntil(started, requestThreads);
            for (int i = 0; i < kRequestsPerThread; ++i) {
                kinds[static_cast<size_t>(t) % kinds.size()]();
            }
            ++finished;
        });
    }
    threads.push_back(std::move(fetcher));
    std::for_each(threads.begin(), threads.end(), [](std::thread& t) { t.join(); });

    const std::string last = kTitles[source->round_ % 2];
    void* tool = nullptr;
    ASSERT_TRUE(kit()->GetExtensionById("t1", &tool));
    EXPECT_EQ(std::to_string(successes + failed) + "|" + std::to_string(failed) + "|" +
                  std::to_string(source->round_) + "|" + config->GetExtensionAccessKey("tools") +
                  "|" + SeenField(tool, "title") + "|" +
                  (CountingLogger::lines > 0 ? "logged" : ""),
              std::to_string(fetchRounds) + "|" + std::to_string(fetchRounds / kFailEvery) + "|" +
                  std::to_string(successes) + "|n" + last + "|" + last + "|logged");
    ReleaseObject(tool);
    EXPECT_TRUE(NewObjects().empty());
    config->SetRemoteConfigDataSource(nullptr);
}

}  // namespace
}  // namespace qzetest
