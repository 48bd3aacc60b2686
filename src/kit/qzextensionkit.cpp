#include "kit/qzextensionkit.h"

#include "component/object_container.h"

namespace qzextensionkit {

void QZExtensionKit::InitSDK() {
    // The log service exists before anything can log.
    QZELogService::GetInstance();
    QZEObjectContainer::GetInstance();
    // Each implementation is wired into its facade here as it joins the kit:
    // bundle, service, configuration, then extension manager, and last the
    // built-in notification service.
}

}  // namespace qzextensionkit
