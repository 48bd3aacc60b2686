#pragma once

// What the sign and verify commands need beyond the kit: files read through
// the platform layer, PEM certificates and keys, the Authenticode signature of
// a Windows library read from its bytes, and the signer's name as Windows
// gives it, so that a bundle for either system can be made on either.

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace qzekit {

struct X509Free {
    void operator()(X509* cert) const { X509_free(cert); }
};
struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;
using KeyPtr = std::unique_ptr<EVP_PKEY, KeyFree>;

// The whole file at a UTF-8 path; false when it can't be opened or read.
bool ReadFileBytes(const std::string& path, std::string* bytes);

// The first certificate of a PEM file, and an unencrypted PEM private key.
// On failure `*error` says why.
X509Ptr LoadFirstCertificate(const std::string& path, std::string* error);
KeyPtr LoadPrivateKey(const std::string& path, std::string* error);

// "MZ" with "PE\0\0" where the DOS header points: a Windows library.
bool IsPortableExecutable(const std::string& bytes);

enum class PeSignature {
    kSigned,    // `*signer` is the first signer's certificate
    kUnsigned,  // no certificate table, or no PKCS#7 signature in it
    kBroken,    // headers or signature damaged; `*error` says where
};

// The signer of a PE file's Authenticode signature: the certificate table
// that the security data directory points to, its first PKCS#7 SignedData,
// and the certificate its first signer names by issuer and serial number.
PeSignature ReadAuthenticodeSigner(const std::string& bytes, X509Ptr* signer, std::string* error);

// The subject's simple display name in UTF-8, as CertGetNameStringW with
// CERT_NAME_SIMPLE_DISPLAY_TYPE gives it: the first common name, unit,
// organisation or e-mail attribute in that order of preference, else the
// first e-mail alternative name, else the first attribute. Empty when the
// subject is empty.
std::string SimpleDisplayName(X509* cert);

// MD5 as lower-case hexadecimal text.
std::string Md5Text(const std::string& bytes);

// signMD5 for a signer and a libFileMD5, with the salt this build was
// configured with.
std::string SignMd5Text(const std::string& signerName, const std::string& libFileMD5);

}  // namespace qzekit
