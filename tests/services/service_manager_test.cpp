#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/capture_logger.h"
#include "kit/qzextensionkit.h"
#include "kit/service_manager.h"
#include "services/open_network_api.h"
#include "services/service_manager_impl.h"

namespace qzextensionkit {
namespace {

using Lines = std::vector<std::string>;
constexpr char kPrefix[] = "[QZExtensionKit] service manager ";

struct IEcho : by::IBaseUnknown {
    static constexpr const char kId[] = "{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6A0002}";
    BY_DECLARE_INTERFACE_ID(kId)
    virtual int Echo(int v) = 0;
};

struct EchoService : IEcho, by::CUnknownImp {
    static std::atomic<int> live;
    EchoService() { ++live; }
    ~EchoService() override { --live; }
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    int Echo(int v) override { return v + 1; }
};
std::atomic<int> EchoService::live{0};

uint32_t Count(by::IBaseUnknown* object) {
    object->AddRef();
    return object->Release();
}

QZServiceRegisterInfo Record(const std::string& name, const std::string& classId, bool singleton) {
    QZServiceRegisterInfo info;
    info.serviceName = name, info.classId = classId, info.interfaceId = IEcho::kId;
    info.isSingleton = singleton;
    info.creator = [](void** out) {
        return QZServiceManager::CreateServiceObject<EchoService>(IEcho::InterfaceId(), out);
    };
    return info;
}

class ServiceManagerImpl : public ::testing::Test {
protected:
    void TearDown() override {
        QZServiceManager::GetInstance()->Initialize(QZServiceManagerImpl::GetInstance());
        manager.reset();
        EXPECT_EQ(EchoService::live.load(), 0) << "an object outlived its holders";
    }
    // Lines since the last call, without the prefix; each at level 0.
    Lines Take() {
        Lines out;
        for (auto& line : log->lines) {
            EXPECT_EQ(line.first, 0);
            out.push_back(
                line.second.substr(line.second.rfind(kPrefix, 0) == 0 ? sizeof(kPrefix) - 1 : 0));
        }
        log->Clear();
        return out;
    }
    IEcho* Get(const std::string& name) { return static_cast<IEcho*>(manager->GetService(name)); }

    std::shared_ptr<qzetest::CapturedLines> log = qzetest::CaptureLog();
    std::shared_ptr<QZServiceManagerImpl> manager = std::make_shared<QZServiceManagerImpl>();
};

TEST_F(ServiceManagerImpl, RegistrationsAreRefusedWithTheirLineOrServeTheClassesFirstRecord) {
    ASSERT_TRUE(manager->RegisterService(Record("Taken", "{c}", false)));
    const struct {
        std::function<void(QZServiceRegisterInfo&)> change;
        std::string reason;
    } rows[] = {
        // The class id is tested first.
        {[](auto& r) { r = QZServiceRegisterInfo(); }, "class id is empty"},
        {[](auto& r) { r.interfaceId.clear(); }, "interface id is empty"},
        {[](auto& r) { r.serviceName.clear(); }, "service name is empty"},
        {[](auto& r) { r.serviceName = "Taken"; }, "the service name (Taken) is registered"},
    };
    for (const auto& row : rows) {
        QZServiceRegisterInfo info = Record("New", "{second}", true);
        row.change(info);
        EXPECT_FALSE(manager->RegisterService(info) || manager->IsServiceRegistered("New") ||
                     manager->IsClassRegistered("{second}"));
        EXPECT_EQ(Take(), Lines{"impl - register failed, because of " + row.reason});
    }
    // A second name of a registered class is served by the first record.
    QZServiceRegisterInfo second = Record("Two", "{c}", true);
    second.interfaceId = "{other}";
    EXPECT_TRUE(manager->RegisterService(second));
    QZServiceRegisterInfo* stored = nullptr;
    ASSERT_TRUE(manager->GetServiceRegisterInfo("{c}", &stored));
    EXPECT_EQ(
        stored->serviceName + "|" + stored->interfaceId + "|" + manager->GetServiceClassId("Two"),
        std::string("|") + IEcho::kId + "|{c}");
    IEcho *a = Get("Two"), *b = Get("Two");
    ASSERT_TRUE(a && b && a != b && Take().empty());
    EXPECT_EQ(a->Release() + b->Release(), 0u);
}

TEST_F(ServiceManagerImpl, ASingletonIsMadeOnceAndEachPointerCarriesAReference) {
    ASSERT_TRUE(manager->RegisterService(Record("Echo", "{c}", true)));
    IEcho* first = Get("Echo");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Take(), Lines{"imp - class id:{c}, get singleton object failed, because of object "
                            "didn't founded"});
    // Two handed out and the table's; GetSingletonObject lends its pointer.
    by::IBaseUnknown* kept = nullptr;
    EXPECT_TRUE(Get("Echo") == first && manager->GetSingletonObject("{c}", &kept) &&
                kept == first && EchoService::live == 1);
    EXPECT_EQ(Count(first), 3u);
    // A second object for the class is not taken.
    EchoService* other = nullptr;
    by::CComObject<EchoService>::CreateInstance(&other);
    EXPECT_TRUE(manager->SetSingletonObject("{c}", static_cast<IEcho*>(other)));
    EXPECT_EQ(static_cast<IEcho*>(other)->Release(), 0u);
    first->Release(), first->Release();
    EXPECT_TRUE(EchoService::live == 1 && Take().empty());  // the table's, until TearDown
}

// Creators never store a pointer here; a failed one runs again next time.
TEST_F(ServiceManagerImpl, FailuresGiveNullAndLogTheirLinesEachTime) {
    int calls = 0;
    for (const char* name : {"n0", "n1", "s0", "s1"}) {
        QZServiceRegisterInfo info = Record(name, std::string("{") + name + "}", name[0] == 's');
        info.creator = [&calls, name](void**) { return ++calls, name[1] == '1'; };
        ASSERT_TRUE(manager->RegisterService(info));
    }
    // A partial hexadecimal id parses to one IEcho does not answer.
    QZServiceRegisterInfo odd = Record("odd", "{odd}", true);
    odd.interfaceId = "{0F7C2A52-1B7B-4E0C-9A57-5D3B1B6AZZZZ}";
    ASSERT_TRUE(manager->RegisterService(odd));
    IEcho* made = Get("odd");
    ASSERT_NE(made, nullptr);
    auto notFound = [](const char* id) {
        return "imp - class id:" + std::string(id) +
               ", get singleton object failed, because of object didn't founded";
    };
    const std::string failed = "impl - get service failed", because = ", because of ";
    const struct {
        const char* name;
        Lines lines;
    } rows[] = {
        {"n0", {failed + because + "construct service failed"}},
        {"n1", {}},
        {"s0", {notFound("{s0}"), failed + "(singleton)" + because + "construct service failed"}},
        {"s1",
         {notFound("{s1}"), "impl - class id:{s1}, set singleton object failed" + because +
                                "object pointer is nullptr"}},
        {"odd", {failed + "(singleton)" + because + "query target service interface failed"}},
        {"", {failed + because + "service name is empty"}},
        {"Other", {failed + because + "service is not registered"}},
    };
    Take();
    for (const auto& row : rows) {
        for (int attempt = 0; attempt < 2; ++attempt) {
            EXPECT_EQ(Get(row.name), nullptr);
            EXPECT_EQ(Take(), row.lines);
        }
    }
    // The failed query left the count alone.
    EXPECT_TRUE(calls == 8 && made->Release() == 1u);
}

// Process-wide instances: names are unique per test, as registrations stay.
// The facade holds its mutex across the creator.
TEST(ServiceManagerFacade, RacersGetOneSingletonWhichOutlivesUnInitialize) {
    QZExtensionKit::InitSDK();
    std::shared_ptr<IQZServiceManager> impl = QZServiceManagerImpl::GetInstance();
    QZServiceManager* facade = QZServiceManager::GetInstance();
    std::atomic<int> calls{0};
    QZServiceRegisterInfo info = Record("Facade.Echo", "{f1}", true);
    info.creator = [&calls](void** out) {
        ++calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        return QZServiceManager::CreateServiceObject<EchoService>(IEcho::InterfaceId(), out);
    };
    ASSERT_TRUE(facade->RegisterService(info));
    IEcho* echo = nullptr;
    std::thread first([&] { echo = facade->GetService<IEcho>("Facade.Echo"); });
    IEcho* second = facade->GetService<IEcho>("Facade.Echo");
    first.join();
    ASSERT_TRUE(echo && echo == second && calls.load() == 1 && echo->Echo(41) == 42);
    facade->UnInitialize();
    auto log = qzetest::CaptureLog();
    // An empty facade fails silently.
    EXPECT_FALSE(facade->RegisterService<EchoService>("Facade.Other", "{f3}", IEcho::kId, false) ||
                 facade->GetService<IEcho>("Facade.Echo") != nullptr || !log->lines.empty());
    QZExtensionKit::InitSDK();
    EXPECT_TRUE(QZServiceManagerImpl::GetInstance() == impl &&
                facade->GetService<IEcho>("Facade.Echo") == echo);
    EXPECT_EQ(Count(echo), 4u);  // three handed out, one in the table
    echo->Release(), echo->Release(), echo->Release();
}

using Success = std::function<void(const std::string&)>;
using Failure = std::function<void(QZStartRequestError&)>;

// Keeps the kit's callbacks and answers them from a thread of its own.
struct FakeNetService : IQZOpenNetService {
    by::Result QueryInterface(const by::GUID&, void** out) override {
        *out = this;
        return by::kOk;
    }
    uint32_t AddRef() override { return 1; }
    uint32_t Release() override { return 1; }
    bool StartRequest(const std::string& field, const std::string& first, const std::string& second,
                      const std::string& third, const Success& success,
                      const Failure& failure) override {
        asked.push_back(field + "|" + first + "|" + second + "|" + third);
        keptSuccess = success, keptFailure = failure;
        return result;
    }
    void AnswerLater() {
        std::thread([this] {
            QZStartRequestError error(-404, "not found");
            keptFailure(error);
            keptSuccess("{\"ok\":1}");
        }).join();
    }

    Lines asked;
    bool result = true;
    Success keptSuccess;
    Failure keptFailure;
};

// Copies send the same field; answers may come after the API object is gone.
TEST_F(ServiceManagerImpl, TheNetworkFrontSendsItsFieldAndAnswersThroughAdaptedCallbacks) {
    QZServiceManager::GetInstance()->Initialize(manager);
    FakeNetService service;
    Lines seen;
    auto install = [&](const std::string& name) {
        QZServiceRegisterInfo info = Record(name, "{net}", false);
        info.creator = [&](void** out) { return service.QueryInterface(by::GUID(), out) == 0; };
        ASSERT_TRUE(manager->RegisterService(info));
    };
    auto send = [&](QZOpenNetworkAPI& api) {
        return api.StartRequest(
            "GET", "/v1/items", "", [&](const std::string& text) { seen.push_back(text); },
            [&](int code, const std::string& text) {
                seen.push_back(std::to_string(code) + " " + text);
            });
    };
    QZOpenNetworkAPI original("one");
    install("OpenNetservice");  // one letter's case off: nothing is sent
    EXPECT_FALSE(send(original));
    install("OpenNetService");
    service.result = false;
    EXPECT_FALSE(send(original));  // the service's own answer
    service.result = true;
    {
        QZOpenNetworkAPI copy(original);
        ASSERT_TRUE(send(copy));
    }
    service.AnswerLater();
    // Empty callbacks are safe to answer.
    EXPECT_TRUE(original.StartRequest("1", "2", "3", nullptr, nullptr));
    service.AnswerLater();
    EXPECT_EQ(seen, (Lines{"-404 not found", "{\"ok\":1}"}));
    EXPECT_EQ(service.asked, (Lines{"one|GET|/v1/items|", "one|GET|/v1/items|", "one|1|2|3"}));
}

}  // namespace
}  // namespace qzextensionkit
