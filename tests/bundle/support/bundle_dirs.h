#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include "base/files/file_path.h"
#include "base/utf_string_conversions.h"
#include "model/artifact.h"
#include "platform/platform.h"

namespace qzetest {

namespace fs = std::filesystem;

#if defined(_WIN32)
constexpr const char kLibrarySuffix[] = ".dll";
inline std::wstring Wide(const fs::path& path) {
    return path.wstring();
}
#else
constexpr const char kLibrarySuffix[] = ".so";
inline std::wstring Wide(const fs::path& path) {
    return base::UTF8ToWide(path.string());
}
#endif

inline fs::path BuiltPlugin(const std::string& name) {
    return fs::path(QZEKIT_TEST_BIN_DIR) / "test_plugins" / (name + kLibrarySuffix);
}

// Removed with everything in it when the object goes. Libraries opened from
// it must be closed first: Windows does not delete a loaded library.
class TempDir {
public:
    TempDir() {
        by::GUID id{};
        qzextensionkit::platform::CreateGuid(&id);
        path_ = fs::temp_directory_path() /
                ("qzekit_" + base::WideToUTF8(qzextensionkit::platform::FormatGuid(id)));
        fs::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

// One bundle: `root`, created with its "bin" folder.
struct BundleDir {
    fs::path root;

    BundleDir(const fs::path& parent, const std::string& name) : root(parent / name) {
        fs::create_directories(root / "bin");
    }
    // Copies a built test plug-in to `relative` below the root.
    void Library(const std::string& plugin, const std::string& relative) const {
        fs::copy_file(BuiltPlugin(plugin), root / relative);
    }
    std::wstring RootText() const { return Wide(root); }
    // The pool key of a library at `mainEntry`, in UTF-8.
    std::string Key(const std::string& mainEntry) const {
        return base::WideToUTF8(RootText()) + (mainEntry.empty() ? "" : "\\" + mainEntry);
    }
    std::unique_ptr<qzextensionkit::Artifact> Artifact(const std::string& mainEntry,
                                                       const std::string& classId) const {
        auto artifact = std::make_unique<qzextensionkit::Artifact>(base::FilePath(RootText()));
        artifact->SetMainEntry(base::UTF8ToWide(mainEntry));
        artifact->SetBundleClassId(classId);
        return artifact;
    }
};

// A path with "/" written as "\\".
inline std::wstring Backslashed(std::wstring text) {
    for (wchar_t& c : text) {
        c = c == L'/' ? L'\\' : c;
    }
    return text;
}

// The extra library search directory as it stands.
inline std::wstring SearchDirectory() {
    wchar_t buffer[1024] = {};
    qzextensionkit::platform::GetLibraryDirectory(buffer, 1024);
    return Backslashed(buffer);
}

}  // namespace qzetest
