#include <gtest/gtest.h>

#include <string>

#include "bundle/support/verify_pki.h"
#include "manager/support/kit_host.h"

namespace qzetest {
namespace {

using VerificationTest = KitHost;

// A wrong digest under the file check is the bundle tests' row.
TEST_F(VerificationTest, TheHostsSwitchesDecideWhatIsCheckedAndAFailedLibraryIsNeverOpened) {
    const std::string md5 = Md5Hex(ReadBytes(BuiltPlugin("qzekit_plugin_extension")));
    // Rows: file check, signature check, digest, the last line of the load
    // that is the checks' or the loader's failure ("" when none).
    const std::tuple<bool, bool, std::string, std::string> rows[] = {
        {true, false, md5, "[SignVerify] Verify lib file md5 success."},
        {true, true, md5, "Bundle Loader - load bundle failed, because of file sign verify failed"},
        {false, true, std::string(32, '0'), ""},
    };
    int n = 0;
    for (const auto& [fileCheck, signCheck, digest, last] : rows) {
        const std::string folder = "row" + std::to_string(++n), id = "e" + std::to_string(n);
        bundles.clear();
        AddBundle(folder, Point("p." + folder, kProbeIid, {{id, kProbeClass}}),
                  R"("libFileMD5": ")" + digest + "\"");
        kit()->SetLibFileVerifyEnable(fileCheck);
        kit()->SetSignVerifyEnable(signCheck);
        const long loads = QzeTestCounter(kLoadsCounter);
        log->Clear();
        EXPECT_TRUE(Load());
        std::string checked;
        for (const std::string& line : Lines()) {
            checked =
                line.rfind("[SignVerify] ", 0) == 0 || line.find("failed") != std::string::npos
                    ? line
                    : checked;
        }
        const bool loaded = last.find("failed") == std::string::npos;
        void* object = nullptr;
        EXPECT_EQ(kit()->GetExtensionById(id, &object), loaded);
        ReleaseObject(object);
        EXPECT_EQ(checked + "|" + std::to_string(QzeTestCounter(kLoadsCounter) - loads),
                  last + "|" + (loaded ? "1" : "0"));
        kit()->Unload();
    }
}

}  // namespace
}  // namespace qzetest
