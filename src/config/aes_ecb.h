#pragma once

#include <string>

#include "platform/export.h"

namespace qzextensionkit {

// Decrypts AES-256 ECB ciphertext with the 32 bytes at `key`, then drops the
// padding by the last byte alone: 1 to 16 removes that many bytes, 0 and 17
// to 127 remove nothing, and 0x80 and above fail. The empty text on failure,
// also when the length is no multiple of 16 or the ciphertext is empty.
// Exported for the qzekit tool, which reads config.json as the kit does.
QZEKIT_EXPORT std::string AesEcbDecrypt(const std::string& cipherText, const char* key);

}  // namespace qzextensionkit
