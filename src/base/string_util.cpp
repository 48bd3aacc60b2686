#include "base/string_util.h"

#include <cstddef>

namespace base {
namespace {

template <typename Char>
Char ToLowerAscii(Char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<Char>(c + ('a' - 'A')) : c;
}

template <typename String>
bool StartsWithT(const String& text, const String& prefix, CompareCase caseMode) {
    if (caseMode != CompareCase::SENSITIVE && caseMode != CompareCase::INSENSITIVE_ASCII) {
        return false;
    }
    if (prefix.size() > text.size()) {
        return false;
    }
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        if (caseMode == CompareCase::SENSITIVE) {
            if (text[i] != prefix[i]) {
                return false;
            }
        } else if (ToLowerAscii(text[i]) != ToLowerAscii(prefix[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool StartsWith(const std::string& text, const std::string& prefix, CompareCase caseMode) {
    return StartsWithT(text, prefix, caseMode);
}

bool StartsWith(const std::wstring& text, const std::wstring& prefix, CompareCase caseMode) {
    return StartsWithT(text, prefix, caseMode);
}

int HexDigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

}  // namespace base
