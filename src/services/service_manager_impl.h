#pragma once

// The registry of named services behind QZServiceManager.
//
// A service is registered by name with a class id, an interface id, a
// creator and a singleton flag. Class ids are the key of the registry: two
// names may share one class id, and then the first record registered for
// it serves both. Nothing can be unregistered.
//
// Reference counts: every pointer GetService hands out carries one
// reference, from the creator or from a query of the kept singleton. The
// singleton table holds one more reference of its own.

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "component/unknown.h"
#include "kit/service_manager.h"
#include "platform/export.h"

namespace qzextensionkit {

// Internal: the kit reaches it through QZServiceManager. Exported for the
// test programs, which build fresh instances of their own. Final, because
// its interface has no virtual destructor.
class QZEKIT_EXPORT QZServiceManagerImpl final : public IQZServiceManager {
public:
    // The process-wide instance, built on first use.
    static std::shared_ptr<IQZServiceManager> GetInstance();

    QZServiceManagerImpl();
    ~QZServiceManagerImpl();
    QZServiceManagerImpl(const QZServiceManagerImpl&) = delete;
    QZServiceManagerImpl& operator=(const QZServiceManagerImpl&) = delete;

    // False for empty ids or name and for a name already registered; a
    // class id already registered keeps its first record.
    bool RegisterService(const QZServiceRegisterInfo& info) override;
    // Null on any failure. Creators run with no lock of this object held.
    void* GetService(const std::string& name) override;

    bool IsServiceRegistered(const std::string& name);
    bool IsClassRegistered(const std::string& classId);
    // Throws std::out_of_range for a name that is not registered: callers
    // test with IsServiceRegistered first.
    std::string GetServiceClassId(const std::string& name);
    // The stored record, borrowed: the table keeps it alive.
    bool GetServiceRegisterInfo(const std::string& classId, QZServiceRegisterInfo** out);
    // The kept singleton's root interface, borrowed: no reference is added.
    bool GetSingletonObject(const std::string& classId, by::IBaseUnknown** out);
    // Keeps a reference to `object`; the first object kept for an id stays.
    bool SetSingletonObject(const std::string& classId, by::IBaseUnknown* object);

private:
    std::recursive_mutex singletonMutex_;
    // Class id -> one reference to the root interface (null when the object
    // refused that query).
    std::map<std::string, by::ComPtr<by::IBaseUnknown>> singletons_;
    std::recursive_mutex registryMutex_;
    std::map<std::string, std::shared_ptr<QZServiceRegisterInfo>> classes_;
    // Service name -> class id.
    std::map<std::string, std::string> names_;
};

}  // namespace qzextensionkit
