#include "manager/support/kit_host.h"

#include <algorithm>

#include "base/utf_string_conversions.h"
#include "bundle/support/bundle_dirs.h"
#include "kit/qzextensionkit.h"

namespace qzetest {

namespace fs = std::filesystem;
using qzextensionkit::QZExtensionManager;

std::string Point(const std::string& id, const std::string& iid, const std::vector<Ext>& exts) {
    std::string list;
    for (const Ext& e : exts) {
        list += list.empty() ? "" : ", ";
        list += R"({"id": ")" + e.id + R"(", "clsid": ")" + e.clsid + R"(", "isSingleton": )" +
                (e.singleton ? "true" : "false") + (e.more.empty() ? "" : ", " + e.more) + "}";
    }
    return R"({"id": ")" + id + R"(", "iid": ")" + iid + R"(", "extensions": [)" + list + "]}";
}

void KitHost::SetUp() {
    qzextensionkit::QZExtensionKit::InitSDK();
    log = CaptureLog();
    objectsBefore = LiveObjects();
}

void KitHost::TearDown() {
    kit()->Unload();
    kit()->SetLibFileVerifyEnable(false);
    kit()->SetSignVerifyEnable(false);
}

std::string KitHost::BundleManifest(const std::string& folder, const std::string& points,
                                    const std::string& extraMembers, bool namesLibrary) {
    std::string manifest = R"({"id": ")" + folder + R"(", "version": "1.0.0")";
    if (namesLibrary) {
        manifest += R"(, "mainEntry": ")" + std::string(kExtensionLibrary) + "\"";
    }
    manifest += R"(, "extensionPoints": [)" + points + "]";
    return manifest + (extraMembers.empty() ? "" : ", " + extraMembers) + "}";
}

void KitHost::AddBundle(const std::string& folder, const std::string& points,
                        const std::string& extraMembers, const char* library) {
    install.WriteManifest(folder, BundleManifest(folder, points, extraMembers, library != nullptr));
    fs::create_directories(install.root() / "extensions" / folder / "bin");
    if (library != nullptr && *library != '\0') {
        fs::copy_file(BuiltPlugin(library), LibraryFile(folder));
    }
    bundles.push_back(folder);
}

bool KitHost::Load() {
    install.WriteMapping("{}");
    install.WriteConfig(ConfigWithArtifacts(bundles));
    return kit()->Load();
}

std::string KitHost::RootText(const std::string& folder) const {
    return install.RootText() + "\\extensions\\" + folder;
}

fs::path KitHost::LibraryFile(const std::string& folder) const {
    return install.root() / "extensions" / folder / kExtensionLibrary;
}

std::string KitHost::Key(const std::string& folder) const {
    // The manifest's text goes in as it stands, "/" and all.
    return RootText(folder) + "\\" + kExtensionLibrary;
}

std::vector<std::string> KitHost::Lines() const {
    const std::string tag = "[QZExtensionKit] ";
    std::vector<std::string> out;
    for (const std::string& line : log->Texts()) {
        out.push_back(line.compare(0, tag.size(), tag) == 0 ? line.substr(tag.size()) : line);
    }
    return out;
}

std::vector<std::string> KitHost::ManagerLines() const {
    const std::string tag = "extension manager impl - ";
    std::vector<std::string> out;
    for (const std::string& line : Lines()) {
        if (line.compare(0, tag.size(), tag) == 0) {
            out.push_back(line.substr(tag.size()));
        }
    }
    return out;
}

std::vector<by::IBaseUnknown*> KitHost::NewObjects() const {
    std::vector<by::IBaseUnknown*> objects;
    for (by::IBaseUnknown* object : LiveObjects()) {
        if (std::find(objectsBefore.begin(), objectsBefore.end(), object) == objectsBefore.end()) {
            objects.push_back(object);
        }
    }
    return objects;
}

std::vector<by::IBaseUnknown*> LiveObjects() {
    std::vector<by::IBaseUnknown*> objects(256);
    int n = QzeTestTrackedObjects(objects.data(), static_cast<int>(objects.size()));
    objects.resize(static_cast<size_t>(n));
    return objects;
}

}  // namespace qzetest
