#include <gtest/gtest.h>

#include <string>

#include "bundle/support/verify_pki.h"
#include "manager/support/kit_host.h"

namespace qzetest {
namespace {

class VerificationTest : public KitHost {};

TEST_F(VerificationTest, TheHostsSwitchesDecideWhatIsCheckedAndAFailedLibraryIsNeverOpened) {
    const std::string failed = "Bundle Loader - load bundle failed, because of ";
    const struct {
        const char* name;
        bool fileCheck, signCheck, rightDigest;
        std::string failure;    // empty when it loads
        std::string checksSay;  // the end of the checks' last line
    } rows[] = {
        {"both off, wrong digest", false, false, false, "", ""},
        {"file check, right digest", true, false, true, "", "Verify lib file md5 success."},
        {"file check, wrong digest", true, false, false, failed + "lib file verify failed", ""},
        {"both on, unsigned", true, true, true, failed + "file sign verify failed",
         "is not signed."},
        {"signature check alone checks nothing", false, true, false, "", ""},
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string folder = "row" + std::to_string(++n), id = "e" + std::to_string(n);
        const std::string points = Point("p." + folder, kProbeIid, {{id, kProbeClass}});
        bundles.clear();
        AddBundle(folder, points);
        const std::string digest =
            row.rightDigest ? Md5Hex(ReadBytes(LibraryFile(folder))) : std::string(32, '0');
        install.WriteManifest(
            folder, BundleManifest(folder, points, R"("libFileMD5": ")" + digest + "\"", true));
        kit()->SetLibFileVerifyEnable(row.fileCheck);
        kit()->SetSignVerifyEnable(row.signCheck);
        const long loads = QzeTestCounter(kLoadsCounter);
        log->Clear();

        EXPECT_TRUE(Load());
        const bool loaded = row.failure.empty();
        std::string lastCheck;  // without its "[SignVerify] "
        bool failureLogged = false;
        for (const std::string& line : Lines()) {
            failureLogged = failureLogged || line == row.failure;
            lastCheck = line.rfind("[SignVerify] ", 0) == 0 ? line.substr(13) : lastCheck;
        }
        EXPECT_EQ(failureLogged, !loaded);
        EXPECT_TRUE(lastCheck.size() >= row.checksSay.size() &&
                    lastCheck.compare(lastCheck.size() - row.checksSay.size(), std::string::npos,
                                      row.checksSay) == 0 &&
                    lastCheck.empty() == row.checksSay.empty())
            << lastCheck;
        log->Clear();
        void* object = nullptr;
        EXPECT_EQ(kit()->GetExtensionById(id, &object), loaded);
        EXPECT_EQ(object != nullptr, loaded);
        ReleaseObject(object);
        if (!loaded) {
            EXPECT_EQ(ManagerLines()[2],
                      "create extension instance from dynamic library failed, because of create "
                      "object instance failed");
        }
        EXPECT_EQ(QzeTestCounter(kLoadsCounter), loads + (loaded ? 1 : 0));
        kit()->Unload();
    }
}

}  // namespace
}  // namespace qzetest
