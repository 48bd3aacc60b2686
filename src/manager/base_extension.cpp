#include "manager/base_extension.h"

#include <new>

namespace qzextensionkit {

LaunchParams::LaunchParams() = default;
LaunchParams::LaunchParams(const std::string& modalPosition, const std::string& modalSize,
                           const std::string& url, const std::string& openType)
    : modalPosition(modalPosition), modalSize(modalSize), url(url), openType(openType) {}
LaunchParams::LaunchParams(const LaunchParams& other) = default;
LaunchParams::LaunchParams(LaunchParams&& other) = default;
LaunchParams& LaunchParams::operator=(const LaunchParams& other) = default;
LaunchParams& LaunchParams::operator=(LaunchParams&& other) = default;
LaunchParams::~LaunchParams() = default;

QZExtensionContext::QZExtensionContext() = default;
QZExtensionContext::QZExtensionContext(const QZExtensionContext& other) = default;
QZExtensionContext& QZExtensionContext::operator=(const QZExtensionContext& other) = default;
QZExtensionContext::~QZExtensionContext() = default;

bool QZExtensionContext::SetPayloads(std::map<std::string, std::string>& payloads) {
    if (payloads.empty()) {
        return false;
    }
    payloads_ = payloads;
    return true;
}

bool QZExtensionContext::SetConstraints(
    std::map<std::string, std::vector<std::string>>& constraints) {
    if (constraints.empty()) {
        return false;
    }
    constraints_ = constraints;
    return true;
}

bool QZExtensionContext::SetResourcesPath(const std::wstring& path) {
    if (path.empty()) {
        return false;
    }
    resourcesPath_ = path;
    return true;
}

bool QZExtensionContext::SetBinDirPath(const std::wstring& path) {
    if (path.empty()) {
        return false;
    }
    binDirPath_ = path;
    return true;
}

void QZExtensionContext::SetLaunchParams(const LaunchParams& params) {
    launchParams_ = params;
}

void QZExtensionContext::SetExtensionId(const std::string& id) {
    extensionId_ = id;
}

void QZExtensionContext::SetUnifiedId(const std::string& id) {
    unifiedId_ = id;
}

bool QZExtensionContext::ValueForKey(const std::string& key, std::string& value) {
    auto found = payloads_.find(key);
    if (found == payloads_.end()) {
        return false;
    }
    value = found->second;
    return true;
}

bool QZExtensionContext::ConstraintForKey(const std::string& key,
                                          std::vector<std::string>& values) {
    auto found = constraints_.find(key);
    if (found == constraints_.end()) {
        return false;
    }
    values = found->second;
    return true;
}

std::wstring QZExtensionContext::GetResourcesPath() {
    return resourcesPath_;
}

std::wstring QZExtensionContext::GetBinDirPath() {
    return binDirPath_;
}

LaunchParams QZExtensionContext::GetLaunchParams() {
    return launchParams_;
}

std::string QZExtensionContext::GetExtensionId() {
    return extensionId_;
}

std::string QZExtensionContext::GetUnifiedId() {
    return unifiedId_;
}

IQZBaseExtension::IQZBaseExtension() = default;
IQZBaseExtension::IQZBaseExtension(const IQZBaseExtension&) = default;
IQZBaseExtension& IQZBaseExtension::operator=(const IQZBaseExtension&) = default;

QZBaseExtension::QZBaseExtension() : context_(new (std::nothrow) QZExtensionContext()) {}

// by::CUnknownImp has no copy: the count is carried over by hand.
QZBaseExtension::QZBaseExtension(const QZBaseExtension& other)
    : IQZBaseExtension(other), by::CUnknownImp(), context_(other.context_) {
    m_refCount.store(other.m_refCount.load());
}

QZBaseExtension::~QZBaseExtension() {
    delete context_;
}

QZBaseExtension& QZBaseExtension::operator=(const QZBaseExtension& other) {
    IQZBaseExtension::operator=(other);
    m_refCount.store(other.m_refCount.load());
    context_ = other.context_;
    return *this;
}

long QZBaseExtension::Initialization() {
    return 0;
}

bool QZBaseExtension::ValueForKey(const std::string& key, std::string& value) {
    return context_->ValueForKey(key, value);
}

bool QZBaseExtension::ConstraintForKey(const std::string& key, std::vector<std::string>& values) {
    return context_->ConstraintForKey(key, values);
}

std::wstring QZBaseExtension::GetResourcesPath() {
    return context_->GetResourcesPath();
}

LaunchParams QZBaseExtension::GetLaunchParams() {
    return context_->GetLaunchParams();
}

QZExtensionContext* QZBaseExtension::GetContext() {
    return context_;
}

std::wstring QZBaseExtension::GetBinDirPath() {
    return context_->GetBinDirPath();
}

long QZBaseExtension::init_class(by::IBaseUnknown*, by::IBaseUnknown*) {
    return 0;
}

}  // namespace qzextensionkit
