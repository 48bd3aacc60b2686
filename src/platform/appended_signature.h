#pragma once

// The layout of a signature appended to a library on systems without a
// code-signing service of their own: the library's bytes, a detached DER CMS
// SignedData over exactly those bytes, a 12-byte trailer (00 00 02 00 00 00
// 00 00, then the CMS length as a big-endian 32-bit number) and the 28-byte
// text "~Module signature appended~\n". Pure code: no system call.

#include <cstddef>
#include <cstdint>
#include <string>

namespace qzextensionkit {
namespace platform {

constexpr char kAppendedSignatureMagic[] = "~Module signature appended~\n";
constexpr std::size_t kAppendedSignatureMagicSize = sizeof kAppendedSignatureMagic - 1;
constexpr std::size_t kAppendedSignatureTrailerSize = 12;
// Trailer and text: what follows the CMS block.
constexpr std::size_t kAppendedSignatureTailSize =
    kAppendedSignatureTrailerSize + kAppendedSignatureMagicSize;

enum class AppendedSignature {
    kNone,       // the file does not end with the text
    kPresent,    // a block of the given length lies before the trailer
    kTruncated,  // the length given is more than the file holds
    kMalformed,  // the text is there, the trailer is not ours or says 0 bytes
};

// Reads the tail of a file of `fileSize` bytes; `tail` holds its last
// min(fileSize, kAppendedSignatureTailSize) bytes. On kPresent `*blockSize`
// is the CMS block's length; it ends where the tail starts.
AppendedSignature ParseAppendedSignatureTail(const unsigned char* tail, uint64_t fileSize,
                                             uint32_t* blockSize);

// The bytes that follow a CMS block of `blockSize` bytes.
std::string AppendedSignatureTail(uint32_t blockSize);

}  // namespace platform
}  // namespace qzextensionkit
