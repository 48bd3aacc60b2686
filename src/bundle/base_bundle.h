#pragma once

// What a bundle's entry object is. The manifest key "BundleClassId" names a
// class of the bundle's library; the kit makes one object of it when it
// loads the bundle, calls Initialize once and keeps the object until the
// kit goes away. A plug-in writes the class as
//
//     class MyBundle : public qzextensionkit::QZEBaseBundle {
//     public:
//         void Initialize() override { /* start what the bundle runs */ }
//     };
//
//     BY_PLUGIN_MODULE(BY_PLUGIN_CLASS("{...class id...}", MyBundle))
//
// The object is a by::CComObject<MyBundle>; QZEBaseBundle leaves the
// reference counting to it.

#include "component/unknown.h"
#include "platform/export.h"

namespace qzextensionkit {

// The context every bundle owns. It holds nothing yet.
class QZEKIT_EXPORT QZEBundleContext {
public:
    QZEBundleContext();
    QZEBundleContext(const QZEBundleContext& other);
    ~QZEBundleContext();
    QZEBundleContext& operator=(const QZEBundleContext& other);
};

class QZEKIT_EXPORT IQZEBundle : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{e50226d4-ee3f-4a64-b53e-50114f0c99c7}")

    IQZEBundle();
    IQZEBundle(const IQZEBundle& other);
    IQZEBundle& operator=(const IQZEBundle& other);

    // Called once, after the object is made and before the kit stores it.
    // There is no result: a bundle that must not start fails in init_class.
    virtual void Initialize() = 0;
    virtual QZEBundleContext* GetContext() = 0;

protected:
    // Objects go through Release, never through this interface.
    ~IQZEBundle() = default;
};

// The base of a bundle's entry class. QueryInterface, AddRef and Release
// come from by::CComObject<T>.
//
// Copies are member-wise: a copy shares the context pointer and each of the
// two would delete it. A bundle object lives behind its count and is never
// to be copied.
class QZEKIT_EXPORT QZEBaseBundle : public IQZEBundle, public by::CUnknownImp {
public:
    QZEBaseBundle();
    QZEBaseBundle(const QZEBaseBundle& other);
    ~QZEBaseBundle() override;
    // Takes the count and the context pointer; the earlier context is not
    // deleted.
    QZEBaseBundle& operator=(const QZEBaseBundle& other);

    // Does nothing; a bundle overrides it.
    void Initialize() override;
    // The bundle's own context; null only if it could not be allocated.
    QZEBundleContext* GetContext() override;

    // The second construction step; a derived class hides it to refuse
    // creation with a non-zero status.
    by::Result init_class(by::IBaseUnknown* outer, by::IBaseUnknown* reserved);

private:
    // Owned.
    QZEBundleContext* context_;
};

}  // namespace qzextensionkit
