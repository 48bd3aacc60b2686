#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "bundle/library_signer.h"
#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

std::string U8(const fs::path& path) {
    return path.u8string();
}
std::string Printed(const qzextensionkit::ManifestDigests& d) {
    return "libFileMD5: " + d.libFileMD5 + "\nsignMD5: " + d.signMD5 + "\n";
}
std::string PrintedJson(const fs::path& library, const std::string& signer,
                        const std::string& libFileMD5, const std::string& signMD5) {
    return "{\"library\": " + qzekit::JsonQuote(U8(library)) + ", \"signer\": \"" + signer +
           "\", \"libFileMD5\": \"" + libFileMD5 + "\", \"signMD5\": \"" + signMD5 + "\"}\n";
}

#if !defined(_WIN32)

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// OpenSSL reads the trust store's paths once, at the kit's first check.
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

// Every way to a signer's name, signed by the tool and read back by the kit.
TEST(QzekitSign, AppendedSignatureGivesTheTextsTheKitAccepts) {
    TempDir dir;
    const std::string unicode =
        "Pr\xC3\xBC"
        "fstelle \xCE\xA9 \xE6\xB8\xAC \xF0\x9D\x84\x9E";
    const struct {
        std::string subject, altEmail, name;
    } rows[] = {
        {"/C=DE/O=Example Org/CN=Tool Signer/CN=Second Name", "", "Tool Signer"},
        {"/C=DE/O=Example Org/OU=Unit One", "", "Unit One"},
        {"/C=DE/L=Town/O=Example Org/emailAddress=dev@example.com", "", "Example Org"},
        {"/C=DE/emailAddress=dev@example.com", "alt@example.com", "dev@example.com"},
        {"/C=DE/L=Town", "alt@example.com", "alt@example.com"},
        {"/L=Town/C=DE", "", "Town"},
        {"/CN=" + unicode, "", unicode},
    };
    uint64_t serial = 0x7001;
    for (const auto& row : rows) {
        CertRequest request;
        request.subject = row.subject;
        request.altEmail = row.altEmail;
        request.issuer = &Pki().intermediate;
        request.serial = ++serial;
        const Identity signer = MakeIdentity(request, dir.path(), "id" + std::to_string(serial));
        const fs::path library = dir.path() / ("lib" + std::to_string(serial) + ".so");
        WriteBytes(library, "library " + row.subject);
        // The non-ASCII name also as JSON.
        const bool json = &row == &rows[6];
        std::vector<std::string> arguments = SignArguments(library, signer);
        arguments.insert(arguments.end(), json, "--json");
        ToolRun run = RunTool(arguments);
        qzextensionkit::ManifestDigests kit;
        ASSERT_TRUE(run.status == 0 &&
                    qzextensionkit::ComputeManifestDigests(Wide(library), &kit, nullptr))
            << row.subject << ": " << run.err;
        EXPECT_EQ(
            kit.signerName + "|" + run.out,
            row.name + "|" +
                (json ? PrintedJson(library, row.name, kit.libFileMD5, kit.signMD5) : Printed(kit)))
            << row.subject;
    }
    // A refusal leaves the library alone.
    const fs::path library = dir.path() / "lib.so";
    WriteBytes(library, "original library");
    ToolRun run = RunTool({"sign", U8(library), "--cert", U8(Pki().signer.certPath), "--key",
                           U8(Pki().nonAscii.keyPath)});
    EXPECT_TRUE(run.status == 1 && run.out.empty() && run.err.rfind("qzekit sign: ", 0) == 0 &&
                Has(run.err, "the private key does not belong to the certificate") &&
                ReadBytes(library) == "original library")
        << run.err;
}

TEST(QzekitVerify, ReportsTheKitsChecksAndVerdict) {
    TempDir dir;
    const std::string tag = "[QZExtensionKit] [SignVerify] ";
    const fs::path path = dir.path() / "lib.so";
    WriteBytes(path, "library");
    qzextensionkit::ManifestDigests texts;
    ASSERT_TRUE(RunTool(SignArguments(path, Pki().signer)).status == 0 &&
                qzextensionkit::ComputeManifestDigests(Wide(path), &texts, nullptr));
    // The manifest's libFileMD5 in capitals fails both checks: the kit compares texts.
    for (const bool upper : {false, true}) {
        std::string given = texts.libFileMD5;
        std::transform(given.begin(), given.end(), given.begin(),
                       [upper](char c) { return upper ? std::toupper(c) : c; });
        BundleDir bundle(dir.path(), upper ? "upper" : "good");
        WriteBytes(bundle.root / "bin" / "lib", ReadBytes(path));
        WriteBytes(bundle.root / "manifest.json",
                   "{\"id\": \"com.example.b\", \"mainEntry\": \"bin/lib\", \"libFileMD5\": \"" +
                       given + "\", \"signMD5\": \"" + texts.signMD5 + "\"}");
        const std::string head = !upper ? tag + "Verify lib file md5 success.\nfile check: passed\n"
                                        : "file check: failed: the manifest's libFileMD5 is \"" +
                                              given + "\", the file's MD5 is " + texts.libFileMD5 +
                                              "\n";
        const std::string tail =
            upper ? "sign md5 not match.\nsignature check: failed\nverdict: rejected\n"
                  : "Verify signer certificate information success.\nsignature check: "
                    "passed\nverdict: accepted\n";
        ToolRun run = RunTool({"verify", U8(bundle.root)});
        EXPECT_TRUE(run.status == (upper ? 1 : 0) &&
                    run.out.rfind("library: " + U8(bundle.root) + "\\bin/lib\n" + head + tag, 0) ==
                        0 &&
                    Has(run.out, tail))
            << run.out << run.err;
        run = RunTool({"verify", "--json", U8(bundle.root)});
        EXPECT_TRUE(
            Has(run.out,
                std::string("\"fileCheck\": {\"passed\": ") + (upper ? "false" : "true")) &&
            Has(run.out, upper ? "\"verdict\": \"rejected\"}" : "\"verdict\": \"accepted\"}"))
            << run.out;
    }
}

#else  // _WIN32

// A fixture made at build time (tests/plugins), read through CryptoAPI.
TEST(QzekitSign, WindowsLibraryTextsAreTheKitsOwn) {
    const fs::path fixtures = fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_signing";
    const fs::path library = fixtures / "signed_unicode.dll";
    qzextensionkit::ManifestDigests kit;
    ASSERT_TRUE(qzextensionkit::ComputeManifestDigests(library.wstring(), &kit, nullptr));
    // U+00FC, Greek, CJK and U+1D11E, a surrogate pair in UTF-16.
    EXPECT_EQ(kit.signerName,
              "Pr\xC3\xBC"
              "fstelle \xCE\xA9\xCE\xBC\xCE\xAD\xCE\xB3\xCE\xB1 "
              "\xE6\xB8\xAC\xE8\xA9\xA6 \xF0\x9D\x84\x9E");
    ToolRun run = RunTool({"sign", U8(library), "--json"});
    EXPECT_EQ(
        std::to_string(run.status) + run.out + RunTool({"sign", U8(library)}).out,
        "0" + PrintedJson(library, kit.signerName, kit.libFileMD5, kit.signMD5) + Printed(kit))
        << run.err;
}

#endif  // _WIN32

}  // namespace
}  // namespace qzetest
