#pragma once

#include <string>

#include "base/files/file_path.h"
#include "platform/export.h"

namespace base {

// True when anything, file or directory, exists at `path`.
QZEKIT_EXPORT bool PathExists(const FilePath& path);

// Reads the whole file as bytes into `*contents` (which may be null when only
// readability matters). `*contents` is cleared first. On a read error the
// result is false and what was read so far stays in `*contents`.
QZEKIT_EXPORT bool ReadFileBytes(const FilePath& path, std::string* contents);

// ReadFileBytes for paths built from files we do not control: a path with a
// ".." component is refused before anything is opened.
QZEKIT_EXPORT bool ReadFileToString(const FilePath& path, std::string* contents);

}  // namespace base
