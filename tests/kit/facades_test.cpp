#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/capture_logger.h"
#include "kit/qzextensionkit.h"

namespace qzextensionkit {

class QZExtensionManagerTestPeer {
public:
    static void SetImpl(const std::shared_ptr<IQZExtensionManager>& impl) {
        QZExtensionManager::GetInstance()->SetImpl(impl);
    }
};

namespace {

class FakeExtensionManager : public IQZExtensionManager {
public:
    void SetFoundationVersion(const std::string&) override {}
    bool Load() override { return true; }
    bool Unload() override { return true; }
    bool GetExtension(const std::string&, void**) override { return true; }
    bool GetExtensionList(const std::string&, std::vector<void*>&) override { return true; }
    bool GetExtensionById(const std::string&, void**) override { return true; }
    bool RegisterExtension(const ExtensionCreator&, const std::string&, bool) override {
        return true;
    }
    bool unRegisterExtension(const std::string&) override { return true; }
    bool GetLibFileVerifyEnable() override { return true; }
    void SetLibFileVerifyEnable(bool) override {}
    bool GetSignVerifyEnable() override { return true; }
    void SetSignVerifyEnable(bool) override {}
    bool SetSecKey(const std::string&) override { return true; }
    bool SetDebugModeEnable(bool) override { return true; }
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback&) override {}
};

class ExtensionManagerFacade : public ::testing::Test {
protected:
    void SetUp() override {
        facade = QZExtensionManager::GetInstance();
        facade->UnInitialize();
        log = qzetest::CaptureLog();
    }
    void TearDown() override { facade->UnInitialize(); }

    QZExtensionManager* facade = nullptr;
    std::shared_ptr<qzetest::CapturedLines> log;
};

TEST_F(ExtensionManagerFacade, EmptyFacadeLogsEachOperationsMessageAtLevelZeroAndFails) {
    void* p = nullptr;
    std::vector<void*> list;
    // Braced lists run left to right.
    const bool results[] = {(facade->SetFoundationVersion("1.2.3"), false),
                            facade->Load(),
                            facade->Unload(),
                            facade->GetExtension("p", &p),
                            facade->GetExtensionList("p", list),
                            facade->GetExtensionById("e", &p),
                            facade->unRegisterExtension("c"),
                            facade->RegisterExtension([](auto&&...) { return true; }, "c", true),
                            facade->GetLibFileVerifyEnable(),
                            (facade->SetLibFileVerifyEnable(true), false),
                            facade->GetSignVerifyEnable(),
                            (facade->SetSignVerifyEnable(true), false),
                            facade->SetSecKey(std::string(32, 'k')),
                            facade->SetDebugModeEnable(true),
                            (facade->SetFetchExtensionAuthInfoCallback(nullptr), false)};
    EXPECT_THAT(results, ::testing::Each(false));
    std::vector<std::pair<int, std::string>> want;
    for (const char* what :
         {"set foundation version (1.2.3)", "load", "unload", "get extension by extension point id",
          "get extension list by extension point id", "get extension by extension id",
          "unregister extension", "register extension"}) {
        want.emplace_back(0, "[QZExtensionKit] extension manager " + std::string(what) +
                                 " failed, because of extension manager impl is null");
    }
    // The seven settings after it share the registration message.
    const auto shared = want.back();
    want.insert(want.end(), 7, shared);
    EXPECT_EQ(log->lines, want);
}

TEST_F(ExtensionManagerFacade, EmptyInitializeClearsAndEmptySetImplKeeps) {
    auto impl = std::make_shared<FakeExtensionManager>();
    facade->Initialize(impl);
    EXPECT_EQ(impl.use_count(), 2);
    QZExtensionManagerTestPeer::SetImpl(nullptr);
    EXPECT_TRUE(facade->Load());
    facade->Initialize(nullptr);
    EXPECT_FALSE(facade->Load());
    EXPECT_EQ(impl.use_count(), 1);
    QZExtensionManagerTestPeer::SetImpl(impl);
    EXPECT_TRUE(facade->Load());
    facade->UnInitialize();
    EXPECT_EQ(impl.use_count(), 1);
    EXPECT_FALSE(facade->Load());
}

}  // namespace
}  // namespace qzextensionkit
