#include "bundle/verify_digest.h"

#include <openssl/evp.h>

#include <memory>

#include "platform/platform.h"

#if !defined(QZEKIT_SIGN_SALT_BYTES)
#error "QZEKIT_SIGN_SALT_BYTES must be defined by the build (cmake/QZEKitSignSalt.cmake)"
#endif

namespace qzextensionkit {
namespace internal {
namespace {

constexpr unsigned char kSaltBytes[] = {QZEKIT_SIGN_SALT_BYTES};
static_assert(sizeof kSaltBytes == 45, "the signing salt must be 45 bytes");

constexpr std::size_t kFileBlockSize = 1024;

struct DigestContextFree {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};

struct FileCloser {
    void operator()(void* file) const { platform::CloseFile(file); }
};

}  // namespace

const std::string& SignSalt() {
    static const std::string salt(reinterpret_cast<const char*>(kSaltBytes), sizeof kSaltBytes);
    return salt;
}

std::string HashText(const unsigned char* digest, std::size_t length) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 2);
    for (std::size_t i = 0; i < length; ++i) {
        text.push_back(kDigits[digest[i] >> 4]);
        text.push_back(kDigits[digest[i] & 0x0F]);
    }
    return text;
}

bool Md5Text(const std::string& bytes, std::string* out) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) != 1) {
        return false;
    }
    *out = HashText(digest, length);
    return true;
}

bool FileMd5Text(const std::wstring& path, std::string* out) {
    std::unique_ptr<void, FileCloser> file(platform::OpenFileForRead(path));
    if (!file) {
        return false;
    }
    std::unique_ptr<EVP_MD_CTX, DigestContextFree> ctx(EVP_MD_CTX_new());
    if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_md5(), nullptr) != 1) {
        return false;
    }
    unsigned char block[kFileBlockSize];
    for (;;) {
        long long got = platform::ReadFromFile(file.get(), block, sizeof block);
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            break;
        }
        if (EVP_DigestUpdate(ctx.get(), block, static_cast<std::size_t>(got)) != 1) {
            return false;
        }
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(ctx.get(), digest, &length) != 1) {
        return false;
    }
    *out = HashText(digest, length);
    return true;
}

}  // namespace internal
}  // namespace qzextensionkit
