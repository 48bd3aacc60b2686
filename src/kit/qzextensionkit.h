#pragma once

// The kit's chief header: the entry, the facades and the log service.

#include "config/remote_config_data_source.h"
#include "kit/bundle_manager.h"
#include "kit/configuration_manager.h"
#include "kit/extension_manager.h"
#include "kit/log_service.h"
#include "kit/service_manager.h"
#include "platform/export.h"

namespace qzextensionkit {

class QZEKIT_EXPORT QZExtensionKit {
public:
    // Sets the kit up: the log service and object container first, then each
    // implementation into its facade. Calling it again is harmless.
    static void InitSDK();
};

}  // namespace qzextensionkit
