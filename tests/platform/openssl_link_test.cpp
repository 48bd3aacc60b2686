#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>

namespace {

// The kit's digests and ciphers come from libcrypto; this proves the library
// links and works on each system the kit is built for.
TEST(OpenSslLink, Md5OfAbcHasTheKnownDigest) {
    EVP_MD* md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
    ASSERT_NE(md5, nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    ASSERT_EQ(EVP_Digest("abc", 3, digest, &length, md5, nullptr), 1);
    EVP_MD_free(md5);
    std::string hex;
    static const char kDigits[] = "0123456789abcdef";
    for (unsigned int i = 0; i < length; ++i) {
        hex += kDigits[digest[i] >> 4];
        hex += kDigits[digest[i] & 0xF];
    }
    EXPECT_EQ(hex, "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
