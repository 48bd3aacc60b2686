#include <gtest/gtest.h>

#include <string>

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

// Key files with and without a line end; the kit loads what the tool wrote.
TEST_F(QzekitConfig, EncryptedFileLoadsInTheKitAndDecryptsBack) {
    const std::string value(33, 'v');
    const std::string json =
        R"({"modules": [{"id": "core", "configurations": [{"key": "k", "value": ")" + value +
        R"("}]}]})";
    for (const char* keyEnd : {"", "\n", "\r\n"}) {
        ToolRun run = Config("encrypt", kKey + keyEnd, json);
        ASSERT_EQ(std::to_string(run.status) + run.out + run.err, "0") << keyEnd;
        const std::string encrypted = ReadBytes(Path("out"));
        Installation install;
        install.WriteMapping("{}");
        install.WriteConfig(encrypted);
        qzextensionkit::QZEConfigurationManagerImpl manager;
        std::string loaded;
        ASSERT_TRUE(manager.SetSecKey(kKey) && manager.LoadAllExtensionInfos());
        EXPECT_TRUE(manager.GetMuduleConfig("core", "k", loaded) && loaded == value);
        ASSERT_EQ(Config("decrypt", kKey, encrypted).status, 0);
        EXPECT_EQ(ReadBytes(Path("out")), json);
    }
}

// Decrypting gives the text the kit reads; a refusal leaves the output alone.
TEST_F(QzekitConfig, DecryptsAsTheKitReadsAndRefusesBadKeysAndFiles) {
    const std::string json = R"({"a": 1})", in = Path("in");
    const struct {
        const char* direction;
        std::string in;
        std::string error;  // empty: decrypts to `json`
    } rows[] = {
        // The kit's text ends at the first NUL byte.
        {"decrypt",
         EncryptForConfig(json + std::string(1, '\0') + "garbage" + std::string(16, '\x10'), kKey),
         ""},
        {"encrypt", R"({"a": })", in + " is not JSON that the kit reads: "},
        {"decrypt", EncryptForConfig(json + std::string(8, '\x08'), kKey) + "\n",
         in + " is not base64 text: it holds line breaks or blanks, which the kit refuses"},
        // Padding the kit takes by its last byte alone, but no PKCS#7.
        {"decrypt", EncryptForConfig(json + "     \x01\x02\x03", kKey),
         in + " decrypts with this key, but its padding is neither PKCS#7 nor NUL bytes"},
    };
    for (const auto& row : rows) {
        WriteBytes(dir_.path() / "out", "earlier");
        ToolRun run = Config(row.direction, kKey, row.in);
        const std::string prefix = std::string("qzekit config ") + row.direction + ": " + row.error;
        EXPECT_EQ(std::to_string(run.status) + ReadBytes(Path("out")) +
                      run.err.substr(0, row.error.empty() ? 0 : prefix.size()),
                  row.error.empty() ? "0" + json : "1earlier" + prefix)
            << run.err;
    }
}

}  // namespace
}  // namespace qzetest
