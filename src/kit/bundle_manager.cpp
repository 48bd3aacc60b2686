#include "kit/bundle_manager.h"

#include <new>

#include "kit/singleton.h"

namespace qzextensionkit {

namespace {
std::atomic<uintptr_t> g_bundleManagerWord{0};
}

IQZEBundleManager::~IQZEBundleManager() = default;

QZEBundleManager::QZEBundleManager() = default;
QZEBundleManager::~QZEBundleManager() = default;

QZEBundleManager* QZEBundleManager::Create() {
    return new (std::nothrow) QZEBundleManager();
}

QZEBundleManager* QZEBundleManager::GetInstance() {
    return internal::MarkerWordInstance<QZEBundleManager>(g_bundleManagerWord,
                                                          &QZEBundleManager::Create);
}

void QZEBundleManager::Initialize(std::shared_ptr<IQZEBundleManager> impl) {
    impl_.swap(impl);
}

void QZEBundleManager::UnInitialize() {
    impl_.reset();
}

bool QZEBundleManager::LoadBundle(Artifact* artifact) {
    return impl_->LoadBundle(artifact);
}

bool QZEBundleManager::GetComLoader(const std::string& key, by::CComLoader** loader) {
    return impl_->GetComLoader(key, loader);
}

bool QZEBundleManager::ComLoaderIsExist(const std::string& key) {
    return impl_->ComLoaderIsExist(key);
}

}  // namespace qzextensionkit
