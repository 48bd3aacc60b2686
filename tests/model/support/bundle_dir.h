#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

#include "base/files/file_path.h"
#include "base/utf_string_conversions.h"

namespace qzetest {

// A fresh folder under the system's temporary directory that holds bundle
// directories; removed with the object.
class BundleDir {
public:
    BundleDir() {
        std::random_device random;
        root_ = std::filesystem::temp_directory_path() /
                ("qzekit_model_" + std::to_string(random()) + "_" + std::to_string(random()));
        std::filesystem::create_directories(root_);
    }
    ~BundleDir() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    BundleDir(const BundleDir&) = delete;
    BundleDir& operator=(const BundleDir&) = delete;

    // Creates the bundle folder `name` with `manifest` as its manifest.json.
    base::FilePath Bundle(const std::string& name, const std::string& manifest) {
        std::filesystem::create_directories(root_ / name);
        std::ofstream(root_ / name / "manifest.json", std::ios::binary) << manifest;
        return Path(name);
    }
    // Creates the bundle folder `name` with no manifest in it.
    base::FilePath EmptyBundle(const std::string& name) {
        std::filesystem::create_directories(root_ / name);
        return Path(name);
    }
    // The kit's path of `name` below the root; nothing is created.
    base::FilePath Path(const std::string& name) const { return RootPath().AppendASCII(name); }
    base::FilePath RootPath() const {
#if defined(_WIN32)
        return base::FilePath(root_.wstring());
#else
        return base::FilePath(base::UTF8ToWide(root_.string()));
#endif
    }
    const std::filesystem::path& root() const {
        return root_;
    }

private:
    std::filesystem::path root_;
};

}  // namespace qzetest
