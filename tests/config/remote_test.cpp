#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "config/support/remote_sample.h"

namespace {

using qzetest::FakeSource;
using qzetest::RemoteAuth;
using qzetest::RemoteRecord;
using qzetest::RemoteSample;
using Shapes = std::map<std::string, std::vector<std::string>>;
using Strings = std::vector<std::string>;

// What the local load put in force, changed by "point=id,id;point=".
Shapes Local(
    const std::string& delta = "",
    const std::string& local = "host.tools=t1,t2;adapter.panel=panel.local;adapter.none=<absent>") {
    Shapes shapes;
    std::istringstream entries(local + ";" + delta);
    for (std::string entry, id; std::getline(entries, entry, ';');) {
        std::istringstream ids(entry.substr(entry.find('=') + 1));
        auto& list = shapes[entry.substr(0, entry.find('='))] = {};
        while (std::getline(ids, id, ',')) {
            list.push_back(id);
        }
    }
    return shapes;
}

TEST_F(RemoteSample, MergeReplacesTheListsOfMappedPointsOnly) {
    // Rows: the remote records, what changes in force.
    const std::pair<const char*, const char*> cases[] = {
        // t2 would be a duplicate if emptying a list kept its ids.
        {"native.src=t2,t1", "host.tools=t2,t1"},
        {"native.src=new", "host.tools="},  // no native twin: dropped
        {"web.src=w1", "adapter.panel=derived(w1)"},
        {"none.src=n1", ""},  // target without adapter point
        {"nowhere=t1", ""},   // an unmapped point
    };
    for (auto& [remote, expected] : cases) {
        SCOPED_TRACE(remote);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        *source = FakeSource();
        for (auto& point : Local(remote, {})) {
            for (auto& id : point.second) {
                source->extensions[point.first].push_back(RemoteRecord(id, point.first));
            }
        }
        fresh.SetRemoteConfigDataSource(source);
        log->Clear();
        EXPECT_TRUE(fresh.LoadRemoteConfig());
        // A duplicate would show a level 2 line.
        EXPECT_TRUE(log->Texts().empty()) << qzetest::Joined(*log);
        EXPECT_EQ(AllShapes(fresh), Local(expected));
        // The kit keeps the remote records for a load without new content;
        // an unload forgets them.
        source->fill = false;
        ASSERT_TRUE(fresh.LoadRemoteConfig());
        EXPECT_EQ(AllShapes(fresh), Local(expected));
        ASSERT_TRUE(fresh.UnloadAllExtensionInfos() && fresh.LoadAllExtensionInfos() &&
                    fresh.LoadRemoteConfig());
        EXPECT_EQ(AllShapes(fresh), Local());
    }
}

// LoadRemoteConfig takes cached data only; FetchRemoteConfig asks the source.
TEST_F(RemoteSample, LoadAndFetchAnswers) {
    const struct {
        const char* name;
        bool fetch, cached, applyFetched, callbacks, fail;
        const char* expected;  // successes|failures|GetConfig calls
    } cases[] = {
        {"load, not cached", false, false, true, true, false, "0||0"},
        {"success, applied", true, true, true, true, false, "1||1"},
        {"success, not applied", true, true, false, true, false, "1||0"},
        {"failure", true, true, true, true, true, "0|timeout|0"},
        {"no callbacks, success", true, true, true, false, false, "0||1"},
    };
    source->extensions = {{"web.src", {RemoteRecord("w1", "web.src")}}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        qzextensionkit::QZEConfigurationManagerImpl fresh;
        ASSERT_TRUE(fresh.LoadAllExtensionInfos());
        source->fail = c.fail;
        source->cached = c.cached;
        source->getConfigCalls = 0;
        fresh.SetRemoteConfigDataSource(source);
        int successes = 0;
        std::string failures;
        std::future<std::string> other;
        if (c.fetch) {
            // Counted only if another thread gets the lock meanwhile.
            std::function<void()> onSuccess = [&] {
                other = std::async(std::launch::async,
                                   [&] { return fresh.GetExtensionAccessKey("shop"); });
                successes += other.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
            };
            std::function<void(const std::string&)> onFailure = [&](const std::string& reason) {
                failures += reason;
            };
            fresh.FetchRemoteConfig(c.applyFetched, c.callbacks ? onSuccess : nullptr,
                                    c.callbacks ? onFailure : nullptr);
        } else {
            EXPECT_FALSE(fresh.LoadRemoteConfig());
        }
        EXPECT_EQ(std::to_string(successes) + "|" + failures + "|" +
                      std::to_string(source->getConfigCalls),
                  c.expected);
        EXPECT_EQ(Shape(fresh, "adapter.panel"),
                  Strings{source->getConfigCalls ? "derived(w1)" : "panel.local"});
    }
}

// Local auth records, in order: a.example.com dup/ka, b.example.com dup/kb,
// h5.example.com web.app/wk and shop/sk, port.example.com:8443 portal/pk,
// and the native bundle.tools/nk.
TEST_F(RemoteSample, H5BundleLookup) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://h5.example.com:1234/a/b", "web.app"},  // no port on the record: any
        {"https://h5.example.com/appName_shop/index.html", "shop"},
        {"https://h5.example.com/appName_nope/index.html", ""},
        {"https://h5.example.com/appName_/index.html", "web.app"},  // prefix alone: no name
        {"https://port.example.com:8443/x", "portal"},
        {"https://port.example.com/x", ""},
    };
    for (auto& [url, bundle] : cases) {
        EXPECT_EQ(manager.GetH5ExtensionBundleId(url), bundle) << url;
    }
}

// A remote auth record of the same host and bundle replaces the local one
// where it stands; any other is appended. A late answer from the host still
// sets every record of its bundle.
TEST_F(RemoteSample, AuthInfosMergedAndFetchedThroughTheHostCallback) {
    using Success = std::function<void(const std::map<std::string, std::string>&)>;
    manager.CheckAndFetchExtensionAuthInfo();  // every key present: no line
    source->authInfos = {RemoteAuth("https://a.example.com", "dup", "ka2"),
                         RemoteAuth("https://b.example.com", "dup", "kb2"),
                         RemoteAuth("https://c.example.com", "dup", "kc"),
                         RemoteAuth("", "bundle.tools", ""),  // the native record
                         RemoteAuth("", "n1", ""),
                         RemoteAuth("https://b.example.com", "n2", ""),
                         RemoteAuth("", "n1", "")};
    manager.SetRemoteConfigDataSource(source);
    ASSERT_TRUE(manager.LoadRemoteConfig());
    // The kit holds copies: the host's records may change freely.
    for (auto& remote : source->authInfos) {
        remote->SetAccessKey("changed by the host");
    }
    auto keys = [&] {
        std::string text;
        for (const char* id : {"dup", "bundle.tools", "n1", "n2", "shop", "unknown", ""}) {
            text += manager.GetExtensionAccessKey(id) + "|";
        }
        return text;
    };
    EXPECT_EQ(keys(), "ka2||||sk|||");
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
    kept({{"n1", "k1"}, {"shop", "sk2"}, {"ghost", "g"}});
    EXPECT_EQ(keys(), "ka2||k1||sk2|||");
    manager.CheckAndFetchExtensionAuthInfo();
    const Strings three{"bundle.tools", "n1", "n2"};
    EXPECT_EQ(asked, (std::vector<Strings>{three, three, {"bundle.tools", "n2"}}));
    const std::string count = "bundleIds were found without access key";
    EXPECT_EQ(qzetest::Joined(*log),
              "total(3) " + count +
                  "\nfetch extension auth info failed, becuase of offline\ntotal(3) " + count +
                  "\nfetch extension auth info success, total(3)\ntotal(2) " + count);
}

}  // namespace
