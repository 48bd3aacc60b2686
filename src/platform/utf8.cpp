#include "platform/utf8.h"

#include <cstdint>

namespace qzextensionkit {
namespace platform {
namespace {

constexpr uint32_t kReplacement = 0xFFFD;

void AppendCodePoint(std::wstring* out, uint32_t cp) {
    if constexpr (sizeof(wchar_t) == 2) {
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out->push_back(static_cast<wchar_t>(0xD800 + (cp >> 10)));
            out->push_back(static_cast<wchar_t>(0xDC00 + (cp & 0x3FF)));
            return;
        }
    }
    out->push_back(static_cast<wchar_t>(cp));
}

// Reads one UTF-8 sequence at s[0] (n bytes available, s[0] >= 0x80).
// Returns true and the code point for a well-formed sequence. Either way
// `*used` is how many bytes the sequence took: on a malformed one that is
// its longest prefix that could still have begun a valid sequence, at least
// one byte, so that one bad sequence gives one replacement character.
bool DecodeOne(const unsigned char* s, std::size_t n, uint32_t* cp, std::size_t* used) {
    const unsigned char b = s[0];
    std::size_t len;
    uint32_t value;
    // Allowed range of the second byte; it rules out overlong forms,
    // surrogates and values above U+10FFFF.
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        len = 2, value = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
        len = 3, value = b & 0x0F;
        if (b == 0xE0) {
            low = 0xA0;
        } else if (b == 0xED) {
            high = 0x9F;
        }
    } else if (b >= 0xF0 && b <= 0xF4) {
        len = 4, value = b & 0x07;
        if (b == 0xF0) {
            low = 0x90;
        } else if (b == 0xF4) {
            high = 0x8F;
        }
    } else {
        *used = 1;
        return false;
    }
    for (std::size_t k = 1; k < len; ++k) {
        const unsigned char lo = k == 1 ? low : 0x80;
        const unsigned char hi = k == 1 ? high : 0xBF;
        if (k >= n || s[k] < lo || s[k] > hi) {
            *used = k;
            return false;
        }
        value = (value << 6) | (s[k] & 0x3F);
    }
    *cp = value;
    *used = len;
    return true;
}

}  // namespace

void AppendUtf8(std::string* out, uint32_t cp) {
    if (cp < 0x80) {
        out->push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

std::wstring Utf8ToWide(const char* text, std::size_t length) {
    std::wstring out;
    out.reserve(length);
    const auto* s = reinterpret_cast<const unsigned char*>(text);
    std::size_t i = 0;
    while (i < length) {
        if (s[i] < 0x80) {
            out.push_back(static_cast<wchar_t>(s[i]));
            ++i;
            continue;
        }
        uint32_t cp = kReplacement;
        std::size_t used = 1;
        if (!DecodeOne(s + i, length - i, &cp, &used)) {
            cp = kReplacement;
        }
        AppendCodePoint(&out, cp);
        i += used;
    }
    return out;
}

std::string WideToUtf8(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        uint32_t cp = static_cast<uint32_t>(text[i]);
        // Paths and ids are mostly ASCII: one byte each, no call.
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
            continue;
        }
        if constexpr (sizeof(wchar_t) == 2) {
            cp &= 0xFFFF;
            if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size()) {
                uint32_t low = static_cast<uint32_t>(text[i + 1]) & 0xFFFF;
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
        }
        if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) {
            cp = kReplacement;
        }
        AppendUtf8(&out, cp);
    }
    return out;
}

}  // namespace platform
}  // namespace qzextensionkit
