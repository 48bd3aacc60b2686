#include "kit/bundle_manager.h"

#include "kit/singleton.h"

namespace qzextensionkit {

IQZEBundleManager::~IQZEBundleManager() = default;

QZEBundleManager::QZEBundleManager() = default;
QZEBundleManager::~QZEBundleManager() = default;

QZEBundleManager* QZEBundleManager::GetInstance() {
    return internal::ProcessSingleton<QZEBundleManager>::Get();
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
