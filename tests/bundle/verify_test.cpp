#include <gtest/gtest.h>

#include <openssl/bio.h>
#include <openssl/pem.h>

#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "bundle/lib_file_verify.h"
#include "bundle/library_signer.h"
#include "bundle/sign_verify.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "common/capture_logger.h"
#include "platform/platform.h"

namespace qzextensionkit {
namespace {

namespace fs = std::filesystem;
namespace pf = platform;
using Lines = std::vector<std::string>;

const std::string P = "[QZExtensionKit] [SignVerify] ";
// A row's bytes when its path holds no file.
const std::string kNoFile = "(no file)";

TEST(LibFileVerify, DigestMatrix) {
    const std::string kOk = P + "Verify lib file md5 success.";
    const std::string kHashFailed =
        P + "Verify lib file md5 failed, because of generate lib file md5 failed.";
    const std::string kEmptyMd5 = "d41d8cd98f00b204e9800998ecf8427e";
    // Two blocks of 1,024 bytes and one byte more.
    const std::string bytes = std::string(2048, '\0') + "x";
    const std::string md5 = qzetest::Md5Hex(bytes);
    std::string upper = md5;
    std::transform(md5.begin(), md5.end(), upper.begin(), ::toupper);
    struct Row {
        const char* name;
        const char* file;  // UTF-8, in the folder; "." is the folder
        std::string bytes;
        std::string manifest;
        Lines lines;  // a mismatch is the caller's to log
        bool failRead = false;
    };
    const Row rows[] = {
        {"digest of the file", "a.so", bytes, md5, {kOk}},
        {"empty file", "empty.so", "", kEmptyMd5, {kOk}},
        {"name outside ASCII", "\xE5\x8A\xA0\xE8\xBD\xBD\xC3\xA9.so", bytes, md5, {kOk}},
        {"other digest", "a.so", bytes, kEmptyMd5, {}},
        {"upper case", "a.so", bytes, upper, {}},
        {"empty text", "a.so", bytes, "", {}},
        {"missing file", "missing.so", kNoFile, md5, {kHashFailed}},
        {"a folder", ".", kNoFile, md5, {kHashFailed}},
        {"read error", "a.so", bytes, md5, {kHashFailed}, true},
    };
    qzetest::TempDir dir;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path path = dir.path() / fs::u8path(row.file);
        if (row.bytes != kNoFile) {
            qzetest::WriteBytes(path, row.bytes);
        }
        auto log = qzetest::CaptureLog();
        if (row.failRead) {
            pf::testing::InjectFailure(pf::testing::Operation::kReadFile, 1);
        }
        const bool result =
            QZEExtensionLibFileVerify::GetInstance()->Verify(qzetest::Wide(path), row.manifest);
        pf::testing::ClearFailures();
        EXPECT_EQ(result, row.lines == Lines{kOk});
        EXPECT_EQ(log->Texts(), row.lines);
    }
}

#if !defined(_WIN32)

using qzetest::Identity;
using qzetest::SignOptions;

qzetest::TestPki* g_pki = nullptr;

// Set before the first test: libcrypto reads these once, for its store.
class VerifyEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        dir_ = std::make_unique<qzetest::TempDir>();
        pki_ = qzetest::MakeTestPki(dir_->path());
        ::setenv("SSL_CERT_FILE", pki_.trustFile.c_str(), 1);
        ::setenv("SSL_CERT_DIR", pki_.trustDir.c_str(), 1);
        g_pki = &pki_;
    }
    void TearDown() override { dir_.reset(); }

private:
    std::unique_ptr<qzetest::TempDir> dir_;
    qzetest::TestPki pki_;
};

::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new VerifyEnvironment);

const unsigned char kSaltBytes[] = {QZEKIT_SIGN_SALT_BYTES};
const std::string kSalt(reinterpret_cast<const char*>(kSaltBytes), sizeof kSaltBytes);
// Not the file's digest: signMD5 binds the manifest's text, not a fresh hash.
const std::string kLibMd5 = "0123456789abcdef0123456789abcdef";
const std::string kSigner = "Example Signer Ltd";
const std::string kIntermediate = "Verify Test Intermediate CA";

std::string Library() {
    return qzetest::ReadBytes(qzetest::BuiltPlugin("qzekit_plugin_complete"));
}

// Signed with the intermediate certificate carried along.
std::string SignedWith(const Identity& signer, SignOptions options = {}) {
    options.chain.push_back(&qzetest::VerifyPki().intermediate);
    const std::string library = Library();
    return qzetest::AppendSignature(library, qzetest::SignDetached(library, signer, options));
}

std::string SignMd5(const std::string& subject) {
    return qzetest::Md5Hex(subject + kLibMd5 + kSalt);
}

Lines Join(std::initializer_list<Lines> parts) {
    Lines out;
    for (const Lines& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

Lines Cert(const std::string& serial, const std::string& issuer, const std::string& subject) {
    return {P + "Serial Number: " + serial, P + "Issuer Name: " + issuer,
            P + "Subject Name: " + subject};
}

Lines Failed(const std::string& reason) {
    return {P + "Verify signer certificate information failed, because of " + reason};
}

Lines Error(const char* code) {
    return {P + "Error is: " + code + "."};
}

const Lines kSigned = {P + "The file \"{path}\" is signed and the signature was verified."};
const Lines kSignerCert = Cert("008f1e2d3c4b5a6978", kIntermediate, kSigner);
const Lines kMatched = {P + "Compare config sign md5 with lib file cert md5.",
                        P + "Verify signer certificate information success."};

struct SignRow {
    const char* name;
    std::string bytes;
    std::string signMD5;
    bool expected;
    Lines lines;                 // "{path}" stands for the file's path
    std::size_t pathLength = 0;  // pads the path to this many characters
    std::string libFileMD5 = kLibMd5;
};

void RunSignRows(const std::vector<SignRow>& rows) {
    qzetest::TempDir dir;
    int n = 0;
    for (const SignRow& row : rows) {
        SCOPED_TRACE(row.name);
        std::string name = std::to_string(++n) + ".so";
        if (row.pathLength > 0) {
            ASSERT_GT(row.pathLength, (dir.path() / name).string().size());
            name.insert(0, row.pathLength - (dir.path() / name).string().size(), 'p');
        }
        const fs::path path = dir.path() / name;
        if (row.bytes != kNoFile) {
            qzetest::WriteBytes(path, row.bytes);
        }
        Lines expected = row.lines;
        for (std::string& line : expected) {
            if (line.find("{path}") != std::string::npos) {
                line.replace(line.find("{path}"), 6, path.string());
            }
        }
        auto log = qzetest::CaptureLog();
        EXPECT_EQ(QZEExtensionSignVerify::GetInstance()->Verify(qzetest::Wide(path), row.signMD5,
                                                                row.libFileMD5),
                  row.expected);
        EXPECT_EQ(log->Texts(), expected);
    }
}

LibrarySigningInput Input(const fs::path& cert, const fs::path& key, const fs::path& chain = {},
                          const std::string& passphrase = {}) {
    LibrarySigningInput input;
    input.certificatePath = qzetest::Wide(cert);
    input.keyPath = qzetest::Wide(key);
    input.chainPath = chain.empty() ? std::wstring() : qzetest::Wide(chain);
    input.keyPassphrase = passphrase;
    return input;
}

TEST(SignVerify, SignatureMatrix) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    const std::string library = Library();
    const std::string good = SignedWith(pki.signer);
    std::string tampered = good;
    tampered[100] = static_cast<char>(tampered[100] ^ 1);
    std::string overlong = good;
    overlong[overlong.size() - 28 - 4] = 0x7F;  // the block's length, top byte
    SignOptions sha1;
    sha1.digest = EVP_sha1();
    SignOptions stamped;
    stamped.countersigner = &pki.timestamper;
    stamped.countersignTime = 1700000000;
    struct tm local {};
    ASSERT_NE(localtime_r(&stamped.countersignTime, &local), nullptr);
    char date[64];
    std::snprintf(date, sizeof date, "%02d/%02d/%04d %02d:%02d", local.tm_mon + 1, local.tm_mday,
                  local.tm_year + 1900, local.tm_hour, local.tm_min);
    auto der = [](unsigned char tag, const std::string& content) {
        return std::string(1, static_cast<char>(tag)) + static_cast<char>(content.size()) + content;
    };
    auto withProgram = [&](const std::string& value) {
        SignOptions options;
        options.programNameDer = der(0x30, value);
        return SignedWith(pki.signer, options);
    };
    const std::string nonAscii = "Z\xC3\xBCrich Sign\xC3\xA9 \xE5\x8C\x97\xE4\xBA\xAC";
    qzetest::TempDir dir;
    qzetest::CertRequest noName;
    noName.issuer = &pki.intermediate;
    noName.serial = 0x6001;
    const Identity nameless = qzetest::MakeIdentity(noName, dir.path(), "nameless");
    // Signed twice by the kit: the second signature replaces the first.
    const fs::path resigned = dir.path() / "resigned.so";
    qzetest::WriteBytes(resigned, library);
    fs::permissions(resigned, fs::perms(0755));
    std::string error;
    ASSERT_TRUE(SignLibraryFile(qzetest::Wide(resigned),
                                Input(pki.selfSigned.certPath, pki.selfSigned.keyPath), &error))
        << error;
    LibrarySigningInput input =
        Input(pki.signer.certPath, pki.signer.keyPath, pki.intermediate.certPath);
    input.programName = "Hello Bundle \xE2\x9C\x93";
    input.moreInfoLink = "https://example.com/hello";
    ManifestDigests digests;
    ASSERT_TRUE(SignLibraryFile(qzetest::Wide(resigned), input, &error) &&
                ComputeManifestDigests(qzetest::Wide(resigned), &digests, &error))
        << error;
    const std::string kitSigned = qzetest::ReadBytes(resigned);
    EXPECT_EQ(fs::status(resigned).permissions() & fs::perms::all, fs::perms(0755));
    const std::string right = SignMd5(kSigner);
    const Lines verified = Join({kSigned, kSignerCert, kMatched});
    const Lines unknown = {
        P + "An unknown error occurred trying to verify the signature of the \"{path}\" file."};
    const Lines notSigned = {P + "The file \"{path}\" is not signed."};
    const Lines tooLong = {P + "Sign Verify failed, because of file path length too long"};
    const Lines notMatched =
        Join({kSigned, kSignerCert, {kMatched[0]}, Failed("sign md5 not match.")});

    RunSignRows({
        {"good signature", good, right, true, verified},
        {"byte changed after signing", tampered, right, false, Error("0x80096010")},
        {"block longer than the file", overlong, right, false, unknown},
        {"garbage block", qzetest::AppendSignature(library, std::string(700, 'Z')), right, false,
         unknown},
        {"unsigned file", library, right, false, notSigned},
        {"missing file", kNoFile, right, false, Error("0x80070002")},
        {"self-signed signer", SignedWith(pki.selfSigned), right, false, Error("0x800b0109")},
        {"expired signer", SignedWith(pki.expired), right, false, Error("0x800b0101")},
        {"signer not for code signing", SignedWith(pki.wrongUsage), right, false,
         Error("0x800b0110")},
        {"root rejected for code signing",
         SignedWith(pki.belowRejected),
         SignMd5("Signer Below Rejected Root"),
         false,
         {P + "The signature is present, but specifically disallowed."}},
        {"SHA-1 digest", SignedWith(pki.signer, sha1), right, false, Error("0x80090008")},
        {"certificate signed with SHA-1", SignedWith(pki.sha1Cert), right, false,
         Error("0x80090008")},
        {"wrong signMD5", good, "0000" + right.substr(4), false, notMatched},
        {"empty signMD5: the trust check still runs first", good, "", false,
         Join({kSigned, kSignerCert, Failed("sign md5 is empty.")})},
        {"empty libFileMD5", good, right, false,
         Join({kSigned, kSignerCert, Failed("lib file md5 is empty.")}), 0, ""},
        // A name with no attribute is an empty text, as Windows reads it.
        {"subject without a name", SignedWith(nameless), SignMd5(""), false,
         Join({kSigned, Cert("6001", kIntermediate, ""), Failed("subject name empty.")})},
        {"subject outside ASCII", SignedWith(pki.nonAscii), SignMd5(nonAscii), true,
         Join({kSigned, Cert("2004", kIntermediate, nonAscii), kMatched})},
        {"issuer without a name", SignedWith(pki.belowNameless),
         SignMd5("Signer Below Nameless Root"), true,
         Join({kSigned, Cert("5002", "", "Signer Below Nameless Root"), kMatched})},
        {"countersigned", SignedWith(pki.signer, stamped), right, true,
         Join({verified,
               Cert("4001", kIntermediate, "Verify Test Time Stamping"),
               {P + "Date of TimeStamp : " + date}})},
        // The comparison fails before the time stamp is read.
        {"countersigned, wrong signMD5", SignedWith(pki.signer, stamped), "0000" + right.substr(4),
         false, notMatched},
        // Logged in this order; a broken attribute is not logged.
        {"program name and both links",
         withProgram(der(0xA0, der(0x81, "Tool")) + der(0xA1, der(0xA2, der(0x81, "C:\\i.txt"))) +
                     der(0xA2, der(0x80, "https://p.example"))),
         right, true,
         Join({kSigned,
               {P + "Program Name : Tool", P + "Publisher Link : https://p.example",
                P + "MoreInfo Link : C:\\i.txt"},
               kSignerCert,
               kMatched})},
        {"name as BMPString, moniker link",
         withProgram(der(0xA0, der(0x80, std::string("\0N\0a\0m\0e\x20\xAC", 10))) +
                     der(0xA1, der(0xA1, der(0x04, "0123456789abcdef")))),
         right, true,
         Join({kSigned, {P + "Program Name : Name\xE2\x82\xAC"}, kSignerCert, kMatched})},
        {"program name cut short", withProgram(std::string("\xA0\x05\x81\x09Tool", 8)), right, true,
         verified},
        {"signed twice by the kit", kitSigned, digests.signMD5, true,
         Join({kSigned,
               {P + "Program Name : Hello Bundle \xE2\x9C\x93",
                P + "MoreInfo Link : https://example.com/hello"},
               kSignerCert,
               kMatched}),
         0, digests.libFileMD5},
        {"path of 260 characters", good, right, true, verified, 260},
        {"path of 261 characters", good, right, false, tooLong, 261},
    });
}

TEST(LibrarySigner, RefusalsLeaveTheFileAsItWas) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    qzetest::TempDir dir;
    const fs::path library = dir.path() / "plugin.so";
    const fs::path damaged = dir.path() / "damaged.so";
    const fs::path notPem = dir.path() / "not.pem";
    const fs::path key = dir.path() / "encrypted.key";
    fs::copy_file(qzetest::BuiltPlugin("qzekit_plugin_complete"), library);
    qzetest::WriteBytes(damaged, qzetest::ReadBytes(library) + std::string(12, '\0') +
                                     "~Module signature appended~\n");
    qzetest::WriteBytes(notPem, "not a certificate");
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
    ASSERT_EQ(PEM_write_bio_PrivateKey(bio.get(), pki.signer.key.get(), EVP_aes_256_cbc(), nullptr,
                                       0, nullptr, const_cast<char*>("open sesame")),
              1);
    char* pem = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &pem);
    qzetest::WriteBytes(key, std::string(pem, static_cast<std::size_t>(size)));

    const fs::path cert = pki.signer.certPath;
    struct Row {
        const char* name;
        fs::path library;
        LibrarySigningInput input;
        std::string error;  // how the error text starts
    };
    const Row rows[] = {
        {"chain without certificates", library, Input(cert, pki.signer.keyPath, notPem),
         "no PEM certificate in the chain file " + notPem.string()},
        {"wrong passphrase", library, Input(cert, key, {}, "wrong"),
         "cannot read the private key in " + key.string() + " (wrong passphrase or not a PEM key)"},
        {"damaged old signature", damaged, Input(cert, pki.signer.keyPath),
         "the file ends with a damaged appended signature, so where the library ends is "
         "unknown; sign the original library instead"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string before = qzetest::ReadBytes(row.library);
        std::string error;
        EXPECT_FALSE(SignLibraryFile(qzetest::Wide(row.library), row.input, &error));
        EXPECT_EQ(error.compare(0, row.error.size(), row.error), 0) << error;
        EXPECT_EQ(qzetest::ReadBytes(row.library), before);
    }

    ManifestDigests digests;
    std::string error;
    EXPECT_FALSE(ComputeManifestDigests(qzetest::Wide(library), &digests, &error));
    EXPECT_EQ(error, "the library carries no signature that can be read");
    EXPECT_TRUE(
        SignLibraryFile(qzetest::Wide(library), Input(cert, key, {}, "open sesame"), &error))
        << error;
}

#endif  // !defined(_WIN32)

}  // namespace
}  // namespace qzextensionkit

#if !defined(_WIN32)
const qzetest::TestPki& qzetest::VerifyPki() {
    return *qzextensionkit::g_pki;
}
#endif
