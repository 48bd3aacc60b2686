#pragma once

// Keys, certificates and signed files for the library verification tests
// and benchmark, made with libcrypto at run time. Linux only: the appended
// signature is the Linux form.

#if !defined(_WIN32)

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace qzetest {

struct X509Free {
    void operator()(X509* cert) const { X509_free(cert); }
};
struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

// A certificate with its key, and both as PEM files.
struct Identity {
    std::shared_ptr<X509> cert;
    std::shared_ptr<EVP_PKEY> key;
    std::filesystem::path certPath;
    std::filesystem::path keyPath;
};

struct NameField {
    int nid;
    std::string value;  // UTF-8
};

struct CertSpec {
    std::vector<NameField> subject;
    const Identity* issuer = nullptr;  // null: self-signed
    uint64_t serial = 1;
    long validFromDays = -1;  // relative to now
    long validToDays = 365;
    bool ca = false;
    std::vector<int> extendedUsage;  // empty: no extended key usage
    std::string altEmail;            // an rfc822 subject alternative name
    bool rsa = false;                // RSA 3072 instead of EC P-256
    const EVP_MD* digest = nullptr;  // of the certificate's signature; null: SHA-256
};

// Makes the key and certificate and writes them to `dir`/`name`.{crt,key}.
Identity MakeIdentity(const CertSpec& spec, const std::filesystem::path& dir,
                      const std::string& name);

// The certificate as OpenSSL's "TRUSTED CERTIFICATE" PEM, marked as rejected
// for code signing.
std::string RejectedForCodeSigningPem(const Identity& identity);
std::string CertificatePem(const Identity& identity);

struct SignOptions {
    const EVP_MD* digest = nullptr;  // null: SHA-256
    std::vector<const Identity*> chain;
    bool withoutCertificates = false;  // not even the signer's
    // The DER value of a program-name attribute (1.3.6.1.4.1.311.2.1.12)
    // to sign along; empty for none.
    std::string programNameDer;
    // A countersignature by this identity, signed at `countersignTime`.
    const Identity* countersigner = nullptr;
    time_t countersignTime = 0;
};

// A detached DER CMS SignedData over `content`.
std::string SignDetached(const std::string& content, const Identity& signer,
                         const SignOptions& options);

// content + block + trailer + "~Module signature appended~\n".
std::string AppendSignature(const std::string& content, const std::string& block);

// Hash text of MD5 over bytes, as the manifest holds it.
std::string Md5Hex(const std::string& bytes);

std::string ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, const std::string& bytes);

// The usual test set, made once in a folder of its own.
struct TestPki {
    std::filesystem::path dir;
    Identity root;                    // trusted
    Identity intermediate;            // below root
    Identity signer;                  // below intermediate, code signing
    Identity expired;                 // below intermediate, code signing, expired
    Identity wrongUsage;              // below intermediate, server authentication only
    Identity selfSigned;              // code signing, trusted by nobody
    Identity nonAscii;                // below intermediate, a subject name outside ASCII
    Identity rejectedRoot;            // in the store, rejected for code signing
    Identity belowRejected;           // below rejectedRoot, code signing
    Identity timestamper;             // below intermediate, time stamping
    Identity namelessRoot;            // trusted, with an empty subject name
    Identity belowNameless;           // below namelessRoot, code signing
    std::filesystem::path trustFile;  // root, rejectedRoot and namelessRoot
    std::filesystem::path trustDir;   // empty
};

// Builds the set under `dir`. With `rsaSigner` the signer has an RSA 3072
// key, as release signers usually do.
TestPki MakeTestPki(const std::filesystem::path& dir, bool rsaSigner = false);

}  // namespace qzetest

#endif  // !defined(_WIN32)
