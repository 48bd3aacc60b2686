#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "common/capture_logger.h"
#include "kit/qzextensionkit.h"

namespace qzextensionkit {

// Reaches the facade's private SetImpl.
class QZExtensionManagerTestPeer {
public:
    static void SetImpl(const std::shared_ptr<IQZExtensionManager>& impl) {
        QZExtensionManager::GetInstance()->SetImpl(impl);
    }
};

namespace {

// A small implementation that records what reached it.
class FakeExtensionManager : public IQZExtensionManager {
public:
    std::string version;
    bool libVerify = false;
    std::function<bool()> onLoad;

    void SetFoundationVersion(const std::string& v) override { version = v; }
    bool Load() override { return onLoad ? onLoad() : true; }
    bool Unload() override { return true; }
    bool GetExtension(const std::string& id, void** out) override {
        *out = this;
        return id == "point";
    }
    bool GetExtensionList(const std::string&, std::vector<void*>&) override { return true; }
    bool GetExtensionById(const std::string&, void**) override { return false; }
    bool RegisterExtension(const ExtensionCreator&, const std::string& id, bool) override {
        return id == "{c}";
    }
    bool unRegisterExtension(const std::string&) override { return true; }
    bool GetLibFileVerifyEnable() override { return libVerify; }
    void SetLibFileVerifyEnable(bool e) override { libVerify = e; }
    bool GetSignVerifyEnable() override { return false; }
    void SetSignVerifyEnable(bool) override {}
    bool SetSecKey(const std::string& key) override { return key.size() == 32; }
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
    // Braced lists run left to right, so the log keeps this order.
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

TEST_F(ExtensionManagerFacade, ForwardsCallsAndResultsToTheImplementation) {
    auto impl = std::make_shared<FakeExtensionManager>();
    facade->Initialize(impl);
    facade->SetFoundationVersion("2.0");
    facade->SetLibFileVerifyEnable(true);
    void* out = nullptr;
    EXPECT_TRUE(facade->GetExtension("point", &out));
    EXPECT_FALSE(facade->GetExtension("other", &out));
    EXPECT_EQ(out, impl.get());
    EXPECT_TRUE(facade->GetLibFileVerifyEnable());
    EXPECT_FALSE(facade->GetSignVerifyEnable());
    EXPECT_TRUE(facade->RegisterExtension(nullptr, "{c}", false));
    EXPECT_FALSE(facade->SetSecKey("short"));
    EXPECT_EQ(impl->version, "2.0");
    EXPECT_TRUE(log->lines.empty());
}

// A second thread waits while Load runs, but Load itself may call back into
// the facade on its own thread, as the bundle manager does.
TEST_F(ExtensionManagerFacade, CallsAreSerialisedButReentrant) {
    auto impl = std::make_shared<FakeExtensionManager>();
    impl->libVerify = true;
    std::promise<void> entered;
    std::promise<void> leave;
    std::shared_future<void> leaveSignal = leave.get_future().share();
    impl->onLoad = [&] {
        bool again = QZExtensionManager::GetInstance()->GetLibFileVerifyEnable();
        entered.set_value();
        leaveSignal.wait();
        return again;
    };
    facade->Initialize(impl);
    std::thread loader([&] { EXPECT_TRUE(facade->Load()); });
    entered.get_future().wait();
    std::atomic<bool> otherDone{false};
    std::thread other([&] {
        facade->GetSignVerifyEnable();
        otherDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(otherDone.load());
    leave.set_value();
    loader.join();
    other.join();
    EXPECT_TRUE(otherDone.load());
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
    // UnInitialize drops the facade's reference only.
    facade->UnInitialize();
    EXPECT_EQ(impl.use_count(), 1);
    EXPECT_FALSE(facade->Load());
}

}  // namespace
}  // namespace qzextensionkit
