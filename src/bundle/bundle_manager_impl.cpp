#include "bundle/bundle_manager_impl.h"

#include <cstddef>
#include <utility>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/utf_string_conversions.h"
#include "bundle/base_bundle.h"
#include "bundle/lib_file_verify.h"
#include "bundle/sign_verify.h"
#include "kit/extension_manager.h"
#include "kit/log_service.h"
#include "kit/singleton.h"
#include "model/artifact.h"
#include "platform/platform.h"

namespace qzextensionkit {

namespace {

// What the system's own search-directory call takes.
constexpr std::size_t kSearchDirectoryCapacity = 260;

QZELogService* Log() {
    return QZELogService::GetInstance();
}

}  // namespace

std::shared_ptr<IQZEBundleManager> QZEBundleManagerImpl::GetInstance() {
    return internal::SharedInstance<IQZEBundleManager, QZEBundleManagerImpl>::Get();
}

QZEBundleManagerImpl::QZEBundleManagerImpl() = default;

QZEBundleManagerImpl::~QZEBundleManagerImpl() {
    // The fields would go in this order anyway; spelt out because closing a
    // library under a live object of it would leave the object without code.
    bundleObjects_.clear();
    loaders_.clear();
}

bool QZEBundleManagerImpl::LoadBundle(Artifact* artifact) {
    base::FilePath root;
    if (artifact != nullptr) {
        root = artifact->GetRootPath();
    }
    if (artifact == nullptr || !base::PathExists(root)) {
        Log()->LogMessage(0, "Bundle Loader - load bundle failed, because of root path not exist");
        return false;
    }

    // Whether "bin" is there is left to the system call that sets it.
    const base::FilePath searchDirectory = root.Append(L"bin");
    const base::FilePath libraryPath = root.Append(artifact->GetMainEntry());
    if (libraryPath.empty() || !base::PathExists(libraryPath)) {
        Log()->LogMessage(0,
                          "Bundle Loader - load bundle failed, because of library file path not "
                          "exist or empty");
        return false;
    }

    const std::string key = base::WideToUTF8(libraryPath.value());
    // A loader in the pool is all this sees: a bundle whose library failed
    // to open earlier counts as loaded too.
    if (ComLoaderIsExist(key)) {
        Log()->LogMessage(0, "Bundle Loader - bundle has been loaded");
        return true;
    }

    // The host's switches; the facade is re-entered on this thread while
    // it holds its lock for the load.
    QZExtensionManager* extensions = QZExtensionManager::GetInstance();
    if (extensions->GetLibFileVerifyEnable()) {
        const std::string libFileMD5 = artifact->GetLibFileMD5();
        if (!QZEExtensionLibFileVerify::GetInstance()->Verify(libraryPath.value(), libFileMD5)) {
            Log()->LogMessage(
                0, "Bundle Loader - load bundle failed, because of lib file verify failed");
            return false;
        }
        // The signature is checked only together with the file.
        if (extensions->GetSignVerifyEnable()) {
            const std::string signMD5 = artifact->GetSignMD5();
            if (!QZEExtensionSignVerify::GetInstance()->Verify(libraryPath.value(), signMD5,
                                                               libFileMD5)) {
                Log()->LogMessage(
                    0, "Bundle Loader - load bundle failed, because of file sign verify failed");
                return false;
            }
        }
    }

    by::CComLoader* loader = nullptr;
    if (!GetComLoader(key, &loader)) {
        Log()->LogMessage(0,
                          "Bundle Loader - load bundle failed, because of get com loader failed");
        return false;
    }

    // The bundle's dependencies are found in its "bin" only while its
    // library opens; the directory set before is put back afterwards.
    wchar_t previous[kSearchDirectoryCapacity] = {};
    platform::GetLibraryDirectory(previous, kSearchDirectoryCapacity);
    if (platform::SetLibraryDirectory(searchDirectory.value().c_str()) != 1) {
        Log()->LogMessage(0, "Bundle Loader - Failed to set DLL directory, code:0x%x",
                          static_cast<unsigned>(platform::LastError()));
        return false;
    }
    if (!loader->LoadCom(libraryPath.value().c_str())) {
        // The loader stays in the pool, and "bin" stays the search
        // directory until the next bundle sets its own.
        Log()->LogMessage(0, "Bundle Loader - load bundle failed, because of load com failed");
        return false;
    }
    if (platform::SetLibraryDirectory(previous) != 1) {
        Log()->LogMessage(0, "Bundle Loader - Failed to set DLL directory, code:0x%x",
                          static_cast<unsigned>(platform::LastError()));
        return false;
    }

    // A bundle may be a library without an entry object.
    const std::string classIdText = artifact->GetBundleClassId();
    if (classIdText.empty()) {
        return true;
    }

    const by::GUID& bundleIid = IQZEBundle::InterfaceId();
    const by::GUID classId = by::ParseGuid(classIdText.c_str(), true);
    void* object = nullptr;
    by::Result status = loader->CreateInstance(classId, nullptr, nullptr, bundleIid, &object);
    // The library is open; a bundle whose entry does not build still loads.
    if (status != 0 || object == nullptr) {
        Log()->LogMessage(0, "Bundle Loader - initialze bundle entry failed");
        return true;
    }
    by::ComPtr<IQZEBundle> bundle = by::ComPtr<IQZEBundle>::Adopt(static_cast<IQZEBundle*>(object));
    bundle->Initialize();
    if (!SetBundleObject(classIdText, bundle.Get())) {
        return false;
    }
    Log()->LogMessage(0, "Bundle Loader - initialze bundle entry success");
    return true;
}

bool QZEBundleManagerImpl::ComLoaderIsExist(const std::string& key) {
    std::lock_guard<std::recursive_mutex> hold(loaderMutex_);
    if (key.empty()) {
        Log()->LogMessage(
            0, "Bundle Loader - query com loader is exist failed, because of key is empty");
        return false;
    }
    const bool found = loaders_.find(key) != loaders_.end();
    Log()->LogMessage(0, "Bundle Loader - key:%s, com loader %s", key.c_str(),
                      found ? "is exist" : "is not exist");
    return found;
}

bool QZEBundleManagerImpl::GetComLoader(const std::string& key, by::CComLoader** loader) {
    std::lock_guard<std::recursive_mutex> hold(loaderMutex_);
    if (key.empty()) {
        Log()->LogMessage(0,
                          "Bundle Loader - key:%s, get com loader failed, because of key is empty",
                          key.c_str());
        return false;
    }
    if (!ComLoaderIsExist(key)) {
        Log()->LogMessage(0, "Bundle Loader - key:%s, create com loader", key.c_str());
        auto created = std::make_shared<by::CComLoader>();
        *loader = created.get();
        loaders_.emplace(key, std::move(created));
    } else {
        *loader = loaders_.at(key).get();
    }
    Log()->LogMessage(0, "Bundle Loader - key:%s, get com loader success", key.c_str());
    return true;
}

bool QZEBundleManagerImpl::SetBundleObject(const std::string& classId, by::IBaseUnknown* object) {
    std::lock_guard<std::recursive_mutex> hold(objectMutex_);
    if (classId.empty()) {
        Log()->LogMessage(0,
                          "Bundle Loader - set bundle object failed, because of class id is empty");
        return false;
    }
    if (object == nullptr) {
        Log()->LogMessage(0,
                          "Bundle Loader - class id:%s, set bundle object failed, because of "
                          "object pointer is nullptr",
                          classId.c_str());
        return false;
    }
    // An object that does not answer the root id is stored as null; a class
    // id already present keeps its first object, and this one is let go.
    bundleObjects_.emplace(classId,
                           by::ComPtr<by::IBaseUnknown>::Query(object, by::IID_IBaseUnknown));
    Log()->LogMessage(0, "Bundle Loader - class id:%s, set bundle object success", classId.c_str());
    return true;
}

// Reads the table without the object lock: the table only grows, and the
// kit itself never calls this.
bool QZEBundleManagerImpl::GetBundleObject(const std::string& classId, by::IBaseUnknown** out) {
    if (classId.empty()) {
        Log()->LogMessage(0,
                          "Bundle Loader - get bundle object failed, because of class id is empty");
        return false;
    }
    auto found = bundleObjects_.find(classId);
    if (found != bundleObjects_.end()) {
        // The copy's reference goes again on return: the table's keeps the
        // object alive.
        by::ComPtr<by::IBaseUnknown> read = found->second;
        *out = read.Get();
        Log()->LogMessage(0, "Bundle Loader - class id:%s, get bundle object success",
                          classId.c_str());
        return true;
    }
    *out = nullptr;
    Log()->LogMessage(0,
                      "Bundle Loader - class id:%s, get bundle object failed, because of object "
                      "didn't founded",
                      classId.c_str());
    return false;
}

}  // namespace qzextensionkit
