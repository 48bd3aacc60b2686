#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/utf8.h"

namespace base {

// UTF-8 to wide text. Pure ASCII is widened byte by byte; otherwise each
// malformed sequence becomes one U+FFFD and decoding goes on with the byte
// after it: "\xE2\x82A" gives U+FFFD and "A". With a 16-bit wchar_t a code
// point above U+FFFF becomes a surrogate pair.
inline std::wstring UTF8ToWide(const char* text, std::size_t length) {
    return qzextensionkit::platform::Utf8ToWide(text, length);
}
inline std::wstring UTF8ToWide(const std::string& text) {
    return qzextensionkit::platform::Utf8ToWide(text.data(), text.size());
}

// Wide text to UTF-8. An unpaired surrogate becomes U+FFFD.
inline std::string WideToUTF8(const std::wstring& text) {
    return qzextensionkit::platform::WideToUtf8(text);
}

// Appends one code point (at most U+10FFFF) as UTF-8.
inline void AppendUTF8(std::string* out, uint32_t cp) {
    qzextensionkit::platform::AppendUtf8(out, cp);
}

}  // namespace base
