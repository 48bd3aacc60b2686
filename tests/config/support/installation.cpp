#include "config/support/installation.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <fstream>
#include <memory>

#include "base/guid.h"
#include "base/utf_string_conversions.h"
#include "platform/platform.h"

namespace qzetest {

Installation::Installation() {
    root_ = std::filesystem::temp_directory_path() / ("qzekit-config-" + base::GenerateGUID());
    std::filesystem::create_directories(root_);
    qzextensionkit::platform::testing::SetExecutablePathOverride((root_ / "host.exe").wstring());
}

Installation::~Installation() {
    qzextensionkit::platform::testing::SetExecutablePathOverride(std::wstring());
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

std::string Installation::RootText() const {
    return base::WideToUTF8(root_.wstring());
}

void Installation::Write(const std::string& relative, const std::string& bytes) const {
    std::filesystem::path path = root_ / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good()) << relative;
}

void Installation::Remove(const std::string& relative) const {
    std::filesystem::remove_all(root_ / relative);
}

std::string EncryptForConfig(const std::string& plain, const std::string& key) {
    EXPECT_EQ(plain.size() % 16, 0u);
    EXPECT_EQ(key.size(), 32u);
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                            &EVP_CIPHER_CTX_free);
    std::string cipher(plain.size() + 16, '\0');
    int written = 0;
    int tail = 0;
    auto* out = reinterpret_cast<unsigned char*>(&cipher[0]);
    EXPECT_EQ(EVP_EncryptInit_ex(context.get(), EVP_aes_256_ecb(), nullptr,
                                 reinterpret_cast<const unsigned char*>(key.data()), nullptr),
              1);
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    EXPECT_EQ(EVP_EncryptUpdate(context.get(), out, &written,
                                reinterpret_cast<const unsigned char*>(plain.data()),
                                static_cast<int>(plain.size())),
              1);
    EXPECT_EQ(EVP_EncryptFinal_ex(context.get(), out + written, &tail), 1);
    cipher.resize(static_cast<std::size_t>(written + tail));

    std::string text(4 * ((cipher.size() + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                 reinterpret_cast<const unsigned char*>(cipher.data()),
                                 static_cast<int>(cipher.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string Manifest(const std::string& id, const std::string& foundationVersion,
                     const std::string& points, const std::string& mainEntry) {
    return R"({"id": ")" + id + R"(", "version": "1.0.0", "foundationVersion": ")" +
           foundationVersion + R"(", "mainEntry": ")" + mainEntry + R"(", "extensionPoints": )" +
           points + "}";
}

std::string ConfigWithArtifacts(const std::vector<std::string>& bundles,
                                const std::string& extraKeys) {
    std::string list;
    for (auto& bundle : bundles) {
        list += (list.empty() ? "\"" : ", \"") + bundle + "\"";
    }
    return "{" + extraKeys + (extraKeys.empty() ? "" : ", ") + "\"artifacts\": [" + list + "]}";
}

std::string ConfigLine(const std::string& text) {
    return "[QZExtensionKit] configuration manager impl - " + text;
}

}  // namespace qzetest
