#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/json/json_reader.h"
#include "base/values.h"
#include "bundle/lib_file_verify.h"
#include "bundle/library_signer.h"
#include "bundle/sign_verify.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

const unsigned char kSaltBytes[] = {QZEKIT_SIGN_SALT_BYTES};
const std::string kSalt(reinterpret_cast<const char*>(kSaltBytes), sizeof kSaltBytes);

std::string U8(const fs::path& path) {
    return path.u8string();
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The two texts of `sign`'s plain output; empty when it is not exactly that.
struct Texts {
    std::string libFileMD5;
    std::string signMD5;
};
Texts ParseSignOutput(const std::string& out) {
    const std::string first = "libFileMD5: ";
    const std::string second = "\nsignMD5: ";
    if (out.size() != first.size() + 32 + second.size() + 32 + 1 || out.rfind(first, 0) != 0 ||
        out.compare(first.size() + 32, second.size(), second) != 0 || out.back() != '\n') {
        return {};
    }
    return {out.substr(first.size(), 32), out.substr(first.size() + 32 + second.size(), 32)};
}

std::unique_ptr<base::DictionaryValue> ParseJson(const std::string& text) {
    std::unique_ptr<base::Value> value = base::JSONReader::Read(text);
    base::DictionaryValue* dictionary = nullptr;
    if (!value || !value->GetAsDictionary(&dictionary)) {
        return nullptr;
    }
    value.release();
    return std::unique_ptr<base::DictionaryValue>(dictionary);
}

// A bundle below `parent` whose manifest names bin/lib with the two texts.
fs::path WriteBundle(const fs::path& parent, const std::string& name, const std::string& library,
                     const Texts& texts) {
    BundleDir bundle(parent, name);
    WriteBytes(bundle.root / "bin" / "lib", library);
    WriteBytes(bundle.root / "manifest.json",
               R"({"id": "com.example.)" + name + R"(", "mainEntry": "bin/lib", "libFileMD5": ")" +
                   texts.libFileMD5 + R"(", "signMD5": ")" + texts.signMD5 + R"("})");
    return bundle.root;
}

// The smallest PE32+ DLL that signing tools take: headers and one section
// of one "ret".
std::string MinimalPe() {
    std::string pe(0x400, '\0');
    auto put = [&pe](std::size_t at, uint64_t value, int size) {
        for (int i = 0; i < size; ++i) {
            pe[at + static_cast<std::size_t>(i)] = static_cast<char>((value >> (8 * i)) & 0xFF);
        }
    };
    pe[0] = 'M';
    pe[1] = 'Z';
    put(0x3C, 0x40, 4);
    pe.replace(0x40, 4, std::string("PE\0\0", 4));
    // File header: x64, one section, 240 bytes of optional header, a DLL.
    put(0x44, 0x8664, 2);
    put(0x46, 1, 2);
    put(0x54, 240, 2);
    put(0x56, 0x2022, 2);
    const std::size_t opt = 0x58;
    put(opt, 0x20B, 2);
    put(opt + 4, 0x200, 4);            // size of code
    put(opt + 20, 0x1000, 4);          // base of code
    put(opt + 24, 0x180000000ULL, 8);  // image base
    put(opt + 32, 0x1000, 4);          // section alignment
    put(opt + 36, 0x200, 4);           // file alignment
    put(opt + 40, 6, 2);               // operating system version
    put(opt + 48, 6, 2);               // subsystem version
    put(opt + 56, 0x2000, 4);          // size of image
    put(opt + 60, 0x200, 4);           // size of headers
    put(opt + 68, 2, 2);               // subsystem: GUI
    put(opt + 72, 0x100000, 8);        // stack and heap, reserve and commit
    put(opt + 80, 0x1000, 8);
    put(opt + 88, 0x100000, 8);
    put(opt + 96, 0x1000, 8);
    put(opt + 108, 16, 4);  // data directories
    const std::size_t section = opt + 240;
    pe.replace(section, 5, ".text");
    put(section + 8, 0x10, 4);
    put(section + 12, 0x1000, 4);
    put(section + 16, 0x200, 4);
    put(section + 20, 0x200, 4);
    put(section + 36, 0x60000020, 4);
    pe[0x200] = static_cast<char>(0xC3);
    return pe;
}

TEST(QzekitSign, UsageAndHelp) {
    struct Row {
        std::vector<std::string> arguments;
        int status;
    } rows[] = {
        {{"sign"}, 2},           {{"sign", "a", "b"}, 2},
        {{"verify"}, 2},         {{"verify", "a", "b"}, 2},
        {{"sign", "--help"}, 0}, {{"verify", "--help"}, 0},
    };
    for (const Row& row : rows) {
        ToolRun run = RunTool(row.arguments);
        EXPECT_EQ(run.status, row.status) << ::testing::PrintToString(row.arguments) << run.err;
        if (row.status == 0) {
            EXPECT_TRUE(Has(run.out, "Example:\n  qzekit " + row.arguments[0])) << run.out;
        }
    }
}

TEST(QzekitSign, RefusesWhatItCannotRead) {
    TempDir dir;
    WriteBytes(dir.path() / "lib.so", "not a PE file");
    WriteBytes(dir.path() / "empty.pem", "");
    const std::string lib = U8(dir.path() / "lib.so");
    struct Row {
        std::vector<std::string> arguments;
        int status;
        const char* error;
    } rows[] = {
        {{"sign", U8(dir.path() / "none.so")}, 1, "cannot read the library"},
        {{"sign", lib}, 2, "is not a Windows (PE) library, so it is signed here"},
        {{"sign", lib, "--cert", U8(dir.path() / "none.pem"), "--key", lib},
         1,
         "cannot read the certificate file"},
        {{"sign", lib, "--cert", U8(dir.path() / "empty.pem"), "--key", lib},
         1,
         "no PEM certificate"},
    };
    for (const Row& row : rows) {
        ToolRun run = RunTool(row.arguments);
        EXPECT_EQ(run.status, row.status) << ::testing::PrintToString(row.arguments);
        EXPECT_EQ(run.err.rfind("qzekit sign: ", 0), 0u) << run.err;
        EXPECT_TRUE(Has(run.err, row.error)) << run.err;
        EXPECT_EQ(run.out, "");
    }
    EXPECT_EQ(ReadBytes(dir.path() / "lib.so"), "not a PE file");
}

#if !defined(_WIN32)

// The test certificates. OpenSSL reads the trust store's paths once, at the
// kit's first signature check, which no other test of this program makes.
const TestPki& Pki() {
    struct Holder {
        Holder() {
            pki = MakeTestPki(dir.path());
            ::setenv("SSL_CERT_FILE", pki.trustFile.c_str(), 1);
            ::setenv("SSL_CERT_DIR", pki.trustDir.c_str(), 1);
        }
        TempDir dir;
        TestPki pki;
    };
    static Holder holder;
    return holder.pki;
}

std::vector<std::string> SignArguments(const fs::path& library, const Identity& signer) {
    return {"sign",  U8(library),        "--cert",  U8(signer.certPath),
            "--key", U8(signer.keyPath), "--chain", U8(Pki().intermediate.certPath)};
}

// Every way to a signer's name, each signed by the tool, read back by the
// kit and accepted by its checks.
TEST(QzekitSign, AppendedSignatureGivesTheTextsTheKitAccepts) {
    const TestPki& pki = Pki();
    TempDir dir;
    struct Row {
        const char* subject;
        const char* altEmail;
        std::string name;
    } rows[] = {
        {"/C=DE/O=Example Org/CN=Tool Signer/CN=Second Name", "", "Tool Signer"},
        {"/C=DE/O=Example Org/OU=Unit One", "", "Unit One"},
        {"/C=DE/L=Town/O=Example Org/emailAddress=dev@example.com", "", "Example Org"},
        {"/C=DE/emailAddress=dev@example.com", "alt@example.com", "dev@example.com"},
        {"/C=DE/L=Town", "alt@example.com", "alt@example.com"},
        {"/L=Town/C=DE", "", "Town"},
        {"/CN=Pr\xC3\xBC"
         "fstelle \xCE\xA9 \xE6\xB8\xAC \xF0\x9D\x84\x9E",
         "",
         "Pr\xC3\xBC"
         "fstelle \xCE\xA9 \xE6\xB8\xAC \xF0\x9D\x84\x9E"},
    };
    uint64_t serial = 0x7001;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.subject);
        CertRequest request;
        request.subject = row.subject;
        request.altEmail = row.altEmail;
        request.issuer = &pki.intermediate;
        request.serial = serial++;
        Identity signer = MakeIdentity(request, dir.path(), "id" + std::to_string(serial));
        const fs::path library = dir.path() / ("lib" + std::to_string(serial) + ".so");
        WriteBytes(library,
                   "\x7f"
                   "ELF library " +
                       std::string(row.subject));

        ToolRun run = RunTool(SignArguments(library, signer));
        ASSERT_EQ(run.status, 0) << run.err;
        Texts texts = ParseSignOutput(run.out);
        ASSERT_FALSE(texts.libFileMD5.empty()) << run.out;
        EXPECT_EQ(texts.libFileMD5, Md5Hex(ReadBytes(library)));

        qzextensionkit::ManifestDigests kit;
        std::string error;
        ASSERT_TRUE(qzextensionkit::ComputeManifestDigests(Wide(library), &kit, &error)) << error;
        EXPECT_EQ(kit.signerName, row.name);
        EXPECT_EQ(kit.libFileMD5, texts.libFileMD5);
        EXPECT_EQ(kit.signMD5, texts.signMD5);
        EXPECT_TRUE(qzextensionkit::QZEExtensionLibFileVerify::GetInstance()->Verify(
            Wide(library), texts.libFileMD5));
        EXPECT_TRUE(qzextensionkit::QZEExtensionSignVerify::GetInstance()->Verify(
            Wide(library), texts.signMD5, texts.libFileMD5));

        // Signing again replaces the signature; the JSON form tells the signer.
        std::vector<std::string> json = SignArguments(library, signer);
        json.push_back("--json");
        run = RunTool(json);
        ASSERT_EQ(run.status, 0) << run.err;
        const std::string md5 = Md5Hex(ReadBytes(library));
        EXPECT_EQ(run.out, "{\"library\": \"" + U8(library) + "\", \"signer\": \"" + row.name +
                               "\", \"libFileMD5\": \"" + md5 + "\", \"signMD5\": \"" +
                               Md5Hex(row.name + md5 + kSalt) + "\"}\n");
    }
}

TEST(QzekitSign, AppendedSigningFailuresLeaveTheLibraryAsItWas) {
    const TestPki& pki = Pki();
    TempDir dir;
    const fs::path library = dir.path() / "lib.so";
    const std::string original =
        "\x7f"
        "ELF original";
    WriteBytes(library, original);
    struct Row {
        const Identity& cert;
        const Identity& key;
        const char* error;
    } rows[] = {
        {pki.signer, pki.nonAscii, "the private key does not belong to the certificate"},
        {pki.namelessRoot, pki.namelessRoot, "has an empty subject name"},
    };
    for (const Row& row : rows) {
        ToolRun run = RunTool(
            {"sign", U8(library), "--cert", U8(row.cert.certPath), "--key", U8(row.key.keyPath)});
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(Has(run.err, row.error)) << run.err;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(ReadBytes(library), original);
    }
}

TEST(QzekitVerify, ReportsTheKitsChecksAndVerdict) {
    const TestPki& pki = Pki();
    TempDir dir;
    const fs::path unsignedLib = dir.path() / "plain.so";
    WriteBytes(unsignedLib,
               "\x7f"
               "ELF unsigned");
    const fs::path signedLib = dir.path() / "signed.so";
    WriteBytes(signedLib,
               "\x7f"
               "ELF signed");
    Texts good = ParseSignOutput(RunTool(SignArguments(signedLib, pki.signer)).out);
    ASSERT_FALSE(good.signMD5.empty());
    const fs::path selfLib = dir.path() / "self.so";
    WriteBytes(selfLib,
               "\x7f"
               "ELF self-signed");
    Texts self = ParseSignOutput(RunTool(SignArguments(selfLib, pki.selfSigned)).out);
    ASSERT_FALSE(self.signMD5.empty());
    std::string upper = good.libFileMD5;
    for (char& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }

    const std::string tag = "[QZExtensionKit] [SignVerify] ";
    struct Row {
        const char* name;
        const fs::path& library;
        Texts texts;
        bool fileCheck;
        bool signatureCheck;
        std::string lastSignatureLine;
    } rows[] = {
        {"good", signedLib, good, true, true, "Verify signer certificate information success."},
        {"upper", signedLib, {upper, good.signMD5}, false, false, "sign md5 not match."},
        {"signMD5", signedLib, {good.libFileMD5, self.signMD5}, true, false, "sign md5 not match."},
        {"emptySign", signedLib, {good.libFileMD5, ""}, true, false, "sign md5 is empty."},
        {"untrusted", selfLib, self, true, false, "Error is: 0x800b0109."},
        {"unsigned",
         unsignedLib,
         {Md5Hex(ReadBytes(unsignedLib)), good.signMD5},
         true,
         false,
         "\" is not signed."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path bundle =
            WriteBundle(dir.path(), row.name, ReadBytes(row.library), row.texts);
        const std::string library = U8(bundle) + "\\bin/lib";
        ToolRun run = RunTool({"verify", U8(bundle)});
        const bool accepted = row.fileCheck && row.signatureCheck;
        EXPECT_EQ(run.status, accepted ? 0 : 1) << run.err;
        EXPECT_EQ(run.out.rfind("library: " + library + "\n", 0), 0u) << run.out;
        EXPECT_EQ(Has(run.out, "\n" + tag + "Verify lib file md5 success.\nfile check: passed\n"),
                  row.fileCheck)
            << run.out;
        if (!row.fileCheck) {
            EXPECT_TRUE(Has(run.out, "file check: failed: the manifest's libFileMD5 is \"" +
                                         row.texts.libFileMD5 + "\", the file's MD5 is " +
                                         Md5Hex(ReadBytes(row.library)) + "\n"))
                << run.out;
        }
        const std::string verdict = std::string("signature check: ") +
                                    (row.signatureCheck ? "passed" : "failed") +
                                    "\nverdict: " + (accepted ? "accepted" : "rejected") + "\n";
        EXPECT_TRUE(Has(run.out, row.lastSignatureLine + "\n" + verdict)) << run.out;

        run = RunTool({"verify", "--json", U8(bundle)});
        EXPECT_EQ(run.status, accepted ? 0 : 1);
        std::unique_ptr<base::DictionaryValue> json = ParseJson(run.out);
        ASSERT_TRUE(json) << run.out;
        std::string text;
        bool passed = !row.fileCheck;
        EXPECT_TRUE(json->GetString("library", &text) && text == library) << text;
        EXPECT_TRUE(json->GetString("verdict", &text) &&
                    text == (accepted ? "accepted" : "rejected"));
        EXPECT_TRUE(json->GetBoolean("fileCheck.passed", &passed) && passed == row.fileCheck);
        const base::ListValue* log = nullptr;
        ASSERT_TRUE(json->GetList("signatureCheck.log", &log) && log->GetSize() > 0);
        EXPECT_TRUE(log->GetString(log->GetSize() - 1, &text) && Has(text, tag) &&
                    Has(text, row.lastSignatureLine))
            << text;
    }
}

TEST(QzekitVerify, RefusesABundleItCannotCheck) {
    TempDir dir;
    auto bundle = [&dir](const std::string& name, const char* manifest) {
        BundleDir made(dir.path(), name);
        if (manifest) {
            WriteBytes(made.root / "manifest.json", manifest);
        }
        return U8(made.root);
    };
    struct Row {
        std::string bundle;
        const char* error;
    } rows[] = {
        {bundle("none", nullptr), "manifest.json (missing, unreadable or not JSON)"},
        {bundle("broken", "{\"mainEntry\": "), "(missing, unreadable or not JSON)"},
        {bundle("list", "[]"), "is not a JSON object"},
        {bundle("noentry", "{\"id\": \"x\"}"), "names no library (\"mainEntry\")"},
        {bundle("missing", "{\"mainEntry\": \"bin/none.so\"}"),
         "bin/none.so that \"mainEntry\" names does not exist"},
    };
    for (const Row& row : rows) {
        ToolRun run = RunTool({"verify", row.bundle});
        EXPECT_EQ(run.status, 1) << row.bundle;
        EXPECT_EQ(run.err.rfind("qzekit verify: ", 0), 0u) << run.err;
        EXPECT_TRUE(Has(run.err, row.error)) << run.err;
        EXPECT_EQ(run.out, "");
    }
}

// Signs a copy of a PE file with osslsigncode, as a Linux build does for
// Windows bundles.
void Osslsigncode(const fs::path& in, const fs::path& out, const Identity& signer) {
    const std::string command = "osslsigncode sign -certs '" + signer.certPath.string() +
                                "' -key '" + signer.keyPath.string() + "' -h sha256 -in '" +
                                in.string() + "' -out '" + out.string() + "' >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0)
        << "osslsigncode failed or is missing (Debian: apt-get install osslsigncode): " << command;
}

TEST(QzekitSign, WindowsLibraryGivesItsSignersTexts) {
    const TestPki& pki = Pki();
    TempDir dir;
    const fs::path unsignedPe = dir.path() / "unsigned.dll";
    WriteBytes(unsignedPe, MinimalPe());
    const fs::path signedPe = dir.path() / "signed.dll";
    const fs::path unicodePe = dir.path() / "unicode.dll";
    Osslsigncode(unsignedPe, signedPe, pki.signer);
    Osslsigncode(unsignedPe, unicodePe, pki.nonAscii);
    const std::string signedBytes = ReadBytes(signedPe);

    // Damaged copies: the certificate table cut off, and its signature
    // overwritten.
    const fs::path cut = dir.path() / "cut.dll";
    WriteBytes(cut, signedBytes.substr(0, signedBytes.size() - 100));
    const fs::path garbled = dir.path() / "garbled.dll";
    std::string garbledBytes = signedBytes;
    // The security directory of the header above gives the table's offset.
    std::size_t table = 0;
    for (int i = 3; i >= 0; --i) {
        table = table << 8 | static_cast<unsigned char>(signedBytes[0xE8 + i]);
    }
    ASSERT_EQ(table, 0x400u);
    garbledBytes.replace(table + 8, 16, std::string(16, '\x55'));
    WriteBytes(garbled, garbledBytes);

    struct Row {
        const fs::path& library;
        std::vector<std::string> options;
        int status;
        std::string signer;  // when it succeeds, else a part of the error
    } rows[] = {
        {signedPe, {}, 0, "Example Signer Ltd"},
        {unicodePe, {}, 0, "Z\xC3\xBCrich Sign\xC3\xA9 \xE5\x8C\x97\xE4\xBA\xAC"},
        {signedPe,
         {"--cert", U8(pki.signer.certPath), "--key", U8(pki.signer.keyPath)},
         0,
         "Example Signer Ltd"},
        {signedPe,
         {"--cert", U8(pki.nonAscii.certPath)},
         1,
         "is signed by \"Example Signer Ltd\", not by the certificate in"},
        {signedPe,
         {"--key", U8(pki.nonAscii.keyPath)},
         1,
         "does not belong to \"Example Signer Ltd\""},
        {unsignedPe,
         {"--cert", "my.crt"},
         1,
         "without an Authenticode signature; sign it first, for example with:\n"
         "  osslsigncode sign -certs my.crt -key KEY.pem -h sha256 -in " +
             U8(unsignedPe)},
        {cut, {}, 1, "its certificate table lies beyond the end of the file"},
        {garbled, {}, 1, "is not a PKCS#7 SignedData"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(U8(row.library) + " " + ::testing::PrintToString(row.options));
        const std::string before = ReadBytes(row.library);
        std::vector<std::string> arguments = {"sign", U8(row.library), "--json"};
        arguments.insert(arguments.end(), row.options.begin(), row.options.end());
        ToolRun run = RunTool(arguments);
        EXPECT_EQ(run.status, row.status) << run.err;
        EXPECT_EQ(ReadBytes(row.library), before);
        if (row.status != 0) {
            EXPECT_TRUE(Has(run.err, row.signer)) << run.err;
            continue;
        }
        const std::string md5 = Md5Hex(before);
        EXPECT_EQ(run.out, "{\"library\": \"" + U8(row.library) + "\", \"signer\": \"" +
                               row.signer + "\", \"libFileMD5\": \"" + md5 + "\", \"signMD5\": \"" +
                               Md5Hex(row.signer + md5 + kSalt) + "\"}\n");
    }
}

#else  // _WIN32

// The Authenticode fixtures made at build time (tests/plugins).
fs::path Fixture(const char* name) {
    return fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_signing" / name;
}

// The tool's own reading of a signature gives what the kit reads through
// the system's CryptoAPI.
TEST(QzekitSign, WindowsLibraryTextsAreTheKitsOwn) {
    for (const char* name :
         {"signed_sha256.dll", "signed_sha1.dll", "signed_unicode.dll", "timestamped_sha1.dll"}) {
        SCOPED_TRACE(name);
        const fs::path library = Fixture(name);
        qzextensionkit::ManifestDigests kit;
        std::string error;
        ASSERT_TRUE(qzextensionkit::ComputeManifestDigests(library.wstring(), &kit, &error))
            << error;
        ToolRun run = RunTool({"sign", U8(library), "--json"});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, "{\"library\": " + qzekit::JsonQuote(U8(library)) + ", \"signer\": \"" +
                               kit.signerName + "\", \"libFileMD5\": \"" + kit.libFileMD5 +
                               "\", \"signMD5\": \"" + kit.signMD5 + "\"}\n");
        EXPECT_EQ(ParseSignOutput(RunTool({"sign", U8(library)}).out).signMD5, kit.signMD5);
    }
    ToolRun run = RunTool({"sign", U8(Fixture("unsigned.dll"))});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(Has(run.err, "osslsigncode sign -certs CERT.pem -key KEY.pem")) << run.err;
}

TEST(QzekitVerify, UnsignedWindowsLibraryIsRejected) {
    TempDir dir;
    const std::string library = ReadBytes(Fixture("unsigned.dll"));
    const fs::path bundle = WriteBundle(dir.path(), "plain", library,
                                        {Md5Hex(library), "0123456789abcdef0123456789abcdef"});
    ToolRun run = RunTool({"verify", U8(bundle)});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(Has(run.out, "[SignVerify] Verify lib file md5 success.\nfile check: passed\n"))
        << run.out;
    EXPECT_TRUE(Has(run.out, "\" is not signed.\nsignature check: failed\nverdict: rejected\n"))
        << run.out;
}

#endif  // _WIN32

}  // namespace
}  // namespace qzetest
