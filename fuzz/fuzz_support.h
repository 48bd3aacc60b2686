#pragma once

// Helpers the fuzz targets share: a failed check ends the run, and a
// temporary folder lives for the whole run.

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "base/utf_string_conversions.h"

namespace fuzzing {

inline void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

// A folder under the system's temporary folder, removed at exit.
class TempFolder {
public:
    explicit TempFolder(const std::string& prefix) {
        std::random_device random;
        path_ = std::filesystem::temp_directory_path() /
                (prefix + std::to_string(random()) + std::to_string(random()));
        std::filesystem::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::wstring Wide() const { return base::UTF8ToWide(path_.string()); }

private:
    std::filesystem::path path_;
};

inline void WriteFile(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// `text` cut at each `separator`; the last part runs to the end.
inline std::vector<std::string> Split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        std::size_t at = text.find(separator, start);
        parts.push_back(
            text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) {
            return parts;
        }
        start = at + separator.size();
    }
}

}  // namespace fuzzing
