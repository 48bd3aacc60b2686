#include "platform/platform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <wincrypt.h>
#endif

#include "base/utf_string_conversions.h"
#include "bundle/support/bundle_dirs.h"

namespace {

namespace fs = std::filesystem;
namespace pf = qzextensionkit::platform;

std::string ReadBytes(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(WriteFileAtomically, ReplacesTheWholeFileOrLeavesWhatWasThere) {
    qzetest::TempDir folder;
    fs::create_directories(folder.path() / "taken" / "inside");
    const uint32_t kAnyError = ~0u;
    struct Row {
        const char* name;    // UTF-8, in the folder
        const char* before;  // null: no file there
        std::string after;
        uint32_t error;  // 0: written
    };
    const Row rows[] = {
        {"replaced.bin", "old content, longer than the new", std::string("a\r\nb\0c\x1a\xff", 8),
         0},
        {"emptied.bin", "old", "", 0},
        {"created-gr\xc3\xbc\xc3\x9f"
         "e-\xe6\xb8\xac.json",
         nullptr, "{\"a\": 1}", 0},
        {"absent/file.bin", nullptr, "bytes", 3},  // ERROR_PATH_NOT_FOUND
        {"taken", nullptr, "bytes", kAnyError},    // a folder is not replaced by a file
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path file = folder.path() / fs::u8path(row.name);
        if (row.before) {
            std::ofstream(file, std::ios::binary) << row.before;
        }
        const bool written = pf::WriteFileAtomically(qzetest::Wide(file), row.after);
        EXPECT_EQ(written, row.error == 0) << pf::LastError();
        if (written) {
            EXPECT_EQ(ReadBytes(file), row.after);
        } else if (row.error != kAnyError) {
            EXPECT_EQ(pf::LastError(), row.error);
        } else {
            EXPECT_NE(pf::LastError(), 0u);
        }
    }
    EXPECT_TRUE(fs::is_directory(folder.path() / "taken" / "inside"));
    std::size_t entries = 4;
#if !defined(_WIN32)
    // A link keeps pointing at the replaced file, which keeps its
    // permissions: a library stays executable.
    const fs::path target = folder.path() / "replaced.bin";
    fs::permissions(target, fs::perms(0750));
    fs::create_symlink(target, folder.path() / "link");
    ++entries;
    ASSERT_TRUE(pf::WriteFileAtomically(qzetest::Wide(folder.path() / "link"), "linked"));
    EXPECT_TRUE(fs::is_symlink(folder.path() / "link"));
    EXPECT_EQ(ReadBytes(target), "linked");
    EXPECT_EQ(fs::status(target).permissions() & fs::perms::all, fs::perms(0750));
#endif
    // Only what the rows made: no temporary file left beside them.
    EXPECT_EQ(static_cast<std::size_t>(
                  std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator())),
              entries);
}

#if defined(_WIN32)

// Made at build time by tests/plugins/sign_test_libraries.sh; the names,
// serial numbers, program name and link below are the ones it uses.
std::wstring Fixture(const char* name) {
    return (fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_signing" / name).wstring();
}

const wchar_t kProgramName[] = L"QZEKit Test Program";
const wchar_t kRootName[] = L"QZEKit Test Root CA";
const wchar_t kSigner[] = L"QZEKit Test Signer";

bool UnderWine() {
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll && ::GetProcAddress(ntdll, "wine_get_version");
}

std::string Hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(value));
    return text;
}

// Trusts the test root CA while the program runs, through the current
// user's registry root store: Wine writes back neither a deletion made
// through the combined store nor a store that is not closed.
class TrustedTestRoot : public ::testing::Environment {
public:
    void SetUp() override {
        der_ = ReadBytes(Fixture("root.cer"));
        HCERTSTORE store = OpenRoot();
        if (store && !der_.empty() &&
            ::CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, Der(), Size(),
                                               CERT_STORE_ADD_REPLACE_EXISTING, nullptr)) {
            problem.clear();
        } else {
            problem = "cannot trust the test root: " + Hex(::GetLastError());
        }
        if (store) {
            ::CertCloseStore(store, 0);
        }
    }
    void TearDown() override {
        HCERTSTORE store = OpenRoot();
        const CERT_CONTEXT* ours = ::CertCreateCertificateContext(X509_ASN_ENCODING, Der(), Size());
        if (store && ours) {
            if (const CERT_CONTEXT* found = ::CertFindCertificateInStore(
                    store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, ours, nullptr)) {
                ::CertDeleteCertificateFromStore(found);  // frees `found`
            }
        }
        if (ours) {
            ::CertFreeCertificateContext(ours);
        }
        if (store) {
            ::CertCloseStore(store, 0);
        }
    }
    static std::string problem;

private:
    static HCERTSTORE OpenRoot() {
        return ::CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0,
                               CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
    }
    const BYTE* Der() const { return reinterpret_cast<const BYTE*>(der_.data()); }
    DWORD Size() const { return static_cast<DWORD>(der_.size()); }
    std::string der_;
};
std::string TrustedTestRoot::problem = "the test root was never added";

[[maybe_unused]] ::testing::Environment* const g_root =
    ::testing::AddGlobalTestEnvironment(new TrustedTestRoot);

TEST(CodeSigning, TrustStatusOfTheFirstCall) {
    ASSERT_TRUE(TrustedTestRoot::problem.empty()) << TrustedTestRoot::problem;
    // Rows marked "wine" are skipped there: Wine 8 accepts any signer whose
    // certificate is signed with SHA-256, trusted or not; it does not check
    // the extended key usage; and it accepts a chain that ends without a root.
    const bool wine = UnderWine();
    const struct {
        const char* file;
        uint32_t status;  // what Windows reports
        bool wineDiffers;
    } cases[] = {
        // clang-format off
        {"signed_sha256.dll", 0, false},
        {"signed_sha1.dll", 0, false},
        {"signed_unicode.dll", 0, false},
        {"timestamped_sha1.dll", 0, false},
        {"unsigned.dll", pf::kTrustNoSignature, false},
        {"tampered_sha256.dll", pf::kTrustBadDigest, false},
        {"tampered_sha1.dll", pf::kTrustBadDigest, false},
        {"untrusted_sha256.dll", pf::kTrustUntrustedRoot, true},
        {"untrusted_sha1.dll", pf::kTrustUntrustedRoot, false},
        {"expired_sha256.dll", pf::kTrustExpired, true},
        {"expired_sha1.dll", pf::kTrustExpired, false},
        {"server_only_sha256.dll", pf::kTrustWrongUsage, true},
        {"server_only_sha1.dll", pf::kTrustWrongUsage, true},
        {"orphan_sha256.dll", pf::kTrustChaining, true},
        {"orphan_sha1.dll", pf::kTrustChaining, true},
        // clang-format on
    };
    for (const auto& c : cases) {
        if (c.wineDiffers && wine) {
            continue;
        }
        SCOPED_TRACE(c.file);
        const pf::TrustResult result = pf::VerifyFileTrust(Fixture(c.file));
        EXPECT_EQ(Hex(result.status), Hex(c.status)) << "last error " << Hex(result.lastError);
        if (c.status == pf::kTrustNoSignature) {
            // The check tells "not signed" from an unknown failure by this.
            EXPECT_TRUE(result.lastError == pf::kTrustNoSignature ||
                        result.lastError == pf::kTrustSubjectForm ||
                        result.lastError == pf::kTrustProviderUnknown)
                << Hex(result.lastError);
            EXPECT_EQ(pf::LastError(), result.lastError);
        }
    }
}

// The bytes as CryptoAPI stores them: least significant first.
std::vector<uint8_t> StoredSerial(const std::string& hex) {
    std::vector<uint8_t> bytes;
    for (std::size_t i = hex.size(); i >= 2; i -= 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i - 2, 2), nullptr, 16)));
    }
    return bytes;
}

TEST(CodeSigning, SignerProgramAndTimeStamp) {
    const struct {
        const char* file;
        const wchar_t *subject, *issuer;
        const char* serial;  // as the certificate's DER integer writes it
        bool stamped;
    } cases[] = {
        {"signed_sha256.dll", kSigner, kRootName, "5A1B2C3D4E5F6001", false},
        {"signed_sha1.dll", kSigner, kRootName, "5A1B2C3D4E5F6002", false},
        // U+00FC, Greek, CJK and U+1D11E, a surrogate pair in UTF-16.
        {"signed_unicode.dll",
         L"Pr\u00FCfstelle \u03A9\u03BC\u03AD\u03B3\u03B1 \u6E2C\u8A66 \U0001D11E", kRootName,
         "5A1B2C3D4E5F6003", false},
        // 9E has its top bit set: the integer's leading zero byte is stored too.
        {"untrusted_sha1.dll", L"QZEKit Untrusted Signer", L"QZEKit Untrusted Signer",
         "009E0000000002", false},
        {"timestamped_sha1.dll", kSigner, kRootName, "5A1B2C3D4E5F6002", true},
    };
    // Wine reads osslsigncode's ASCII program name as UTF-16.
    const std::wstring misread = L"\u515A\u454B\u6974\u2054\u6573\u7420\u5072\u6F67\u7261";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        pf::SignatureDetails details;
        ASSERT_TRUE(pf::ReadSignatureDetails(Fixture(c.file), &details));
        EXPECT_TRUE(details.opened && details.hasProgramName && details.hasMoreInfoLink &&
                    !details.hasPublisherLink);
        EXPECT_TRUE(details.programName == kProgramName ||
                    (UnderWine() && details.programName == misread))
            << base::WideToUTF8(details.programName);
        EXPECT_EQ(details.moreInfoLink, L"https://example.com/qzekit/test-program");
        ASSERT_TRUE(details.signerFound);
        EXPECT_EQ(details.signer.serialNumber, StoredSerial(c.serial));
        EXPECT_TRUE(details.signer.hasSubjectName && details.signer.hasIssuerName);
        EXPECT_EQ(base::WideToUTF8(details.signer.subjectName), base::WideToUTF8(c.subject));
        EXPECT_EQ(base::WideToUTF8(details.signer.issuerName), base::WideToUTF8(c.issuer));
        EXPECT_EQ(details.hasTimestampSigner, c.stamped);
        EXPECT_EQ(details.timestampCertificateFound, c.stamped);
        ASSERT_EQ(details.hasTimestampTime, c.stamped);
        if (!c.stamped) {
            continue;
        }
        EXPECT_EQ(details.timestampCertificate.subjectName, L"QZEKit Test Time Stamping");
        EXPECT_EQ(details.timestampCertificate.issuerName, kRootName);
        EXPECT_EQ(details.timestampCertificate.serialNumber, StoredSerial("7E00000000000002"));
        // timestamp.txt holds the stamp's UTC time as "YYYY-MM-DD HH:MM"; this
        // fails only across a daylight-saving change between build and test.
        std::ifstream in(fs::path(Fixture("timestamp.txt")));
        SYSTEMTIME utc = {}, local = {};
        char dash1 = 0, dash2 = 0, colon = 0;
        in >> utc.wYear >> dash1 >> utc.wMonth >> dash2 >> utc.wDay >> utc.wHour >> colon >>
            utc.wMinute;
        ASSERT_TRUE(in && dash1 == '-' && dash2 == '-' && colon == ':') << "bad timestamp.txt";
        ASSERT_TRUE(::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local));
        EXPECT_EQ(
            std::vector<int>({details.timestampYear, details.timestampMonth, details.timestampDay,
                              details.timestampHour, details.timestampMinute}),
            std::vector<int>({local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute}));
    }
}

TEST(CodeSigning, NoDetailsWithoutAnEmbeddedSignature) {
    for (const char* file : {"unsigned.dll", "root.cer", "absent.dll"}) {
        SCOPED_TRACE(file);
        pf::SignatureDetails details;
        details.opened = details.hasProgramName = details.signerFound = true;  // must be reset
        EXPECT_FALSE(pf::ReadSignatureDetails(Fixture(file), &details));
        EXPECT_FALSE(details.opened || details.hasProgramName || details.signerFound);
        EXPECT_NE(pf::LastError(), 0u);
    }
}

#endif  // defined(_WIN32)

}  // namespace
