#include <gtest/gtest.h>

#include <atomic>
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

namespace {

using qzextensionkit::IQZOpenNetService;
using qzextensionkit::QZExtensionKit;
using qzextensionkit::QZOpenNetworkAPI;
using qzextensionkit::QZServiceManager;
using qzextensionkit::QZServiceManagerImpl;
using qzextensionkit::QZServiceRegisterInfo;
using qzextensionkit::QZStartRequestError;

using Success = std::function<void(const std::string&)>;
using Failure = std::function<void(QZStartRequestError&)>;

// The host's network service: records what it was asked and answers as the
// test says, now or later with the copies it keeps.
class FakeNetService : public IQZOpenNetService {
public:
    by::Result QueryInterface(const by::GUID&, void** out) override {
        *out = this;
        AddRef();
        return by::kOk;
    }
    uint32_t AddRef() override { return ++references; }
    uint32_t Release() override { return --references; }

    bool StartRequest(const std::string& field, const std::string& first, const std::string& second,
                      const std::string& third, const Success& success,
                      const Failure& failure) override {
        asked.push_back(field + "|" + first + "|" + second + "|" + third);
        if (answer) {
            answer(success, failure);
        }
        keptSuccess = success;
        keptFailure = failure;
        return result;
    }

    std::atomic<uint32_t> references{1};
    std::vector<std::string> asked;
    std::function<void(const Success&, const Failure&)> answer;
    bool result = true;
    Success keptSuccess;
    Failure keptFailure;
};

// Each test gets a registry of its own behind the facade, and the process's
// own goes back afterwards.
class OpenNetwork : public ::testing::Test {
protected:
    void SetUp() override {
        QZExtensionKit::InitSDK();
        log = qzetest::CaptureLog();
        registry = std::make_shared<QZServiceManagerImpl>();
        QZServiceManager::GetInstance()->Initialize(registry);
    }
    void TearDown() override {
        QZServiceManager::GetInstance()->Initialize(QZServiceManagerImpl::GetInstance());
    }
    // Registers the fake under `name`; every lookup hands out one reference.
    void Install(const std::string& name) {
        QZServiceRegisterInfo info;
        info.serviceName = name;
        info.classId = "{6C1B3B0E-5E4F-4C8B-9A51-0D6F2A7C9E11}";
        info.interfaceId = "{0E0B7A52-9C3D-4F1E-8B26-3D5A9F47C210}";
        info.isSingleton = false;
        FakeNetService* fake = &service;
        info.creator = [fake](void** out) {
            fake->AddRef();
            *out = static_cast<IQZOpenNetService*>(fake);
            return true;
        };
        ASSERT_TRUE(QZServiceManager::GetInstance()->RegisterService(info));
    }

    FakeNetService service;
    std::shared_ptr<QZServiceManagerImpl> registry;
    std::shared_ptr<qzetest::CapturedLines> log;
};

TEST_F(OpenNetwork, WithoutTheServiceNothingIsSent) {
    const std::string notRegistered =
        "[QZExtensionKit] service manager impl - get service failed, because of service is not "
        "registered";
    // Nothing registered, then a name that differs in one letter's case.
    for (const char* name : {"", "OpenNetservice"}) {
        SCOPED_TRACE(name);
        if (*name) {
            Install(name);
        }
        log->Clear();
        int calls = 0;
        QZOpenNetworkAPI api("field");
        EXPECT_FALSE(api.StartRequest(
            "a", "b", "c", [&](const std::string&) { ++calls; },
            [&](int, const std::string&) { ++calls; }));
        EXPECT_EQ(calls, 0);
        EXPECT_TRUE(service.asked.empty());
        EXPECT_EQ(log->Texts(), std::vector<std::string>{notRegistered});
    }
}

TEST_F(OpenNetwork, CallbacksAreAdaptedAndTheServiceDecides) {
    Install("OpenNetService");
    const struct {
        const char* name;
        std::function<void(const Success&, const Failure&)> answer;
        bool result;
        std::vector<std::string> seen;
    } cases[] = {
        {"success text unchanged",
         [](const Success& s, const Failure&) { s("{\"ok\":1}"); },
         true,
         {"success {\"ok\":1}"}},
        {"failure code and message unchanged",
         [](const Success&, const Failure& f) {
             QZStartRequestError error(-404, "not found");
             f(error);
         },
         true,
         {"failure -404 not found"}},
        {"the service's false reaches the caller", nullptr, false, {}},
        {"no check that exactly one is called",
         [](const Success& s, const Failure& f) {
             QZStartRequestError error(0, "");
             f(error);
             s("");
             s("again");
         },
         true,
         {"failure 0 ", "success ", "success again"}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        service.answer = c.answer;
        service.result = c.result;
        service.asked.clear();
        std::vector<std::string> seen;
        QZOpenNetworkAPI api("tenant");
        EXPECT_EQ(api.StartRequest(
                      "GET", "/v1/items", "",
                      [&](const std::string& text) { seen.push_back("success " + text); },
                      [&](int code, const std::string& message) {
                          seen.push_back("failure " + std::to_string(code) + " " + message);
                      }),
                  c.result);
        EXPECT_EQ(service.asked, std::vector<std::string>{"tenant|GET|/v1/items|"});
        EXPECT_EQ(seen, c.seen);
    }
}

// Copies send the same field. The service may keep the kit's functions and
// call them from its own thread after the request and the caller's own
// function objects are gone; empty callbacks are safe to answer.
TEST_F(OpenNetwork, CopiesAndLaterAnswersOnAnotherThread) {
    Install("OpenNetService");
    auto seen = std::make_shared<std::vector<std::string>>();
    auto answerLater = [this] {
        std::thread network([this] {
            service.keptSuccess("late");
            QZStartRequestError error(7, "gone");
            service.keptFailure(error);
        });
        network.join();
    };
    QZOpenNetworkAPI original("one");
    {
        QZOpenNetworkAPI copy(original);
        Success onSuccess = [seen](const std::string& text) { seen->push_back(text); };
        std::function<void(int, const std::string&)> onFailure =
            [seen](int code, const std::string& message) {
                seen->push_back(std::to_string(code) + ":" + message);
            };
        ASSERT_TRUE(copy.StartRequest("a", "b", "c", onSuccess, onFailure));
    }
    answerLater();
    EXPECT_EQ(*seen, (std::vector<std::string>{"late", "7:gone"}));
    QZOpenNetworkAPI assigned("two");
    assigned = original;
    EXPECT_TRUE(assigned.StartRequest("1", "2", "3", nullptr, nullptr));
    answerLater();
    EXPECT_EQ(seen->size(), 2u);
    EXPECT_EQ(service.asked, (std::vector<std::string>{"one|a|b|c", "one|1|2|3"}));
}

}  // namespace
