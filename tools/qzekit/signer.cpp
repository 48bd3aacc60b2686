#include "qzekit/signer.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include <cstdint>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "qzekit/tool.h"

#if !defined(QZEKIT_SIGN_SALT_BYTES)
#error "QZEKIT_SIGN_SALT_BYTES must be defined by the build (cmake/QZEKitSignSalt.cmake)"
#endif

namespace qzekit {
namespace {

constexpr unsigned char kSaltBytes[] = {QZEKIT_SIGN_SALT_BYTES};

struct BioFree {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
struct Pkcs7Free {
    void operator()(PKCS7* p7) const { PKCS7_free(p7); }
};
struct GeneralNamesFree {
    void operator()(GENERAL_NAMES* names) const { GENERAL_NAMES_free(names); }
};
using BioPtr = std::unique_ptr<BIO, BioFree>;

// Little-endian fields of the PE headers.
uint32_t Le16(const std::string& bytes, std::size_t at) {
    return static_cast<uint32_t>(static_cast<unsigned char>(bytes[at])) |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 8;
}
uint32_t Le32(const std::string& bytes, std::size_t at) {
    return Le16(bytes, at) | Le16(bytes, at + 2) << 16;
}

// The offset of "PE\0\0", or 0 when the file is no PE file.
std::size_t PeHeaderOffset(const std::string& bytes) {
    if (bytes.size() < 0x40 || bytes.compare(0, 2, "MZ") != 0) {
        return 0;
    }
    std::size_t at = Le32(bytes, 0x3C);
    if (at < 0x40 || at > bytes.size() - 4 || bytes.compare(at, 4, std::string("PE\0\0", 4)) != 0) {
        return 0;
    }
    return at;
}

PeSignature Broken(std::string* error, const std::string& text) {
    *error = text;
    return PeSignature::kBroken;
}

std::string Utf8(const ASN1_STRING* value) {
    unsigned char* utf8 = nullptr;
    int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length < 0) {
        ERR_clear_error();
        return std::string();
    }
    std::string text(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(length));
    OPENSSL_free(utf8);
    return text;
}

// The signer of a DER PKCS#7 SignedData, found among its certificates.
PeSignature SignerOf(const std::string& der, X509Ptr* signer, std::string* error) {
    const auto* p = reinterpret_cast<const unsigned char*>(der.data());
    std::unique_ptr<PKCS7, Pkcs7Free> p7(d2i_PKCS7(nullptr, &p, static_cast<long>(der.size())));
    ERR_clear_error();
    if (!p7 || !PKCS7_type_is_signed(p7.get()) || !p7->d.sign) {
        return Broken(error, "its Authenticode signature is not a PKCS#7 SignedData");
    }
    STACK_OF(PKCS7_SIGNER_INFO)* infos = PKCS7_get_signer_info(p7.get());
    if (!infos || sk_PKCS7_SIGNER_INFO_num(infos) < 1) {
        return Broken(error, "its Authenticode signature names no signer");
    }
    PKCS7_ISSUER_AND_SERIAL* id = sk_PKCS7_SIGNER_INFO_value(infos, 0)->issuer_and_serial;
    X509* found =
        id ? X509_find_by_issuer_and_serial(p7->d.sign->cert, id->issuer, id->serial) : nullptr;
    if (!found || X509_up_ref(found) != 1) {
        return Broken(error, "its Authenticode signature does not carry its signer's certificate");
    }
    signer->reset(found);
    return PeSignature::kSigned;
}

}  // namespace

bool ReadFileBytes(const std::string& path, std::string* bytes) {
    return base::ReadFileBytes(base::FilePath(WidePath(path)), bytes);
}

X509Ptr LoadFirstCertificate(const std::string& path, std::string* error) {
    std::string pem;
    if (!ReadFileBytes(path, &pem)) {
        *error = "cannot read the certificate file " + path;
        return nullptr;
    }
    BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    X509Ptr cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    ERR_clear_error();
    if (!cert) {
        *error = "no PEM certificate in the certificate file " + path;
    }
    return cert;
}

KeyPtr LoadPrivateKey(const std::string& path, std::string* error) {
    std::string pem;
    if (!ReadFileBytes(path, &pem)) {
        *error = "cannot read the key file " + path;
        return nullptr;
    }
    BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    // An empty passphrase, so that an encrypted key fails instead of asking.
    KeyPtr key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, const_cast<char*>(""))
                   : nullptr);
    ERR_clear_error();
    if (!key) {
        *error = "no unencrypted PEM private key in the key file " + path;
    }
    return key;
}

bool IsPortableExecutable(const std::string& bytes) {
    return PeHeaderOffset(bytes) != 0;
}

PeSignature ReadAuthenticodeSigner(const std::string& bytes, X509Ptr* signer, std::string* error) {
    const std::size_t pe = PeHeaderOffset(bytes);
    if (pe == 0) {
        return Broken(error, "it is not a PE file");
    }
    // COFF file header (20 bytes), then the optional header.
    const std::size_t optional = pe + 4 + 20;
    if (optional > bytes.size()) {
        return Broken(error, "its PE file header is cut short");
    }
    const std::size_t optionalSize = Le16(bytes, pe + 4 + 16);
    if (optionalSize < 2 || optionalSize > bytes.size() - optional) {
        return Broken(error, "its PE optional header is cut short");
    }
    // Where the directory count and the directories lie differs between
    // PE32 and PE32+.
    std::size_t countAt = 0;
    switch (Le16(bytes, optional)) {
        case 0x10B:
            countAt = 92;
            break;
        case 0x20B:
            countAt = 108;
            break;
        default:
            return Broken(error, "its PE optional header is of an unknown kind");
    }
    if (optionalSize < countAt + 4) {
        return Broken(error, "its PE optional header is cut short");
    }
    const uint32_t directories = Le32(bytes, optional + countAt);
    // The security directory is the fifth, 8 bytes each.
    const std::size_t security = countAt + 4 + 4 * 8;
    if (directories < 5 || optionalSize < security + 8) {
        return PeSignature::kUnsigned;
    }
    // Unlike the others, this directory holds a file offset, not an address.
    const std::size_t tableAt = Le32(bytes, optional + security);
    const std::size_t tableSize = Le32(bytes, optional + security + 4);
    if (tableAt == 0 && tableSize == 0) {
        return PeSignature::kUnsigned;
    }
    if (tableAt > bytes.size() || tableSize > bytes.size() - tableAt) {
        return Broken(error, "its certificate table lies beyond the end of the file");
    }
    // WIN_CERTIFICATE entries: length, revision, type, then the data; each
    // starts on 8 bytes.
    const std::size_t end = tableAt + tableSize;
    for (std::size_t at = tableAt; end - at >= 8;) {
        const std::size_t length = Le32(bytes, at);
        if (length < 8 || length > end - at) {
            return Broken(error, "its certificate table holds an entry of a wrong length");
        }
        const uint32_t kPkcsSignedData = 2;
        if (Le16(bytes, at + 6) == kPkcsSignedData) {
            return SignerOf(bytes.substr(at + 8, length - 8), signer, error);
        }
        at += (length + 7) & ~static_cast<std::size_t>(7);
        if (at > end) {
            break;
        }
    }
    return PeSignature::kUnsigned;
}

std::string SimpleDisplayName(X509* cert) {
    const X509_NAME* name = X509_get_subject_name(cert);
    static const int kPreferred[] = {NID_commonName, NID_organizationalUnitName,
                                     NID_organizationName, NID_pkcs9_emailAddress};
    for (int nid : kPreferred) {
        int index = X509_NAME_get_index_by_NID(name, nid, -1);
        if (index >= 0) {
            return Utf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
        }
    }
    std::unique_ptr<GENERAL_NAMES, GeneralNamesFree> alternatives(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(cert, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; alternatives && i < sk_GENERAL_NAME_num(alternatives.get()); ++i) {
        const GENERAL_NAME* alternative = sk_GENERAL_NAME_value(alternatives.get(), i);
        if (alternative->type == GEN_EMAIL) {
            return Utf8(alternative->d.rfc822Name);
        }
    }
    if (X509_NAME_entry_count(name) > 0) {
        return Utf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, 0)));
    }
    return std::string();
}

std::string Md5Text(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) != 1) {
        ERR_clear_error();
        return std::string();
    }
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += kDigits[digest[i] >> 4];
        text += kDigits[digest[i] & 0x0F];
    }
    return text;
}

std::string SignMd5Text(const std::string& signerName, const std::string& libFileMD5) {
    static const std::string salt(reinterpret_cast<const char*>(kSaltBytes), sizeof kSaltBytes);
    return Md5Text(signerName + libFileMD5 + salt);
}

}  // namespace qzekit
