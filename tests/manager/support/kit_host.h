#pragma once

// Host installations for the extension manager tests: a temporary folder
// that the kit takes for the executable's, with bundles that carry copies of
// the extension test library, driven through the kit's facades only.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/capture_logger.h"
#include "config/support/installation.h"
#include "kit/extension_manager.h"
#include "plugins/extension_test_api.h"

namespace qzetest {

#if defined(_WIN32)
constexpr const char kExtensionLibrary[] = "bin/ext.dll";
#else
constexpr const char kExtensionLibrary[] = "bin/ext.so";
#endif

// One extension of a manifest. `more` holds further JSON members, e.g.
// R"("payloads": {"title": "t"})".
struct Ext {
    Ext(std::string id, std::string clsid, bool singleton = false, std::string more = "")
        : id(std::move(id)), clsid(std::move(clsid)), singleton(singleton), more(std::move(more)) {}
    std::string id;
    std::string clsid;
    bool singleton;
    std::string more;
};

// An extension point of a manifest, as JSON.
std::string Point(const std::string& id, const std::string& iid, const std::vector<Ext>& exts);

// The kit set up by InitSDK with a capturing sink, in an installation of
// its own; the records are unloaded and the switches put back afterwards.
class KitHost : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A bundle folder below "extensions": its manifest, with the given
    // points (JSON, the list without its brackets) and further members, and
    // a copy of the built test library `library` at "bin/ext.<suffix>". An
    // empty `library` names that file without putting it there; null names
    // no library at all.
    void AddBundle(const std::string& folder, const std::string& points,
                   const std::string& extraMembers = "",
                   const char* library = "qzekit_plugin_extension");
    // The manifest AddBundle writes.
    static std::string BundleManifest(const std::string& folder, const std::string& points,
                                      const std::string& extraMembers, bool namesLibrary);
    // Writes "extension_adapter_mapping.json" and "extensions/config.json"
    // naming every bundle added, then calls Load through the facade.
    bool Load();

    // The bundle's root, library and pool key as the kit writes them.
    std::string RootText(const std::string& folder) const;
    std::filesystem::path LibraryFile(const std::string& folder) const;
    std::string Key(const std::string& folder) const;

    // The extension manager's own lines, without "[QZExtensionKit] ".
    std::vector<std::string> ManagerLines() const;
    // Every line, without "[QZExtensionKit] ".
    std::vector<std::string> Lines() const;
    // Objects of the extension test classes alive now that were not when
    // the test began (singletons of earlier tests in this process stay).
    std::vector<by::IBaseUnknown*> NewObjects() const;

    static qzextensionkit::QZExtensionManager* kit() {
        return qzextensionkit::QZExtensionManager::GetInstance();
    }

    Installation install;
    std::shared_ptr<CapturedLines> log;
    std::vector<std::string> bundles;
    std::vector<by::IBaseUnknown*> objectsBefore;
};

// The probe interface of an object the kit handed out as `object`.
inline ITestExtensionProbe* Probe(void* object) {
    return static_cast<ITestExtensionProbe*>(object);
}

// The count of references on an object, read by taking one and giving it
// back.
inline uint32_t RefCount(by::IBaseUnknown* object) {
    object->AddRef();
    return object->Release();
}

// Objects of the extension test library now alive.
std::vector<by::IBaseUnknown*> LiveObjects();

}  // namespace qzetest
