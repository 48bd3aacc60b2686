#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "config/support/remote_sample.h"

namespace {

using qzetest::FakeSource;
using qzetest::RemoteAuth;
using qzetest::RemoteRecord;
using qzetest::RemoteSample;
using Shapes = std::map<std::string, std::vector<std::string>>;
using Strings = std::vector<std::string>;

// What the local load put in force, changed by `delta`: "point=id,id;point=".
Shapes Local(const std::string& delta = "") {
    Shapes shapes{{"host.tools", {"t1", "t2"}},
                  {"adapter.panel", {"panel.local"}},
                  {"adapter.fresh", {}},
                  {"adapter.none", {"<absent>"}},
                  {"host.plain", {"p1"}}};
    std::istringstream entries(delta);
    for (std::string entry, id; std::getline(entries, entry, ';');) {
        std::istringstream ids(entry.substr(entry.find('=') + 1));
        auto& list = shapes[entry.substr(0, entry.find('='))] = {};
        while (std::getline(ids, id, ',')) {
            list.push_back(id);
        }
    }
    return shapes;
}

std::list<std::shared_ptr<qzextensionkit::Extension>> Records(const std::string& point,
                                                              const Strings& ids) {
    std::list<std::shared_ptr<qzextensionkit::Extension>> records;
    for (auto& id : ids) {
        records.push_back(RemoteRecord(id, point));
    }
    return records;
}

TEST_F(RemoteSample, MergeReplacesTheListsOfMappedPointsOnly) {
    const struct {
        const char* name;
        std::map<std::string, Strings> remote;
        const char* expected;
    } cases[] = {
        // t2 would be a duplicate if emptying a list kept its ids.
        {"native twin replaces the list", {{"native.src", {"t2"}}}, "host.tools=t2"},
        {"native point: no twin, dropped", {{"native.src", {"new"}}}, "host.tools="},
        {"non-native is derived", {{"web.src", {"w1"}}}, "adapter.panel=derived(w1)"},
        {"empty list empties the target", {{"web.src", {}}}, "adapter.panel="},
        {"target without adapter point", {{"none.src", {"n1"}}}, ""},
        {"twin without a library is not taken", {{"plain.src", {"p1"}}}, "host.plain="},
        {"unmapped points change nothing",
         {{"nowhere", {"t1"}}, {"host.tools", {"x"}}, {"web", {"y"}}},
         ""},
        {"several points",
         {{"native.src", {"t2", "t1"}}, {"web.src", {"w1", "w2"}}},
         "host.tools=t2,t1;adapter.panel=derived(w1),derived(w2)"},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        source->extensions.clear();
        for (auto& point : c.remote) {
            source->extensions[point.first] = Records(point.first, point.second);
        }
        fresh.SetRemoteConfigDataSource(source);
        log->Clear();
        EXPECT_TRUE(fresh.LoadRemoteConfig());
        // The merge says nothing; a duplicate would show a level 2 line.
        EXPECT_TRUE(log->Texts().empty()) << qzetest::Joined(*log);
        EXPECT_EQ(AllShapes(fresh), Local(c.expected));
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
    EXPECT_EQ(tools[0]->GetMainEntry(), L"bin/main.dll");
    EXPECT_TRUE(tools[0]->IsNative());
    auto panel = qzetest::InForce(manager, "adapter.panel");
    ASSERT_EQ(panel.size(), 1u);
    EXPECT_EQ(qzetest::Describe(*panel[0]),
              "2.0|{ACLS}|{PANEL-IID}|multi|u-w1|extensionId=w1;k=v;||,,,");
    EXPECT_EQ(panel[0]->GetMainEntry(), L"bin/adapter.dll");
    const std::string firstId = panel[0]->GetId();

    // The kit keeps the remote records: a load without new content builds the
    // lists anew, with a new id for the derived record. An unload forgets them.
    source->fill = false;
    ASSERT_TRUE(manager.LoadRemoteConfig());
    EXPECT_EQ(Shape(manager, "host.tools"), Strings{"t2"});
    panel = qzetest::InForce(manager, "adapter.panel");
    ASSERT_EQ(panel.size(), 1u);
    EXPECT_NE(panel[0]->GetId(), firstId);
    ASSERT_TRUE(manager.UnloadAllExtensionInfos());
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    ASSERT_TRUE(manager.LoadRemoteConfig());
    EXPECT_EQ(AllShapes(manager), Local());
}

// LoadRemoteConfig takes cached data only; FetchRemoteConfig asks the source.
TEST_F(RemoteSample, LoadAndFetchAnswers) {
    using Answer = FakeSource::Answer;
    const struct {
        const char* name;
        bool fetch, withSource, cached;
        Answer answer;
        bool applyFetched, fetched;
        int successes;
        Strings failures;
        int getConfigCalls;
        bool callbacks = true;
    } cases[] = {
        {"load, no source", false, false, true, Answer::kSucceed, true, true, 0, {}, 0},
        {"load, not cached", false, true, false, Answer::kSucceed, true, true, 0, {}, 0},
        {"load, cached", false, true, true, Answer::kSucceed, true, true, 0, {}, 1},
        {"fetch, no source", true, false, true, Answer::kSucceed, true, true, 0, {}, 0},
        {"success, applied", true, true, true, Answer::kSucceed, true, true, 1, {}, 1},
        {"success, not fresh", true, true, true, Answer::kSucceed, true, false, 1, {}, 0},
        {"success, not applied", true, true, true, Answer::kSucceed, false, true, 1, {}, 0},
        {"failure", true, true, true, Answer::kFail, true, true, 0, {"timeout"}, 0},
        {"answered twice", true, true, true, Answer::kTwice, true, true, 2, {}, 2},
        {"never answered", true, true, true, Answer::kNever, true, true, 0, {}, 0},
        {"no callbacks, success", true, true, true, Answer::kSucceed, true, true, 0, {}, 1, false},
        {"no callbacks, failure", true, true, true, Answer::kFail, true, true, 0, {}, 0, false},
    };
    source->extensions = {{"web.src", {RemoteRecord("w1", "web.src")}}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        source->answer = c.answer;
        source->fetched = c.fetched;
        source->cached = c.cached;
        source->getConfigCalls = 0;
        fresh.SetRemoteConfigDataSource(c.withSource ? source : nullptr);
        int successes = 0;
        Strings failures;
        log->Clear();
        if (c.fetch) {
            std::function<void()> onSuccess = [&] { ++successes; };
            std::function<void(const std::string&)> onFailure = [&](const std::string& reason) {
                failures.push_back(reason);
            };
            fresh.FetchRemoteConfig(c.applyFetched, c.callbacks ? onSuccess : nullptr,
                                    c.callbacks ? onFailure : nullptr);
        } else {
            EXPECT_EQ(fresh.LoadRemoteConfig(), c.getConfigCalls == 1);
        }
        EXPECT_EQ(successes, c.successes);
        EXPECT_EQ(failures, c.failures);
        EXPECT_EQ(source->getConfigCalls, c.getConfigCalls);
        EXPECT_TRUE(log->Texts().empty()) << qzetest::Joined(*log);
        EXPECT_EQ(AllShapes(fresh),
                  c.getConfigCalls > 0 ? Local("adapter.panel=derived(w1)") : Local());
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

// Local auth records, in order: a.example.com dup/ka, b.example.com dup/kb,
// h5.example.com web.app/wk and shop/sk, port.example.com:8443 portal/pk,
// and the native bundle.tools/nk.
TEST_F(RemoteSample, H5BundleLookup) {
    const struct {
        const char* url;
        const char* bundle;
    } cases[] = {
        {"https://h5.example.com/index.html", "web.app"},
        {"https://h5.example.com:1234/a/b", "web.app"},  // no port on the record: any
        {"https://h5.example.com/appName_shop/index.html", "shop"},
        {"https://h5.example.com/appName_nope/index.html", ""},
        {"https://h5.example.com/appName_/index.html", "web.app"},  // prefix alone: no name
        {"https://h5.example.com/appName_shop", "web.app"},         // no second "/"
        {"https://h5.example.com/x/appName_shop/", "web.app"},      // only the first segment
        {"https://h5.example.com/AppName_shop/x", "web.app"},
        {"https://port.example.com:8443/x", "portal"},
        {"https://port.example.com:9000/x", ""},
        {"https://port.example.com/x", ""},
        {"http://h5.example.com/x", ""},
        {"https://H5.example.com/x", ""},
        {"", ""},
    };
    for (auto& c : cases) {
        EXPECT_EQ(manager.GetH5ExtensionBundleId(c.url), c.bundle) << c.url;
    }
    EXPECT_TRUE(log->Texts().empty());
}

// A remote auth record replaces the local one of the same host and bundle
// where it stands, or is appended.
TEST_F(RemoteSample, AccessKeysAfterARemoteMerge) {
    const struct {
        const char* name;
        qzetest::RemoteAuthInfos remote;
        std::map<std::string, std::string> keys;
        Strings missing;  // none: the host is not asked
    } cases[] = {
        {"nothing remote", {}, {{"dup", "ka"}, {"shop", "sk"}, {"bundle.tools", "nk"}}, {}},
        {"replaced where it stands",
         {RemoteAuth("https://a.example.com", "dup", "ka2")},
         {{"dup", "ka2"}},
         {}},
        // A replacement moved to the end would let kb answer first.
        {"only the record of the same host is replaced",
         {RemoteAuth("https://b.example.com", "dup", "kb2")},
         {{"dup", "ka"}},
         {}},
        {"a new host is added after the others",
         {RemoteAuth("https://c.example.com", "dup", "kc"),
          RemoteAuth("https://b.example.com", "moved", "m")},
         {{"dup", "ka"}, {"moved", "m"}},
         {}},
        {"a native record is matched by its empty host",
         {RemoteAuth("", "bundle.tools", "")},
         {{"bundle.tools", ""}},
         {"bundle.tools"}},
        {"new bundles without a key wait for a fetch",
         {RemoteAuth("", "n1", ""), RemoteAuth("https://b.example.com", "n2", ""),
          RemoteAuth("", "n1", "")},
         {{"n1", ""}, {"n2", ""}, {"unknown", ""}, {"", ""}},
         {"n1", "n2"}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        source->authInfos = c.remote;
        fresh.SetRemoteConfigDataSource(source);
        ASSERT_TRUE(fresh.LoadRemoteConfig());
        EXPECT_EQ(MissingKeys(fresh), c.missing.empty() ? Strings{"<no call>"} : c.missing);
        // b.example.com's own record still answers first, whatever was added.
        EXPECT_EQ(fresh.GetH5ExtensionBundleId("https://b.example.com/x"), "dup");
        // The kit holds copies: the host's records may change freely.
        for (auto& remote : c.remote) {
            remote->SetAccessKey("changed by the host");
        }
        for (auto& key : c.keys) {
            EXPECT_EQ(fresh.GetExtensionAccessKey(key.first), key.second) << key.first;
        }
    }
}

// A late answer still sets every record of its bundle.
TEST_F(RemoteSample, CheckAndFetchThroughTheHostCallback) {
    using Keys = std::map<std::string, std::string>;
    using Success = std::function<void(const Keys&)>;
    manager.CheckAndFetchExtensionAuthInfo();  // every key present: no line
    source->authInfos = {RemoteAuth("", "n1", ""), RemoteAuth("https://x.example.com", "n2", ""),
                         RemoteAuth("https://y.example.com", "n1", "")};
    manager.SetRemoteConfigDataSource(source);
    ASSERT_TRUE(manager.LoadRemoteConfig());
    manager.CheckAndFetchExtensionAuthInfo();  // no callback: the count alone
    std::vector<Strings> asked;
    Success kept;
    manager.SetFetchExtensionAuthInfoCallback(
        [&](Strings ids, const Success& success,
            const std::function<void(const std::string&)>& failure) {
            asked.push_back(ids);
            if (asked.size() == 1) {
                failure("offline");
            } else {
                kept = success;
            }
        });
    manager.CheckAndFetchExtensionAuthInfo();
    manager.CheckAndFetchExtensionAuthInfo();
    ASSERT_TRUE(kept);
    EXPECT_EQ(manager.GetExtensionAccessKey("n1"), "");
    kept({{"n1", "k1"}, {"shop", "sk2"}, {"ghost", "g"}});
    for (auto& key : Keys{{"n1", "k1"}, {"n2", ""}, {"shop", "sk2"}}) {
        EXPECT_EQ(manager.GetExtensionAccessKey(key.first), key.second) << key.first;
    }
    manager.CheckAndFetchExtensionAuthInfo();
    const Strings three{"n1", "n2", "n1"};
    EXPECT_EQ(asked, (std::vector<Strings>{three, three, {"n2"}}));
    const std::string count = "bundleIds were found without access key";
    EXPECT_EQ(qzetest::Joined(*log),
              "total(3) " + count + "\ntotal(3) " + count +
                  "\nfetch extension auth info failed, becuase of offline\ntotal(3) " + count +
                  "\nfetch extension auth info success, total(3)\ntotal(1) " + count);
}

}  // namespace
