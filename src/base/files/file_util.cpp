#include "base/files/file_util.h"

#include <cstddef>
#include <memory>

#include "platform/platform.h"

namespace base {
namespace {

constexpr std::size_t kReadBlockSize = 65536;

}  // namespace

bool PathExists(const FilePath& path) {
    return qzextensionkit::platform::FileExists(path.value());
}

bool ReadFileBytes(const FilePath& path, std::string* contents) {
    namespace platform = qzextensionkit::platform;
    if (contents) {
        contents->clear();
    }
    platform::FileHandle file = platform::OpenFileForRead(path.value());
    if (!file) {
        return false;
    }
    std::unique_ptr<char[]> block(new char[kReadBlockSize]);
    bool ok = true;
    for (;;) {
        long long got = platform::ReadFromFile(file, block.get(), kReadBlockSize);
        if (got < 0) {
            ok = false;
            break;
        }
        if (got == 0) {
            break;
        }
        if (contents) {
            contents->append(block.get(), static_cast<std::size_t>(got));
        }
    }
    platform::CloseFile(file);
    return ok;
}

bool ReadFileToString(const FilePath& path, std::string* contents) {
    // Bundle roots and configuration paths come from files we do not
    // control; a ".." must not let them reach outside their directory.
    if (path.ReferencesParent()) {
        if (contents) {
            contents->clear();
        }
        return false;
    }
    return ReadFileBytes(path, contents);
}

}  // namespace base
