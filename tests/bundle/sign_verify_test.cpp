#include "bundle/sign_verify.h"

#include <gtest/gtest.h>

#if !defined(_WIN32)

#include <openssl/evp.h>
#include <openssl/objects.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "base/utf_string_conversions.h"
#include "bundle/support/verify_environment.h"
#include "common/capture_logger.h"

namespace {

namespace fs = std::filesystem;
using qzetest::Identity;
using qzetest::SignOptions;
using qzextensionkit::QZEExtensionSignVerify;

const unsigned char kSaltBytes[] = {QZEKIT_SIGN_SALT_BYTES};
const std::string kSalt(reinterpret_cast<const char*>(kSaltBytes), sizeof kSaltBytes);
const std::string kOtherSalt = "Another organisation's salt, also 45 bytes!!!";
const std::string P = "[QZExtensionKit] [SignVerify] ";

std::string Library() {
    return qzetest::ReadBytes(std::string(QZEKIT_TEST_BIN_DIR) +
                              "/test_plugins/qzekit_plugin_complete.so");
}

std::string SignedWith(const Identity& signer, SignOptions options = {}) {
    std::string library = Library();
    return qzetest::AppendSignature(library, qzetest::SignDetached(library, signer, options));
}

SignOptions WithChain() {
    SignOptions options;
    options.chain = {&qzetest::VerifyPki().intermediate};
    return options;
}

std::vector<std::string> Join(std::vector<std::vector<std::string>> parts) {
    std::vector<std::string> out;
    for (auto& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

const std::vector<std::string> kSigned = {P +
                                          "The file \"{path}\" is signed and the signature was "
                                          "verified."};
const std::vector<std::string> kCompared = {P + "Compare config sign md5 with lib file cert md5."};
const std::vector<std::string> kMatched = {P + "Compare config sign md5 with lib file cert md5.",
                                           P + "Verify signer certificate information success."};
const std::vector<std::string> kNotMatched = {
    P + "Compare config sign md5 with lib file cert md5.",
    P + "Verify signer certificate information failed, because of sign md5 not match."};

std::vector<std::string> Certificate(const std::string& serial, const std::string& issuer,
                                     const std::string& subject) {
    return {P + "Serial Number: " + serial, P + "Issuer Name: " + issuer,
            P + "Subject Name: " + subject};
}

std::vector<std::string> SignerCertificate() {
    return Certificate("008f1e2d3c4b5a6978", "Verify Test Intermediate CA", "Example Signer Ltd");
}

std::vector<std::string> Error(const char* code) {
    return {P + "Error is: " + code + "."};
}

// What the manifest says for a case.
enum class SignText { kRight, kWrong, kOtherSalt, kEmpty };

struct SignCase {
    const char* name;
    // The file's bytes; not called for a missing file.
    std::function<std::string()> bytes;
    // The signer's subject name in UTF-8, for the signMD5 the case expects.
    std::string subject;
    SignText signText;
    bool expected;
    std::vector<std::string> lines;
    bool emptyLibFileMd5 = false;
    bool missing = false;
    // Pad the path to this many characters (0: leave it).
    std::size_t pathLength = 0;
};

class SignVerifyTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::random_device random;
        dir_ = fs::temp_directory_path() /
               ("qzekit_sign_verify_" + std::to_string(random()) + std::to_string(random()));
        fs::create_directories(dir_);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    // Runs a case in a folder of its own; checks the result and the lines.
    void Run(const SignCase& c) {
        SCOPED_TRACE(c.name);
        fs::path dir = dir_ / std::to_string(++count_);
        fs::create_directories(dir);
        std::string name = "plugin.so";
        if (c.pathLength > 0) {
            std::size_t base = (dir / "x.so").string().size() - 4;
            ASSERT_LT(base + 3, c.pathLength);
            name = std::string(c.pathLength - base - 3, 'p') + ".so";
        }
        fs::path path = dir / name;
        if (c.pathLength > 0) {
            ASSERT_EQ(path.string().size(), c.pathLength);
        }
        std::string libFileMd5 = "0123456789abcdef0123456789abcdef";
        if (!c.missing) {
            std::string bytes = c.bytes();
            qzetest::WriteBytes(path, bytes);
            libFileMd5 = qzetest::Md5Hex(bytes);
        }
        std::string signMd5;
        switch (c.signText) {
            case SignText::kRight:
                signMd5 = qzetest::Md5Hex(c.subject + libFileMd5 + kSalt);
                break;
            case SignText::kWrong:
                signMd5 = qzetest::Md5Hex(c.subject + libFileMd5 + kSalt).replace(0, 4, "0000");
                break;
            case SignText::kOtherSalt:
                signMd5 = qzetest::Md5Hex(c.subject + libFileMd5 + kOtherSalt);
                break;
            case SignText::kEmpty:
                break;
        }
        std::vector<std::string> expected;
        for (std::string line : c.lines) {
            std::size_t at = line.find("{path}");
            if (at != std::string::npos) {
                line.replace(at, 6, path.string());
            }
            expected.push_back(line);
        }

        auto log = qzetest::CaptureLog();
        bool result = QZEExtensionSignVerify::GetInstance()->Verify(
            base::UTF8ToWide(path.string()), signMd5, c.emptyLibFileMd5 ? "" : libFileMd5);
        EXPECT_EQ(result, c.expected);
        EXPECT_EQ(log->Texts(), expected);
    }

    fs::path dir_;
    int count_ = 0;
};

TEST_F(SignVerifyTest, SignatureMatrix) {
    static_assert(sizeof kSaltBytes == 45, "the salt is 45 bytes");
    ASSERT_EQ(kOtherSalt.size(), 45u);
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    const std::string signer = "Example Signer Ltd";
    auto good = [&] { return SignedWith(pki.signer, WithChain()); };

    const std::vector<SignCase> cases = {
        {"good signature", good, signer, SignText::kRight, true,
         Join({kSigned, SignerCertificate(), kMatched})},
        {"byte changed after signing",
         [&] {
             std::string bytes = good();
             bytes[100] = static_cast<char>(bytes[100] ^ 1);
             return bytes;
         },
         signer, SignText::kRight, false, Error("0x80096010")},
        {"signature block says more than the file holds",
         [&] {
             std::string bytes = good();
             bytes[bytes.size() - 28 - 4] = 0x7F;
             return bytes;
         },
         signer,
         SignText::kRight,
         false,
         {P + "An unknown error occurred trying to verify the signature of the \"{path}\" file."}},
        {"garbage signature block",
         [&] {
             std::string library = Library();
             return qzetest::AppendSignature(library, std::string(700, '\x5A'));
         },
         signer,
         SignText::kRight,
         false,
         {P + "An unknown error occurred trying to verify the signature of the \"{path}\" file."}},
        {"signature block cut short",
         [&] {
             std::string library = Library();
             std::string block = qzetest::SignDetached(library, pki.signer, WithChain());
             return qzetest::AppendSignature(library, block.substr(0, block.size() / 2));
         },
         signer,
         SignText::kRight,
         false,
         {P + "An unknown error occurred trying to verify the signature of the \"{path}\" file."}},
        {"unsigned file",
         Library,
         signer,
         SignText::kRight,
         false,
         {P + "The file \"{path}\" is not signed."}},
        {"empty file",
         [] { return std::string(); },
         signer,
         SignText::kRight,
         false,
         {P + "The file \"{path}\" is not signed."}},
        {"missing file", nullptr, signer, SignText::kRight, false, Error("0x80070002"), false,
         true},
        {"self-signed signer", [&] { return SignedWith(pki.selfSigned); }, signer, SignText::kRight,
         false, Error("0x800b0109")},
        {"intermediate not carried", [&] { return SignedWith(pki.signer); }, signer,
         SignText::kRight, false, Error("0x800b010a")},
        {"expired signer", [&] { return SignedWith(pki.expired, WithChain()); }, signer,
         SignText::kRight, false, Error("0x800b0101")},
        {"signer not for code signing", [&] { return SignedWith(pki.wrongUsage, WithChain()); },
         signer, SignText::kRight, false, Error("0x800b0110")},
        {"root rejected for code signing",
         [&] { return SignedWith(pki.belowRejected); },
         "Signer Below Rejected Root",
         SignText::kRight,
         false,
         {P + "The signature is present, but specifically disallowed."}},
        {"SHA-1 digest",
         [&] {
             SignOptions options = WithChain();
             options.digest = EVP_sha1();
             return SignedWith(pki.signer, options);
         },
         signer, SignText::kRight, false, Error("0x80090008")},
        {"certificate signed with SHA-1",
         [&] {
             qzetest::CertSpec spec;
             spec.subject = {{NID_commonName, "Example Signer Ltd"}};
             spec.issuer = &pki.intermediate;
             spec.serial = 0x7001;
             spec.extendedUsage = {NID_code_sign};
             spec.digest = EVP_sha1();
             return SignedWith(qzetest::MakeIdentity(spec, dir_, "sha1_certificate"), WithChain());
         },
         signer, SignText::kRight, false, Error("0x80090008")},
        {"signer's certificate left out",
         [&] {
             SignOptions options = WithChain();
             options.withoutCertificates = true;
             return SignedWith(pki.signer, options);
         },
         signer, SignText::kRight, false, Error("0x80096002")},
        {"wrong signMD5", good, signer, SignText::kWrong, false,
         Join({kSigned, SignerCertificate(), kNotMatched})},
        {"signMD5 made with another salt", good, signer, SignText::kOtherSalt, false,
         Join({kSigned, SignerCertificate(), kNotMatched})},
        {"signMD5 for another signer's name", good, "Someone Else", SignText::kRight, false,
         Join({kSigned, SignerCertificate(), kNotMatched})},
        {"empty signMD5, trust check first", good, signer, SignText::kEmpty, false,
         Join({kSigned,
               SignerCertificate(),
               {P + "Verify signer certificate information failed, because of sign md5 is "
                    "empty."}})},
        {"empty signMD5 on an unsigned file",
         Library,
         signer,
         SignText::kEmpty,
         false,
         {P + "The file \"{path}\" is not signed."}},
        {"empty libFileMD5", good, signer, SignText::kRight, false,
         Join({kSigned,
               SignerCertificate(),
               {P + "Verify signer certificate information failed, because of lib file md5 is "
                    "empty."}}),
         true},
        {"subject outside ASCII", [&] { return SignedWith(pki.nonAscii, WithChain()); },
         "Z\xC3\xBCrich Sign\xC3\xA9 \xE5\x8C\x97\xE4\xBA\xAC", SignText::kRight, true,
         Join({kSigned,
               Certificate("2004", "Verify Test Intermediate CA",
                           "Z\xC3\xBCrich Sign\xC3\xA9 \xE5\x8C\x97\xE4\xBA\xAC"),
               kMatched})},
        {"issuer without a name", [&] { return SignedWith(pki.belowNameless); },
         "Signer Below Nameless Root", SignText::kRight, true,
         Join({kSigned, {P + "Serial Number: 5002", P + "CertGetNameString failed."}, kMatched})},
        {"path of 260 characters", good, signer, SignText::kRight, true,
         Join({kSigned, SignerCertificate(), kMatched}), false, false, 260},
        {"path of 261 characters",
         good,
         signer,
         SignText::kRight,
         false,
         {P + "Sign Verify failed, because of file path length too long"},
         false,
         false,
         261},
    };
    for (const SignCase& c : cases) {
        Run(c);
    }
}

// The program name and the countersignature are logged around the signer's
// certificate; they never change the result.
TEST_F(SignVerifyTest, PublisherAndTimeStampLines) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    const time_t when = 1700000000;  // 2023-11-14 22:13:20 UTC
    struct tm local {};
    ASSERT_NE(localtime_r(&when, &local), nullptr);
    char date[64];
    std::snprintf(date, sizeof date, "%02d/%02d/%04d %02d:%02d", local.tm_mon + 1, local.tm_mday,
                  local.tm_year + 1900, local.tm_hour, local.tm_min);

    SignOptions stamped = WithChain();
    stamped.countersigner = &pki.timestamper;
    stamped.countersignTime = when;
    const std::string signer = "Example Signer Ltd";
    const std::vector<std::string> stampLines =
        Join({Certificate("4001", "Verify Test Intermediate CA", "Verify Test Time Stamping"),
              {P + "Date of TimeStamp : " + date}});
    const std::vector<SignCase> cases = {
        {"countersigned", [&] { return SignedWith(pki.signer, stamped); }, signer, SignText::kRight,
         true, Join({kSigned, SignerCertificate(), kMatched, stampLines})},
        // The comparison fails first: nothing about the time stamp is said.
        {"countersigned, wrong signMD5", [&] { return SignedWith(pki.signer, stamped); }, signer,
         SignText::kWrong, false, Join({kSigned, SignerCertificate(), kNotMatched})},
    };
    for (const SignCase& c : cases) {
        Run(c);
    }
}

// No lock and no shared state: threads check at once, a good file and a
// tampered one, and each gets its own answer.
TEST_F(SignVerifyTest, ThreadsCheckAtOnce) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    std::string good = SignedWith(pki.signer, WithChain());
    std::string bad = good;
    bad[200] = static_cast<char>(bad[200] ^ 1);
    qzetest::WriteBytes(dir_ / "good.so", good);
    qzetest::WriteBytes(dir_ / "bad.so", bad);
    const std::string libFileMd5 = qzetest::Md5Hex(good);
    const std::string signMd5 = qzetest::Md5Hex("Example Signer Ltd" + libFileMd5 + kSalt);
    auto log = qzetest::CaptureLog();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 8; ++i) {
                bool useGood = (t + i) % 2 == 0;
                fs::path path = dir_ / (useGood ? "good.so" : "bad.so");
                bool result = QZEExtensionSignVerify::GetInstance()->Verify(
                    base::UTF8ToWide(path.string()), signMd5, libFileMd5);
                wrong += result != useGood;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    std::vector<std::string> lines = log->Texts();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), kMatched.back()), 16);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), Error("0x80096010").front()), 16);
    EXPECT_EQ(lines.size(), 16u * 6 + 16u);
}

// The program-name attribute in its several forms: a name as BMPString or
// IA5String, links as URL or file (logged) or moniker (not logged). What it
// holds, or a broken encoding, never changes the result.
TEST_F(SignVerifyTest, ProgramNameForms) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    auto der = [](unsigned char tag, const std::string& content) {
        return std::string(1, static_cast<char>(tag)) +
               std::string(1, static_cast<char>(content.size())) + content;
    };
    const std::string bmpName = std::string("\0N\0a\0m\0e\x20\xAC", 10);  // "Name€"
    struct Form {
        const char* name;
        std::string value;
        std::vector<std::string> lines;
    };
    const std::vector<Form> forms = {
        {"IA5 name, URL link",
         der(0x30, der(0xA0, der(0x81, "Tool")) + der(0xA1, der(0x80, "https://a.example"))),
         {P + "Program Name : Tool", P + "MoreInfo Link : https://a.example"}},
        {"BMP name, file link",
         der(0x30, der(0xA0, der(0x80, bmpName)) + der(0xA1, der(0xA2, der(0x81, "C:\\info.txt")))),
         {P + "Program Name : Name\xE2\x82\xAC", P + "MoreInfo Link : C:\\info.txt"}},
        {"publisher link",
         der(0x30, der(0xA2, der(0x80, "https://p.example"))),
         {P + "Publisher Link : https://p.example"}},
        {"moniker link", der(0x30, der(0xA1, der(0xA1, der(0x04, "0123456789abcdef")))), {}},
        {"empty", der(0x30, ""), {}},
        {"name cut short", der(0x30, std::string("\xA0\x05\x81\x09Tool", 8)), {}},
    };
    const std::string signer = "Example Signer Ltd";
    for (const Form& form : forms) {
        SignOptions options = WithChain();
        options.programNameDer = form.value;
        Run({form.name, [&pki, options] { return SignedWith(pki.signer, options); }, signer,
             SignText::kRight, true, Join({kSigned, form.lines, SignerCertificate(), kMatched})});
    }
}

// The signer's name is the first common name, unit, organisation or e-mail
// attribute of its subject, else its first e-mail alternative name, else the
// subject's first attribute; that name enters signMD5.
TEST_F(SignVerifyTest, SignerNameRules) {
    const qzetest::TestPki& pki = qzetest::VerifyPki();
    struct NameCase {
        const char* name;
        std::vector<qzetest::NameField> subject;
        std::string altEmail;
        std::string expected;  // empty: no name
    };
    const std::vector<NameCase> names = {
        {"common name last",
         {{NID_countryName, "DE"},
          {NID_organizationName, "Org"},
          {NID_organizationalUnitName, "Unit"},
          {NID_commonName, "Common"}},
         "",
         "Common"},
        {"unit before organisation",
         {{NID_countryName, "DE"},
          {NID_organizationName, "Org"},
          {NID_organizationalUnitName, "Unit"}},
         "",
         "Unit"},
        {"organisation before e-mail",
         {{NID_pkcs9_emailAddress, "mail@example.com"}, {NID_organizationName, "Org"}},
         "",
         "Org"},
        {"e-mail attribute",
         {{NID_countryName, "DE"}, {NID_pkcs9_emailAddress, "mail@example.com"}},
         "alt@example.com",
         "mail@example.com"},
        {"alternative e-mail", {{NID_countryName, "DE"}}, "alt@example.com", "alt@example.com"},
        {"first attribute", {{NID_localityName, "Berlin"}, {NID_countryName, "DE"}}, "", "Berlin"},
        {"no name at all", {}, "", ""},
    };
    std::vector<SignCase> cases;
    uint64_t serial = 0x6000;
    std::vector<std::shared_ptr<Identity>> identities;
    for (const NameCase& n : names) {
        qzetest::CertSpec spec;
        spec.subject = n.subject;
        spec.altEmail = n.altEmail;
        spec.issuer = &pki.intermediate;
        spec.serial = ++serial;
        spec.extendedUsage = {NID_code_sign};
        auto identity = std::make_shared<Identity>(
            qzetest::MakeIdentity(spec, dir_, "name_" + std::to_string(serial)));
        identities.push_back(identity);
        char hex[16];
        std::snprintf(hex, sizeof hex, "%04x", static_cast<unsigned>(serial));
        std::vector<std::string> certificate = {P + "Serial Number: " + hex,
                                                P + "Issuer Name: Verify Test Intermediate CA"};
        if (n.expected.empty()) {
            cases.push_back({n.name, [identity] { return SignedWith(*identity, WithChain()); },
                             n.expected, SignText::kRight, false,
                             Join({kSigned,
                                   certificate,
                                   {P + "Verify signer certificate information failed, because "
                                        "of get subject name size failed."}})});
        } else {
            certificate.push_back(P + "Subject Name: " + n.expected);
            cases.push_back({n.name, [identity] { return SignedWith(*identity, WithChain()); },
                             n.expected, SignText::kRight, true,
                             Join({kSigned, certificate, kMatched})});
        }
    }
    for (const SignCase& c : cases) {
        Run(c);
    }
}

}  // namespace

#else

TEST(SignVerifyTest, SignatureMatrix) {
    GTEST_SKIP() << "the appended signature is the Linux form; Windows checks Authenticode";
}

#endif  // !defined(_WIN32)
