#include "services/open_network_api.h"

#include <utility>

#include "kit/service_manager.h"

namespace qzextensionkit {

namespace {

const char kOpenNetServiceName[] = "OpenNetService";

}  // namespace

QZStartRequestError::QZStartRequestError(int code, const std::string& message)
    : code(code), message(message) {}
QZStartRequestError::QZStartRequestError(const QZStartRequestError& other) = default;
QZStartRequestError::QZStartRequestError(QZStartRequestError&& other) = default;
QZStartRequestError::~QZStartRequestError() = default;
QZStartRequestError& QZStartRequestError::operator=(const QZStartRequestError& other) = default;
QZStartRequestError& QZStartRequestError::operator=(QZStartRequestError&& other) = default;

int QZStartRequestError::GetCode() const {
    return code;
}

std::string QZStartRequestError::GetMsg() const {
    return message;
}

QZOpenNetworkAPI::QZOpenNetworkAPI(const std::string& field) : field(field) {}
QZOpenNetworkAPI::QZOpenNetworkAPI(const QZOpenNetworkAPI& other) = default;
QZOpenNetworkAPI::~QZOpenNetworkAPI() = default;
QZOpenNetworkAPI& QZOpenNetworkAPI::operator=(const QZOpenNetworkAPI& other) = default;

bool QZOpenNetworkAPI::StartRequest(const std::string& first, const std::string& second,
                                    const std::string& third,
                                    const std::function<void(const std::string&)>& onSuccess,
                                    const std::function<void(int, const std::string&)>& onFailure) {
    // The reference the lookup hands out is kept: the registry's services
    // live as long as the process.
    IQZOpenNetService* service =
        QZServiceManager::GetInstance()->GetService<IQZOpenNetService>(kOpenNetServiceName);
    if (!service) {
        return false;
    }
    // The wrappers own copies, so a service may keep them and call later.
    std::function<void(const std::string&)> success = [onSuccess](const std::string& text) {
        if (onSuccess) {
            onSuccess(text);
        }
    };
    std::function<void(QZStartRequestError&)> failure = [onFailure](QZStartRequestError& error) {
        std::string message = error.GetMsg();
        int code = error.GetCode();
        if (onFailure) {
            onFailure(code, message);
        }
    };
    return service->StartRequest(field, first, second, third, success, failure);
}

}  // namespace qzextensionkit
