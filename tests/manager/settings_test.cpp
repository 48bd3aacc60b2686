#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/configuration_manager_impl.h"
#include "kit/bundle_manager.h"
#include "kit/qzextensionkit.h"
#include "model/artifact.h"

namespace qzextensionkit {
namespace {

using ::testing::ElementsAre;

class FakeConfiguration : public QZEConfigurationManagerImpl {
public:
    std::vector<std::string> calls;
    bool result = true;
    std::vector<Artifact*> artifacts;
    FetchExtensionAuthInfoCallback callback;

    void SetFoundationVersion(const std::string& version) override {
        calls.push_back("SetFoundationVersion " + version);
    }
    bool LoadAllExtensionInfos() override { return Note("LoadAllExtensionInfos"); }
    bool UnloadAllExtensionInfos() override { return Note("UnloadAllExtensionInfos"); }
    bool SetSecKey(const std::string& key) override { return Note("SetSecKey " + key); }
    bool SetDebugModeEnable(bool enable) override {
        return Note(std::string("SetDebugModeEnable ") + (enable ? "true" : "false"));
    }
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback& c) override {
        callback = c;
        Note("SetFetchExtensionAuthInfoCallback");
    }
    void GetAllArtifacts(std::vector<Artifact*>& out) override {
        Note("GetAllArtifacts");
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

class ManagerWithFakes : public ::testing::Test {
protected:
    void SetUp() override {
        QZExtensionKit::InitSDK();
        QZEConfigurationManager::GetInstance()->Initialize(configuration);
        QZEBundleManager::GetInstance()->Initialize(bundles);
    }
    void TearDown() override { QZExtensionKit::InitSDK(); }

    std::shared_ptr<FakeConfiguration> configuration = std::make_shared<FakeConfiguration>();
    std::shared_ptr<FakeBundles> bundles = std::make_shared<FakeBundles>();
    QZExtensionManager* kit = QZExtensionManager::GetInstance();
};

TEST_F(ManagerWithFakes, LoadReturnsTheRecordsResultAndOffersEveryArtifactThere) {
    Artifact first(base::FilePath(L"a"));
    Artifact second(base::FilePath(L"b"));
    struct Row {
        bool recordsLoaded;
        std::vector<Artifact*> artifacts, offered;
    } const rows[] = {
        {true, {&first, nullptr, &second}, {&first, &second}},
        {false, {&second, &first}, {&second, &first}},
        {true, {}, {}},
    };
    for (const Row& row : rows) {
        configuration->calls.clear();
        configuration->result = row.recordsLoaded;
        configuration->artifacts = row.artifacts;
        bundles->offered.clear();
        EXPECT_EQ(kit->Load(), row.recordsLoaded);
        EXPECT_EQ(bundles->offered, row.offered);
        EXPECT_THAT(configuration->calls, ElementsAre("LoadAllExtensionInfos", "GetAllArtifacts"));
    }
    configuration->calls.clear();
    configuration->result = false;
    EXPECT_FALSE(kit->Unload());
    EXPECT_THAT(configuration->calls, ElementsAre("UnloadAllExtensionInfos"));
}

TEST_F(ManagerWithFakes, SettingsReachTheConfigurationAndTheirResultsComeBack) {
    for (bool result : {true, false}) {
        configuration->result = result;
        configuration->calls.clear();
        kit->SetFoundationVersion("3.2.0");
        EXPECT_EQ(kit->SetSecKey("key"), result);
        EXPECT_EQ(kit->SetDebugModeEnable(true), result);
        std::vector<std::string> asked;
        kit->SetFetchExtensionAuthInfoCallback(
            [&asked](std::vector<std::string> ids, auto&&...) { asked = ids; });
        EXPECT_THAT(configuration->calls,
                    ElementsAre("SetFoundationVersion 3.2.0", "SetSecKey key",
                                "SetDebugModeEnable true", "SetFetchExtensionAuthInfoCallback"));
        ASSERT_TRUE(configuration->callback);
        configuration->callback({"bundle"}, nullptr, nullptr);
        EXPECT_EQ(asked, std::vector<std::string>{"bundle"});
    }
}

TEST(ManagerFacade, AfterUnInitializeCallsFailAndInitSdkBringsTheSameImplementationBack) {
    QZExtensionKit::InitSDK();
    QZExtensionManager* kit = QZExtensionManager::GetInstance();
    kit->SetLibFileVerifyEnable(true);
    kit->UnInitialize();
    EXPECT_FALSE(kit->GetLibFileVerifyEnable());
    QZExtensionKit::InitSDK();
    EXPECT_TRUE(kit->GetLibFileVerifyEnable());
    kit->SetLibFileVerifyEnable(false);
}

}  // namespace
}  // namespace qzextensionkit
