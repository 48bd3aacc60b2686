#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/export.h"

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

// The creator a host registers for classes that no library delivers. It is
// called with the interface id, the class id and the place for the object.
using ExtensionCreator = std::function<bool(const std::string&, const std::string&, void**)>;

// Asked by the kit for missing access keys: the bundle ids, then a callback
// taking bundle id -> access key, then a callback taking an error text.
using FetchExtensionAuthInfoCallback = std::function<void(
    std::vector<std::string>, const std::function<void(const std::map<std::string, std::string>&)>&,
    const std::function<void(const std::string&)>&)>;

// What the host calls to get working extension objects. The order of the
// operations is binary interface.
class QZEKIT_EXPORT IQZExtensionManager {
public:
    virtual void SetFoundationVersion(const std::string& version) = 0;
    virtual bool Load() = 0;
    virtual bool Unload() = 0;
    virtual bool GetExtension(const std::string& extensionPointId, void** extension) = 0;
    virtual bool GetExtensionList(const std::string& extensionPointId,
                                  std::vector<void*>& extensions) = 0;
    virtual bool GetExtensionById(const std::string& extensionId, void** extension) = 0;
    virtual bool RegisterExtension(const ExtensionCreator& creator, const std::string& classId,
                                   bool isSingleton) = 0;
    virtual bool unRegisterExtension(const std::string& classId) = 0;
    virtual bool GetLibFileVerifyEnable() = 0;
    virtual void SetLibFileVerifyEnable(bool enable) = 0;
    virtual bool GetSignVerifyEnable() = 0;
    virtual void SetSignVerifyEnable(bool enable) = 0;
    virtual bool SetSecKey(const std::string& key) = 0;
    virtual bool SetDebugModeEnable(bool enable) = 0;
    virtual void SetFetchExtensionAuthInfoCallback(
        const FetchExtensionAuthInfoCallback& callback) = 0;
    virtual ~IQZExtensionManager();
};

// The host's entry to extensions. Every call runs under one recursive mutex,
// calls into plug-ins and the log sink included, so one thread at a time
// builds extensions. Without an implementation each call logs and fails.
class QZEKIT_EXPORT QZExtensionManager : public IQZExtensionManager {
public:
    static QZExtensionManager* GetInstance();

    // Swaps the implementation in; an empty pointer clears the facade. Not
    // synchronised with calls in flight: call while no other thread uses it.
    void Initialize(std::shared_ptr<IQZExtensionManager> impl);
    void UnInitialize();

    void SetFoundationVersion(const std::string& version) override;
    bool Load() override;
    bool Unload() override;
    bool GetExtension(const std::string& extensionPointId, void** extension) override;
    bool GetExtensionList(const std::string& extensionPointId,
                          std::vector<void*>& extensions) override;
    bool GetExtensionById(const std::string& extensionId, void** extension) override;
    bool RegisterExtension(const ExtensionCreator& creator, const std::string& classId,
                           bool isSingleton) override;
    bool unRegisterExtension(const std::string& classId) override;
    bool GetLibFileVerifyEnable() override;
    void SetLibFileVerifyEnable(bool enable) override;
    bool GetSignVerifyEnable() override;
    void SetSignVerifyEnable(bool enable) override;
    bool SetSecKey(const std::string& key) override;
    bool SetDebugModeEnable(bool enable) override;
    void SetFetchExtensionAuthInfoCallback(const FetchExtensionAuthInfoCallback& callback) override;

private:
    friend class internal::ProcessSingleton<QZExtensionManager>;

    QZExtensionManager();
    ~QZExtensionManager() override;

    // A copy of the held pointer; callers hold the mutex.
    std::shared_ptr<IQZExtensionManager> GetImpl();
    // Ignores an empty pointer, unlike Initialize.
    void SetImpl(const std::shared_ptr<IQZExtensionManager>& impl);

    // Locks, copies the implementation and runs `call` on it, or logs
    // `message` and returns `failure` when there is none.
    template <class R, class Call>
    R Forward(R failure, const char* message, const std::string* argument, Call call);

    std::recursive_mutex mutex_;
    std::shared_ptr<IQZExtensionManager> impl_;
};

}  // namespace qzextensionkit
