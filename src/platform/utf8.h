#pragma once

// UTF-8 and wide text, here at the bottom because the POSIX layer turns wide
// paths into UTF-8 for the system. Pure code: no system call.

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/export.h"

namespace qzextensionkit {
namespace platform {

// Pure ASCII is widened byte by byte; otherwise each malformed sequence
// becomes one U+FFFD and decoding goes on with the byte after it. A malformed
// sequence is a stray byte, or the longest start of a sequence that breaks
// off: "\xE2\x82A" gives U+FFFD and "A". With a 16-bit wchar_t a code point
// above U+FFFF becomes a surrogate pair; with a 32-bit one it stays one
// character.
QZEKIT_EXPORT std::wstring Utf8ToWide(const char* text, std::size_t length);

// An unpaired surrogate (or, with 32-bit wchar_t, a value that is no code
// point) becomes U+FFFD.
QZEKIT_EXPORT std::string WideToUtf8(const std::wstring& text);

// Appends one code point (at most U+10FFFF) as UTF-8.
QZEKIT_EXPORT void AppendUtf8(std::string* out, uint32_t cp);

}  // namespace platform
}  // namespace qzextensionkit
