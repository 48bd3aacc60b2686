#include "config/extension_auth_info.h"

namespace qzextensionkit {

QZExtensionAuthInfo::QZExtensionAuthInfo(const std::string& host, const std::string& bundleId,
                                         const std::string& accessKey)
    : host(host), bundleId(bundleId), accessKey(accessKey) {}

QZExtensionAuthInfo::QZExtensionAuthInfo(const QZExtensionAuthInfo& other) = default;
QZExtensionAuthInfo& QZExtensionAuthInfo::operator=(const QZExtensionAuthInfo& other) = default;
QZExtensionAuthInfo::~QZExtensionAuthInfo() = default;

std::string QZExtensionAuthInfo::GetHost() const {
    return host;
}

std::string QZExtensionAuthInfo::GetBundleId() const {
    return bundleId;
}

std::string QZExtensionAuthInfo::GetAccessKey() const {
    return accessKey;
}

void QZExtensionAuthInfo::SetAccessKey(const std::string& accessKey) {
    this->accessKey = accessKey;
}

}  // namespace qzextensionkit
