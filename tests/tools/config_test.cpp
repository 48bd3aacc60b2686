#include <gtest/gtest.h>

#include <string>

#include "base/base64.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "config/configuration_manager_impl.h"
#include "config/support/installation.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

const std::string kKey = "0123456789abcdef0123456789ABCDEF";

class QzekitConfig : public ::testing::Test {
protected:
    ToolRun Config(const char* direction, const std::string& key, const std::string& input) {
        WriteBytes(dir_.path() / "key", key);
        WriteBytes(dir_.path() / "in", input);
        return RunTool({"config", direction, "--key-file", Path("key"), Path("in"), Path("out")});
    }
    std::string Path(const char* name) const { return (dir_.path() / name).u8string(); }

    TempDir dir_;
};

TEST_F(QzekitConfig, EncryptedFileLoadsInTheKitAndDecryptsBack) {
    auto config = [](const std::string& value) {
        return R"({"modules": [{"id": "core", "configurations": [{"key": "k", "value": ")" + value +
               R"("}]}]})";
    };
    const std::size_t base = config("").size() % 16;
    // PKCS#7 padding of a whole block, of 1 and of 15; key files with line ends.
    const std::pair<std::string, const char*> rows[] = {
        {std::string(32 - base, 'a'), ""},
        {std::string(47 - base, 'b'), "\n"},
        {std::string(33 - base, 'c'), "\r\n"},
    };
    for (const auto& [value, keyEnd] : rows) {
        SCOPED_TRACE(value);
        ToolRun run = Config("encrypt", kKey + keyEnd, config(value));
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out + run.err, "");
        const std::string encrypted = ReadBytes(Path("out"));
        std::string cipher;
        ASSERT_TRUE(base::Base64Decode(encrypted, &cipher)) << encrypted;
        EXPECT_EQ(cipher.size(), (config(value).size() / 16 + 1) * 16);

        Installation install;
        install.WriteMapping("{}");
        install.WriteConfig(encrypted);
        qzextensionkit::QZEConfigurationManagerImpl manager;
        std::string loaded;
        ASSERT_TRUE(manager.SetSecKey(kKey) && manager.LoadAllExtensionInfos());
        EXPECT_TRUE(manager.GetMuduleConfig("core", "k", loaded) && loaded == value);

        ASSERT_EQ(Config("decrypt", kKey, encrypted).status, 0);
        EXPECT_EQ(ReadBytes(Path("out")), config(value));
    }
}

// Decrypting gives the text the kit reads; a refusal leaves the output alone.
TEST_F(QzekitConfig, DecryptsAsTheKitReadsAndRefusesBadKeysAndFiles) {
    const std::string json = R"({"a": 1})";
    const std::string good = EncryptForConfig(json + std::string(8, '\x08'), kKey);
    const struct {
        const char* direction;
        std::string key, in;
        std::string error;  // empty: decrypts to `json`
    } rows[] = {
        {"decrypt", kKey, EncryptForConfig(json + std::string(8, '\0'), kKey), ""},
        // The kit's text ends at the first NUL byte.
        {"decrypt", kKey,
         EncryptForConfig(json + std::string(1, '\0') + "garbage" + std::string(16, '\x10'), kKey),
         ""},
        {"encrypt", kKey.substr(1), "{}", "is 31 bytes long (one line end after it not counted)"},
        {"encrypt", kKey, R"({"a": })", "is not JSON that the kit reads: "},
        {"decrypt", "x" + kKey.substr(1), good,
         "the key in " + Path("key") + " does not decrypt " + Path("in") + ": "},
        {"decrypt", kKey, good + "\n", "it holds line breaks or blanks"},
        {"decrypt", kKey, "not base64!!", "is not base64 text"},
        {"decrypt", kKey, "AAAAAAAAAAAAAAAAAAAA", "it decodes to 15 bytes, not a whole number"},
        {"decrypt", kKey, "", "is empty"},
        {"decrypt", kKey, EncryptForConfig("not json at all!" + std::string(16, '\x10'), kKey),
         "does not decrypt " + Path("in") + ": the result is not JSON ("},
        {"decrypt", kKey, EncryptForConfig("0123456789abcde\x81", kKey),
         ": the padding at the end is neither PKCS#7 nor NUL bytes"},
        // Padding the kit takes by its last byte alone, but no PKCS#7.
        {"decrypt", kKey, EncryptForConfig(json + "     \x01\x02\x03", kKey),
         "decrypts with this key, but its padding is neither PKCS#7 nor NUL bytes"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        WriteBytes(dir_.path() / "out", "earlier");
        ToolRun run = Config(row.direction, row.key, row.in);
        EXPECT_EQ(run.status, row.error.empty() ? 0 : 1) << run.err;
        EXPECT_EQ(ReadBytes(Path("out")), row.error.empty() ? json : "earlier");
        if (!row.error.empty()) {
            EXPECT_EQ(run.err.rfind(std::string("qzekit config ") + row.direction + ": ", 0), 0u)
                << run.err;
            EXPECT_NE(run.err.find(row.error), std::string::npos) << run.err;
        }
    }
}

}  // namespace
}  // namespace qzetest
