#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/support/remote_sample.h"

namespace {

using qzetest::FakeSource;
using qzetest::RemoteExtensions;
using qzetest::RemoteRecord;
using qzetest::RemoteSample;
using Shapes = std::map<std::string, std::vector<std::string>>;

// What the local load put in force.
Shapes Local() {
    return {{"host.tools", {"t1", "t2"}},
            {"adapter.panel", {"panel.local"}},
            {"adapter.fresh", {}},
            {"adapter.none", {"<absent>"}},
            {"host.plain", {"p1"}}};
}

Shapes With(Shapes shapes, const std::string& point, std::vector<std::string> ids) {
    shapes[point] = std::move(ids);
    return shapes;
}

TEST_F(RemoteSample, MergeReplacesTheListsOfMappedPointsOnly) {
    const struct {
        const char* name;
        RemoteExtensions remote;
        Shapes expected;
    } cases[] = {
        // t2 would be a duplicate if emptying a list kept its ids.
        {"native twin takes over its local record; the others go",
         RemoteExtensions{{"native.src", {RemoteRecord("t2", "native.src")}}},
         With(Local(), "host.tools", {"t2"})},
        {"record with no local twin on a native point is dropped",
         RemoteExtensions{{"native.src", {RemoteRecord("new", "native.src")}}},
         With(Local(), "host.tools", {})},
        {"non-native record is derived onto the adapter",
         RemoteExtensions{{"web.src", {RemoteRecord("w1", "web.src")}}},
         With(Local(), "adapter.panel", {"derived(w1)"})},
        {"empty remote list empties the target", RemoteExtensions{{"web.src", {}}},
         With(Local(), "adapter.panel", {})},
        {"target without an adapter point: nothing is made",
         RemoteExtensions{{"none.src", {RemoteRecord("n1", "none.src")}}}, Local()},
        {"twin of a record without a library is not taken over",
         RemoteExtensions{{"plain.src", {RemoteRecord("p1", "plain.src")}}},
         With(Local(), "host.plain", {})},
        {"unmapped points, the target's own id among them, change nothing",
         RemoteExtensions{{"nowhere", {RemoteRecord("t1", "nowhere")}},
                          {"host.tools", {RemoteRecord("x", "host.tools")}},
                          {"web", {RemoteRecord("y", "web")}}},
         Local()},
        {"several points in one merge",
         RemoteExtensions{
             {"native.src", {RemoteRecord("t2", "native.src"), RemoteRecord("t1", "n")}},
             {"web.src", {RemoteRecord("w1", "web.src"), RemoteRecord("w2", "web.src")}}},
         With(With(Local(), "host.tools", {"t2", "t1"}), "adapter.panel",
              {"derived(w1)", "derived(w2)"})},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        source->extensions = c.remote;
        fresh.SetRemoteConfigDataSource(source);
        log->Clear();
        EXPECT_TRUE(fresh.LoadRemoteConfig());
        // The merge says nothing; a duplicate would show a level 2 line.
        EXPECT_TRUE(log->Texts().empty()) << qzetest::Joined(*log);
        EXPECT_EQ(AllShapes(fresh), c.expected);
    }
}

TEST_F(RemoteSample, RecordsKeepWhatTheServerSaidAndRunWhereTheLocalOnesRan) {
    source->extensions = {
        {"native.src", {RemoteRecord("t2", "native.src", {{"from", "server"}})}},
        {"web.src", {RemoteRecord("w1", "web.src", {{"k", "v"}, {"empty", ""}})}}};
    manager.SetRemoteConfigDataSource(source);
    ASSERT_TRUE(manager.LoadRemoteConfig());

    auto tools = qzetest::InForce(manager, "host.tools");
    ASSERT_EQ(tools.size(), 1u);
    EXPECT_EQ(qzetest::Describe(*tools[0]), "2.2|{T2}|{TOOLS-IID}|single|u-t2|from=server;||,,,");
    EXPECT_EQ(tools[0]->GetExtensionPointId(), "host.tools");
    EXPECT_EQ(tools[0]->GetMainEntry(), L"bin/main.dll");
    EXPECT_TRUE(tools[0]->IsNative());

    auto panel = qzetest::InForce(manager, "adapter.panel");
    ASSERT_EQ(panel.size(), 1u);
    EXPECT_EQ(qzetest::Describe(*panel[0]),
              "2.0|{ACLS}|{PANEL-IID}|multi|u-w1|extensionId=w1;k=v;||,,,");
    EXPECT_EQ(panel[0]->GetMainEntry(), L"bin/adapter.dll");
    const std::string firstId = panel[0]->GetId();

    // The kit keeps the remote records: the same content again builds the
    // lists anew, with a new id for the derived record.
    source->fill = false;
    ASSERT_TRUE(manager.LoadRemoteConfig());
    EXPECT_EQ(Shape(manager, "host.tools"), std::vector<std::string>{"t2"});
    panel = qzetest::InForce(manager, "adapter.panel");
    ASSERT_EQ(panel.size(), 1u);
    EXPECT_NE(panel[0]->GetId(), firstId);

    // An unload forgets them.
    ASSERT_TRUE(manager.UnloadAllExtensionInfos());
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    ASSERT_TRUE(manager.LoadRemoteConfig());
    EXPECT_EQ(AllShapes(manager), Local());
}

TEST_F(RemoteSample, LoadTakesCachedDataOnly) {
    source->extensions = {{"web.src", {}}};
    const struct {
        bool withSource;
        bool cached;
        bool loaded;
    } cases[] = {{false, true, false}, {true, false, false}, {true, true, true}};
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.withSource << c.cached);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        source->cached = c.cached;
        source->getConfigCalls = 0;
        fresh.SetRemoteConfigDataSource(c.withSource ? source : nullptr);
        EXPECT_EQ(fresh.LoadRemoteConfig(), c.loaded);
        EXPECT_EQ(source->getConfigCalls, c.loaded ? 1 : 0);
        EXPECT_EQ(Shape(fresh, "adapter.panel"),
                  c.loaded ? std::vector<std::string>{} : std::vector<std::string>{"panel.local"});
    }
}

TEST_F(RemoteSample, FetchAnswersAndWhatTheyChange) {
    using Answer = FakeSource::Answer;
    const struct {
        const char* name;
        bool withSource;
        Answer answer;
        bool applyFetched;
        bool fetched;
        int successes;
        std::vector<std::string> failures;
        int getConfigCalls;
        bool callbacks = true;
    } cases[] = {
        {"no source: no answer at all", false, Answer::kSucceed, true, true, 0, {}, 0},
        {"success, applied", true, Answer::kSucceed, true, true, 1, {}, 1},
        {"success, nothing fresh", true, Answer::kSucceed, true, false, 1, {}, 0},
        {"success, only refreshing the source", true, Answer::kSucceed, false, true, 1, {}, 0},
        {"failure passes the reason on", true, Answer::kFail, true, true, 0, {"timeout"}, 0},
        {"a source that answers twice merges twice", true, Answer::kTwice, true, true, 2, {}, 2},
        {"a source that never answers", true, Answer::kNever, true, true, 0, {}, 0},
        {"no callbacks: success merges", true, Answer::kSucceed, true, true, 0, {}, 1, false},
        {"no callbacks: failure", true, Answer::kFail, true, true, 0, {}, 0, false},
    };
    source->extensions = {{"web.src", {RemoteRecord("w1", "web.src")}}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        source->answer = c.answer;
        source->fetched = c.fetched;
        source->getConfigCalls = 0;
        fresh.SetRemoteConfigDataSource(c.withSource ? source : nullptr);
        int successes = 0;
        std::vector<std::string> failures;
        log->Clear();
        std::function<void()> onSuccess = [&] { ++successes; };
        std::function<void(const std::string&)> onFailure = [&](const std::string& reason) {
            failures.push_back(reason);
        };
        fresh.FetchRemoteConfig(c.applyFetched, c.callbacks ? onSuccess : nullptr,
                                c.callbacks ? onFailure : nullptr);
        EXPECT_EQ(successes, c.successes);
        EXPECT_EQ(failures, c.failures);
        EXPECT_EQ(source->getConfigCalls, c.getConfigCalls);
        EXPECT_TRUE(log->Texts().empty()) << qzetest::Joined(*log);
        EXPECT_EQ(AllShapes(fresh),
                  c.getConfigCalls > 0 ? With(Local(), "adapter.panel", {"derived(w1)"}) : Local());
    }
}

TEST_F(RemoteSample, SuccessCallbackRunsWithTheLockReleased) {
    source->extensions = {{"web.src", {}}};
    manager.SetRemoteConfigDataSource(source);
    std::future<std::string> lookup;
    bool otherThreadGotThrough = false;
    manager.FetchRemoteConfig(
        true,
        [&] {
            lookup = std::async(std::launch::async,
                                [&] { return manager.GetExtensionAccessKey("shop"); });
            otherThreadGotThrough =
                lookup.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
        },
        nullptr);
    EXPECT_EQ(lookup.get(), "sk");
    EXPECT_TRUE(otherThreadGotThrough);
}

}  // namespace
