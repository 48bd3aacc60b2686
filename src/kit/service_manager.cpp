#include "kit/service_manager.h"

#include <new>

#include "kit/singleton.h"

namespace qzextensionkit {

namespace {
std::atomic<uintptr_t> g_serviceManagerWord{0};
}

QZServiceRegisterInfo::QZServiceRegisterInfo() : isSingleton(false) {}
QZServiceRegisterInfo::QZServiceRegisterInfo(const QZServiceRegisterInfo& other) = default;
QZServiceRegisterInfo& QZServiceRegisterInfo::operator=(const QZServiceRegisterInfo& other) =
    default;
QZServiceRegisterInfo::~QZServiceRegisterInfo() = default;

QZServiceManager::QZServiceManager() = default;
QZServiceManager::~QZServiceManager() = default;

QZServiceManager* QZServiceManager::Create() {
    return new (std::nothrow) QZServiceManager();
}

QZServiceManager* QZServiceManager::GetInstance() {
    return internal::MarkerWordInstance<QZServiceManager>(g_serviceManagerWord,
                                                          &QZServiceManager::Create);
}

void QZServiceManager::Initialize(std::shared_ptr<IQZServiceManager> impl) {
    impl_.swap(impl);
}

void QZServiceManager::UnInitialize() {
    impl_.reset();
}

}  // namespace qzextensionkit
