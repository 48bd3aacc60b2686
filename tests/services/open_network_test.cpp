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
        keptSuccess = success, keptFailure = failure;
        return result;
    }
    // Answers with the kept callbacks from a thread of its own.
    void AnswerLater() {
        std::thread([this] {
            QZStartRequestError error(-404, "not found");
            keptFailure(error);
            keptSuccess("{\"ok\":1}");
        }).join();
    }

    std::atomic<uint32_t> references{1};
    Texts asked;
    bool result = true;
    Success keptSuccess;
    Failure keptFailure;
};

// Copies send the same field; answers may come from another thread after the
// API object is gone.
TEST(OpenNetwork, TheServiceGetsTheFieldAndAnswersThroughAdaptedCallbacks) {
    QZExtensionKit::InitSDK();
    auto log = qzetest::CaptureLog();
    QZServiceManager* services = QZServiceManager::GetInstance();
    services->Initialize(std::make_shared<QZServiceManagerImpl>());
    FakeNetService service;
    Texts seen;
    auto install = [&](const std::string& name) {
        QZServiceRegisterInfo info;
        info.serviceName = name;
        info.classId = "{6C1B3B0E-5E4F-4C8B-9A51-0D6F2A7C9E11}";
        info.interfaceId = "{0E0B7A52-9C3D-4F1E-8B26-3D5A9F47C210}";
        info.creator = [&](void** out) { return service.QueryInterface(by::GUID(), out) == 0; };
        ASSERT_TRUE(services->RegisterService(info));
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
    EXPECT_TRUE(seen.empty() && service.asked.empty() && log->lines.size() == 1);
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
    QZOpenNetworkAPI assigned("two");
    assigned = original;
    EXPECT_TRUE(assigned.StartRequest("1", "2", "3", nullptr, nullptr));
    service.AnswerLater();
    EXPECT_EQ(seen, (Texts{"-404 not found", "{\"ok\":1}"}));
    EXPECT_EQ(service.asked, (Texts{"one|GET|/v1/items|", "one|GET|/v1/items|", "one|1|2|3"}));
    services->Initialize(QZServiceManagerImpl::GetInstance());
}

}  // namespace
}  // namespace qzextensionkit
