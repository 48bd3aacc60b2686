#include "platform/appended_signature.h"

#include <cstring>

namespace qzextensionkit {
namespace platform {
namespace {

// The fixed part of the trailer: no algorithm, hash or key named, id type 2
// (PKCS#7), as in the Linux kernel's module signatures.
constexpr unsigned char kTrailerHead[8] = {0, 0, 2, 0, 0, 0, 0, 0};

}  // namespace

AppendedSignature ParseAppendedSignatureTail(const unsigned char* tail, uint64_t fileSize,
                                             uint32_t* blockSize) {
    if (fileSize < kAppendedSignatureMagicSize) {
        return AppendedSignature::kNone;
    }
    std::size_t have = fileSize < kAppendedSignatureTailSize ? static_cast<std::size_t>(fileSize)
                                                             : kAppendedSignatureTailSize;
    const unsigned char* magic = tail + have - kAppendedSignatureMagicSize;
    if (std::memcmp(magic, kAppendedSignatureMagic, kAppendedSignatureMagicSize) != 0) {
        return AppendedSignature::kNone;
    }
    if (have < kAppendedSignatureTailSize) {
        return AppendedSignature::kTruncated;
    }
    if (std::memcmp(tail, kTrailerHead, sizeof kTrailerHead) != 0) {
        return AppendedSignature::kMalformed;
    }
    uint32_t size = (uint32_t(tail[8]) << 24) | (uint32_t(tail[9]) << 16) |
                    (uint32_t(tail[10]) << 8) | uint32_t(tail[11]);
    if (size == 0) {
        return AppendedSignature::kMalformed;
    }
    if (size > fileSize - kAppendedSignatureTailSize) {
        return AppendedSignature::kTruncated;
    }
    *blockSize = size;
    return AppendedSignature::kPresent;
}

std::string AppendedSignatureTail(uint32_t blockSize) {
    std::string tail(reinterpret_cast<const char*>(kTrailerHead), sizeof kTrailerHead);
    tail.push_back(static_cast<char>(blockSize >> 24));
    tail.push_back(static_cast<char>((blockSize >> 16) & 0xFF));
    tail.push_back(static_cast<char>((blockSize >> 8) & 0xFF));
    tail.push_back(static_cast<char>(blockSize & 0xFF));
    tail.append(kAppendedSignatureMagic, kAppendedSignatureMagicSize);
    return tail;
}

}  // namespace platform
}  // namespace qzextensionkit
