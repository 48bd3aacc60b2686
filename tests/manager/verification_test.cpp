#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>

#include "base/utf_string_conversions.h"
#include "bundle/library_signer.h"
#include "bundle/support/verify_pki.h"
#include "manager/support/kit_host.h"

namespace qzetest {
namespace {

namespace fs = std::filesystem;

#if !defined(_WIN32)
// The test certificates, made at the first signature row. OpenSSL reads its
// trust store paths once, at the kit's first signature check, which no
// other test of this program makes.
const TestPki& Pki() {
    struct Holder {
        Holder() {
            std::random_device random;
            dir = fs::temp_directory_path() /
                  ("qzekit_manager_pki_" + std::to_string(random()) + std::to_string(random()));
            pki = MakeTestPki(dir);
            ::setenv("SSL_CERT_FILE", pki.trustFile.c_str(), 1);
            ::setenv("SSL_CERT_DIR", pki.trustDir.c_str(), 1);
        }
        ~Holder() {
            std::error_code ignored;
            fs::remove_all(dir, ignored);
        }
        fs::path dir;
        TestPki pki;
    };
    static Holder holder;
    return holder.pki;
}
#endif

// The file digest as a manifest holds it: MD5 in lower-case hexadecimal.
std::string Md5Text(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_md5(), nullptr);
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += "0123456789abcdef"[digest[i] >> 4];
        text += "0123456789abcdef"[digest[i] & 15];
    }
    return text;
}

enum class Signature { kNone, kTrusted, kUntrusted };

class VerificationTest : public KitHost {};

TEST_F(VerificationTest, TheHostsSwitchesDecideWhatIsCheckedAndAFailedLibraryIsNeverOpened) {
    const std::string fileFailed =
        "Bundle Loader - load bundle failed, because of lib file verify failed";
    const std::string signFailed =
        "Bundle Loader - load bundle failed, because of file sign verify failed";
    struct Row {
        const char* name;
        bool fileCheck, signCheck;
        Signature signature;
        // A byte of the library changed after signing (the file digest is
        // taken afterwards, so that only the signature can tell).
        bool tampered, rightFileDigest, rightSignDigest;
        // The line that stops the bundle, or empty when it loads.
        std::string failure;
        // How the checks' last line ends; empty when none runs or a wrong
        // file digest stops them, which only the bundle manager logs.
        std::string checksSay;
    } const rows[] = {
        {"both off, wrong digest", false, false, Signature::kNone, false, false, false, "", ""},
        {"file check, right digest", true, false, Signature::kNone, false, true, false, "",
         "Verify lib file md5 success."},
        {"file check, wrong digest", true, false, Signature::kNone, false, false, false, fileFailed,
         ""},
        {"both on, trusted signature", true, true, Signature::kTrusted, false, true, true, "",
         "Verify signer certificate information success."},
        {"both on, tampered byte", true, true, Signature::kTrusted, true, true, true, signFailed,
         "Error is: 0x80096010."},
        {"both on, untrusted signer", true, true, Signature::kUntrusted, false, true, true,
         signFailed, "Error is: 0x800b0109."},
        {"both on, wrong signMD5", true, true, Signature::kTrusted, false, true, false, signFailed,
         "Verify signer certificate information failed, because of sign md5 not match."},
        {"both on, unsigned", true, true, Signature::kNone, false, true, false, signFailed,
         "is not signed."},
        {"signature check alone checks nothing", false, true, Signature::kNone, false, false, false,
         "", ""},
    };
    int n = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string folder = "row" + std::to_string(++n);
        const std::string id = "e" + std::to_string(n);
        const std::string points = Point("p." + folder, kProbeIid, {{id, kProbeClass}});
        bundles.clear();
        AddBundle(folder, points);
        std::string signMD5(32, '0');
        if (row.signature != Signature::kNone) {
#if defined(_WIN32)
            std::cout << "[ SKIPPED  ] " << row.name
                      << ": libraries are signed here by the Linux form only\n";
            continue;
#else
            const Identity& signer =
                row.signature == Signature::kTrusted ? Pki().signer : Pki().selfSigned;
            qzextensionkit::LibrarySigningInput input;
            input.certificatePath = Wide(signer.certPath);
            input.keyPath = Wide(signer.keyPath);
            if (row.signature == Signature::kTrusted) {
                input.chainPath = Wide(Pki().intermediate.certPath);
            }
            const std::wstring library = Wide(LibraryFile(folder));
            std::string error;
            ASSERT_TRUE(qzextensionkit::SignLibraryFile(library, input, &error)) << error;
            qzextensionkit::ManifestDigests digests;
            ASSERT_TRUE(qzextensionkit::ComputeManifestDigests(library, &digests, &error)) << error;
            if (row.rightSignDigest) {
                signMD5 = digests.signMD5;
            }
            if (row.tampered) {
                std::string bytes = ReadBytes(LibraryFile(folder));
                bytes[64] = static_cast<char>(bytes[64] ^ 0x5a);
                WriteBytes(LibraryFile(folder), bytes);
            }
#endif
        }
        const std::string libFileMD5 =
            row.rightFileDigest ? Md5Text(LibraryFile(folder)) : std::string(32, '0');
        install.WriteManifest(folder, BundleManifest(folder, points,
                                                     R"("libFileMD5": ")" + libFileMD5 +
                                                         R"(", "signMD5": ")" + signMD5 + "\"",
                                                     true));
        kit()->SetLibFileVerifyEnable(row.fileCheck);
        kit()->SetSignVerifyEnable(row.signCheck);
        const long loads = QzeTestCounter(kLoadsCounter);
        log->Clear();

        EXPECT_TRUE(Load());
        const bool loaded = row.failure.empty();
        bool failureLogged = false;
        std::string lastCheck;
        for (const std::string& line : Lines()) {
            failureLogged = failureLogged || line == row.failure;
            if (line.rfind("[SignVerify] ", 0) == 0) {
                lastCheck = line.substr(13);
            }
        }
        EXPECT_EQ(failureLogged, !loaded);
        // Compared by its end: the unsigned file's line names the file first.
        EXPECT_EQ(
            lastCheck.substr(lastCheck.size() - std::min(lastCheck.size(), row.checksSay.size())),
            row.checksSay);
        EXPECT_EQ(lastCheck.empty(), row.checksSay.empty()) << lastCheck;

        // A bundle that was not loaded leaves its records: a request finds
        // the file, gets a loader that never opened it, and fails there.
        log->Clear();
        void* object = nullptr;
        EXPECT_EQ(kit()->GetExtensionById(id, &object), loaded);
        if (loaded) {
            ASSERT_NE(object, nullptr);
            EXPECT_EQ(Probe(object)->Release(), 0u);
        } else {
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
