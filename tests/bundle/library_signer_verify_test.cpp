#include "bundle/library_signer.h"

#include <gtest/gtest.h>

#if !defined(_WIN32)

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "base/utf_string_conversions.h"
#include "bundle/lib_file_verify.h"
#include "bundle/sign_verify.h"
#include "bundle/support/verify_environment.h"
#include "common/capture_logger.h"
#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;
namespace platform = qzextensionkit::platform;
using qzextensionkit::ComputeManifestDigests;
using qzextensionkit::LibrarySigningInput;
using qzextensionkit::ManifestDigests;
using qzextensionkit::SignLibraryFile;

const unsigned char kSaltBytes[] = {QZEKIT_SIGN_SALT_BYTES};
const std::string kSalt(reinterpret_cast<const char*>(kSaltBytes), sizeof kSaltBytes);
const std::string kMagic = "~Module signature appended~\n";

std::wstring Wide(const fs::path& path) {
    return base::UTF8ToWide(path.string());
}

LibrarySigningInput InputFor(const qzetest::Identity& identity) {
    LibrarySigningInput input;
    input.certificatePath = Wide(identity.certPath);
    input.keyPath = Wide(identity.keyPath);
    return input;
}

// The parts of a signed file, read by the documented layout alone.
struct Parts {
    std::string content;
    std::string block;
};

Parts Split(const std::string& file) {
    Parts parts;
    EXPECT_GE(file.size(), 40u);
    if (file.size() < 40) {
        return parts;
    }
    EXPECT_EQ(file.substr(file.size() - 28), kMagic);
    EXPECT_EQ(file.substr(file.size() - 40, 8), std::string("\0\0\2\0\0\0\0\0", 8));
    uint32_t size = 0;
    for (std::size_t i = file.size() - 32; i < file.size() - 28; ++i) {
        size = (size << 8) | static_cast<unsigned char>(file[i]);
    }
    EXPECT_LE(size, file.size() - 40);
    if (size > file.size() - 40) {
        return parts;
    }
    parts.content = file.substr(0, file.size() - 40 - size);
    parts.block = file.substr(file.size() - 40 - size, size);
    return parts;
}

class LibrarySignerTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::random_device random;
        dir_ = fs::temp_directory_path() /
               ("qzekit_signer_" + std::to_string(random()) + std::to_string(random()));
        fs::create_directories(dir_);
        library_ = dir_ / "plugin.so";
        fs::copy_file(std::string(QZEKIT_TEST_BIN_DIR) + "/test_plugins/qzekit_plugin_complete.so",
                      library_);
        fs::permissions(library_, fs::perms(0755));
        original_ = qzetest::ReadBytes(library_);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    fs::path dir_;
    fs::path library_;
    std::string original_;
};

// What a bundle author does: sign, compute the manifest texts, and the kit
// accepts the library with both checks and still loads it.
TEST_F(LibrarySignerTest, SignedLibraryPassesBothChecksAndLoads) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    LibrarySigningInput input = InputFor(pki.signer);
    input.chainPath = Wide(pki.intermediate.certPath);
    input.programName = "Hello Bundle \xE2\x9C\x93";
    input.moreInfoLink = "https://example.com/hello";
    std::string error;
    ASSERT_TRUE(SignLibraryFile(Wide(library_), input, &error)) << error;

    std::string file = qzetest::ReadBytes(library_);
    Parts parts = Split(file);
    EXPECT_EQ(parts.content, original_);
    EXPECT_EQ(fs::status(library_).permissions() & fs::perms::all, fs::perms(0755));

    // The block is a detached SHA-256 SignedData that libcrypto alone
    // verifies against the test root.
    const auto* p = reinterpret_cast<const unsigned char*>(parts.block.data());
    std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
        d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(parts.block.size())),
        &CMS_ContentInfo_free);
    ASSERT_NE(cms, nullptr);
    EXPECT_EQ(CMS_is_detached(cms.get()), 1);
    X509_ALGOR* digest = nullptr;
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.get()), 0), nullptr,
                             nullptr, &digest, nullptr);
    const ASN1_OBJECT* digestOid = nullptr;
    X509_ALGOR_get0(&digestOid, nullptr, nullptr, digest);
    EXPECT_EQ(OBJ_obj2nid(digestOid), NID_sha256);
    std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(),
                                                                  &X509_STORE_free);
    X509_STORE_add_cert(store.get(), pki.root.cert.get());
    X509_STORE_set_purpose(store.get(), X509_PURPOSE_ANY);
    std::unique_ptr<BIO, decltype(&BIO_free)> content(
        BIO_new_mem_buf(original_.data(), static_cast<int>(original_.size())), &BIO_free);
    EXPECT_EQ(CMS_verify(cms.get(), nullptr, store.get(), content.get(), nullptr,
                         CMS_DETACHED | CMS_BINARY),
              1);

    ManifestDigests digests;
    ASSERT_TRUE(ComputeManifestDigests(Wide(library_), &digests, &error)) << error;
    EXPECT_EQ(digests.libFileMD5, qzetest::Md5Hex(file));
    EXPECT_EQ(digests.signerName, "Example Signer Ltd");
    EXPECT_EQ(digests.signMD5, qzetest::Md5Hex("Example Signer Ltd" + digests.libFileMD5 + kSalt));

    auto log = qzetest::CaptureLog();
    EXPECT_TRUE(qzextensionkit::QZEExtensionLibFileVerify::GetInstance()->Verify(
        Wide(library_), digests.libFileMD5));
    EXPECT_TRUE(qzextensionkit::QZEExtensionSignVerify::GetInstance()->Verify(
        Wide(library_), digests.signMD5, digests.libFileMD5));
    const std::string P = "[QZExtensionKit] [SignVerify] ";
    const std::vector<std::string> expected = {
        P + "Verify lib file md5 success.",
        P + "The file \"" + library_.string() + "\" is signed and the signature was verified.",
        P + "Program Name : Hello Bundle \xE2\x9C\x93",
        P + "MoreInfo Link : https://example.com/hello",
        P + "Serial Number: 008f1e2d3c4b5a6978",
        P + "Issuer Name: Verify Test Intermediate CA",
        P + "Subject Name: Example Signer Ltd",
        P + "Compare config sign md5 with lib file cert md5.",
        P + "Verify signer certificate information success."};
    EXPECT_EQ(log->Texts(), expected);

    platform::LibraryHandle handle = platform::OpenLibrary(Wide(library_).c_str());
    ASSERT_NE(handle, nullptr) << "error " << platform::LastError();
    EXPECT_NE(platform::FindExport(handle, "DllGetClassObject"), nullptr);
    platform::CloseLibrary(handle);
}

TEST_F(LibrarySignerTest, SigningAgainReplacesTheOldSignature) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    std::string error;
    ASSERT_TRUE(SignLibraryFile(Wide(library_), InputFor(pki.selfSigned), &error)) << error;
    LibrarySigningInput input = InputFor(pki.signer);
    input.chainPath = Wide(pki.intermediate.certPath);
    ASSERT_TRUE(SignLibraryFile(Wide(library_), input, &error)) << error;

    std::string file = qzetest::ReadBytes(library_);
    EXPECT_EQ(Split(file).content, original_);
    EXPECT_EQ(file.find(kMagic), file.size() - kMagic.size());
    ManifestDigests digests;
    ASSERT_TRUE(ComputeManifestDigests(Wide(library_), &digests, &error)) << error;
    EXPECT_EQ(digests.signerName, "Example Signer Ltd");
    EXPECT_TRUE(qzextensionkit::QZEExtensionSignVerify::GetInstance()->Verify(
        Wide(library_), digests.signMD5, digests.libFileMD5));
}

TEST_F(LibrarySignerTest, KeyWithPassphrase) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
    ASSERT_EQ(PEM_write_bio_PrivateKey(bio.get(), pki.signer.key.get(), EVP_aes_256_cbc(), nullptr,
                                       0, nullptr, const_cast<char*>("open sesame")),
              1);
    char* pem = nullptr;
    long size = BIO_get_mem_data(bio.get(), &pem);
    fs::path key = dir_ / "encrypted.key";
    qzetest::WriteBytes(key, std::string(pem, static_cast<std::size_t>(size)));

    LibrarySigningInput input = InputFor(pki.signer);
    input.keyPath = Wide(key);
    input.keyPassphrase = "wrong";
    std::string error;
    EXPECT_FALSE(SignLibraryFile(Wide(library_), input, &error));
    EXPECT_EQ(error.rfind("cannot read the private key in " + key.string() +
                              " (wrong passphrase or not a PEM key)",
                          0),
              0u)
        << error;
    EXPECT_EQ(qzetest::ReadBytes(library_), original_);
    input.keyPassphrase = "open sesame";
    EXPECT_TRUE(SignLibraryFile(Wide(library_), input, &error)) << error;
}

TEST_F(LibrarySignerTest, RefusalsLeaveTheFileAsItWas) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    fs::path damaged = dir_ / "damaged.so";
    qzetest::WriteBytes(damaged, original_ + std::string(12, '\0') + kMagic);
    fs::path notPem = dir_ / "not.pem";
    qzetest::WriteBytes(notPem, "not a certificate");

    struct Refusal {
        const char* name;
        fs::path library;
        LibrarySigningInput input;
        std::string error;
    };
    LibrarySigningInput otherKey = InputFor(pki.signer);
    otherKey.keyPath = Wide(pki.expired.keyPath);
    LibrarySigningInput noCertificate = InputFor(pki.signer);
    noCertificate.certificatePath = Wide(dir_ / "missing.crt");
    LibrarySigningInput badChain = InputFor(pki.signer);
    badChain.chainPath = Wide(notPem);
    LibrarySigningInput keyAsCertificate = InputFor(pki.signer);
    keyAsCertificate.certificatePath = Wide(pki.signer.keyPath);
    const std::vector<Refusal> refusals = {
        {"key of another certificate", library_, otherKey,
         "the private key does not belong to the certificate"},
        {"missing certificate", library_, noCertificate,
         "cannot read the certificate file " + (dir_ / "missing.crt").string()},
        {"chain without certificates", library_, badChain,
         "no PEM certificate in the chain file " + notPem.string()},
        {"key file given as certificate", library_, keyAsCertificate,
         "no PEM certificate in the certificate file " + pki.signer.keyPath.string()},
        {"damaged old signature", damaged, InputFor(pki.signer),
         "the file ends with a damaged appended signature, so where the library ends is "
         "unknown; sign the original library instead"},
        {"missing library", dir_ / "missing.so", InputFor(pki.signer),
         "cannot read the library " + (dir_ / "missing.so").string()},
    };
    for (const Refusal& r : refusals) {
        SCOPED_TRACE(r.name);
        std::string before = fs::exists(r.library) ? qzetest::ReadBytes(r.library) : "";
        std::string error;
        EXPECT_FALSE(SignLibraryFile(Wide(r.library), r.input, &error));
        EXPECT_EQ(error, r.error);
        if (fs::exists(r.library)) {
            EXPECT_EQ(qzetest::ReadBytes(r.library), before);
        }
    }
    // Nothing was left beside the files.
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"damaged.so", "not.pem", "plugin.so"}));

    ManifestDigests digests;
    std::string error;
    EXPECT_FALSE(ComputeManifestDigests(Wide(library_), &digests, &error));
    EXPECT_EQ(error, "the library carries no signature that can be read");
}

TEST_F(LibrarySignerTest, WriteFileAtomically) {
    fs::path fresh = dir_ / "fresh.bin";
    ASSERT_TRUE(platform::WriteFileAtomically(Wide(fresh), std::string("new\0bytes", 9)));
    EXPECT_EQ(qzetest::ReadBytes(fresh), std::string("new\0bytes", 9));

    // Replacing keeps the old file's permissions; a link keeps pointing at
    // the replaced file.
    fs::permissions(library_, fs::perms(0750));
    fs::create_symlink(library_, dir_ / "link.so");
    ASSERT_TRUE(platform::WriteFileAtomically(Wide(dir_ / "link.so"), "replaced"));
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.so"));
    EXPECT_EQ(qzetest::ReadBytes(library_), "replaced");
    EXPECT_EQ(fs::status(library_).permissions() & fs::perms::all, fs::perms(0750));

    EXPECT_FALSE(platform::WriteFileAtomically(Wide(dir_ / "no" / "such.bin"), "x"));
    EXPECT_EQ(platform::LastError(), 3u);
    EXPECT_FALSE(platform::WriteFileAtomically(Wide(dir_), "x"));
    EXPECT_EQ(platform::LastError(), 5u);
    std::size_t entries = 0;
    for (auto it = fs::directory_iterator(dir_); it != fs::directory_iterator(); ++it) {
        ++entries;
    }
    EXPECT_EQ(entries, 3u);  // fresh.bin, plugin.so, link.so: no temporary left
}

}  // namespace

#else

TEST(LibrarySignerTest, SignedLibraryPassesBothChecksAndLoads) {
    GTEST_SKIP() << "the appended signature is the Linux form; Windows checks Authenticode";
}

#endif  // !defined(_WIN32)
