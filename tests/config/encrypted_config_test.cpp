#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/capture_logger.h"
#include "config/configuration_manager_impl.h"
#include "config/support/installation.h"
#include "model/extension.h"

namespace qzextensionkit {
namespace {

using qzetest::ConfigLine;
using qzetest::EncryptForConfig;
using qzetest::Installation;

const std::string kKey = "0123456789abcdef0123456789ABCDEF";
const std::string kWrongKey = "ffffffffffffffffffffffffffffffff";
// 27 bytes of configuration that switch the module "core" on.
const std::string kCore = R"({"modules":[{"id":"core"}]})";

const char kBase64Failed[] =
    "decrypt configurations failed, becuase of base64 decode encrypted configs failed";
const char kDecryptFailed[] =
    "decrypt configurations failed, becuase of decrypt config.json failed";
const char kLoaded[] = "load all extension infos success";
const char kLoadFailed[] = "load all extension infos failed, because of find extensions failed";

bool CoreEnabled(IQZEConfigurationManager& manager) {
    bool enabled = false;
    manager.IsModuleEnabled(kModuleCore, enabled);
    return enabled;
}

void ExpectKeyNeverLogged(qzetest::CapturedLines& log) {
    for (auto& line : log.Texts()) {
        EXPECT_EQ(line.find(kKey), std::string::npos) << line;
    }
}

TEST(EncryptedConfiguration, SecKeyMustBe32Bytes) {
    QZEConfigurationManagerImpl manager;
    auto log = qzetest::CaptureLog();
    ASSERT_TRUE(manager.SetSecKey(kKey));
    EXPECT_FALSE(manager.SetSecKey(std::string(31, 'k')));
    EXPECT_FALSE(manager.SetSecKey(std::string(33, 'k')));
    EXPECT_FALSE(manager.SetSecKey(""));
    const std::string refused =
        "set sec key failed, becuase of the length of key is not equal to 32";
    EXPECT_EQ(qzetest::Joined(*log), refused + "\n" + refused + "\n" + refused);
    // The first key stays in force.
    Installation install;
    install.WriteMapping("{}");
    install.WriteConfig(EncryptForConfig(kCore + std::string(5, '\x05'), kKey));
    EXPECT_TRUE(manager.LoadAllExtensionInfos());
    EXPECT_TRUE(CoreEnabled(manager));
    ExpectKeyNeverLogged(*log);
}

// How the last byte of the decrypted text is read.
TEST(EncryptedConfiguration, PaddingRules) {
    struct Case {
        const char* name;
        std::string plain;  // a multiple of 16 bytes
        bool loads;
        bool core;
        std::string log;  // how the log goes on after the extensions dir
    };
    const Case cases[] = {
        {"PKCS#7 padding", kCore + std::string(5, '\x05'), true, true, kLoaded},
        {"padding bytes not checked", kCore + "\x01\x02\x03\x04\x05", true, true, kLoaded},
        {"NUL padding, last byte 0", kCore + std::string(5, '\0'), true, true, kLoaded},
        {"NUL inside ends the text", kCore + std::string("\0junk{[", 7) + std::string(14, '\x0e'),
         true, true, kLoaded},
        {"last byte '}' removes nothing", R"({"modules":[{"id":"core"}]     })", true, true,
         kLoaded},
        {"last byte 32 removes nothing", kCore + std::string(5, ' '), true, true, kLoaded},
        {"last byte 17 stays in the text", kCore + "    \x11", false, false,
         "load local configurations failed, becuase of parse json config.json failed, "},
        {"a whole block of padding", "{}" + std::string(14, ' ') + std::string(16, '\x10'), true,
         false, kLoaded},
        {"an empty object and its padding", "{}" + std::string(14, '\x0e'), true, false, kLoaded},
        {"nothing left after the padding", std::string(16, '\x10'), false, false, kDecryptFailed},
        {"last byte 0x80", kCore + "    \x80", false, false, kDecryptFailed},
        {"last byte 0xFF", kCore + "    \xff", false, false, kDecryptFailed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Installation install;
        install.WriteMapping("{}");
        install.WriteConfig(EncryptForConfig(c.plain, kKey));
        QZEConfigurationManagerImpl manager;
        ASSERT_TRUE(manager.SetSecKey(kKey));
        auto log = qzetest::CaptureLog();
        EXPECT_EQ(manager.LoadAllExtensionInfos(), c.loads);
        EXPECT_EQ(qzetest::Joined(*log).rfind("get extensions dir success\n" + c.log, 0), 0u)
            << qzetest::Joined(*log);
        EXPECT_EQ(CoreEnabled(manager), c.core);
        ExpectKeyNeverLogged(*log);
    }
}

// Bad files fail with their line and leave what an earlier load stored.
TEST(EncryptedConfiguration, BadFilesLeaveTheTablesAsTheyWere) {
    const std::string good = R"({"modules":[{"id":"core"}],"artifacts":["b"]})";
    const std::string goodPlain = good + std::string(48 - good.size(), '\0');
    const std::string goodFile = EncryptForConfig(goodPlain, kKey);
    const std::pair<std::string, const char*> cases[] = {
        {R"({"modules":[]})", kBase64Failed},  // plain text with a key set
        {"", kBase64Failed},
        {goodFile.substr(0, goodFile.size() - 1), kBase64Failed},
        {goodFile.substr(0, goodFile.size() - 4), kDecryptFailed},  // a block cut short
        // A wrong key shows as either failure; this one leaves a last byte
        // from 0x80 up.
        {EncryptForConfig(goodPlain, kWrongKey), kDecryptFailed},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.first);
        Installation install;
        install.WriteMapping("{}");
        install.WriteManifest("b", qzetest::Manifest("bundle.b", "", R"([{"id": "p",
            "extensions": [{"id": "e"}]}])"));
        install.WriteConfig(goodFile);
        QZEConfigurationManagerImpl manager;
        ASSERT_TRUE(manager.SetSecKey(kKey));
        ASSERT_TRUE(manager.LoadAllExtensionInfos());

        install.WriteConfig(c.first);
        auto log = qzetest::CaptureLog();
        EXPECT_FALSE(manager.LoadAllExtensionInfos());
        EXPECT_EQ(qzetest::Joined(*log),
                  std::string("get extensions dir success\n") + c.second + "\n" + kLoadFailed);
        EXPECT_TRUE(CoreEnabled(manager));
        std::vector<Artifact*> artifacts;
        manager.GetAllArtifacts(artifacts);
        EXPECT_EQ(artifacts.size(), 1u);
        EXPECT_EQ(qzetest::Ids(qzetest::InForce(manager, "p")), std::vector<std::string>{"e"});
        ExpectKeyNeverLogged(*log);
    }
}

}  // namespace
}  // namespace qzextensionkit
