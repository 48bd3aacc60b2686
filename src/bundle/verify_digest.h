#pragma once

// Digests shared by the library checks and the signing helpers. All go
// through libcrypto's EVP interface.

#include <cstddef>
#include <string>

namespace qzextensionkit {
namespace internal {

// The salt compiled into the kit (45 bytes, no terminator counted).
const std::string& SignSalt();

// Digest bytes as lower-case hexadecimal, two digits a byte.
std::string HashText(const unsigned char* digest, std::size_t length);

// MD5 of `bytes` as hash text. False when a digest step fails.
bool Md5Text(const std::string& bytes, std::string* out);

// MD5 of a file read in blocks of 1,024 bytes through the platform layer.
// False when the file can't be opened or read, or a digest step fails.
bool FileMd5Text(const std::wstring& path, std::string* out);

}  // namespace internal
}  // namespace qzextensionkit
