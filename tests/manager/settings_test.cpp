#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/configuration_manager_impl.h"
#include "kit/bundle_manager.h"
#include "kit/qzextensionkit.h"
#include "model/artifact.h"

namespace qzextensionkit {
namespace {

using ::testing::ElementsAre;

// Records each call; every call answers `result`.
class FakeConfiguration : public QZEConfigurationManagerImpl {
public:
    std::vector<std::string> calls;
    bool result = true;
    std::vector<Artifact*> artifacts;
    FetchExtensionAuthInfoCallback callback;
    void SetFoundationVersion(const std::string& version) override { Note("version " + version); }
    bool LoadAllExtensionInfos() override { return Note("load"); }
    bool UnloadAllExtensionInfos() override { return Note("unload"); }
    bool SetSecKey(const std::string& key) override { return Note("key " + key); }
    bool SetDebugModeEnable(bool enable) override { return Note(enable ? "debug" : "no debug"); }
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback& c) override {
        callback = c, Note("callback");
    }
    void GetAllArtifacts(std::vector<Artifact*>& out) override {
        Note("artifacts");
        out.insert(out.end(), artifacts.begin(), artifacts.end());
    }
    bool Note(const std::string& call) {
        calls.push_back(call);
        return result;
    }
};

class FakeBundles : public IQZEBundleManager {
public:
    std::vector<Artifact*> offered;
    bool LoadBundle(Artifact* artifact) override {
        offered.push_back(artifact);
        return false;
    }
    bool GetComLoader(const std::string&, by::CComLoader**) override { return false; }
    bool ComLoaderIsExist(const std::string&) override { return false; }
};

TEST(ManagerWithFakes, LoadOffersEveryArtifactAndTheSettingsReachTheConfiguration) {
    QZExtensionKit::InitSDK();
    auto configuration = std::make_shared<FakeConfiguration>();
    auto bundles = std::make_shared<FakeBundles>();
    QZEConfigurationManager::GetInstance()->Initialize(configuration);
    QZEBundleManager::GetInstance()->Initialize(bundles);
    QZExtensionManager* kit = QZExtensionManager::GetInstance();
    Artifact first(base::FilePath(L"a")), second(base::FilePath(L"b"));
    // A failed bundle stops nothing; Load answers what the records did.
    for (bool result : {true, false}) {
        configuration->calls.clear();
        configuration->result = result;
        configuration->artifacts = {&second, nullptr, &first};
        bundles->offered.clear();
        EXPECT_EQ(kit->Load(), result);
        EXPECT_EQ(bundles->offered, (std::vector<Artifact*>{&second, &first}));
        kit->SetFoundationVersion("3.2.0");
        EXPECT_EQ(kit->SetSecKey("k") + kit->SetDebugModeEnable(true) + kit->Unload(), 3 * result);
        std::vector<std::string> asked;
        kit->SetFetchExtensionAuthInfoCallback(
            [&asked](std::vector<std::string> ids, auto&&...) { asked = ids; });
        EXPECT_THAT(configuration->calls, ElementsAre("load", "artifacts", "version 3.2.0", "key k",
                                                      "debug", "unload", "callback"));
        ASSERT_TRUE(configuration->callback);
        configuration->callback({"bundle"}, nullptr, nullptr);
        EXPECT_EQ(asked, std::vector<std::string>{"bundle"});
    }
    QZExtensionKit::InitSDK();
}

}  // namespace
}  // namespace qzextensionkit
