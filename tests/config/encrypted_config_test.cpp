#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/support/installation.h"

namespace qzextensionkit {
namespace {

using qzetest::EncryptForConfig;

const std::string kKey = "0123456789abcdef0123456789ABCDEF";
const std::string kCore = R"({"modules":[{"id":"core"}]})";  // 27 bytes
const char kBase64Failed[] =
    "decrypt configurations failed, becuase of base64 decode encrypted configs failed";
const char kDecryptFailed[] =
    "decrypt configurations failed, becuase of decrypt config.json failed";
const char kLoaded[] = "load all extension infos success";

// Each case loads over a good load, which a failure leaves in place. A last
// byte of 0-16 is cut unchecked, 17-127 kept, 0x80 up refused; a NUL ends it.
TEST(EncryptedConfiguration, PaddingAndBadFiles) {
    const std::string good = R"({"modules":[{"id":"mail"}]})";
    const std::string goodFile = EncryptForConfig(good + std::string(32 - good.size(), '\0'), kKey);
    const struct {
        std::string file;
        bool core;
        std::string log;  // a failure's line, or the start of it
    } cases[] = {
        {EncryptForConfig(kCore + "\x01\x02\x03\x04\x05", kKey), true, kLoaded},
        {EncryptForConfig(kCore + std::string(5, '\0'), kKey), true, kLoaded},
        {EncryptForConfig("{}" + std::string(29, ' ') + "\x11", kKey), false,
         "load local configurations failed, becuase of parse json config.json failed, "},
        {EncryptForConfig(std::string(16, '\x10'), kKey), false, kDecryptFailed},
        {EncryptForConfig(kCore + "    \x80", kKey), false, kDecryptFailed},
        {R"({"modules":[]})", false, kBase64Failed},  // plain text with a key set
        {goodFile.substr(0, goodFile.size() - 4), false, kDecryptFailed},  // a block cut short
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        qzetest::Installation install;
        install.WriteMapping("{}");
        install.WriteConfig(goodFile);
        QZEConfigurationManagerImpl manager;
        ASSERT_TRUE(manager.SetSecKey(kKey));
        // A key of another length is refused; the first stays in force.
        EXPECT_FALSE(manager.SetSecKey(kKey + "k"));
        ASSERT_TRUE(manager.LoadAllExtensionInfos());
        install.WriteConfig(c.file);
        auto log = qzetest::CaptureLog();
        EXPECT_EQ(manager.LoadAllExtensionInfos(), c.log == kLoaded);
        std::vector<std::string> lines = log->Texts();
        ASSERT_GE(lines.size(), 2u);
        const std::string& line = c.log == kLoaded ? lines.back() : lines[1];
        EXPECT_EQ(line.rfind(qzetest::ConfigLine(c.log), 0), 0u) << qzetest::Joined(*log);
        bool core = false, mail = false;
        EXPECT_EQ(manager.IsModuleEnabled(kModuleCore, core) && core, c.core);
        EXPECT_TRUE(manager.IsModuleEnabled(kModuleMail, mail) && mail);
        for (auto& text : lines) {
            EXPECT_EQ(text.find(kKey), std::string::npos) << text;
        }
    }
    QZEConfigurationManagerImpl manager;
    auto log = qzetest::CaptureLog();
    EXPECT_FALSE(manager.SetSecKey(std::string(31, 'k')));
    EXPECT_EQ(qzetest::Joined(*log),
              "set sec key failed, becuase of the length of key is not equal to 32");
}

}  // namespace
}  // namespace qzextensionkit
