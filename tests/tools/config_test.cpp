#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/base64.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "config/configuration_manager_impl.h"
#include "config/support/installation.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

const std::string kKey = "0123456789abcdef0123456789ABCDEF";

// A configuration whose one setting holds `value`.
std::string ConfigWithValue(const std::string& value) {
    return R"({"modules": [{"id": "core", "configurations": [{"key": "k", "value": ")" + value +
           R"("}]}]})";
}

// The setting as the kit reads it from an encrypted config.json.
std::string LoadedValue(const std::string& encrypted) {
    Installation install;
    install.WriteMapping("{}");
    install.WriteConfig(encrypted);
    qzextensionkit::QZEConfigurationManagerImpl manager;
    std::string value = "(not loaded)";
    if (manager.SetSecKey(kKey) && manager.LoadAllExtensionInfos()) {
        manager.GetMuduleConfig("core", "k", value);
    }
    return value;
}

TEST(QzekitConfig, EncryptedFileLoadsInTheKitAndDecryptsBack) {
    TempDir dir;
    const std::size_t base = ConfigWithValue("").size();
    struct Row {
        std::string value;
        std::string keyEnd;
    } rows[] = {
        // Padding of 16 bytes (a whole block), of 1 and of 15.
        {std::string(32 - base % 16, 'a'), ""},
        {std::string(47 - base % 16, 'b'), "\n"},
        {std::string(33 - base % 16, 'c'), "\r\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        const std::string plain = ConfigWithValue(row.value);
        WriteBytes(dir.path() / "key", kKey + row.keyEnd);
        WriteBytes(dir.path() / "plain.json", plain);
        const std::string key = (dir.path() / "key").u8string();
        ToolRun run =
            RunTool({"config", "encrypt", "--key-file", key, (dir.path() / "plain.json").u8string(),
                     (dir.path() / "config.json").u8string()});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out + run.err, "");
        const std::string encrypted = ReadBytes(dir.path() / "config.json");
        std::string cipher;
        ASSERT_TRUE(base::Base64Decode(encrypted, &cipher)) << encrypted;
        // PKCS#7 always pads, by a whole block when the text fills its last.
        EXPECT_EQ(cipher.size(), (plain.size() / 16 + 1) * 16);
        EXPECT_EQ(LoadedValue(encrypted), row.value);

        run = RunTool({"config", "decrypt", "--key-file", key,
                       (dir.path() / "config.json").u8string(),
                       (dir.path() / "back.json").u8string()});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(ReadBytes(dir.path() / "back.json"), plain);
    }
}

// Decrypting gives the text the kit reads; a refusal leaves the output alone.
TEST(QzekitConfig, DecryptsAsTheKitReadsAndRefusesBadKeysAndFiles) {
    TempDir dir;
    const fs::path good = dir.path() / "good.json";
    const std::string key = (dir.path() / "key").u8string();
    const std::string in = (dir.path() / "in").u8string();
    const std::string json = R"({"a": 1})";
    WriteBytes(good, EncryptForConfig(json + std::string(8, '\x08'), kKey));
    struct Row {
        const char* direction;
        std::string key;    // the key file's bytes
        std::string in;     // the input file's bytes
        std::string error;  // empty: decrypts to `json`
    } rows[] = {
        {"decrypt", kKey, EncryptForConfig(json + std::string(8, '\0'), kKey), ""},
        // The kit's text ends at the first NUL byte.
        {"decrypt", kKey,
         EncryptForConfig(json + std::string(1, '\0') + "garbage" + std::string(16, '\x10'), kKey),
         ""},
        {"encrypt", kKey.substr(1), "{}", "is 31 bytes long (one line end after it not counted)"},
        {"encrypt", kKey + "\n\n", "{}", "is 33 bytes long"},
        {"decrypt", "", ReadBytes(good), "is 0 bytes long"},
        {"encrypt", kKey, R"({"a": })", "is not JSON that the kit reads: "},
        {"decrypt", "x" + kKey.substr(1), ReadBytes(good),
         "the key in " + key + " does not decrypt " + in + ": "},
        {"decrypt", kKey, ReadBytes(good) + "\n", "it holds line breaks or blanks"},
        {"decrypt", kKey, "not base64!!", "is not base64 text"},
        {"decrypt", kKey, "AAAAAAAAAAAAAAAAAAAA", "it decodes to 15 bytes, not a whole number"},
        {"decrypt", kKey, "", "is empty"},
        {"decrypt", kKey, EncryptForConfig("not json at all!" + std::string(16, '\x10'), kKey),
         "does not decrypt " + in + ": the result is not JSON ("},
        {"decrypt", kKey, EncryptForConfig("0123456789abcde\x81", kKey),
         ": the padding at the end is neither PKCS#7 nor NUL bytes"},
        // Padding the kit takes by its last byte alone, but no PKCS#7.
        {"decrypt", kKey,
         EncryptForConfig(R"({"a": 1}     )"
                          "\x01\x02\x03",
                          kKey),
         "decrypts with this key, but its padding is neither PKCS#7 nor NUL bytes"},
    };
    const fs::path out = dir.path() / "out.json";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        WriteBytes(dir.path() / "key", row.key);
        WriteBytes(dir.path() / "in", row.in);
        WriteBytes(out, "earlier");
        ToolRun run = RunTool({"config", row.direction, "--key-file", key, in, out.u8string()});
        if (row.error.empty()) {
            EXPECT_EQ(run.status, 0) << run.err;
            EXPECT_EQ(ReadBytes(out), json);
            continue;
        }
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err.rfind(std::string("qzekit config ") + row.direction + ": ", 0), 0u)
            << run.err;
        EXPECT_NE(run.err.find(row.error), std::string::npos) << run.err;
        EXPECT_EQ(ReadBytes(out), "earlier");
    }
}

}  // namespace
}  // namespace qzetest
