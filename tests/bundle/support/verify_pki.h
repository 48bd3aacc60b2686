#pragma once

// Keys, certificates and signed files; the certificates are Linux only.

#include <filesystem>
#include <string>

namespace qzetest {

// MD5 of `bytes` as a manifest writes it: lower-case hexadecimal.
std::string Md5Hex(const std::string& bytes);
std::string ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, const std::string& bytes);

}  // namespace qzetest

#if !defined(_WIN32)

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace qzetest {

// A certificate with its key, and both as PEM files.
struct Identity {
    std::shared_ptr<X509> cert;
    std::shared_ptr<EVP_PKEY> key;
    std::filesystem::path certPath;
    std::filesystem::path keyPath;
};

struct CertRequest {
    std::string subject;               // UTF-8, as "openssl req -subj" takes it: "/C=DE/CN=Name"
    const Identity* issuer = nullptr;  // null: self-signed
    uint64_t serial = 1;
    bool ca = false;  // valid from a day ago for ten years
    std::vector<int> extendedUsage = {NID_code_sign};
    std::string altEmail;  // an rfc822 subject alternative name
};

// Makes the key and certificate and writes them to `dir`/`name`.{crt,key}.
Identity MakeIdentity(const CertRequest& request, const std::filesystem::path& dir,
                      const std::string& name);

struct SignOptions {
    const EVP_MD* digest = nullptr;  // null: SHA-256
    std::vector<const Identity*> chain;
};

// A detached DER CMS SignedData over `content`.
std::string SignDetached(const std::string& content, const Identity& signer,
                         const SignOptions& options);

// content + block + trailer + "~Module signature appended~\n".
std::string AppendSignature(const std::string& content, const std::string& block);

struct TestPki {
    Identity root;          // trusted
    Identity intermediate;  // below root
    Identity signer;        // below intermediate, code signing
    Identity selfSigned;    // trusted by nobody
    Identity nonAscii;      // below intermediate, a subject name outside ASCII
    Identity namelessRoot;  // trusted, with an empty subject name
    std::filesystem::path trustFile;
    std::filesystem::path trustDir;  // empty
};

// Builds the set under `dir`.
TestPki MakeTestPki(const std::filesystem::path& dir);

// The program's set, made before its first test: libcrypto reads its store once.
const TestPki& VerifyPki();

}  // namespace qzetest

#endif  // !defined(_WIN32)
