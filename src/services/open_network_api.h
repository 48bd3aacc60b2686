#pragma once

#include <functional>
#include <string>

#include "component/unknown.h"
#include "platform/export.h"

namespace qzextensionkit {

// A failed request as the network service reports it: its code and text.
class QZEKIT_EXPORT QZStartRequestError {
public:
    QZStartRequestError(int code, const std::string& message);
    QZStartRequestError(const QZStartRequestError& other);
    QZStartRequestError(QZStartRequestError&& other);
    ~QZStartRequestError();
    QZStartRequestError& operator=(const QZStartRequestError& other);
    QZStartRequestError& operator=(QZStartRequestError&& other);

    int GetCode() const;
    std::string GetMsg() const;

private:
    int code;
    std::string message;
};

// Implemented by the host and registered with the service manager under
// "OpenNetService"; GetService must yield this interface. The kit looks it
// up by name only, so its class and interface ids are the registrant's.
class IQZOpenNetService : public by::IBaseUnknown {
public:
    // `field` is the string of the QZOpenNetworkAPI, the next three are the
    // caller's. A service that calls back after returning keeps copies of
    // the two functions: the kit's are gone by then. The result is what the
    // caller gets.
    virtual bool StartRequest(const std::string& field, const std::string& first,
                              const std::string& second, const std::string& third,
                              const std::function<void(const std::string&)>& success,
                              const std::function<void(QZStartRequestError&)>& failure) = 0;

protected:
    ~IQZOpenNetService() = default;
};

// A thin front for network requests over the host's "OpenNetService". The
// kit has no network code: it finds the service, adapts the callbacks and
// passes the request on. The strings mean what caller and service agree on.
class QZEKIT_EXPORT QZOpenNetworkAPI {
public:
    // Not explicit: a field's text converts where the API is wanted.
    QZOpenNetworkAPI(const std::string& field);
    QZOpenNetworkAPI(const QZOpenNetworkAPI& other);
    ~QZOpenNetworkAPI();
    QZOpenNetworkAPI& operator=(const QZOpenNetworkAPI& other);

    // False when no "OpenNetService" is registered (neither callback runs);
    // otherwise the service's own result. Either callback may be empty. They
    // run on whichever thread the service uses, maybe after this returns.
    bool StartRequest(const std::string& first, const std::string& second, const std::string& third,
                      const std::function<void(const std::string&)>& onSuccess,
                      const std::function<void(int, const std::string&)>& onFailure);

private:
    std::string field;
};

}  // namespace qzextensionkit
