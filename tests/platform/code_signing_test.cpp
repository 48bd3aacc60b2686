#include "platform/platform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#if defined(_WIN32)
#include <windows.h>

#include <wincrypt.h>
#endif

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
    const fs::path target = folder.path() / "replaced.bin", link = folder.path() / "link";
    const std::string bytes("a\r\nb\0c\x1a\xff", 8);
    std::ofstream(target, std::ios::binary) << "old content, longer than the new";
    EXPECT_TRUE(pf::WriteFileAtomically(qzetest::Wide(target), bytes) &&
                ReadBytes(target) == bytes);
    EXPECT_TRUE(!pf::WriteFileAtomically(qzetest::Wide(folder.path() / "absent" / "f"), bytes) &&
                pf::LastError() == 3u);  // ERROR_PATH_NOT_FOUND
#if !defined(_WIN32)
    // A link keeps pointing at the replaced file, which keeps its
    // permissions: a library stays executable.
    fs::permissions(target, fs::perms(0750));
    fs::create_symlink(target, link);
    EXPECT_TRUE(pf::WriteFileAtomically(qzetest::Wide(link), "linked") && fs::is_symlink(link) &&
                ReadBytes(target) == "linked" &&
                (fs::status(target).permissions() & fs::perms::all) == fs::perms(0750));
#endif
    // No temporary file left beside them.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()),
              1 + fs::is_symlink(link));
}

#if defined(_WIN32)

// Made at build time by tests/plugins/sign_test_libraries.sh.
std::wstring Fixture(const char* name) {
    return (fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_signing" / name).wstring();
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

// The status is Windows' own; one file per way the kit takes it.
TEST(CodeSigning, TrustStatusOfTheFirstCall) {
    ASSERT_EQ(TrustTestRoot(true), "");
    const std::pair<const char*, uint32_t> cases[] = {
        {"signed_sha256.dll", 0},
        {"unsigned.dll", pf::kTrustNoSignature},
        {"tampered_sha256.dll", pf::kTrustBadDigest},
    };
    for (const auto& [file, status] : cases) {
        const pf::TrustResult result = pf::VerifyFileTrust(Fixture(file));
        const uint32_t last = result.lastError;
        // The check tells "not signed" from an unknown failure by the last error.
        const bool lastFits = status != pf::kTrustNoSignature ||
                              ((last == pf::kTrustNoSignature || last == pf::kTrustSubjectForm ||
                                last == pf::kTrustProviderUnknown) &&
                               pf::LastError() == last);
        EXPECT_TRUE(result.status == status && lastFits)
            << file << ": " << Hex(result.status) << ", last error " << Hex(last);
    }
    EXPECT_EQ(TrustTestRoot(false), "");
}

#endif  // defined(_WIN32)

}  // namespace
