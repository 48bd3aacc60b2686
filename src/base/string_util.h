#pragma once

#include <string>

#include "kit/export.h"

namespace base {

// How StartsWith compares. Any other value makes it answer false.
enum class CompareCase {
    SENSITIVE = 0,
    INSENSITIVE_ASCII = 1,
};

// True when `text` begins with `prefix`. INSENSITIVE_ASCII folds only the
// letters A-Z; every other byte must match exactly.
QZEKIT_EXPORT bool StartsWith(const std::string& text, const std::string& prefix,
                              CompareCase caseMode);
QZEKIT_EXPORT bool StartsWith(const std::wstring& text, const std::wstring& prefix,
                              CompareCase caseMode);

}  // namespace base
