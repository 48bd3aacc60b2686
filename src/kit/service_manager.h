#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "component/unknown.h"
#include "platform/export.h"

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

// One service's registration: its name, class id and interface id (braced
// texts), whether it is a singleton, and the creator that makes an object
// and stores an interface pointer.
class QZEKIT_EXPORT QZServiceRegisterInfo {
public:
    QZServiceRegisterInfo();
    QZServiceRegisterInfo(const QZServiceRegisterInfo& other);
    QZServiceRegisterInfo& operator=(const QZServiceRegisterInfo& other);
    ~QZServiceRegisterInfo();

    std::string serviceName;
    std::string classId;
    std::string interfaceId;
    bool isSingleton;
    std::function<bool(void**)> creator;
};

// Register first, then look up. There is no virtual destructor.
class QZEKIT_EXPORT IQZServiceManager {
public:
    virtual bool RegisterService(const QZServiceRegisterInfo& info) = 0;
    virtual void* GetService(const std::string& name) = 0;

protected:
    // Owners hold the implementation by its own type (std::make_shared), so
    // nothing deletes through this interface.
    ~IQZServiceManager() = default;
};

// The registry of named services. Calls run under one recursive mutex,
// creators included. Without an implementation registration returns false
// and lookups null, silently.
class QZEKIT_EXPORT QZServiceManager {
public:
    static QZServiceManager* GetInstance();

    void Initialize(std::shared_ptr<IQZServiceManager> impl);
    void UnInitialize();

    // Registers class T under `name`. The creator builds a
    // by::CComObject<T>, queries it for `interfaceId` and drops its own
    // reference: the caller of GetService gets the queried pointer.
    template <class T>
    bool RegisterService(const std::string& name, const std::string& classId,
                         const std::string& interfaceId, bool isSingleton) {
        std::lock_guard<std::recursive_mutex> hold(mutex_);
        std::shared_ptr<IQZServiceManager> impl = GetImpl();
        if (!impl) {
            return false;
        }
        QZServiceRegisterInfo info;
        info.serviceName = name;
        info.classId = classId;
        info.interfaceId = interfaceId;
        info.isSingleton = isSingleton;
        const by::GUID iid = by::ParseGuid(interfaceId.c_str(), true);
        info.creator = [iid](void** out) { return CreateServiceObject<T>(iid, out); };
        return impl->RegisterService(info);
    }

    // Registers a prepared record, for creators that are not a plain class.
    bool RegisterService(const QZServiceRegisterInfo& info) {
        std::lock_guard<std::recursive_mutex> hold(mutex_);
        std::shared_ptr<IQZServiceManager> impl = GetImpl();
        return impl ? impl->RegisterService(info) : false;
    }

    // The service registered under `name`, as interface I; null when there
    // is none. The pointer carries a reference.
    template <class I = void>
    I* GetService(const std::string& name) {
        std::lock_guard<std::recursive_mutex> hold(mutex_);
        std::shared_ptr<IQZServiceManager> impl = GetImpl();
        return static_cast<I*>(impl ? impl->GetService(name) : nullptr);
    }

    // The creator shape for class T.
    template <class T>
    static bool CreateServiceObject(const by::GUID& iid, void** out) {
        T* object = nullptr;
        if (by::CComObject<T>::CreateInstance(&object) != by::kOk || object == nullptr) {
            return false;
        }
        by::Result status = object->QueryInterface(iid, out);
        object->Release();
        return status == by::kOk;
    }

private:
    friend class internal::ProcessSingleton<QZServiceManager>;
    QZServiceManager();
    ~QZServiceManager();

    // A copy of the held pointer; callers hold the mutex.
    std::shared_ptr<IQZServiceManager> GetImpl() { return impl_; }

    std::recursive_mutex mutex_;
    std::shared_ptr<IQZServiceManager> impl_;
};

}  // namespace qzextensionkit
