#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/capture_logger.h"
#include "kit/qzextensionkit.h"
#include "services/service_manager_impl.h"

namespace qzextensionkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kPrefix[] = "[QZExtensionKit] service manager ";

class IEcho : public by::IBaseUnknown {
public:
    static constexpr const char kId[] = "{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6A0002}";
    BY_DECLARE_INTERFACE_ID(kId)
    virtual int Echo(int v) = 0;
};

// Counts the live objects, so that a test sees who keeps one alive.
class EchoService : public IEcho, public by::CUnknownImp {
public:
    static std::atomic<int> live;
    EchoService() { ++live; }
    ~EchoService() override { --live; }
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    int Echo(int v) override { return v + 1; }
};
std::atomic<int> EchoService::live{0};

// Reads a component object's count without changing it.
uint32_t Count(by::IBaseUnknown* object) {
    object->AddRef();
    return object->Release();
}

// The lines since the last call, without the common prefix; each at level 0.
std::vector<std::string> Take(qzetest::CapturedLines& log) {
    std::vector<std::string> out;
    for (auto& line : log.lines) {
        EXPECT_EQ(line.first, 0);
        std::string text = line.second;
        if (text.rfind(kPrefix, 0) == 0) {
            text = text.substr(sizeof(kPrefix) - 1);
        }
        out.push_back(text);
    }
    log.Clear();
    return out;
}

// A record whose creator counts its calls and builds an EchoService.
QZServiceRegisterInfo Record(const std::string& name, const std::string& classId, bool singleton,
                             std::shared_ptr<int> calls = std::make_shared<int>(0)) {
    QZServiceRegisterInfo info;
    info.serviceName = name;
    info.classId = classId;
    info.interfaceId = IEcho::kId;
    info.isSingleton = singleton;
    info.creator = [calls](void** out) {
        ++*calls;
        return QZServiceManager::CreateServiceObject<EchoService>(IEcho::InterfaceId(), out);
    };
    return info;
}

class ServiceManagerImpl : public ::testing::Test {
protected:
    void SetUp() override { log = qzetest::CaptureLog(); }
    void TearDown() override {
        manager.reset();
        EXPECT_EQ(EchoService::live.load(), 0) << "an object outlived its holders";
    }

    std::shared_ptr<QZServiceManagerImpl> manager = std::make_shared<QZServiceManagerImpl>();
    std::shared_ptr<qzetest::CapturedLines> log;
};

TEST_F(ServiceManagerImpl, RefusedRegistrationsLogTheirLineAndChangeNothing) {
    auto firstCalls = std::make_shared<int>(0);
    ASSERT_TRUE(manager->RegisterService(Record("Taken", "{first}", false, firstCalls)));
    struct Row {
        const char* what;
        std::function<void(QZServiceRegisterInfo&)> change;
        const char* line;
    };
    const Row rows[] = {
        {"empty class id", [](auto& r) { r.classId.clear(); },
         "impl - register failed, because of class id is empty"},
        {"empty interface id", [](auto& r) { r.interfaceId.clear(); },
         "impl - register failed, because of interface id is empty"},
        {"empty name", [](auto& r) { r.serviceName.clear(); },
         "impl - register failed, because of service name is empty"},
        // The class id is tested first, then the interface id, then the name.
        {"all empty", [](auto& r) { r = QZServiceRegisterInfo(); },
         "impl - register failed, because of class id is empty"},
        {"name taken", [](auto& r) { r.serviceName = "Taken"; },
         "impl - register failed, because of the service name (Taken) is registered"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        QZServiceRegisterInfo info = Record("New", "{second}", true);
        row.change(info);
        EXPECT_FALSE(manager->RegisterService(info));
        EXPECT_THAT(Take(*log), ElementsAre(row.line));
        EXPECT_FALSE(manager->IsServiceRegistered("New"));
        EXPECT_FALSE(manager->IsClassRegistered("{second}"));
        // "Taken" still serves its first record: a new object per call.
        auto* a = static_cast<IEcho*>(manager->GetService("Taken"));
        auto* b = static_cast<IEcho*>(manager->GetService("Taken"));
        ASSERT_TRUE(a && b);
        EXPECT_NE(a, b);
        a->Release();
        b->Release();
    }
    EXPECT_EQ(*firstCalls, 2 * static_cast<int>(std::size(rows)));
}

TEST_F(ServiceManagerImpl, ASecondNameServesTheFirstRecordANewObjectEachTime) {
    auto firstCalls = std::make_shared<int>(0);
    auto secondCalls = std::make_shared<int>(0);
    ASSERT_TRUE(manager->RegisterService(Record("One", "{c}", false, firstCalls)));
    QZServiceRegisterInfo second = Record("Two", "{c}", true, secondCalls);
    second.interfaceId = "{other}";
    EXPECT_TRUE(manager->RegisterService(second));

    QZServiceRegisterInfo* stored = nullptr;
    ASSERT_TRUE(manager->GetServiceRegisterInfo("{c}", &stored));
    EXPECT_EQ(stored->serviceName, "");  // the name is only a key
    EXPECT_EQ(stored->classId, "{c}");
    EXPECT_EQ(stored->interfaceId, IEcho::kId);
    EXPECT_FALSE(stored->isSingleton);
    EXPECT_EQ(manager->GetServiceClassId("Two"), "{c}");

    auto* a = static_cast<IEcho*>(manager->GetService("Two"));
    auto* b = static_cast<IEcho*>(manager->GetService("Two"));
    ASSERT_TRUE(a && b);
    EXPECT_NE(a, b);  // not a singleton: the first record decides
    EXPECT_EQ(*firstCalls, 2);
    EXPECT_EQ(*secondCalls, 0);
    EXPECT_THAT(Take(*log), IsEmpty());
    // Each new object carries the caller's reference only.
    EXPECT_EQ(EchoService::live.load(), 2);
    EXPECT_EQ(a->Release(), 0u);
    EXPECT_EQ(b->Release(), 0u);
}

TEST_F(ServiceManagerImpl, ASingletonIsMadeOnceAndEachPointerCarriesAReference) {
    auto calls = std::make_shared<int>(0);
    ASSERT_TRUE(manager->RegisterService(Record("Echo", "{c}", true, calls)));
    auto* first = static_cast<IEcho*>(manager->GetService("Echo"));
    ASSERT_NE(first, nullptr);
    EXPECT_THAT(Take(*log), ElementsAre("imp - class id:{c}, get singleton object failed, because "
                                        "of object didn't founded"));
    // The caller's reference and the table's.
    EXPECT_EQ(Count(first), 2u);

    auto* second = static_cast<IEcho*>(manager->GetService("Echo"));
    EXPECT_EQ(second, first);
    EXPECT_EQ(Count(first), 3u);
    EXPECT_EQ(*calls, 1);
    EXPECT_THAT(Take(*log), IsEmpty());

    by::IBaseUnknown* kept = nullptr;
    ASSERT_TRUE(manager->GetSingletonObject("{c}", &kept));
    EXPECT_EQ(kept, static_cast<by::IBaseUnknown*>(first));
    EXPECT_EQ(Count(first), 3u);  // borrowed

    first->Release();
    second->Release();
    EXPECT_EQ(EchoService::live.load(), 1);  // the table's reference
    EXPECT_EQ(first->Echo(1), 2);
    // TearDown: the table's reference goes with the manager.
}

TEST_F(ServiceManagerImpl, FailingCreatorsGiveNullAndRunAgainNextTime) {
    const std::string notFound =
        "imp - class id:{c}, get singleton object failed, because of object didn't founded";
    struct Row {
        const char* what;
        bool singleton;
        bool result;  // what the creator returns; it never stores a pointer
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {"plain, false",
         false,
         false,
         {"impl - get service failed, because of construct service failed"}},
        {"plain, true with null", false, true, {}},
        {"singleton, false",
         true,
         false,
         {notFound, "impl - get service failed(singleton), because of construct service failed"}},
        {"singleton, true with null",
         true,
         true,
         {notFound,
          "impl - class id:{c}, set singleton object failed, because of object pointer is "
          "nullptr"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        QZServiceRegisterInfo info = Record("S", "{c}", row.singleton);
        int calls = 0;
        const bool result = row.result;
        info.creator = [&calls, result](void**) {
            ++calls;
            return result;
        };
        manager = std::make_shared<QZServiceManagerImpl>();
        ASSERT_TRUE(manager->RegisterService(info));
        for (int attempt = 0; attempt < 2; ++attempt) {
            EXPECT_EQ(manager->GetService("S"), nullptr);
            EXPECT_EQ(Take(*log), row.lines);
        }
        EXPECT_EQ(calls, 2);
        by::IBaseUnknown* kept = nullptr;
        EXPECT_FALSE(manager->GetSingletonObject("{c}", &kept));
        log->Clear();
    }
}

TEST_F(ServiceManagerImpl, AMalformedInterfaceIdFailsFromTheSecondRequestOn) {
    // Wrong length parses to zero; hexadecimal that stops part way to a
    // partial id. Neither is IEcho's.
    for (const char* iid : {"{0F7C2A52}", "{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6AZZZZ}"}) {
        SCOPED_TRACE(iid);
        manager = std::make_shared<QZServiceManagerImpl>();
        QZServiceRegisterInfo info = Record("S", "{c}", true);
        info.interfaceId = iid;
        ASSERT_TRUE(manager->RegisterService(info));
        auto* made = static_cast<IEcho*>(manager->GetService("S"));
        ASSERT_NE(made, nullptr);  // the creator asks for IEcho itself
        log->Clear();
        EXPECT_EQ(manager->GetService("S"), nullptr);
        EXPECT_THAT(Take(*log), ElementsAre("impl - get service failed(singleton), because of "
                                            "query target service interface failed"));
        EXPECT_EQ(Count(made), 2u);  // the failed query left the count alone
        made->Release();
    }
}

// Answers QueryInterface for nothing, not even the root.
class Refusing : public by::IBaseUnknown {
public:
    int count = 1;
    int made = 0;
    by::Result QueryInterface(const by::GUID&, void**) override { return by::kNoInterface; }
    uint32_t AddRef() override { return static_cast<uint32_t>(++count); }
    uint32_t Release() override { return static_cast<uint32_t>(--count); }
};

TEST_F(ServiceManagerImpl, LookupsWithEmptyOrUnknownKeysLogAndFail) {
    ASSERT_TRUE(manager->RegisterService(Record("Known", "{c}", false)));
    // Non-null to start with, so that a row sees the out-pointer nulled.
    QZServiceRegisterInfo sentinel;
    QZServiceRegisterInfo* info = &sentinel;
    Refusing dummy;
    by::IBaseUnknown* object = &dummy;
    struct Row {
        const char* what;
        std::function<bool()> call;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {"get service, empty name",
         [&] { return manager->GetService("") != nullptr; },
         {"impl - get service failed, because of service name is empty"}},
        {"get service, unknown name",
         [&] { return manager->GetService("Other") != nullptr; },
         {"impl - get service failed, because of service is not registered"}},
        {"service registered, empty",
         [&] { return manager->IsServiceRegistered(""); },
         {"impl - query service is registered failed, because of service name is empty"}},
        {"class registered, empty",
         [&] { return manager->IsClassRegistered(""); },
         {"impl - query class is registered failed, because of class id is empty"}},
        {"class id, empty name",
         [&] { return !manager->GetServiceClassId("").empty(); },
         {"impl - get service class id failed, because of service name is empty"}},
        {"register info, empty id",
         [&] { return manager->GetServiceRegisterInfo("", &info); },
         {"impl - get service register info failed, because of class id is empty"}},
        {"register info, unknown id",
         [&] { return manager->GetServiceRegisterInfo("{d}", &info) || info != nullptr; },
         {"impl - get service register info failed, because of class is not registered"}},
        {"singleton, empty id",
         [&] { return manager->GetSingletonObject("", &object); },
         {"imp - get singleton object failed, because of class id is empty"}},
        {"singleton, unknown id",
         [&] { return manager->GetSingletonObject("{d}", &object) || object != nullptr; },
         {"imp - class id:{d}, get singleton object failed, because of object didn't founded"}},
        {"set singleton, empty id",
         [&] { return manager->SetSingletonObject("", reinterpret_cast<by::IBaseUnknown*>(1)); },
         {"impl - set singleton object failed, because of class id is empty"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_FALSE(row.call());
        EXPECT_EQ(Take(*log), row.lines);
    }
    EXPECT_TRUE(manager->IsServiceRegistered("Known"));
    EXPECT_FALSE(manager->IsServiceRegistered("Other"));
    try {
        manager->GetServiceClassId("Other");
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid map<K, T> key");
    }
}

TEST_F(ServiceManagerImpl, TheFirstKeptObjectStaysAndARefusedRootQueryKeepsNone) {
    EchoService* a = nullptr;
    EchoService* b = nullptr;
    ASSERT_EQ(by::CComObject<EchoService>::CreateInstance(&a), by::kOk);
    ASSERT_EQ(by::CComObject<EchoService>::CreateInstance(&b), by::kOk);
    EXPECT_TRUE(manager->SetSingletonObject("{c}", static_cast<IEcho*>(a)));
    EXPECT_TRUE(manager->SetSingletonObject("{c}", static_cast<IEcho*>(b)));
    EXPECT_EQ(Count(static_cast<IEcho*>(a)), 2u);
    EXPECT_EQ(Count(static_cast<IEcho*>(b)), 1u);
    by::IBaseUnknown* kept = nullptr;
    EXPECT_TRUE(manager->GetSingletonObject("{c}", &kept));
    EXPECT_EQ(kept, static_cast<by::IBaseUnknown*>(static_cast<IEcho*>(a)));
    static_cast<IEcho*>(a)->Release();
    static_cast<IEcho*>(b)->Release();

    // An object that refuses the root query is kept as a null entry, which
    // a request treats as no object: the creator runs each time.
    Refusing refusing;
    QZServiceRegisterInfo info = Record("R", "{r}", true);
    info.creator = [&refusing](void** out) {
        ++refusing.made;
        *out = &refusing;
        return true;
    };
    ASSERT_TRUE(manager->RegisterService(info));
    EXPECT_EQ(manager->GetService("R"), &refusing);
    EXPECT_EQ(manager->GetService("R"), &refusing);
    EXPECT_EQ(refusing.made, 2);
    EXPECT_TRUE(manager->GetSingletonObject("{r}", &kept));
    EXPECT_EQ(kept, nullptr);
    EXPECT_EQ(refusing.count, 1);
}

// The facade and InitSDK, on the process-wide instances. Names are unique
// to each test, since registrations can't be undone.
TEST(ServiceManagerFacade, HandsOutInterfacesAcrossInitSdkAndUnInitialize) {
    QZExtensionKit::InitSDK();
    std::shared_ptr<IQZServiceManager> impl = QZServiceManagerImpl::GetInstance();
    auto log = qzetest::CaptureLog();
    const int liveBefore = EchoService::live.load();
    QZServiceManager* facade = QZServiceManager::GetInstance();
    ASSERT_TRUE(facade->RegisterService<EchoService>("Facade.Echo", "{f1}", IEcho::kId, true));
    ASSERT_TRUE(facade->RegisterService<EchoService>("Facade.Bad", "{f2}", "{bad}", true));
    IEcho* echo = facade->GetService<IEcho>("Facade.Echo");
    ASSERT_NE(echo, nullptr);
    EXPECT_EQ(echo->Echo(41), 42);
    EXPECT_EQ(facade->GetService<IEcho>("Facade.Echo"), echo);
    // The class does not answer the malformed id: its creator fails and
    // leaves nothing behind.
    EXPECT_EQ(facade->GetService<IEcho>("Facade.Bad"), nullptr);
    EXPECT_EQ(EchoService::live.load(), liveBefore + 1);
    EXPECT_TRUE(log->Contains(std::string(kPrefix) +
                              "impl - get service failed(singleton), because of construct service "
                              "failed"));

    QZExtensionKit::InitSDK();
    EXPECT_EQ(QZServiceManagerImpl::GetInstance(), impl);
    EXPECT_EQ(facade->GetService<IEcho>("Facade.Echo"), echo);

    facade->UnInitialize();
    log->Clear();
    EXPECT_FALSE(facade->RegisterService<EchoService>("Facade.Other", "{f3}", IEcho::kId, false));
    EXPECT_EQ(facade->GetService<IEcho>("Facade.Echo"), nullptr);
    EXPECT_THAT(log->lines, IsEmpty());  // an empty facade fails silently

    QZExtensionKit::InitSDK();
    EXPECT_EQ(QZServiceManagerImpl::GetInstance(), impl);
    // The registration and the singleton made before are still there.
    EXPECT_EQ(facade->GetService<IEcho>("Facade.Echo"), echo);
    EXPECT_EQ(facade->GetService<IEcho>("Facade.Other"), nullptr);
    EXPECT_EQ(Count(echo), 5u);  // four handed out, one in the table
    for (int i = 0; i < 4; ++i) {
        echo->Release();
    }
}

// The facade holds its mutex across the creator, so two threads asking for
// a new singleton at once get one object.
TEST(ServiceManagerFacade, ConcurrentFirstRequestsBuildOneSingleton) {
    QZExtensionKit::InitSDK();
    std::atomic<int> calls{0};
    QZServiceRegisterInfo info = Record("Race.Echo", "{r1}", true);
    info.creator = [&calls](void** out) {
        ++calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        return QZServiceManager::CreateServiceObject<EchoService>(IEcho::InterfaceId(), out);
    };
    QZServiceManager* facade = QZServiceManager::GetInstance();
    ASSERT_TRUE(facade->RegisterService(info));
    IEcho* got[2] = {nullptr, nullptr};
    std::thread first([&] { got[0] = facade->GetService<IEcho>("Race.Echo"); });
    std::thread second([&] { got[1] = facade->GetService<IEcho>("Race.Echo"); });
    first.join();
    second.join();
    ASSERT_NE(got[0], nullptr);
    EXPECT_EQ(got[0], got[1]);
    EXPECT_EQ(calls.load(), 1);
    got[0]->Release();
    got[1]->Release();
}

}  // namespace
}  // namespace qzextensionkit
