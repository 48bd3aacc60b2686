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
    EXPECT_TRUE(log->lines.empty());
    for (const std::string& bad : {std::string(31, 'k'), std::string(33, 'k'), std::string()}) {
        SCOPED_TRACE(bad.size());
        EXPECT_FALSE(manager.SetSecKey(bad));
        EXPECT_EQ(log->Texts().back(),
                  ConfigLine("set sec key failed, becuase of the length of key is not equal to "
                             "32"));
    }
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
        std::string failure;  // the line before the final failure line
    };
    const Case cases[] = {
        {"PKCS#7 padding", kCore + std::string(5, '\x05'), true, true, ""},
        {"padding bytes not checked", kCore + "\x01\x02\x03\x04\x05", true, true, ""},
        {"NUL padding, last byte 0", kCore + std::string(5, '\0'), true, true, ""},
        {"NUL inside ends the text", kCore + std::string("\0junk{[", 7) + std::string(14, '\x0e'),
         true, true, ""},
        {"last byte '}' removes nothing", R"({"modules":[{"id":"core"}]     })", true, true, ""},
        {"last byte 32 removes nothing", kCore + std::string(5, ' '), true, true, ""},
        {"last byte 17 stays in the text", kCore + "    \x11", false, false,
         "load local configurations failed, becuase of parse json config.json failed, "},
        {"a whole block of padding", "{}" + std::string(14, ' ') + std::string(16, '\x10'), true,
         false, ""},
        {"an empty object and its padding", "{}" + std::string(14, '\x0e'), true, false, ""},
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
        auto lines = log->Texts();
        if (c.loads) {
            EXPECT_EQ(lines.back(), ConfigLine("load all extension infos success"));
        } else {
            ASSERT_EQ(lines.size(), 3u);
            EXPECT_EQ(lines[1].rfind(ConfigLine(c.failure), 0), 0u) << lines[1];
            EXPECT_EQ(lines[2], ConfigLine(kLoadFailed));
        }
        EXPECT_EQ(CoreEnabled(manager), c.core);
        ExpectKeyNeverLogged(*log);
    }
}

// Bad files fail with their line and leave what an earlier load stored.
TEST(EncryptedConfiguration, BadFilesLeaveTheTablesAsTheyWere) {
    const std::string good = R"({"modules":[{"id":"core"}],"artifacts":["b"]})";
    const std::string goodPlain = good + std::string(48 - good.size(), '\0');
    const std::string goodFile = EncryptForConfig(goodPlain, kKey);
    struct Case {
        const char* name;
        std::string file;
        std::vector<std::string> failures;  // one of these
    };
    const Case cases[] = {
        {"plain text with a key set", R"({"modules":[]})", {kBase64Failed}},
        {"empty file", "", {kBase64Failed}},
        {"cut inside a base64 group", goodFile.substr(0, goodFile.size() - 1), {kBase64Failed}},
        {"cut by a whole base64 group", goodFile.substr(0, goodFile.size() - 4), {kDecryptFailed}},
        {"wrong key",
         EncryptForConfig(goodPlain, kWrongKey),
         {kDecryptFailed,
          "load local configurations failed, becuase of parse json config.json failed, "}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Installation install;
        install.WriteMapping("{}");
        install.WriteManifest("b", qzetest::Manifest("bundle.b", "", R"([{"id": "p",
            "extensions": [{"id": "e"}]}])"));
        install.WriteConfig(goodFile);
        QZEConfigurationManagerImpl manager;
        ASSERT_TRUE(manager.SetSecKey(kKey));
        ASSERT_TRUE(manager.LoadAllExtensionInfos());

        install.WriteConfig(c.file);
        auto log = qzetest::CaptureLog();
        EXPECT_FALSE(manager.LoadAllExtensionInfos());
        auto lines = log->Texts();
        ASSERT_EQ(lines.size(), 3u);
        EXPECT_EQ(lines[0], ConfigLine("get extensions dir success"));
        bool known = false;
        for (auto& failure : c.failures) {
            known = known || lines[1].rfind(ConfigLine(failure), 0) == 0;
        }
        EXPECT_TRUE(known) << lines[1];
        EXPECT_EQ(lines[2], ConfigLine(kLoadFailed));

        EXPECT_TRUE(CoreEnabled(manager));
        std::vector<Artifact*> artifacts;
        manager.GetAllArtifacts(artifacts);
        EXPECT_EQ(artifacts.size(), 1u);
        std::vector<Extension*> records;
        manager.GetAllExtensionInfos(records);
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0]->GetId(), "e");
        ExpectKeyNeverLogged(*log);
    }
}

}  // namespace
}  // namespace qzextensionkit
