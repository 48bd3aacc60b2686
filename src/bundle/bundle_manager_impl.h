#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "component/com_loader.h"
#include "component/unknown.h"
#include "kit/bundle_manager.h"
#include "platform/export.h"

namespace qzextensionkit {

class Artifact;

// Opens bundles: checks the bundle's paths, verifies its library when the
// host asked for it, opens the library with the bundle's "bin" directory on
// the search path, and makes, starts and keeps the bundle's entry object.
//
// It owns the pool of loaders, one per library path, and the table of entry
// objects by class id. Neither ever shrinks: a library stays open, and an
// object alive, until this object is destroyed.
//
// Internal: the kit reaches it through QZEBundleManager. Exported for the
// test programs, which build fresh instances of their own.
class QZEKIT_EXPORT QZEBundleManagerImpl : public IQZEBundleManager {
public:
    // The process-wide instance, built on first use.
    static std::shared_ptr<IQZEBundleManager> GetInstance();

    QZEBundleManagerImpl();
    // Entry objects go first, then the loaders with their libraries.
    ~QZEBundleManagerImpl() override;
    QZEBundleManagerImpl(const QZEBundleManagerImpl&) = delete;
    QZEBundleManagerImpl& operator=(const QZEBundleManagerImpl&) = delete;

    // True when the bundle's library is open (or was already in the pool);
    // a bundle whose entry object fails to build still counts as loaded.
    bool LoadBundle(Artifact* artifact) override;
    // The loader for `key` (a library's full path in UTF-8), created and
    // put in the pool if there is none. The pool keeps ownership.
    bool GetComLoader(const std::string& key, by::CComLoader** loader) override;
    bool ComLoaderIsExist(const std::string& key) override;

    // The stored entry object of `classId`, borrowed: no reference is added.
    bool GetBundleObject(const std::string& classId, by::IBaseUnknown** out);
    // Stores a reference to `object`. A class id already stored keeps its
    // first object, and the call still succeeds.
    bool SetBundleObject(const std::string& classId, by::IBaseUnknown* object);

private:
    // The order of these fields is the order of destruction, backwards:
    // entry objects must be released while their libraries are still open.
    std::recursive_mutex loaderMutex_;
    std::map<std::string, std::shared_ptr<by::CComLoader>> loaders_;
    std::recursive_mutex objectMutex_;
    // Class id text -> one reference to the object's root interface (null
    // when the object did not answer it).
    std::map<std::string, by::ComPtr<by::IBaseUnknown>> bundleObjects_;
};

}  // namespace qzextensionkit
