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
    bool signVerify = false;
    std::function<bool()> onLoad;

    void SetFoundationVersion(const std::string& v) override { version = v; }
    bool Load() override { return onLoad ? onLoad() : true; }
    bool Unload() override { return true; }
    bool GetExtension(const std::string& id, void** out) override {
        *out = this;
        return id == "point";
    }
    bool GetExtensionList(const std::string&, std::vector<void*>& list) override {
        list.push_back(this);
        return true;
    }
    bool GetExtensionById(const std::string&, void** out) override {
        *out = nullptr;
        return false;
    }
    bool RegisterExtension(const ExtensionCreator& creator, const std::string& classId,
                           bool) override {
        void* out = nullptr;
        return creator("iid", classId, &out);
    }
    bool unRegisterExtension(const std::string&) override { return true; }
    bool GetLibFileVerifyEnable() override { return libVerify; }
    void SetLibFileVerifyEnable(bool e) override { libVerify = e; }
    bool GetSignVerifyEnable() override { return signVerify; }
    void SetSignVerifyEnable(bool e) override { signVerify = e; }
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

TEST_F(ExtensionManagerFacade, EmptyFacadeLogsEachOperationsMessageAndFails) {
    const std::string impl = ", because of extension manager impl is null";
    const std::string tag = "[QZExtensionKit] ";
    const std::string reg = tag + "extension manager register extension failed" + impl;

    facade->SetFoundationVersion("1.2.3");
    EXPECT_EQ(log->Texts().back(),
              tag + "extension manager set foundation version (1.2.3) failed" + impl);
    EXPECT_FALSE(facade->Load());
    EXPECT_EQ(log->Texts().back(), tag + "extension manager load failed" + impl);
    EXPECT_FALSE(facade->Unload());
    EXPECT_EQ(log->Texts().back(), tag + "extension manager unload failed" + impl);

    void* untouched = &untouched;
    EXPECT_FALSE(facade->GetExtension("p", &untouched));
    EXPECT_EQ(untouched, &untouched);
    EXPECT_EQ(log->Texts().back(),
              tag + "extension manager get extension by extension point id failed" + impl);
    std::vector<void*> list{&untouched};
    EXPECT_FALSE(facade->GetExtensionList("p", list));
    EXPECT_EQ(list.size(), 1u);
    EXPECT_EQ(log->Texts().back(),
              tag + "extension manager get extension list by extension point id failed" + impl);
    EXPECT_FALSE(facade->GetExtensionById("e", &untouched));
    EXPECT_EQ(log->Texts().back(),
              tag + "extension manager get extension by extension id failed" + impl);
    EXPECT_FALSE(facade->unRegisterExtension("c"));
    EXPECT_EQ(log->Texts().back(), tag + "extension manager unregister extension failed" + impl);

    // Eight operations share the registration message.
    log->Clear();
    EXPECT_FALSE(facade->RegisterExtension([](auto&, auto&, void**) { return true; }, "c", true));
    EXPECT_FALSE(facade->GetLibFileVerifyEnable());
    facade->SetLibFileVerifyEnable(true);
    EXPECT_FALSE(facade->GetSignVerifyEnable());
    facade->SetSignVerifyEnable(true);
    EXPECT_FALSE(facade->SetSecKey(std::string(32, 'k')));
    EXPECT_FALSE(facade->SetDebugModeEnable(true));
    facade->SetFetchExtensionAuthInfoCallback(nullptr);
    auto lines = log->Texts();
    ASSERT_EQ(lines.size(), 8u);
    for (auto& l : lines) {
        EXPECT_EQ(l, reg);
    }
    for (auto& entry : log->lines) {
        EXPECT_EQ(entry.first, 0);
    }
}

TEST_F(ExtensionManagerFacade, ForwardsCallsAndResultsToTheImplementation) {
    auto impl = std::make_shared<FakeExtensionManager>();
    facade->Initialize(impl);
    facade->SetFoundationVersion("2.0");
    EXPECT_EQ(impl->version, "2.0");
    void* out = nullptr;
    EXPECT_TRUE(facade->GetExtension("point", &out));
    EXPECT_EQ(out, impl.get());
    EXPECT_FALSE(facade->GetExtension("other", &out));
    facade->SetLibFileVerifyEnable(true);
    EXPECT_TRUE(facade->GetLibFileVerifyEnable());
    EXPECT_FALSE(facade->GetSignVerifyEnable());
    EXPECT_TRUE(facade->SetSecKey(std::string(32, 'k')));
    EXPECT_FALSE(facade->SetSecKey("short"));
    std::string seenClass;
    EXPECT_TRUE(facade->RegisterExtension(
        [&](const std::string&, const std::string& cls, void**) {
            seenClass = cls;
            return true;
        },
        "{c}", false));
    EXPECT_EQ(seenClass, "{c}");
    EXPECT_TRUE(log->lines.empty());
}

TEST_F(ExtensionManagerFacade, ImplementationMayCallBackIntoTheFacadeOnTheSameThread) {
    auto impl = std::make_shared<FakeExtensionManager>();
    impl->libVerify = true;
    // As the bundle manager does during a load.
    impl->onLoad = [] { return QZExtensionManager::GetInstance()->GetLibFileVerifyEnable(); };
    facade->Initialize(impl);
    EXPECT_TRUE(facade->Load());
}

TEST_F(ExtensionManagerFacade, OtherThreadsWaitWhileACallIsInside) {
    auto impl = std::make_shared<FakeExtensionManager>();
    std::promise<void> entered;
    std::promise<void> leave;
    std::shared_future<void> leaveSignal = leave.get_future().share();
    impl->onLoad = [&] {
        entered.set_value();
        leaveSignal.wait();
        return true;
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

TEST_F(ExtensionManagerFacade, InitializeWithEmptyClearsButSetImplWithEmptyKeeps) {
    auto impl = std::make_shared<FakeExtensionManager>();
    facade->Initialize(impl);
    QZExtensionManagerTestPeer::SetImpl(nullptr);
    EXPECT_TRUE(facade->Load());
    facade->Initialize(nullptr);
    EXPECT_FALSE(facade->Load());
    EXPECT_EQ(impl.use_count(), 1);
    QZExtensionManagerTestPeer::SetImpl(impl);
    EXPECT_TRUE(facade->Load());
}

TEST_F(ExtensionManagerFacade, UnInitializeReleasesOnlyTheFacadesReference) {
    auto impl = std::make_shared<FakeExtensionManager>();
    facade->Initialize(impl);
    facade->SetSignVerifyEnable(true);
    EXPECT_EQ(impl.use_count(), 2);
    facade->UnInitialize();
    EXPECT_EQ(impl.use_count(), 1);
    EXPECT_FALSE(facade->GetSignVerifyEnable());
    facade->Initialize(impl);
    EXPECT_TRUE(facade->GetSignVerifyEnable());
}

// Service facade ---------------------------------------------------------------

class IEcho : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6A0001}")
    virtual int Echo(int v) = 0;
};

class EchoService : public IEcho, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    int Echo(int v) override { return v + 1; }
};

class RecordingServiceManager : public IQZServiceManager {
public:
    QZServiceRegisterInfo last;
    bool RegisterService(const QZServiceRegisterInfo& info) override {
        last = info;
        return true;
    }
    void* GetService(const std::string& name) override {
        void* out = nullptr;
        if (name == last.serviceName && last.creator && last.creator(&out)) {
            return out;
        }
        return nullptr;
    }
};

TEST(ServiceManagerFacade, WithoutImplementationFailsSilently) {
    auto log = qzetest::CaptureLog();
    QZServiceManager* facade = QZServiceManager::GetInstance();
    facade->UnInitialize();
    EXPECT_FALSE(facade->RegisterService<EchoService>("Echo", "{c}", "{i}", true));
    EXPECT_EQ(facade->GetService<IEcho>("Echo"), nullptr);
    EXPECT_TRUE(log->lines.empty());
}

TEST(ServiceManagerFacade, RegistersAClassWhoseCreatorYieldsTheQueriedInterface) {
    QZServiceManager* facade = QZServiceManager::GetInstance();
    auto impl = std::make_shared<RecordingServiceManager>();
    facade->Initialize(impl);
    EXPECT_TRUE(
        facade->RegisterService<EchoService>("Echo", "{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6A0002}",
                                             "{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6A0001}", false));
    EXPECT_EQ(impl->last.serviceName, "Echo");
    EXPECT_EQ(impl->last.classId, "{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6A0002}");
    EXPECT_FALSE(impl->last.isSingleton);
    IEcho* echo = facade->GetService<IEcho>("Echo");
    ASSERT_NE(echo, nullptr);
    EXPECT_EQ(echo->Echo(41), 42);
    // The caller holds the one reference left after the creator's own drop.
    EXPECT_EQ(echo->Release(), 0u);

    // A creator for an interface the class does not answer fails.
    void* out = nullptr;
    EXPECT_FALSE(QZServiceManager::CreateServiceObject<EchoService>(by::IID_IQZEBundle, &out));
    EXPECT_EQ(out, nullptr);
    facade->UnInitialize();
}

}  // namespace
}  // namespace qzextensionkit
