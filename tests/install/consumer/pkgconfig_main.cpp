// Built with nothing but what "pkg-config --cflags --libs qzextensionkit"
// prints: starts the kit and looks up the service that InitSDK registers.

#include <cstdio>

#include "kit/qzextensionkit.h"

int main() {
    qzextensionkit::QZExtensionKit::InitSDK();
    auto* service = static_cast<by::IBaseUnknown*>(
        qzextensionkit::QZServiceManager::GetInstance()->GetService("NotificationService"));
    if (service == nullptr) {
        std::printf("FAILED: no NotificationService after InitSDK\n");
        return 1;
    }
    service->Release();
    std::printf("pkg-config build: ok\n");
    return 0;
}
