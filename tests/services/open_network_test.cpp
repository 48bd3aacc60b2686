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

namespace qzextensionkit {
namespace {

using Success = std::function<void(const std::string&)>;
using Failure = std::function<void(QZStartRequestError&)>;
using Texts = std::vector<std::string>;

// Keeps the kit's callbacks for a later answer.
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
    Texts asked;
    std::function<void(const Success&, const Failure&)> answer;
    bool result = true;
    Success keptSuccess;
    Failure keptFailure;
};

class OpenNetwork : public ::testing::Test {
protected:
    void SetUp() override {
        QZExtensionKit::InitSDK();
        log = qzetest::CaptureLog();
        QZServiceManager::GetInstance()->Initialize(std::make_shared<QZServiceManagerImpl>());
    }
    void TearDown() override {
        QZServiceManager::GetInstance()->Initialize(QZServiceManagerImpl::GetInstance());
    }
    void Install(const std::string& name) {
        QZServiceRegisterInfo info;
        info.serviceName = name;
        info.classId = "{6C1B3B0E-5E4F-4C8B-9A51-0D6F2A7C9E11}";
        info.interfaceId = "{0E0B7A52-9C3D-4F1E-8B26-3D5A9F47C210}";
        FakeNetService* fake = &service;
        info.creator = [fake](void** out) {
            fake->AddRef();
            *out = static_cast<IQZOpenNetService*>(fake);
            return true;
        };
        ASSERT_TRUE(QZServiceManager::GetInstance()->RegisterService(info));
    }
    bool Send(QZOpenNetworkAPI& api, std::shared_ptr<Texts> seen) {
        return api.StartRequest(
            "GET", "/v1/items", "",
            [seen](const std::string& text) { seen->push_back("success " + text); },
            [seen](int code, const std::string& message) {
                seen->push_back("failure " + std::to_string(code) + " " + message);
            });
    }

    FakeNetService service;
    std::shared_ptr<qzetest::CapturedLines> log;
};

// Answers may come at once, twice, or later from another thread after the
// API object is gone. Copies send the same field.
TEST_F(OpenNetwork, TheServiceGetsTheFieldAndAnswersThroughAdaptedCallbacks) {
    auto seen = std::make_shared<Texts>();
    QZOpenNetworkAPI original("one");
    Install("OpenNetservice");  // one letter's case off: nothing is sent
    EXPECT_FALSE(Send(original, seen));
    EXPECT_TRUE(seen->empty() && service.asked.empty());
    EXPECT_EQ(log->Texts(), Texts{"[QZExtensionKit] service manager impl - get service failed, "
                                  "because of service is not registered"});
    Install("OpenNetService");
    service.answer = [](const Success& s, const Failure& f) {
        QZStartRequestError error(-404, "not found");
        f(error);
        s("{\"ok\":1}");
    };
    EXPECT_TRUE(Send(original, seen));
    EXPECT_EQ(*seen, (Texts{"failure -404 not found", "success {\"ok\":1}"}));
    service.answer = nullptr;
    service.result = false;
    seen->clear();
    EXPECT_FALSE(Send(original, seen));
    service.result = true;
    auto answerLater = [this] {
        std::thread network([this] {
            service.keptSuccess("late");
            QZStartRequestError error(7, "gone");
            service.keptFailure(error);
        });
        network.join();
    };
    {
        QZOpenNetworkAPI copy(original);
        ASSERT_TRUE(Send(copy, seen));
    }
    answerLater();
    EXPECT_EQ(*seen, (Texts{"success late", "failure 7 gone"}));
    // Empty callbacks are safe to answer.
    QZOpenNetworkAPI assigned("two");
    assigned = original;
    EXPECT_TRUE(assigned.StartRequest("1", "2", "3", nullptr, nullptr));
    answerLater();
    EXPECT_EQ(seen->size(), 2u);
    EXPECT_EQ(service.asked, (Texts{"one|GET|/v1/items|", "one|GET|/v1/items|",
                                    "one|GET|/v1/items|", "one|1|2|3"}));
}

}  // namespace
}  // namespace qzextensionkit
