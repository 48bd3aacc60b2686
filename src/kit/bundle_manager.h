#pragma once

#include <memory>
#include <string>

#include "platform/export.h"

namespace by {
class CComLoader;
}

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

class Artifact;

// Opens bundles and owns the pool of library loaders, one per library path.
class QZEKIT_EXPORT IQZEBundleManager {
public:
    virtual bool LoadBundle(Artifact* artifact) = 0;
    virtual bool GetComLoader(const std::string& key, by::CComLoader** loader) = 0;
    virtual bool ComLoaderIsExist(const std::string& key) = 0;
    virtual ~IQZEBundleManager();
};

// Plain facade: forwards with no lock and no test. Calling it before
// InitSDK (or after UnInitialize) is a programming error of the host.
class QZEKIT_EXPORT QZEBundleManager : public IQZEBundleManager {
public:
    static QZEBundleManager* GetInstance();

    void Initialize(std::shared_ptr<IQZEBundleManager> impl);
    void UnInitialize();

    bool LoadBundle(Artifact* artifact) override;
    bool GetComLoader(const std::string& key, by::CComLoader** loader) override;
    bool ComLoaderIsExist(const std::string& key) override;

private:
    friend class internal::ProcessSingleton<QZEBundleManager>;
    QZEBundleManager();
    ~QZEBundleManager() override;

    std::shared_ptr<IQZEBundleManager> impl_;
};

}  // namespace qzextensionkit
