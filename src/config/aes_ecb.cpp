#include "config/aes_ecb.h"

#include <openssl/evp.h>

#include <memory>

namespace qzextensionkit {

namespace {

constexpr std::size_t kBlockSize = 16;

struct CipherContextFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

}  // namespace

std::string AesEcbDecrypt(const std::string& cipherText, const char* key) {
    if (cipherText.size() % kBlockSize != 0) {
        return std::string();
    }
    std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree> context(EVP_CIPHER_CTX_new());
    if (!context || EVP_DecryptInit_ex(context.get(), EVP_aes_256_ecb(), nullptr,
                                       reinterpret_cast<const unsigned char*>(key), nullptr) != 1) {
        return std::string();
    }
    if (cipherText.empty()) {
        return std::string();
    }
    // The padding is ours to judge below, not the cipher's: blocks come out
    // one for one.
    EVP_CIPHER_CTX_set_padding(context.get(), 0);

    std::string plain(cipherText.size(), '\0');
    auto* out = reinterpret_cast<unsigned char*>(&plain[0]);
    const auto* in = reinterpret_cast<const unsigned char*>(cipherText.data());
    int written = 0;
    // One call per block keeps every length within an int.
    for (std::size_t offset = 0; offset < cipherText.size(); offset += kBlockSize) {
        if (EVP_DecryptUpdate(context.get(), out + offset, &written, in + offset,
                              static_cast<int>(kBlockSize)) != 1 ||
            written != static_cast<int>(kBlockSize)) {
            return std::string();
        }
    }
    unsigned char rest[kBlockSize];
    int tail = 0;
    if (EVP_DecryptFinal_ex(context.get(), rest, &tail) != 1 || tail != 0) {
        return std::string();
    }

    if (plain.size() < kBlockSize) {
        return plain;
    }
    const auto last = static_cast<signed char>(plain.back());
    if (last < 0) {
        return std::string();
    }
    if (last <= static_cast<signed char>(kBlockSize)) {
        plain.resize(plain.size() - static_cast<std::size_t>(last));
    }
    return plain;
}

}  // namespace qzextensionkit
