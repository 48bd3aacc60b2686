#include "services/service_manager_impl.h"

#include <stdexcept>
#include <utility>

#include "component/guid.h"
#include "kit/log_service.h"
#include "kit/singleton.h"

// Every line of the service manager goes out at level 0.
#define SERVICE_LOG(...) ::qzextensionkit::QZELogService::GetInstance()->LogMessage(0, __VA_ARGS__)

namespace qzextensionkit {

std::shared_ptr<IQZServiceManager> QZServiceManagerImpl::GetInstance() {
    return internal::SharedInstance<IQZServiceManager, QZServiceManagerImpl>::Get();
}

QZServiceManagerImpl::QZServiceManagerImpl() = default;
QZServiceManagerImpl::~QZServiceManagerImpl() = default;

bool QZServiceManagerImpl::RegisterService(const QZServiceRegisterInfo& info) {
    if (info.classId.empty()) {
        SERVICE_LOG("service manager impl - register failed, because of class id is empty");
        return false;
    }
    if (info.interfaceId.empty()) {
        SERVICE_LOG("service manager impl - register failed, because of interface id is empty");
        return false;
    }
    if (info.serviceName.empty()) {
        SERVICE_LOG("service manager impl - register failed, because of service name is empty");
        return false;
    }
    if (IsServiceRegistered(info.serviceName)) {
        SERVICE_LOG(
            "service manager impl - register failed, because of the service name (%s) is "
            "registered",
            info.serviceName.c_str());
        return false;
    }
    std::lock_guard<std::recursive_mutex> hold(registryMutex_);
    // The name lives only as the key of names_.
    auto record = std::make_shared<QZServiceRegisterInfo>();
    record->classId = info.classId;
    record->isSingleton = info.isSingleton;
    record->creator = info.creator;
    record->interfaceId = info.interfaceId;
    // A class id registered before keeps its record; the new name shares it.
    classes_.emplace(info.classId, std::move(record));
    names_.emplace(info.serviceName, info.classId);
    return true;
}

void* QZServiceManagerImpl::GetService(const std::string& name) {
    if (name.empty()) {
        SERVICE_LOG("service manager impl - get service failed, because of service name is empty");
        return nullptr;
    }
    if (!IsServiceRegistered(name)) {
        SERVICE_LOG(
            "service manager impl - get service failed, because of service is not registered");
        return nullptr;
    }
    const std::string classId = GetServiceClassId(name);
    QZServiceRegisterInfo* info = nullptr;
    if (!GetServiceRegisterInfo(classId, &info)) {
        SERVICE_LOG(
            "service manager impl - get service failed, because of can't get service register "
            "info");
        return nullptr;
    }
    // Records are never removed or changed, so `info` stays valid while the
    // creator runs with no lock held.
    void* service = nullptr;
    if (!info->isSingleton) {
        if (!info->creator(&service)) {
            SERVICE_LOG(
                "service manager impl - get service failed, because of construct service failed");
            return nullptr;
        }
        return service;
    }

    by::IBaseUnknown* kept = nullptr;
    // A kept null entry (an object that refused the root query) counts as
    // none, rather than being queried.
    if (GetSingletonObject(classId, &kept) && kept != nullptr) {
        const by::GUID iid = by::ParseGuid(info->interfaceId.c_str(), true);
        if (kept->QueryInterface(iid, &service) != by::kOk) {
            SERVICE_LOG(
                "service manager impl - get service failed(singleton), because of query target "
                "service interface failed");
            return nullptr;
        }
        return service;
    }
    // Two callers that bypass the facade may both get here; the first object
    // kept stays, and each caller has the one it made.
    if (!info->creator(&service)) {
        SERVICE_LOG(
            "service manager impl - get service failed(singleton), because of construct service "
            "failed");
        return nullptr;
    }
    SetSingletonObject(classId, static_cast<by::IBaseUnknown*>(service));
    return service;
}

bool QZServiceManagerImpl::IsServiceRegistered(const std::string& name) {
    if (name.empty()) {
        SERVICE_LOG(
            "service manager impl - query service is registered failed, because of service name "
            "is empty");
        return false;
    }
    std::lock_guard<std::recursive_mutex> hold(registryMutex_);
    return names_.find(name) != names_.end();
}

bool QZServiceManagerImpl::IsClassRegistered(const std::string& classId) {
    if (classId.empty()) {
        SERVICE_LOG(
            "service manager impl - query class is registered failed, because of class id is "
            "empty");
        return false;
    }
    std::lock_guard<std::recursive_mutex> hold(registryMutex_);
    return classes_.find(classId) != classes_.end();
}

std::string QZServiceManagerImpl::GetServiceClassId(const std::string& name) {
    if (name.empty()) {
        SERVICE_LOG(
            "service manager impl - get service class id failed, because of service name is "
            "empty");
        return std::string();
    }
    std::lock_guard<std::recursive_mutex> hold(registryMutex_);
    auto found = names_.find(name);
    if (found == names_.end()) {
        // The same text on every standard library.
        throw std::out_of_range("invalid map<K, T> key");
    }
    return found->second;
}

bool QZServiceManagerImpl::GetServiceRegisterInfo(const std::string& classId,
                                                  QZServiceRegisterInfo** out) {
    if (classId.empty()) {
        SERVICE_LOG(
            "service manager impl - get service register info failed, because of class id is "
            "empty");
        return false;
    }
    if (!IsClassRegistered(classId)) {
        *out = nullptr;
        SERVICE_LOG(
            "service manager impl - get service register info failed, because of class is not "
            "registered");
        return false;
    }
    std::lock_guard<std::recursive_mutex> hold(registryMutex_);
    // Records are never removed, so the one found above is still there.
    *out = classes_.find(classId)->second.get();
    return true;
}

bool QZServiceManagerImpl::GetSingletonObject(const std::string& classId, by::IBaseUnknown** out) {
    if (classId.empty()) {
        SERVICE_LOG(
            "service manager imp - get singleton object failed, because of class id is empty");
        return false;
    }
    // No lock: the facade's mutex already keeps its callers one at a time.
    auto found = singletons_.find(classId);
    if (found != singletons_.end()) {
        // Borrowed: the table's reference keeps the object alive.
        *out = found->second.Get();
        return true;
    }
    *out = nullptr;
    SERVICE_LOG(
        "service manager imp - class id:%s, get singleton object failed, because of object didn't "
        "founded",
        classId.c_str());
    return false;
}

bool QZServiceManagerImpl::SetSingletonObject(const std::string& classId,
                                              by::IBaseUnknown* object) {
    std::lock_guard<std::recursive_mutex> hold(singletonMutex_);
    if (classId.empty()) {
        SERVICE_LOG(
            "service manager impl - set singleton object failed, because of class id is empty");
        return false;
    }
    if (object == nullptr) {
        SERVICE_LOG(
            "service manager impl - class id:%s, set singleton object failed, because of object "
            "pointer is nullptr",
            classId.c_str());
        return false;
    }
    // The table's own reference; an object that refuses the root query is
    // kept as a null entry.
    auto root = by::ComPtr<by::IBaseUnknown>::Query(object, by::IID_IBaseUnknown);
    singletons_.emplace(classId, std::move(root));
    return true;
}

}  // namespace qzextensionkit
