#pragma once

// The kit's one table of classes and shared instances. A class is either
// registered with a creator function, or made by a loaded component library;
// in both cases it may be a singleton, whose instance the container keeps.
//
// Class ids and interface ids are text here, compared byte by byte: one id
// written in two letter cases is two classes. They are parsed only on the
// way into a loader.
//
// Reference counts: an object from a fresh creation carries one reference
// for the caller. An object handed out from the singleton table carries
// none of its own; it lives by the table's reference.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "component/com_loader.h"
#include "component/unknown.h"
#include "platform/export.h"

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

// Builds an object: called with the interface id, the class id and the
// place for the result; true on success.
using QZEObjectCreator = std::function<bool(const std::string&, const std::string&, void**)>;

struct QZEObjectRegisterInfo {
    std::string classId;
    bool isSingleton = false;
    QZEObjectCreator creator;
};

class QZEKIT_EXPORT IQZEObjectContainer {
public:
    virtual bool CreateObjectInstanceByCreator(const std::string& iid, const std::string& classId,
                                               void** object) = 0;
    virtual bool CreateObjectInstanceByLibrary(const std::string& iid, const std::string& classId,
                                               bool isSingleton, by::CComLoader* loader,
                                               void** object) = 0;
    virtual bool Register(const QZEObjectCreator& creator, const std::string& classId,
                          bool isSingleton) = 0;
    virtual bool UnRegister(const std::string& classId) = 0;
    virtual bool IsRegistered(const std::string& classId) = 0;
    virtual ~IQZEObjectContainer();
};

class QZEKIT_EXPORT QZEObjectContainer : public IQZEObjectContainer {
public:
    // The process-wide container; created on first use and never destroyed.
    static QZEObjectContainer* GetInstance();

    // The kit uses only the shared instance; a separate one is for tests.
    QZEObjectContainer();
    ~QZEObjectContainer() override;
    QZEObjectContainer(const QZEObjectContainer&) = delete;
    QZEObjectContainer& operator=(const QZEObjectContainer&) = delete;

    // Builds an object of a registered class through its creator; for a
    // singleton class the kept instance if there is one.
    bool CreateObjectInstanceByCreator(const std::string& iid, const std::string& classId,
                                       void** object) override;
    // Builds an object through `loader`, which must be the loader of a
    // loaded library. The register table is not consulted.
    bool CreateObjectInstanceByLibrary(const std::string& iid, const std::string& classId,
                                       bool isSingleton, by::CComLoader* loader,
                                       void** object) override;
    // A second registration under one id keeps the first and returns true.
    bool Register(const QZEObjectCreator& creator, const std::string& classId,
                  bool isSingleton) override;
    // Drops the registration and the class's kept instance.
    bool UnRegister(const std::string& classId) override;
    bool IsRegistered(const std::string& classId) override;

private:
    friend class internal::ProcessSingleton<QZEObjectContainer>;

    // Hands out a share of the record, so that an UnRegister on another
    // thread can't pull it away while its creator runs.
    bool GetObjectRegisterInfo(const std::string& classId,
                               std::shared_ptr<QZEObjectRegisterInfo>* info);
    bool GetSingletonObject(const std::string& classId, void** object);
    bool SetSingletonObject(const std::string& classId, void* object);
    bool RemoveSingletonObject(const std::string& classId);

    std::recursive_mutex singletonMutex_;
    // Each entry owns one reference; an object that failed the root query is
    // kept as a null entry.
    std::map<std::string, by::ComPtr<by::IBaseUnknown>> singletons_;
    std::recursive_mutex registerMutex_;
    std::map<std::string, std::shared_ptr<QZEObjectRegisterInfo>> registry_;
};

}  // namespace qzextensionkit
