#include "manager/extension_manager_impl.h"

#include <map>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/utf_string_conversions.h"
#include "component/com_loader.h"
#include "component/object_container.h"
#include "component/unknown.h"
#include "kit/bundle_manager.h"
#include "kit/configuration_manager.h"
#include "kit/log_service.h"
#include "kit/singleton.h"
#include "manager/base_extension.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/setting_map.h"

namespace qzextensionkit {

namespace {

// What every extension object answers, whatever its extension point names.
constexpr const char kBaseExtensionIid[] = "{E16D76C1-4200-CF27-9703-2480B97FC9E3}";

QZELogService* Log() {
    return QZELogService::GetInstance();
}

const char* TrueFalse(bool value) {
    return value ? "true" : "false";
}

// A host passing no place for the result gets none written.
void SetResult(void** extension, void* value) {
    if (extension != nullptr) {
        *extension = value;
    }
}

// The part of the context both routes fill. The setters refuse empty
// values, which keeps what a singleton was given before.
void FillContext(QZExtensionContext* context, const Extension& record, const base::FilePath& root) {
    if (context == nullptr) {
        return;
    }
    std::map<std::string, std::string> payloads = record.GetPayloads();
    context->SetPayloads(payloads);
    std::map<std::string, std::vector<std::string>> constraints = record.GetConstraints();
    context->SetConstraints(constraints);
    context->SetResourcesPath(record.GetResourcesPath());
    context->SetBinDirPath(root.Append(L"bin").value());
}

}  // namespace

std::shared_ptr<IQZExtensionManager> QZExtensionManagerImpl::GetInstance() {
    return internal::SharedInstance<IQZExtensionManager, QZExtensionManagerImpl>::Get();
}

QZExtensionManagerImpl::QZExtensionManagerImpl() = default;
QZExtensionManagerImpl::~QZExtensionManagerImpl() = default;

void QZExtensionManagerImpl::SetFoundationVersion(const std::string& version) {
    QZEConfigurationManager::GetInstance()->SetFoundationVersion(version);
}

bool QZExtensionManagerImpl::Load() {
    QZEConfigurationManager* configuration = QZEConfigurationManager::GetInstance();
    const bool loaded = configuration->LoadAllExtensionInfos();
    // Bundles are opened whatever the records did; what a failed load left
    // behind (or an earlier load) is still worth opening.
    std::vector<Artifact*> artifacts;
    configuration->GetAllArtifacts(artifacts);
    QZEBundleManager* bundles = QZEBundleManager::GetInstance();
    for (Artifact* artifact : artifacts) {
        // A manifest that held JSON but no object leaves no artifact.
        if (artifact == nullptr) {
            continue;
        }
        bundles->LoadBundle(artifact);
    }
    return loaded;
}

bool QZExtensionManagerImpl::Unload() {
    return QZEConfigurationManager::GetInstance()->UnloadAllExtensionInfos();
}

bool QZExtensionManagerImpl::GetExtension(const std::string& extensionPointId, void** extension) {
    Log()->LogMessage(0, "extension manager impl - get extension by extension point id:%s",
                      extensionPointId.c_str());
    std::vector<void*> extensions;
    if (!GetExtensionList(extensionPointId, extensions)) {
        SetResult(extension, nullptr);
        Log()->LogMessage(0,
                          "extension manager impl - get extension by extension point id failed, "
                          "because of get extension list failed");
        return false;
    }
    if (extensions.empty()) {
        SetResult(extension, nullptr);
        Log()->LogMessage(0,
                          "extension manager impl - get extension by extension point id failed, "
                          "because of extension list empty");
        return false;
    }
    // The rest of the list is dropped with its references: those objects
    // stay alive, unreachable. Hosts are told so.
    Log()->LogMessage(0, "extension manager impl - get extension list first item");
    SetResult(extension, extensions.front());
    Log()->LogMessage(0, "extension manager impl - get extension by extension point id success");
    return true;
}

bool QZExtensionManagerImpl::GetExtensionList(const std::string& extensionPointId,
                                              std::vector<void*>& extensions) {
    Log()->LogMessage(0, "extension manager impl - get extension list by extension point id:%s",
                      extensionPointId.c_str());
    std::vector<std::shared_ptr<Extension>> records;
    if (!QZEConfigurationManager::GetInstance()->GetExtensionInfosByExntensionPointID(
            extensionPointId, records)) {
        Log()->LogMessage(0,
                          "extension manager impl - get extension list by extension point id "
                          "failed, because of extension infos are not founded");
        return false;
    }
    for (const std::shared_ptr<Extension>& record : records) {
        void* object = nullptr;
        if (record && CreateExtensionInstance(*record, &object) && object != nullptr) {
            extensions.push_back(object);
        }
    }
    records.clear();
    if (extensions.empty()) {
        Log()->LogMessage(0,
                          "extension manager impl - get extension list by extension point id "
                          "failed, because of extension vector empty");
        return false;
    }
    Log()->LogMessage(0,
                      "extension manager impl - get extension list by extension point id success");
    return true;
}

bool QZExtensionManagerImpl::GetExtensionById(const std::string& extensionId, void** extension) {
    Log()->LogMessage(0, "extension manager impl - get extension by extension id:%s",
                      extensionId.c_str());
    Extension* found = nullptr;
    if (!QZEConfigurationManager::GetInstance()->GetExtensionInfoByID(extensionId, &found)) {
        SetResult(extension, nullptr);
        Log()->LogMessage(0,
                          "extension manager impl - get extension by extension id failed, because "
                          "of extension info is not founded");
        return false;
    }
    // The copy is ours to delete, whatever the outcome.
    std::unique_ptr<Extension> record(found);
    void* object = nullptr;
    const bool created = record && CreateExtensionInstance(*record, &object);
    record.reset();
    if (!created) {
        SetResult(extension, nullptr);
        Log()->LogMessage(0,
                          "extension manager impl - get extension by extension id failed, because "
                          "of create extension instance failed");
        return false;
    }
    SetResult(extension, object);
    Log()->LogMessage(0, "extension manager impl - get extension by extension id success");
    return true;
}

bool QZExtensionManagerImpl::CreateExtensionInstance(const Extension& record, void** extension) {
    const std::string extensionPointId = record.GetExtensionPointId();
    const std::string iid = record.GetIid();
    const std::string classId = record.GetClsid();
    // Asked before the checks, so its log line comes first.
    const bool registered = QZEObjectContainer::GetInstance()->IsRegistered(classId);
    if (extensionPointId.empty()) {
        *extension = nullptr;
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance failed, because of "
                          "extension point id empty");
        return false;
    }
    if (iid.empty()) {
        *extension = nullptr;
        Log()->LogMessage(
            0, "extension manager impl - create extension instance failed, because of iid empty");
        return false;
    }
    if (classId.empty()) {
        *extension = nullptr;
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance failed, because of "
                          "class Id empty");
        return false;
    }
    // A library wins over a registration of the same class.
    if (!record.GetMainEntry().empty()) {
        return CreateExtensionInstanceFromDynamicLibrary(record, extension);
    }
    if (registered) {
        return CreateExtensionInstanceFromRegistry(record, extension);
    }
    Log()->LogMessage(0, "extension manager impl - create extension instance failed");
    *extension = nullptr;
    return false;
}

bool QZExtensionManagerImpl::CreateExtensionInstanceFromDynamicLibrary(const Extension& record,
                                                                       void** extension) {
    const std::string iid = record.GetIid();
    const std::string classId = record.GetClsid();
    const bool isSingleton = record.IsSingleton();
    const base::FilePath root = record.GetRootPath();
    if (!base::PathExists(root)) {
        *extension = nullptr;
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from dynamic library "
                          "failed, because of root path not exist");
        return false;
    }
    const base::FilePath library = root.Append(record.GetMainEntry());
    if (library.empty() || !base::PathExists(library)) {
        *extension = nullptr;
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from dynamic library "
                          "failed, because of library file path not exist or empty");
        return false;
    }
    // The pool key. A library whose bundle was never loaded gets a new,
    // unopened loader here, and the creation below fails on it.
    by::CComLoader* loader = nullptr;
    if (!QZEBundleManager::GetInstance()->GetComLoader(base::WideToUTF8(library.value()),
                                                       &loader)) {
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from dynamic library "
                          "failed, because of get com loader failed");
        return false;
    }
    Log()->LogMessage(0,
                      "extension manager impl - create extension instance from dynamic library, "
                      "class id:%s, iid:%s, singleton:%s",
                      classId.c_str(), iid.c_str(), TrueFalse(isSingleton));

    void* created = nullptr;
    if (!QZEObjectContainer::GetInstance()->CreateObjectInstanceByLibrary(
            kBaseExtensionIid, classId, isSingleton, loader, &created)) {
        *extension = nullptr;
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from dynamic library "
                          "failed, because of create object instance failed");
        if (created != nullptr) {
            static_cast<by::IBaseUnknown*>(created)->Release();
        }
        return false;
    }
    auto* object = static_cast<by::IBaseUnknown*>(created);
    by::ComPtr<IQZBaseExtension> base =
        by::ComPtr<IQZBaseExtension>::Query(object, IQZBaseExtension::InterfaceId());
    if (!base) {
        *extension = nullptr;
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from dynamic library "
                          "failed, because of query base interface failed");
        if (object != nullptr) {
            object->Release();
        }
        return false;
    }
    // From here the base reference is the one held. For a singleton found
    // in the container this gives up a reference the request never took.
    object->Release();

    QZExtensionContext* context = base->GetContext();
    FillContext(context, record, root);
    const SettingMap settings = record.GetSettingMap();
    if (context != nullptr) {
        // Launch parameters only for a setting map that says how and where.
        if (!settings.openType.empty() && !settings.host.empty()) {
            context->SetLaunchParams(LaunchParams(settings.modalPosition, settings.modalSize,
                                                  settings.url, settings.openType));
        }
        context->SetExtensionId(record.GetId());
        context->SetUnifiedId(record.GetUnifiedId());
    }
    base->Initialization();

    void* target = nullptr;
    if (base->QueryInterface(by::ParseGuid(iid.c_str(), true), &target) < 0 || target == nullptr) {
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from dynamic library "
                          "failed, because of query target interface failed");
        *extension = nullptr;
        return false;
    }
    *extension = target;
    Log()->LogMessage(
        0, "extension manager impl - create extension instance from dynamic library success");
    return true;
}

bool QZExtensionManagerImpl::CreateExtensionInstanceFromRegistry(const Extension& record,
                                                                 void** extension) {
    const std::string iid = record.GetIid();
    const std::string classId = record.GetClsid();
    Log()->LogMessage(0,
                      "extension manager impl - create extension instance from registry, class "
                      "id:%s, iid:%s",
                      classId.c_str(), iid.c_str());
    // The creator is asked for the target interface, not the base one.
    void* created = nullptr;
    if (!QZEObjectContainer::GetInstance()->CreateObjectInstanceByCreator(iid, classId, &created)) {
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from registry "
                          "failed, because of create object instance failed");
        *extension = nullptr;
        return false;
    }
    // Released on every path below.
    by::ComPtr<by::IBaseUnknown> object =
        by::ComPtr<by::IBaseUnknown>::Adopt(static_cast<by::IBaseUnknown*>(created));

    void* baseOut = nullptr;
    if (!object || object->QueryInterface(IQZBaseExtension::InterfaceId(), &baseOut) < 0 ||
        baseOut == nullptr) {
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from registry "
                          "failed, because of query base interface failed");
        *extension = nullptr;
        return false;
    }
    // This reference is never given back: an object made this way outlives
    // the host's release of it (and a singleton hit comes out even).
    auto* base = static_cast<IQZBaseExtension*>(baseOut);
    FillContext(base->GetContext(), record, record.GetRootPath());
    base->Initialization();

    void* target = nullptr;
    if (base->QueryInterface(by::ParseGuid(iid.c_str(), true), &target) < 0 || target == nullptr) {
        *extension = nullptr;
        Log()->LogMessage(0,
                          "extension manager impl - create extension instance from registry "
                          "failed, because of query target interface failed");
        return false;
    }
    *extension = target;
    Log()->LogMessage(0,
                      "extension manager impl - create extension instance from registry success");
    return true;
}

bool QZExtensionManagerImpl::RegisterExtension(const ExtensionCreator& creator,
                                               const std::string& classId, bool isSingleton) {
    return QZEObjectContainer::GetInstance()->Register(creator, classId, isSingleton);
}

bool QZExtensionManagerImpl::unRegisterExtension(const std::string& classId) {
    return QZEObjectContainer::GetInstance()->UnRegister(classId);
}

bool QZExtensionManagerImpl::GetLibFileVerifyEnable() {
    return libFileVerifyEnabled_;
}

void QZExtensionManagerImpl::SetLibFileVerifyEnable(bool enable) {
    libFileVerifyEnabled_ = enable;
}

bool QZExtensionManagerImpl::GetSignVerifyEnable() {
    return signVerifyEnabled_;
}

void QZExtensionManagerImpl::SetSignVerifyEnable(bool enable) {
    signVerifyEnabled_ = enable;
}

bool QZExtensionManagerImpl::SetSecKey(const std::string& key) {
    return QZEConfigurationManager::GetInstance()->SetSecKey(key);
}

bool QZExtensionManagerImpl::SetDebugModeEnable(bool enable) {
    return QZEConfigurationManager::GetInstance()->SetDebugModeEnable(enable);
}

void QZExtensionManagerImpl::SetFetchExtensionAuthInfoCallback(
    const FetchExtensionAuthInfoCallback& callback) {
    QZEConfigurationManager::GetInstance()->SetFetchExtensionAuthInfoCallback(callback);
}

}  // namespace qzextensionkit
