#include "component/object_container.h"

#include <atomic>
#include <cstdint>
#include "component/guid.h"
#include "kit/log_service.h"
#include "kit/singleton.h"

// Every line of the container goes out at level 0.
#define CONTAINER_LOG(...) \
    ::qzextensionkit::QZELogService::GetInstance()->LogMessage(0, __VA_ARGS__)

namespace qzextensionkit {

namespace {

const char* BoolText(bool value) {
    return value ? "true" : "false";
}

}  // namespace

IQZEObjectContainer::~IQZEObjectContainer() = default;

QZEObjectContainer::QZEObjectContainer() = default;
QZEObjectContainer::~QZEObjectContainer() = default;

QZEObjectContainer* QZEObjectContainer::GetInstance() {
    return internal::ProcessSingleton<QZEObjectContainer>::Get();
}

bool QZEObjectContainer::IsRegistered(const std::string& classId) {
    std::lock_guard<std::recursive_mutex> hold(registerMutex_);
    if (classId.empty()) {
        CONTAINER_LOG(
            "object container impl - query class is registered failed, because of class id is "
            "empty");
        return false;
    }
    bool found = registry_.find(classId) != registry_.end();
    CONTAINER_LOG("object container impl - class id:%s, class %s", classId.c_str(),
                  found ? "is registered" : "is not registered");
    return found;
}

bool QZEObjectContainer::Register(const QZEObjectCreator& creator, const std::string& classId,
                                  bool isSingleton) {
    if (classId.empty()) {
        CONTAINER_LOG("object container impl - register failed, because of class id is empty");
        return false;
    }
    // Test and insert are two holds of the lock: of two racing registrations
    // the insert of the second finds the key and keeps the first record.
    if (IsRegistered(classId)) {
        return true;
    }
    {
        std::lock_guard<std::recursive_mutex> hold(registerMutex_);
        auto info = std::make_shared<QZEObjectRegisterInfo>();
        info->classId = classId;
        info->isSingleton = isSingleton;
        info->creator = creator;
        registry_.emplace(classId, std::move(info));
        CONTAINER_LOG("object container impl - class id:%s, is singletion;%s, register success",
                      classId.c_str(), BoolText(isSingleton));
    }
    return true;
}

bool QZEObjectContainer::UnRegister(const std::string& classId) {
    std::lock_guard<std::recursive_mutex> hold(registerMutex_);
    if (classId.empty()) {
        CONTAINER_LOG("object container impl - unregister failed, because of class id is empty");
        return false;
    }
    auto it = registry_.find(classId);
    if (it == registry_.end()) {
        CONTAINER_LOG(
            "object container impl - class id:%s, unregister failed, because of not found "
            "register info",
            classId.c_str());
        return false;
    }
    registry_.erase(it);
    // The kept instance goes with the registration; erasing its entry
    // releases the table's reference.
    RemoveSingletonObject(classId);
    CONTAINER_LOG("object container impl - class id:%s, unregister success", classId.c_str());
    return true;
}

bool QZEObjectContainer::GetObjectRegisterInfo(const std::string& classId,
                                               std::shared_ptr<QZEObjectRegisterInfo>* info) {
    if (classId.empty()) {
        CONTAINER_LOG(
            "object container impl - get object register info failed, because of class id is "
            "empty");
        return false;
    }
    if (!IsRegistered(classId)) {
        info->reset();
        CONTAINER_LOG(
            "object container impl - get object register info failed, because of class is not "
            "registered");
        return false;
    }
    std::lock_guard<std::recursive_mutex> hold(registerMutex_);
    auto it = registry_.find(classId);
    // Unregistered since the test above: nothing to hand out.
    *info = it != registry_.end() ? it->second : nullptr;
    CONTAINER_LOG("object container impl - get object register info success");
    return true;
}

bool QZEObjectContainer::GetSingletonObject(const std::string& classId, void** object) {
    if (classId.empty()) {
        CONTAINER_LOG(
            "object container impl - get singleton object failed, because of class id is empty");
        return false;
    }
    std::lock_guard<std::recursive_mutex> hold(singletonMutex_);
    auto it = singletons_.find(classId);
    if (it == singletons_.end()) {
        *object = nullptr;
        CONTAINER_LOG(
            "object container impl - class id:%s, get singleton object failed, because of object "
            "didn't founded",
            classId.c_str());
        return false;
    }
    // Borrowed: the table's reference is the only one.
    *object = it->second.Get();
    CONTAINER_LOG("object container impl - class id:%s, get singleton object success",
                  classId.c_str());
    return true;
}

bool QZEObjectContainer::SetSingletonObject(const std::string& classId, void* object) {
    std::lock_guard<std::recursive_mutex> hold(singletonMutex_);
    if (classId.empty()) {
        CONTAINER_LOG(
            "object container impl - set singleton object failed, because of class id is empty");
        return false;
    }
    if (object == nullptr) {
        CONTAINER_LOG(
            "object container impl - class id:%s, set singleton object failed, because of object "
            "pointer is nullptr",
            classId.c_str());
        return false;
    }
    // The table's own reference. An object that refuses the root query is
    // kept as a null entry.
    auto root = by::ComPtr<by::IBaseUnknown>::Query(static_cast<by::IBaseUnknown*>(object),
                                                    by::IID_IBaseUnknown);
    // The first object stored under an id stays.
    singletons_.emplace(classId, std::move(root));
    CONTAINER_LOG("object container impl - class id:%s, set singleton object success",
                  classId.c_str());
    return true;
}

bool QZEObjectContainer::RemoveSingletonObject(const std::string& classId) {
    if (classId.empty()) {
        CONTAINER_LOG(
            "object container impl - remove singleton object failed, because of class id is "
            "empty");
        return false;
    }
    std::lock_guard<std::recursive_mutex> hold(singletonMutex_);
    singletons_.erase(classId);
    return true;
}

bool QZEObjectContainer::CreateObjectInstanceByCreator(const std::string& iid,
                                                       const std::string& classId, void** object) {
    if (iid.empty()) {
        CONTAINER_LOG(
            "object container impl - create object instance by creator failed, because of iid is "
            "empty");
        return false;
    }
    if (classId.empty()) {
        CONTAINER_LOG(
            "object container impl - create object instance by creator failed, because of class "
            "id is empty");
        return false;
    }
    if (!IsRegistered(classId)) {
        CONTAINER_LOG(
            "object container impl - create object instance by creator failed, because of class "
            "is not registered");
        return false;
    }
    std::shared_ptr<QZEObjectRegisterInfo> info;
    if (!GetObjectRegisterInfo(classId, &info) || !info) {
        CONTAINER_LOG(
            "object container impl - create object instance by creator failed, because of can't "
            "get object register info");
        return false;
    }
    bool isSingleton = info->isSingleton;
    CONTAINER_LOG(
        "object container impl - create object instance by creator, iid:%s, class id:%s, "
        "singleton:%s",
        iid.c_str(), classId.c_str(), BoolText(isSingleton));

    // No container lock is held from here on while the creator runs, so two
    // threads may both miss a singleton and both build one; the first stored
    // stays in the table and each caller keeps its own.
    if (!isSingleton) {
        if (info->creator(iid, classId, object)) {
            CONTAINER_LOG("object container impl - create object instance by creator success");
            return true;
        }
        CONTAINER_LOG(
            "object container impl - create object instance by creator failed, because of "
            "instance creator execute failed");
        return false;
    }
    if (GetSingletonObject(classId, object)) {
        CONTAINER_LOG("object container impl - create object instance by creator success");
        return true;
    }
    if (!info->creator(iid, classId, object)) {
        CONTAINER_LOG(
            "object container impl - create object instance by creator failed, because of "
            "instance creator execute failed");
        return false;
    }
    if (!SetSingletonObject(classId, *object)) {
        CONTAINER_LOG(
            "object container impl - create object instance by creator failed, because of set "
            "singleton object failed");
        return false;
    }
    return true;
}

bool QZEObjectContainer::CreateObjectInstanceByLibrary(const std::string& iid,
                                                       const std::string& classId, bool isSingleton,
                                                       by::CComLoader* loader, void** object) {
    if (iid.empty()) {
        CONTAINER_LOG(
            "object container impl - create object instance failed by library, because of iid is "
            "empty");
        return false;
    }
    if (classId.empty()) {
        CONTAINER_LOG(
            "object container impl - create object instance failed by library, because of class "
            "id is empty");
        return false;
    }
    CONTAINER_LOG(
        "object container impl - create object instance by library, iid:%s, class id:%s, is "
        "singleton:%s",
        iid.c_str(), classId.c_str(), BoolText(isSingleton));

    if (isSingleton && GetSingletonObject(classId, object)) {
        CONTAINER_LOG("object container impl - create object instance success");
        return true;
    }
    by::GUID interfaceId = by::ParseGuid(iid.c_str(), true);
    by::GUID classGuid = by::ParseGuid(classId.c_str(), true);
    if (loader == nullptr ||
        loader->CreateInstance(classGuid, nullptr, nullptr, interfaceId, object) != 0) {
        CONTAINER_LOG(
            "object container impl - create object instance failed, because of com loader create "
            "instance failed");
        return false;
    }
    CONTAINER_LOG("object container impl - com loader create instance success");
    if (isSingleton && !SetSingletonObject(classId, *object)) {
        CONTAINER_LOG(
            "object container impl - create object instance failed, because of set singleton "
            "object failed");
        return false;
    }
    CONTAINER_LOG("object container impl - create object instance success");
    return true;
}

}  // namespace qzextensionkit
