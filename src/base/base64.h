#pragma once

#include <string>

#include "platform/export.h"

namespace base {

// Decodes standard base64 ("+" and "/", "=" padding). The text's length must
// be a multiple of 4; up to two "=" may end it and none may stand elsewhere.
// Whitespace is a bad character. Empty text decodes to an empty output.
// On failure `*output` is left as it was and the result is false.
QZEKIT_EXPORT bool Base64Decode(const std::string& text, std::string* output);

}  // namespace base
