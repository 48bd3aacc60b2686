#pragma once

#include <string>

#include "platform/export.h"

namespace qzextensionkit {

// One bundle's access key. `host` is the URL prefix (scheme and host, maybe
// a port) of the bundle's web pages, and empty for a native bundle. The kit
// stores the key and hands it back; it never interprets it.
class QZEKIT_EXPORT QZExtensionAuthInfo {
public:
    QZExtensionAuthInfo(const std::string& host, const std::string& bundleId,
                        const std::string& accessKey);
    QZExtensionAuthInfo(const QZExtensionAuthInfo& other);
    QZExtensionAuthInfo& operator=(const QZExtensionAuthInfo& other);
    ~QZExtensionAuthInfo();

    std::string GetHost() const;
    std::string GetBundleId() const;
    std::string GetAccessKey() const;
    void SetAccessKey(const std::string& accessKey);

private:
    std::string host;
    std::string bundleId;
    std::string accessKey;
};

}  // namespace qzextensionkit
