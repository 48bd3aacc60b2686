#pragma once

// What an extension object is. A bundle's library (or the host, through
// QZExtensionManager::RegisterExtension) supplies a class deriving from
// QZBaseExtension; the kit makes an object of it on request, fills its
// context from the manifest's record, calls Initialization and hands the
// host the interface the extension point names. A plug-in writes
//
//     class MyPanel : public IMyPanel, public qzextensionkit::QZBaseExtension {
//     public:
//         BY_DECLARE_INTERFACE_ID("{...id of IMyPanel...}")
//         long Initialization() override {
//             std::string title;
//             ValueForKey("title", title);   // the manifest's payloads
//             return 0;
//         }
//         ...IMyPanel's operations...
//     };
//
//     BY_PLUGIN_MODULE(BY_PLUGIN_CLASS("{...class id...}", MyPanel))
//
// The object is a by::CComObject<MyPanel>, which answers the class's own id
// and the root id; a class that must also answer IQZBaseExtension's id writes
// its own QueryInterface (see the README).

#include <map>
#include <string>
#include <vector>

#include "component/unknown.h"
#include "model/extension_action.h"
#include "platform/export.h"

namespace qzextensionkit {

// How an extension asks to be shown, from its manifest's "settingMap".
struct QZEKIT_EXPORT LaunchParams {
    LaunchParams();
    LaunchParams(const std::string& modalPosition, const std::string& modalSize,
                 const std::string& url, const std::string& openType);
    LaunchParams(const LaunchParams& other);
    LaunchParams(LaunchParams&& other);
    LaunchParams& operator=(const LaunchParams& other);
    LaunchParams& operator=(LaunchParams&& other);
    ~LaunchParams();

    std::string modalPosition;
    std::string modalSize;
    // The setting map's host followed by its uri.
    std::string url;
    std::string openType;
};

// What the kit tells an extension about itself. The kit fills it before
// every Initialization; the extension only reads it. Nothing here is locked.
class QZEKIT_EXPORT QZExtensionContext {
public:
    QZExtensionContext();
    QZExtensionContext(const QZExtensionContext& other);
    QZExtensionContext& operator=(const QZExtensionContext& other);
    ~QZExtensionContext();

    // The map and path setters refuse an empty value with false and keep
    // what they held, so a refill from a record without payloads leaves the
    // earlier ones in place.
    bool SetPayloads(std::map<std::string, std::string>& payloads);
    bool SetConstraints(std::map<std::string, std::vector<std::string>>& constraints);
    bool SetResourcesPath(const std::wstring& path);
    bool SetBinDirPath(const std::wstring& path);
    // These take any value, empty ones included.
    void SetLaunchParams(const LaunchParams& params);
    void SetExtensionId(const std::string& id);
    void SetUnifiedId(const std::string& id);

    // Exact, byte-wise key match. A missing key gives false and leaves the
    // output as it was.
    bool ValueForKey(const std::string& key, std::string& value);
    bool ConstraintForKey(const std::string& key, std::vector<std::string>& values);

    std::wstring GetResourcesPath();
    std::wstring GetBinDirPath();
    LaunchParams GetLaunchParams();
    std::string GetExtensionId();
    std::string GetUnifiedId();

private:
    std::map<std::string, std::string> payloads_;
    std::map<std::string, std::vector<std::string>> constraints_;
    std::wstring resourcesPath_;
    std::wstring binDirPath_;
    LaunchParams launchParams_;
    std::string extensionId_;
    std::string unifiedId_;
};

// The interface the kit asks every extension object for. The order of the
// operations is binary interface.
class QZEKIT_EXPORT IQZBaseExtension : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{E16D76C1-4200-CF27-9703-2480B97FC9E3}")

    IQZBaseExtension();
    IQZBaseExtension(const IQZBaseExtension& other);
    IQZBaseExtension& operator=(const IQZBaseExtension& other);

    // Runs after the context is filled, on every request (a singleton runs
    // it again each time). The kit ignores the result.
    virtual long Initialization() = 0;
    virtual bool ValueForKey(const std::string& key, std::string& value) = 0;
    virtual bool ConstraintForKey(const std::string& key, std::vector<std::string>& values) = 0;
    virtual std::wstring GetResourcesPath() = 0;
    virtual LaunchParams GetLaunchParams() = 0;
    // Owned by the extension.
    virtual QZExtensionContext* GetContext() = 0;
    virtual std::wstring GetBinDirPath() = 0;

protected:
    // Objects go through Release, never through this interface.
    ~IQZBaseExtension() = default;
};

// The base of an extension class. QueryInterface, AddRef and Release come
// from by::CComObject<T>.
//
// Copies are member-wise: a copy shares the context pointer and each of the
// two would delete it. An extension object lives behind its count and is
// never to be copied.
class QZEKIT_EXPORT QZBaseExtension : public IQZBaseExtension, public by::CUnknownImp {
public:
    QZBaseExtension();
    QZBaseExtension(const QZBaseExtension& other);
    ~QZBaseExtension() override;
    // Takes the count and the context pointer; the earlier context is not
    // deleted.
    QZBaseExtension& operator=(const QZBaseExtension& other);

    // Does nothing and gives 0; an extension overrides it.
    long Initialization() override;
    // These read the context.
    bool ValueForKey(const std::string& key, std::string& value) override;
    bool ConstraintForKey(const std::string& key, std::vector<std::string>& values) override;
    std::wstring GetResourcesPath() override;
    LaunchParams GetLaunchParams() override;
    QZExtensionContext* GetContext() override;
    std::wstring GetBinDirPath() override;

    // The second construction step; a derived class hides it to refuse
    // creation with a non-zero status.
    long init_class(by::IBaseUnknown* outer, by::IBaseUnknown* reserved);

private:
    // Owned; null only if it could not be allocated.
    QZExtensionContext* context_;
};

}  // namespace qzextensionkit
