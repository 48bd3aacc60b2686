#include "bundle/base_bundle.h"

#include <new>

namespace qzextensionkit {

QZEBundleContext::QZEBundleContext() = default;
QZEBundleContext::QZEBundleContext(const QZEBundleContext&) = default;
QZEBundleContext::~QZEBundleContext() = default;
QZEBundleContext& QZEBundleContext::operator=(const QZEBundleContext&) = default;

IQZEBundle::IQZEBundle() = default;
IQZEBundle::IQZEBundle(const IQZEBundle&) = default;
IQZEBundle& IQZEBundle::operator=(const IQZEBundle&) = default;

QZEBaseBundle::QZEBaseBundle() : context_(new (std::nothrow) QZEBundleContext()) {}

// by::CUnknownImp has no copy: the count is carried over by hand.
QZEBaseBundle::QZEBaseBundle(const QZEBaseBundle& other)
    : IQZEBundle(other), by::CUnknownImp(), context_(other.context_) {
    m_refCount.store(other.m_refCount.load());
}

QZEBaseBundle::~QZEBaseBundle() {
    if (context_ != nullptr) {
        delete context_;
    }
}

QZEBaseBundle& QZEBaseBundle::operator=(const QZEBaseBundle& other) {
    IQZEBundle::operator=(other);
    m_refCount.store(other.m_refCount.load());
    context_ = other.context_;
    return *this;
}

void QZEBaseBundle::Initialize() {}

QZEBundleContext* QZEBaseBundle::GetContext() {
    return context_;
}

by::Result QZEBaseBundle::init_class(by::IBaseUnknown*, by::IBaseUnknown*) {
    return 0;
}

}  // namespace qzextensionkit
