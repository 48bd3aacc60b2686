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
        {"https://h5.example.com", "web.app"},
        {"https://h5.example.com:1234/a/b", "web.app"},  // no port on the record: any
        {"https://h5.example.com/appName_shop/index.html", "shop"},
        {"https://h5.example.com/appName_web.app/", "web.app"},
        {"https://h5.example.com/appName_nope/index.html", ""},
        {"https://h5.example.com/appName_/index.html", "web.app"},  // prefix alone: no name
        {"https://h5.example.com/appName_shop", "web.app"},         // no second "/"
        {"https://h5.example.com/x/appName_shop/", "web.app"},      // only the first segment
        {"https://h5.example.com/AppName_shop/x", "web.app"},
        {"https://a.example.com/appName_dup/x", "dup"},
        {"https://b.example.com/", "dup"},
        {"https://port.example.com:8443/x", "portal"},
        {"https://port.example.com:9000/x", ""},
        {"https://port.example.com/x", ""},
        {"https://port.example.com:8443/appName_portal/x", "portal"},
        {"http://h5.example.com/x", ""},
        {"https://H5.example.com/x", ""},
        {"https://other.example.com/x", ""},
        {"/appName_shop/x", ""},
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

TEST_F(RemoteSample, CheckAndFetchThroughTheHostCallback) {
    using Keys = std::map<std::string, std::string>;
    using Success = std::function<void(const Keys&)>;
    using Failure = std::function<void(const std::string&)>;
    // Three records without a key, one of them twice.
    source->authInfos = {RemoteAuth("", "n1", ""), RemoteAuth("https://x.example.com", "n2", ""),
                         RemoteAuth("https://y.example.com", "n1", "")};
    manager.SetRemoteConfigDataSource(source);
    ASSERT_TRUE(manager.LoadRemoteConfig());

    const struct {
        const char* name;
        std::function<void(const Success&, const Failure&)> answer;
        std::vector<std::string> log;
        Keys keys;
    } cases[] = {
        {"failure is logged and changes nothing",
         [](const Success&, const Failure& failure) { failure("offline"); },
         {"total(3) bundleIds were found without access key",
          "fetch extension auth info failed, becuase of offline"},
         {{"n1", ""}, {"n2", ""}, {"shop", "sk"}}},
        {"success sets every record of a bundle, keys present or not; unknown ids are ignored",
         [](const Success& success, const Failure&) {
             success({{"n1", "k1"}, {"shop", "sk2"}, {"ghost", "g"}});
         },
         {"total(3) bundleIds were found without access key",
          "fetch extension auth info success, total(3)"},
         {{"n1", "k1"}, {"n2", ""}, {"shop", "sk2"}}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> asked;
        manager.SetFetchExtensionAuthInfoCallback(
            [&](std::vector<std::string> ids, const Success& success, const Failure& failure) {
                asked = ids;
                c.answer(success, failure);
            });
        log->Clear();
        manager.CheckAndFetchExtensionAuthInfo();
        EXPECT_EQ(asked, (std::vector<std::string>{"n1", "n2", "n1"}));
        std::vector<std::string> expected;
        for (auto& line : c.log) {
            expected.push_back(ConfigLine(line));
        }
        EXPECT_EQ(log->Texts(), expected);
        for (auto& key : c.keys) {
            EXPECT_EQ(manager.GetExtensionAccessKey(key.first), key.second) << key.first;
        }
        // Put n1 back without a key for the next case.
        source->authInfos = {RemoteAuth("", "n1", ""),
                             RemoteAuth("https://y.example.com", "n1", "")};
        manager.LoadRemoteConfig();
    }
}

// Every key present: no line and no call. Keys missing but no callback: the
// count and nothing more. A host that answers after the check returned, with
// the copies it kept, still sets the key.
TEST_F(RemoteSample, CheckAndFetchWithoutWorkWithoutCallbackOrAnsweredLater) {
    EXPECT_EQ(MissingKeys(manager), std::vector<std::string>{"<no call>"});
    EXPECT_TRUE(log->Texts().empty());

    source->authInfos = {RemoteAuth("", "n1", ""), RemoteAuth("", "n2", "")};
    manager.SetRemoteConfigDataSource(source);
    ASSERT_TRUE(manager.LoadRemoteConfig());
    log->Clear();
    manager.CheckAndFetchExtensionAuthInfo();
    EXPECT_EQ(log->Texts(), std::vector<std::string>{
                                ConfigLine("total(2) bundleIds were found without access key")});

    std::function<void(const std::map<std::string, std::string>&)> kept;
    manager.SetFetchExtensionAuthInfoCallback(
        [&](std::vector<std::string>,
            const std::function<void(const std::map<std::string, std::string>&)>& success,
            const std::function<void(const std::string&)>&) { kept = success; });
    manager.CheckAndFetchExtensionAuthInfo();
    ASSERT_TRUE(kept);
    EXPECT_EQ(manager.GetExtensionAccessKey("n1"), "");
    kept({{"n1", "late"}});
    EXPECT_EQ(manager.GetExtensionAccessKey("n1"), "late");
}

}  // namespace
