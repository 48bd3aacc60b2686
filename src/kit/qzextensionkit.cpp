#include "kit/qzextensionkit.h"

#include "bundle/bundle_manager_impl.h"
#include "component/object_container.h"
#include "config/configuration_manager_impl.h"
#include "manager/extension_manager_impl.h"
#include "services/notification_service.h"
#include "services/service_manager_impl.h"

namespace qzextensionkit {

void QZExtensionKit::InitSDK() {
    // The log service exists before anything can log.
    QZELogService::GetInstance();
    QZEObjectContainer::GetInstance();
    // Each implementation is wired into its facade in this order as it joins
    // the kit: bundle, service, configuration, then extension manager, and
    // last the built-in notification service.
    std::shared_ptr<IQZEBundleManager> bundles = QZEBundleManagerImpl::GetInstance();
    QZEBundleManager::GetInstance()->Initialize(bundles);
    std::shared_ptr<IQZServiceManager> services = QZServiceManagerImpl::GetInstance();
    QZServiceManager::GetInstance()->Initialize(services);
    std::shared_ptr<IQZEConfigurationManager> configuration =
        QZEConfigurationManagerImpl::GetInstance();
    QZEConfigurationManager::GetInstance()->Initialize(configuration);
    std::shared_ptr<IQZExtensionManager> extensions = QZExtensionManagerImpl::GetInstance();
    QZExtensionManager::GetInstance()->Initialize(extensions);
    // A second InitSDK fails here with the manager's log line, which is fine:
    // the first registration stays.
    QZServiceManager::GetInstance()->RegisterService<QZNotificationService>(
        kNotificationServiceName, kNotificationServiceClassId, kNotificationServiceInterfaceId,
        /*isSingleton=*/true);
}

}  // namespace qzextensionkit
