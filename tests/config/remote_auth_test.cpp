#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "config/support/remote_sample.h"

namespace {

using qzetest::ConfigLine;
using qzetest::RemoteAuth;
using qzetest::RemoteAuthInfos;
using qzetest::RemoteSample;

// Local records, in order: a.example.com dup/ka, b.example.com dup/kb,
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

TEST_F(RemoteSample, AccessKeysAfterARemoteMerge) {
    const struct {
        const char* name;
        RemoteAuthInfos remote;
        std::map<std::string, std::string> keys;
        std::vector<std::string> missing;  // none: the host is not asked
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
        for (auto& key : c.keys) {
            EXPECT_EQ(fresh.GetExtensionAccessKey(key.first), key.second) << key.first;
        }
        EXPECT_EQ(MissingKeys(fresh),
                  c.missing.empty() ? std::vector<std::string>{"<no call>"} : c.missing);
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
    std::vector<std::vector<std::string>> asked;
    Success kept;
    manager.SetFetchExtensionAuthInfoCallback(
        [&](std::vector<std::string> ids, const Success& success,
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
    const std::vector<std::string> three{"n1", "n2", "n1"};
    EXPECT_EQ(asked, (std::vector<std::vector<std::string>>{three, three, {"n2"}}));
    const std::string count = "bundleIds were found without access key";
    EXPECT_EQ(qzetest::Joined(*log),
              "total(3) " + count + "\ntotal(3) " + count +
                  "\nfetch extension auth info failed, becuase of offline\ntotal(3) " + count +
                  "\nfetch extension auth info success, total(3)\ntotal(1) " + count);
}

}  // namespace
