#include <openssl/err.h>

#include <memory>
#include <string>

#include "bundle/library_signer.h"
#include "qzekit/signer.h"
#include "qzekit/tool.h"

namespace qzekit {
namespace {

struct SignArguments {
    std::string library;
    std::string certificate;
    std::string key;
    std::string chain;
    bool json = false;
};

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// What to run first when a Windows library carries no signature yet.
std::string OsslsigncodeHint(const SignArguments& args) {
    const std::string cert = args.certificate.empty() ? "CERT.pem" : args.certificate;
    const std::string key = args.key.empty() ? "KEY.pem" : args.key;
    return "  osslsigncode sign -certs " + cert + " -key " + key + " -h sha256 -in " +
           args.library + " -out " + args.library + ".signed\n  mv " + args.library + ".signed " +
           args.library + "\n";
}

// A Windows library is signed already: its signer is read from the file, and
// a certificate or key given must be that signer's.
bool PeSigner(const SignArguments& args, const std::string& bytes, std::string* name,
              std::string* error) {
    X509Ptr signer;
    switch (ReadAuthenticodeSigner(bytes, &signer, error)) {
        case PeSignature::kSigned:
            break;
        case PeSignature::kUnsigned:
            *error = args.library +
                     " is a Windows (PE) library without an Authenticode signature; sign it "
                     "first, for example with:\n" +
                     OsslsigncodeHint(args) + "then run qzekit sign on it again";
            return false;
        case PeSignature::kBroken:
            *error = args.library + " is a Windows (PE) library, but " + *error;
            return false;
    }
    *name = SimpleDisplayName(signer.get());
    if (!args.certificate.empty()) {
        X509Ptr given = LoadFirstCertificate(args.certificate, error);
        if (!given) {
            return false;
        }
        if (X509_cmp(given.get(), signer.get()) != 0) {
            *error = args.library + " is signed by " + Quoted(*name) +
                     ", not by the certificate in " + args.certificate + " (" +
                     Quoted(SimpleDisplayName(given.get())) + ")";
            return false;
        }
    }
    if (!args.key.empty()) {
        KeyPtr key = LoadPrivateKey(args.key, error);
        if (!key) {
            return false;
        }
        if (X509_check_private_key(signer.get(), key.get()) != 1) {
            ERR_clear_error();
            *error = "the key in " + args.key + " does not belong to " + Quoted(*name) +
                     ", who signed " + args.library;
            return false;
        }
    }
    return true;
}

// Any other library is signed here, in the appended form; its signer is the
// first certificate of the certificate file.
bool AppendedSigner(const SignArguments& args, std::string* name, std::string* error) {
    X509Ptr cert = LoadFirstCertificate(args.certificate, error);
    if (!cert) {
        return false;
    }
    // Checked before the file changes.
    *name = SimpleDisplayName(cert.get());
    if (name->empty()) {
        *error = "the certificate in " + args.certificate + " has an empty subject name";
        return false;
    }
    qzextensionkit::LibrarySigningInput input;
    input.certificatePath = WidePath(args.certificate);
    input.keyPath = WidePath(args.key);
    input.chainPath = WidePath(args.chain);
    return qzextensionkit::SignLibraryFile(WidePath(args.library), input, error);
}

void Sign(const SignArguments& args, Session& session) {
    auto fail = [&session](const std::string& text, int status = kExitFailure) {
        session.err << "qzekit sign: " << text << "\n";
        session.status = status;
    };
    std::string bytes;
    if (!ReadFileBytes(args.library, &bytes)) {
        fail("cannot read the library " + args.library);
        return;
    }
    std::string name;
    std::string error;
    if (IsPortableExecutable(bytes)) {
        if (!PeSigner(args, bytes, &name, &error)) {
            fail(error);
            return;
        }
        if (name.empty()) {
            fail("the signer of " + args.library + " has an empty subject name");
            return;
        }
    } else {
        if (args.certificate.empty() || args.key.empty()) {
            fail(args.library +
                     " is not a Windows (PE) library, so it is signed here: give --cert and "
                     "--key",
                 kExitUsage);
            return;
        }
        if (!AppendedSigner(args, &name, &error)) {
            fail(error);
            return;
        }
    }
    std::string libFileMD5;
    if (!qzextensionkit::ComputeLibFileMD5(WidePath(args.library), &libFileMD5, &error)) {
        fail(error);
        return;
    }
    const std::string signMD5 = SignMd5Text(name, libFileMD5);
    if (args.json) {
        session.out << "{\"library\": " << JsonQuote(args.library)
                    << ", \"signer\": " << JsonQuote(name)
                    << ", \"libFileMD5\": " << JsonQuote(libFileMD5)
                    << ", \"signMD5\": " << JsonQuote(signMD5) << "}\n";
    } else {
        session.out << "libFileMD5: " << libFileMD5 << "\nsignMD5: " << signMD5 << "\n";
    }
}

}  // namespace

void AddSignCommand(CLI::App& app, Session& session) {
    auto* command = app.add_subcommand(
        "sign", "Sign a component library and print the libFileMD5 and signMD5 of its manifest.");
    command->footer(
        "A Windows (PE) library must already carry an Authenticode signature (osslsigncode "
        "makes one on Linux): the file is not changed, its signer is read from it, and --cert "
        "and --key are not needed; when given, they must be that signer's. Any other library "
        "is signed in place with --cert and --key, the signature appended in the form the "
        "Linux kit checks. signMD5 uses the salt this qzekit was built with.\n\n"
        "Example:\n"
        "  qzekit sign extensions/hello/bin/hello.so --cert signer.crt --key signer.key "
        "--chain intermediates.pem\n"
        "  qzekit sign extensions/hello/bin/hello.dll");
    auto args = std::make_shared<SignArguments>();
    command->add_option("LIB", args->library, "the component library")->required();
    command->add_option("--cert", args->certificate,
                        "the signer's certificate (PEM); further certificates in the file "
                        "travel with the signature");
    command->add_option("--key", args->key, "the signer's private key (PEM, unencrypted)");
    command->add_option("--chain", args->chain,
                        "intermediate certificates (PEM) to carry in an appended signature");
    command->add_flag("--json", args->json,
                      "print {\"library\", \"signer\", \"libFileMD5\", \"signMD5\"} as JSON");
    command->callback([&session, args] { Sign(*args, session); });
}

}  // namespace qzekit
