// Built with nothing but what "pkg-config --cflags --libs qzextensionkit"
// prints: starts the kit and looks up a service that InitSDK registers.

#include <cstdio>

#include "kit/qzextensionkit.h"

int main() {
    qzextensionkit::QZExtensionKit::InitSDK();
    auto* service = static_cast<by::IBaseUnknown*>(
        qzextensionkit::QZServiceManager::GetInstance()->GetService("NotificationService"));
    std::printf(service ? "pkg-config build: ok\n" : "FAILED: no NotificationService\n");
    if (service) {
        service->Release();
    }
    return service ? 0 : 1;
}
