#pragma once

// A temporary host folder with bundles carrying the extension test library.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bundle/support/bundle_dirs.h"
#include "common/capture_logger.h"
#include "config/support/installation.h"
#include "kit/extension_manager.h"
#include "kit/qzextensionkit.h"
#include "manager/extension_object.h"
#include "plugins/extension_test_api.h"
#include "plugins/probe_extension.h"

namespace qzetest {

// Libraries load by path, whatever their suffix.
constexpr const char kExtensionLibrary[] = "bin/ext.dll";

// One extension of a manifest; `more` holds further JSON members.
struct Ext {
    std::string id, clsid;
    bool singleton = false;
    std::string more{};
};

inline std::string Point(const std::string& id, const std::string& iid,
                         const std::vector<Ext>& exts) {
    std::string list;
    for (const Ext& e : exts) {
        list += (list.empty() ? R"({"id": ")" : R"(, {"id": ")") + e.id + R"(", "clsid": ")" +
                e.clsid + R"(", "isSingleton": )" + (e.singleton ? "true" : "false") +
                (e.more.empty() ? "" : ", " + e.more) + "}";
    }
    return R"({"id": ")" + id + R"(", "iid": ")" + iid + R"(", "extensions": [)" + list + "]}";
}

inline bool HostProbe(const std::string& iid, void** out) {
    return qzextensionkit::CreateExtensionObject<ProbeExtension, ITestExtensionProbe>(
               by::ParseGuid(iid.c_str(), true), out) == 0;
}

inline ITestExtensionProbe* Probe(void* object) {
    return static_cast<ITestExtensionProbe*>(object);
}

// One "name=value" field of what a probe object saw; "?" when it has none.
inline std::string SeenField(void* object, const std::string& name) {
    const std::string seen = object != nullptr ? ";" + std::string(Probe(object)->Seen()) : "";
    const size_t at = seen.find(";" + name + "=");
    const size_t from = at + name.size() + 2;
    return at == std::string::npos ? "?" : seen.substr(from, seen.find(';', from) - from);
}

inline void ReleaseObject(void* object) {
    if (object != nullptr) {
        static_cast<by::IBaseUnknown*>(object)->Release();
    }
}

inline uint32_t RefCount(by::IBaseUnknown* object) {
    object->AddRef();
    return object->Release();
}

inline std::vector<by::IBaseUnknown*> LiveObjects() {
    std::vector<by::IBaseUnknown*> objects(256);
    objects.resize(static_cast<size_t>(
        QzeTestTrackedObjects(objects.data(), static_cast<int>(objects.size()))));
    return objects;
}

class KitHost : public ::testing::Test {
protected:
    void SetUp() override {
        qzextensionkit::QZExtensionKit::InitSDK();
        log = CaptureLog();
        objectsBefore = LiveObjects();
    }
    void TearDown() override { kit()->Unload(); }

    static std::string BundleManifest(const std::string& folder, const std::string& points,
                                      const std::string& extraMembers, bool namesLibrary) {
        return R"({"id": ")" + folder + R"(", "version": "1.0.0")" +
               (namesLibrary ? R"(, "mainEntry": ")" + std::string(kExtensionLibrary) + "\"" : "") +
               R"(, "extensionPoints": [)" + points + "]" +
               (extraMembers.empty() ? "" : ", " + extraMembers) + "}";
    }
    // `points` is the JSON list without brackets; a null `library` names none.
    void AddBundle(const std::string& folder, const std::string& points,
                   const std::string& extraMembers = "",
                   const char* library = "qzekit_plugin_extension") {
        install.WriteManifest(folder,
                              BundleManifest(folder, points, extraMembers, library != nullptr));
        std::filesystem::create_directories(install.root() / "extensions" / folder / "bin");
        if (library != nullptr) {
            std::filesystem::copy_file(BuiltPlugin(library),
                                       install.root() / "extensions" / folder / kExtensionLibrary);
        }
        bundles.push_back(folder);
    }
    bool Load() {
        install.WriteMapping("{}");
        install.WriteConfig(ConfigWithArtifacts(bundles));
        return kit()->Load();
    }

    std::string RootText(const std::string& folder) const {
        return install.RootText() + "\\extensions\\" + folder;
    }

    // The log's lines that begin with `prefix`, without it.
    std::vector<std::string> Lines(const std::string& prefix = "") const {
        std::vector<std::string> out;
        for (const std::string& line : log->Texts()) {
            if (line.rfind("[QZExtensionKit] " + prefix, 0) == 0) {
                out.push_back(line.substr(17 + prefix.size()));
            }
        }
        return out;
    }
    std::vector<std::string> ManagerLines() const { return Lines("extension manager impl - "); }
    // Singletons of earlier tests in this process stay alive.
    std::vector<by::IBaseUnknown*> NewObjects() const {
        std::vector<by::IBaseUnknown*> objects;
        for (by::IBaseUnknown* object : LiveObjects()) {
            if (std::count(objectsBefore.begin(), objectsBefore.end(), object) == 0) {
                objects.push_back(object);
            }
        }
        return objects;
    }

    static qzextensionkit::QZExtensionManager* kit() {
        return qzextensionkit::QZExtensionManager::GetInstance();
    }

    Installation install;
    std::shared_ptr<CapturedLines> log;
    std::vector<std::string> bundles;
    std::vector<by::IBaseUnknown*> objectsBefore;
};

}  // namespace qzetest
