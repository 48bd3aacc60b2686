#include "platform/platform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#if defined(_WIN32)
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
    // The name (UTF-8) in the folder, what was there (null: no file), the
    // bytes to write, and the error (0: written).
    const std::tuple<const char*, const char*, std::string, uint32_t> rows[] = {
        {"replaced.bin", "old content, longer than the new", std::string("a\r\nb\0c\x1a\xff", 8),
         0},
        {"created-\xe6\xb8\xac.json", nullptr, "{\"a\": 1}", 0},
        {"absent/file.bin", nullptr, "bytes", 3},  // ERROR_PATH_NOT_FOUND
        {"taken", nullptr, "bytes", kAnyError},    // a folder is not replaced by a file
    };
    for (const auto& [name, before, after, expectedError] : rows) {
        const fs::path file = folder.path() / fs::u8path(name);
        if (before) {
            std::ofstream(file, std::ios::binary) << before;
        }
        const bool written = pf::WriteFileAtomically(qzetest::Wide(file), after);
        const uint32_t error = written ? 0 : pf::LastError();
        EXPECT_TRUE(expectedError == kAnyError ? error != 0 : error == expectedError)
            << name << error;
        EXPECT_EQ(written ? ReadBytes(file) : after, after) << name;
    }
    EXPECT_TRUE(fs::is_directory(folder.path() / "taken" / "inside"));
#if !defined(_WIN32)
    // A link keeps pointing at the replaced file, which keeps its
    // permissions: a library stays executable.
    const fs::path target = folder.path() / "replaced.bin", link = folder.path() / "link";
    fs::permissions(target, fs::perms(0750));
    fs::create_symlink(target, link);
    EXPECT_TRUE(pf::WriteFileAtomically(qzetest::Wide(link), "linked") && fs::is_symlink(link) &&
                ReadBytes(target) == "linked" &&
                (fs::status(target).permissions() & fs::perms::all) == fs::perms(0750));
#endif
    // Only what the rows made: no temporary file left beside them.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()),
              3 + fs::is_symlink(folder.path() / "link"));
}

#if defined(_WIN32)

// Made at build time by tests/plugins/sign_test_libraries.sh; the names,
// serial numbers, program name and link below are the ones it uses.
std::wstring Fixture(const char* name) {
    return (fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_signing" / name).wstring();
}

bool UnderWine() {
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll && ::GetProcAddress(ntdll, "wine_get_version");
}

std::string Hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(value));
    return text;
}

// Trusts the test root CA, or stops trusting it, through the current user's
// registry root store: Wine writes back neither a deletion made through the
// combined store nor a store that is not closed. Returns what went wrong.
std::string TrustTestRoot(bool trust) {
    const std::string der = ReadBytes(Fixture("root.cer"));
    const BYTE* bytes = reinterpret_cast<const BYTE*>(der.data());
    const DWORD size = static_cast<DWORD>(der.size());
    HCERTSTORE store = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0,
                                       CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
    const CERT_CONTEXT* ours =
        trust ? nullptr : ::CertCreateCertificateContext(X509_ASN_ENCODING, bytes, size);
    const CERT_CONTEXT* found =
        store && ours ? ::CertFindCertificateInStore(store, X509_ASN_ENCODING, 0,
                                                     CERT_FIND_EXISTING, ours, nullptr)
                      : nullptr;
    const bool done =
        trust ? store && !der.empty() &&
                    ::CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, bytes, size,
                                                       CERT_STORE_ADD_REPLACE_EXISTING, nullptr)
              : found && ::CertDeleteCertificateFromStore(found);  // frees `found`
    const std::string problem =
        done ? "" : "cannot change the test root's trust: " + Hex(::GetLastError());
    if (ours) {
        ::CertFreeCertificateContext(ours);
    }
    if (store) {
        ::CertCloseStore(store, 0);
    }
    return problem;
}

TEST(CodeSigning, TrustStatusOfTheFirstCall) {
    ASSERT_EQ(TrustTestRoot(true), "");
    // Rows marked "wine" don't hold there: Wine 8 accepts any signer whose
    // certificate is signed with SHA-256, trusted or not; it does not check
    // the extended key usage; and it accepts a chain that ends without a root.
    const bool wine = UnderWine();
    // The file, the status Windows reports, whether Wine differs.
    const std::tuple<const char*, uint32_t, bool> cases[] = {
        {"signed_sha256.dll", 0, false},
        {"timestamped_sha1.dll", 0, false},
        {"unsigned.dll", pf::kTrustNoSignature, false},
        {"tampered_sha256.dll", pf::kTrustBadDigest, false},
        {"untrusted_sha1.dll", pf::kTrustUntrustedRoot, false},
        {"expired_sha1.dll", pf::kTrustExpired, false},
        {"server_only_sha256.dll", pf::kTrustWrongUsage, true},
        {"orphan_sha1.dll", pf::kTrustChaining, true},
    };
    for (const auto& [file, status, wineDiffers] : cases) {
        const pf::TrustResult result = pf::VerifyFileTrust(Fixture(file));
        const uint32_t last = result.lastError;
        // The check tells "not signed" from an unknown failure by the last error.
        const bool lastFits = status != pf::kTrustNoSignature ||
                              ((last == pf::kTrustNoSignature || last == pf::kTrustSubjectForm ||
                                last == pf::kTrustProviderUnknown) &&
                               pf::LastError() == last);
        EXPECT_TRUE((result.status == status && lastFits) || (wineDiffers && wine))
            << file << ": " << Hex(result.status) << ", last error " << Hex(last);
    }
    EXPECT_EQ(TrustTestRoot(false), "");
}

// "subject|issuer|serial", the serial as the certificate's DER integer writes
// it; CryptoAPI stores it least significant byte first.
std::string Certificate(const pf::CertificateDetails& c) {
    std::string serial;
    for (auto byte = c.serialNumber.rbegin(); byte != c.serialNumber.rend(); ++byte) {
        serial += Hex(*byte).substr(8);
    }
    return base::WideToUTF8((c.hasSubjectName ? c.subjectName : L"?") + L"|" +
                            (c.hasIssuerName ? c.issuerName : L"?")) +
           "|" + serial;
}

TEST(CodeSigning, SignerProgramAndTimeStampOrNothing) {
    // No signer: no embedded signature to read (a missing file or one of
    // another kind fails the same call).
    const std::pair<const char*, const wchar_t*> cases[] = {
        {"unsigned.dll", nullptr},
        // U+00FC, Greek, CJK and U+1D11E, a surrogate pair in UTF-16.
        {"signed_unicode.dll",
         L"Pr\u00FCfstelle \u03A9\u03BC\u03AD\u03B3\u03B1 \u6E2C\u8A66 \U0001D11E|QZEKit Test Root "
         L"CA|5A1B2C3D4E5F6003"},
        // 9E has its top bit set: the integer's leading zero byte is stored too.
        {"untrusted_sha1.dll", L"QZEKit Untrusted Signer|QZEKit Untrusted Signer|009E0000000002"},
        {"timestamped_sha1.dll", L"QZEKit Test Signer|QZEKit Test Root CA|5A1B2C3D4E5F6002"},
    };
    // Wine reads osslsigncode's ASCII program name as UTF-16.
    const std::wstring misread = L"\u515A\u454B\u6974\u2054\u6573\u7420\u5072\u6F67\u7261";
    for (const auto& [file, signer] : cases) {
        SCOPED_TRACE(file);
        pf::SignatureDetails details;
        if (!signer) {
            details.opened = details.hasProgramName = details.signerFound = true;  // must be reset
            EXPECT_FALSE(pf::ReadSignatureDetails(Fixture(file), &details) || details.opened ||
                         details.hasProgramName || details.signerFound || pf::LastError() == 0);
            continue;
        }
        ASSERT_TRUE(pf::ReadSignatureDetails(Fixture(file), &details));
        EXPECT_TRUE(details.opened && details.hasProgramName && details.hasMoreInfoLink &&
                    !details.hasPublisherLink &&
                    details.moreInfoLink == L"https://example.com/qzekit/test-program" &&
                    (details.programName == L"QZEKit Test Program" ||
                     (UnderWine() && details.programName == misread)))
            << base::WideToUTF8(details.programName);
        ASSERT_TRUE(details.signerFound);
        EXPECT_EQ(Certificate(details.signer), base::WideToUTF8(signer));
        const bool stamped = std::strstr(file, "timestamped") != nullptr;
        ASSERT_EQ(std::vector<bool>({details.hasTimestampSigner, details.timestampCertificateFound,
                                     details.hasTimestampTime}),
                  std::vector<bool>(3, stamped));
        if (!stamped) {
            continue;
        }
        EXPECT_EQ(Certificate(details.timestampCertificate),
                  "QZEKit Test Time Stamping|QZEKit Test Root CA|7E00000000000002");
        // timestamp.txt holds the stamp's UTC time as "YYYY-MM-DD HH:MM"; this
        // fails only across a daylight-saving change between build and test.
        std::string text;
        std::getline(std::ifstream(fs::path(Fixture("timestamp.txt"))), text);
        SYSTEMTIME utc = {}, local = {};
        ASSERT_EQ(std::sscanf(text.c_str(), "%hu-%hu-%hu %hu:%hu", &utc.wYear, &utc.wMonth,
                              &utc.wDay, &utc.wHour, &utc.wMinute),
                  5)
            << "bad timestamp.txt: " << text;
        ASSERT_TRUE(::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local));
        EXPECT_EQ(
            std::vector<int>({details.timestampYear, details.timestampMonth, details.timestampDay,
                              details.timestampHour, details.timestampMinute}),
            std::vector<int>({local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute}));
    }
}

#endif  // defined(_WIN32)

}  // namespace
