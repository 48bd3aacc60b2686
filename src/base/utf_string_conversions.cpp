#include "base/utf_string_conversions.h"

#include <cstdint>

namespace base {
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

void AppendUTF8(std::string* out, uint32_t cp) {
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

// Decodes one well-formed UTF-8 sequence at text[i]. Returns its length, or 0
// when the bytes there are not a valid sequence (overlong forms, surrogates
// and values above U+10FFFF are invalid).
std::size_t DecodeOne(const unsigned char* s, std::size_t n, uint32_t* cp) {
    unsigned char b = s[0];
    std::size_t len;
    uint32_t value;
    uint32_t min;
    if (b < 0x80) {
        *cp = b;
        return 1;
    } else if ((b & 0xE0) == 0xC0) {
        len = 2, value = b & 0x1F, min = 0x80;
    } else if ((b & 0xF0) == 0xE0) {
        len = 3, value = b & 0x0F, min = 0x800;
    } else if ((b & 0xF8) == 0xF0) {
        len = 4, value = b & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (len > n) {
        return 0;
    }
    for (std::size_t k = 1; k < len; ++k) {
        if ((s[k] & 0xC0) != 0x80) {
            return 0;
        }
        value = (value << 6) | (s[k] & 0x3F);
    }
    if (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return 0;
    }
    *cp = value;
    return len;
}

}  // namespace

std::wstring UTF8ToWide(const char* text, std::size_t length) {
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
        uint32_t cp = 0;
        std::size_t len = DecodeOne(s + i, length - i, &cp);
        if (len == 0) {
            AppendCodePoint(&out, kReplacement);
            ++i;
        } else {
            AppendCodePoint(&out, cp);
            i += len;
        }
    }
    return out;
}

std::wstring UTF8ToWide(const std::string& text) {
    return UTF8ToWide(text.data(), text.size());
}

std::string WideToUTF8(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        uint32_t cp = static_cast<uint32_t>(text[i]);
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
        AppendUTF8(&out, cp);
    }
    return out;
}

}  // namespace base
