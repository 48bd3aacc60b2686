#include "kit/service_manager.h"

#include "kit/singleton.h"

namespace qzextensionkit {

QZServiceRegisterInfo::QZServiceRegisterInfo() : isSingleton(false) {}
QZServiceRegisterInfo::QZServiceRegisterInfo(const QZServiceRegisterInfo& other) = default;
QZServiceRegisterInfo& QZServiceRegisterInfo::operator=(const QZServiceRegisterInfo& other) =
    default;
QZServiceRegisterInfo::~QZServiceRegisterInfo() = default;

QZServiceManager::QZServiceManager() = default;
QZServiceManager::~QZServiceManager() = default;

QZServiceManager* QZServiceManager::GetInstance() {
    return internal::ProcessSingleton<QZServiceManager>::Get();
}

void QZServiceManager::Initialize(std::shared_ptr<IQZServiceManager> impl) {
    impl_.swap(impl);
}

void QZServiceManager::UnInitialize() {
    impl_.reset();
}

}  // namespace qzextensionkit
