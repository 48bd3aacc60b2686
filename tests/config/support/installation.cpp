#include "config/support/installation.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <fstream>
#include <memory>

#include "base/guid.h"
#include "base/utf_string_conversions.h"
#include "platform/platform.h"

namespace qzetest {

Installation::Installation(const std::string& namePart) {
    root_ = std::filesystem::temp_directory_path() /
            std::filesystem::u8path("qzekit-" + namePart + "-" + base::GenerateGUID());
    std::filesystem::create_directories(root_);
    qzextensionkit::platform::testing::SetExecutablePathOverride(
        base::UTF8ToWide((root_ / "host.exe").u8string()));
}

Installation::~Installation() {
    qzextensionkit::platform::testing::SetExecutablePathOverride(std::wstring());
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

void Installation::Write(const std::string& relative, const std::string& bytes) const {
    std::filesystem::path path = root_ / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good()) << relative;
}

std::string EncryptForConfig(const std::string& plain, const std::string& key) {
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                            &EVP_CIPHER_CTX_free);
    EXPECT_EQ(EVP_EncryptInit_ex(context.get(), EVP_aes_256_ecb(), nullptr,
                                 reinterpret_cast<const unsigned char*>(key.data()), nullptr),
              1);
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    std::string cipher(plain.size(), '\0');
    int written = 0;
    EXPECT_EQ(EVP_EncryptUpdate(context.get(), reinterpret_cast<unsigned char*>(&cipher[0]),
                                &written, reinterpret_cast<const unsigned char*>(plain.data()),
                                static_cast<int>(plain.size())),
              1);
    EXPECT_EQ(static_cast<std::size_t>(written), plain.size()) << "not whole blocks";
    std::string text(4 * ((cipher.size() + 2) / 3) + 1, '\0');
    text.resize(static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(&text[0]),
        reinterpret_cast<const unsigned char*>(cipher.data()), static_cast<int>(cipher.size()))));
    return text;
}

std::string Manifest(const std::string& id, const std::string& foundationVersion,
                     const std::string& points, const std::string& mainEntry) {
    return R"({"id": ")" + id + R"(", "version": "1.0.0", "foundationVersion": ")" +
           foundationVersion + R"(", "mainEntry": ")" + mainEntry + R"(", "extensionPoints": )" +
           points + "}";
}

void LoadedSample::SetUp() {
    // "host.menu" and "host.other" are found through nested objects; "self"
    // maps a point onto itself.
    install.WriteMapping(R"({"host": {"menu": {"extensionPointId": "adapter.web", "version": "9.9",
        "clsid": "{CLS}", "iid": "{IID}", "isSingleton": true},
        "other": {"extensionPointId": "adapter.none"}}, "self": {"extensionPointId": "self"}})");
    install.WriteConfig(R"({"modules": [{"id": "core"},
        {"id": "a_mod", "configurations": [{"key": "vv_video_meetting_live", "value": "false"}]},
        {"id": "b_mod", "configurations": [{"key": "vv_video_meetting_live", "value": "true"},
            {"key": "im_enable_burn_chat", "value": "TRUE"},
            {"key": "vorn.feature.sms.enabled", "value": "true"},
            {"key": "with_default", "value": "", "defaultValue": "dflt"},
            {"key": "no_value", "defaultValue": "x"}, {"key": "empty", "value": ""},
            {"key": "dup", "value": "1"}, {"key": "dup", "value": "2"}, "not an object"]},
        {"id": ""}, {"configurations": []}, "not an object",
        {"id": "mail", "configurations": [{"key": "old", "value": "1"}]},
        {"id": "mail", "configurations": [{"key": "new", "value": "2"}]}],
      "ExtensionAuthInfo": {
        "H5": {"https://b.example.com": [{"bundleId": "web", "accessKey": "k2"}],
               "https://a.example.com:8443": [{"bundleId": "web", "accessKey": "k1"},
                   {"bundleId": "web", "accessKey": ""}, {"bundleId": "", "accessKey": "x"}, {}, 7],
               "https://c.example.com": "not a list"},
        "Native": [{"bundleId": "native", "accessKey": "k3"}, {"accessKey": "k4"}]},
      "artifacts": ["good1", "missing", "notjson", "listroot", "", 5, "other", "adapter", "src",
                    "adapter2", "good2"]})");
    // Duplicates within and across bundles, a record and a point without id.
    install.WriteManifest("good1", Manifest("bundle.1", "", R"([{"id": "host.list", "extensions": [
        {"id": "e1", "version": "first"}, {"version": "no id"}, {"id": "e1", "version": "second"}]},
        {"no id": "point skipped"}])"));
    install.WriteManifest("good2", Manifest("bundle.2", "", R"([{"id": "host.list", "extensions": [
        {"id": "e1", "version": "third"}, {"id": "e2"}]}])"));
    install.WriteManifest("notjson", "{\"id\": ");
    install.WriteManifest("listroot", "[]");
    // A look-alike of the adapter, the adapter, and a second one too late to serve.
    install.WriteManifest("other", Manifest("not_adapter", "", R"([{"id": "adapter.web"}])"));
    install.WriteManifest("adapter", Manifest("extension_adapter", "", R"([{"id": "adapter.web",
        "iid": "{POINT-IID}", "extensions": [{"id": "local"}]},
        {"id": "self", "extensions": [{"id": "z"}]}])",
                                              "bin/adapter.dll"));
    install.WriteManifest("adapter2", Manifest("extension_adapter", "",
                                               R"([{"id": "adapter.web", "iid": "{LATE}"}])"));
    install.WriteManifest("src", Manifest("bundle.src", "", R"([{"id": "host.menu", "extensions": [
        {"id": "s1", "unifiedId": "u1", "payloads": {"a": "1", "b": "", "x.y": "2"},
         "constraints": [{"key": "k", "value": ["", "v"]}, {"key": "gone", "value": [""]}],
         "settingMap": {"modalPosition": "c", "modalSize": "s", "host": "h", "uri": "/u",
                        "openType": "tab"}},
        {"id": "s2", "payloads": {"extensionId": "given"}}, {"id": "s3"}]},
      {"id": "host.other", "extensions": [{"id": "o1"}]},
      {"id": "p.b", "extensions": [{"id": "same", "version": "from b"}]},
      {"id": "p.a", "extensions": [{"id": "same", "version": "from a"}, {"id": ""}]},
      {"id": "p.empty", "extensions": []}])"));
    // Debug mode changes nothing in the load.
    ASSERT_TRUE(manager.SetDebugModeEnable(true));
    loadLog = CaptureLog();
    ASSERT_TRUE(manager.LoadAllExtensionInfos());
    log = CaptureLog();
}

}  // namespace qzetest
