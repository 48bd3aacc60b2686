#pragma once

#include <string>

#include "platform/export.h"

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

// The same with the mode as a plain number: 0 exact, 1 ASCII case folded.
inline bool StartsWith(const std::string& text, const std::string& prefix, int caseMode) {
    return StartsWith(text, prefix, static_cast<CompareCase>(caseMode));
}
inline bool StartsWith(const std::wstring& text, const std::wstring& prefix, int caseMode) {
    return StartsWith(text, prefix, static_cast<CompareCase>(caseMode));
}

// The value of one hexadecimal digit of either case, or -1. For the kit's
// own use.
int HexDigitValue(char c);

}  // namespace base
