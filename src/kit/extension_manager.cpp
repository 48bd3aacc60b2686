#include "kit/extension_manager.h"

#include "kit/log_service.h"
#include "kit/singleton.h"

namespace qzextensionkit {

namespace {

constexpr const char kRegisterMessage[] =
    "extension manager register extension failed, because of extension manager impl is null";
}  // namespace

IQZExtensionManager::~IQZExtensionManager() = default;

QZExtensionManager::QZExtensionManager() = default;
QZExtensionManager::~QZExtensionManager() = default;

QZExtensionManager* QZExtensionManager::GetInstance() {
    return internal::ProcessSingleton<QZExtensionManager>::Get();
}

void QZExtensionManager::Initialize(std::shared_ptr<IQZExtensionManager> impl) {
    impl_.swap(impl);
}

void QZExtensionManager::UnInitialize() {
    impl_.reset();
}

std::shared_ptr<IQZExtensionManager> QZExtensionManager::GetImpl() {
    return impl_;
}

void QZExtensionManager::SetImpl(const std::shared_ptr<IQZExtensionManager>& impl) {
    if (impl) {
        impl_ = impl;
    }
}

template <class R, class Call>
R QZExtensionManager::Forward(R failure, const char* message, const std::string* argument,
                              Call call) {
    std::lock_guard<std::recursive_mutex> hold(mutex_);
    std::shared_ptr<IQZExtensionManager> impl = GetImpl();
    if (!impl) {
        if (argument != nullptr) {
            QZELogService::GetInstance()->LogMessage(0, message, argument->c_str());
        } else {
            QZELogService::GetInstance()->LogMessage(0, "%s", message);
        }
        return failure;
    }
    return call(*impl);
}

// Operations without a result forward through a dummy bool.
void QZExtensionManager::SetFoundationVersion(const std::string& version) {
    Forward(false,
            "extension manager set foundation version (%s) failed, because of extension "
            "manager impl is null",
            &version, [&](IQZExtensionManager& m) {
                m.SetFoundationVersion(version);
                return true;
            });
}

bool QZExtensionManager::Load() {
    return Forward(false,
                   "extension manager load failed, because of extension manager impl is null",
                   nullptr, [](IQZExtensionManager& m) { return m.Load(); });
}

bool QZExtensionManager::Unload() {
    return Forward(false,
                   "extension manager unload failed, because of extension manager impl is null",
                   nullptr, [](IQZExtensionManager& m) { return m.Unload(); });
}

bool QZExtensionManager::GetExtension(const std::string& extensionPointId, void** extension) {
    return Forward(false,
                   "extension manager get extension by extension point id failed, because of "
                   "extension manager impl is null",
                   nullptr, [&](IQZExtensionManager& m) {
                       return m.GetExtension(extensionPointId, extension);
                   });
}

bool QZExtensionManager::GetExtensionList(const std::string& extensionPointId,
                                          std::vector<void*>& extensions) {
    return Forward(false,
                   "extension manager get extension list by extension point id failed, because "
                   "of extension manager impl is null",
                   nullptr, [&](IQZExtensionManager& m) {
                       return m.GetExtensionList(extensionPointId, extensions);
                   });
}

bool QZExtensionManager::GetExtensionById(const std::string& extensionId, void** extension) {
    return Forward(false,
                   "extension manager get extension by extension id failed, because of "
                   "extension manager impl is null",
                   nullptr, [&](IQZExtensionManager& m) {
                       return m.GetExtensionById(extensionId, extension);
                   });
}

bool QZExtensionManager::RegisterExtension(const ExtensionCreator& creator,
                                           const std::string& classId, bool isSingleton) {
    return Forward(false, kRegisterMessage, nullptr, [&](IQZExtensionManager& m) {
        return m.RegisterExtension(creator, classId, isSingleton);
    });
}

bool QZExtensionManager::unRegisterExtension(const std::string& classId) {
    return Forward(false,
                   "extension manager unregister extension failed, because of extension manager "
                   "impl is null",
                   nullptr, [&](IQZExtensionManager& m) { return m.unRegisterExtension(classId); });
}

// The six settings below share one message when there is no implementation.
bool QZExtensionManager::GetLibFileVerifyEnable() {
    return Forward(false, kRegisterMessage, nullptr,
                   [](IQZExtensionManager& m) { return m.GetLibFileVerifyEnable(); });
}

void QZExtensionManager::SetLibFileVerifyEnable(bool enable) {
    Forward(false, kRegisterMessage, nullptr, [&](IQZExtensionManager& m) {
        m.SetLibFileVerifyEnable(enable);
        return true;
    });
}

bool QZExtensionManager::GetSignVerifyEnable() {
    return Forward(false, kRegisterMessage, nullptr,
                   [](IQZExtensionManager& m) { return m.GetSignVerifyEnable(); });
}

void QZExtensionManager::SetSignVerifyEnable(bool enable) {
    Forward(false, kRegisterMessage, nullptr, [&](IQZExtensionManager& m) {
        m.SetSignVerifyEnable(enable);
        return true;
    });
}

bool QZExtensionManager::SetSecKey(const std::string& key) {
    return Forward(false, kRegisterMessage, nullptr,
                   [&](IQZExtensionManager& m) { return m.SetSecKey(key); });
}

bool QZExtensionManager::SetDebugModeEnable(bool enable) {
    return Forward(false, kRegisterMessage, nullptr,
                   [&](IQZExtensionManager& m) { return m.SetDebugModeEnable(enable); });
}

void QZExtensionManager::SetFetchExtensionAuthInfoCallback(
    const FetchExtensionAuthInfoCallback& callback) {
    Forward(false, kRegisterMessage, nullptr, [&](IQZExtensionManager& m) {
        m.SetFetchExtensionAuthInfoCallback(callback);
        return true;
    });
}

}  // namespace qzextensionkit
