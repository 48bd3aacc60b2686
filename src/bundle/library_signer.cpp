#include "bundle/library_signer.h"

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <climits>
#include <cstdint>
#include <exception>
#include <memory>
#include <vector>

#include "base/files/file_util.h"
#include "base/utf_string_conversions.h"
#include "bundle/verify_digest.h"
#include "platform/appended_signature.h"
#include "platform/platform.h"

namespace qzextensionkit {
namespace {

template <auto Free>
struct OpenSslFree {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};
struct OpenSslBytesFree {
    void operator()(unsigned char* bytes) const { OPENSSL_free(bytes); }
};
using BioPtr = std::unique_ptr<BIO, OpenSslFree<&BIO_free_all>>;
using X509Ptr = std::unique_ptr<X509, OpenSslFree<&X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, OpenSslFree<&EVP_PKEY_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, OpenSslFree<&CMS_ContentInfo_free>>;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, OpenSslFree<&ASN1_OBJECT_free>>;
using OpenSslBytes = std::unique_ptr<unsigned char, OpenSslBytesFree>;

bool Fail(std::string* error, const std::string& text) {
    if (error) {
        *error = text;
    }
    return false;
}

// The first reason libcrypto gave, for an error text.
std::string CryptoReason() {
    unsigned long code = ERR_peek_error();
    const char* reason = code ? ERR_reason_error_string(code) : nullptr;
    std::string text = reason ? std::string(" (") + reason + ")" : std::string();
    ERR_clear_error();
    return text;
}

BioPtr MemoryBio(const std::string& bytes) {
    return BioPtr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

// DER element with a tag byte and definite length.
std::string Der(unsigned char tag, const std::string& content) {
    std::string out(1, static_cast<char>(tag));
    std::size_t size = content.size();
    if (size < 0x80) {
        out.push_back(static_cast<char>(size));
    } else {
        std::string length;
        for (std::size_t rest = size; rest > 0; rest >>= 8) {
            length.insert(length.begin(), static_cast<char>(rest & 0xFF));
        }
        out.push_back(static_cast<char>(0x80 | length.size()));
        out += length;
    }
    return out + content;
}

// UTF-8 to the big-endian UTF-16 of a BMPString.
std::string Utf16BigEndian(const std::string& utf8) {
    std::wstring wide = base::UTF8ToWide(utf8);
    std::string out;
    auto put = [&out](uint32_t unit) {
        out.push_back(static_cast<char>(unit >> 8));
        out.push_back(static_cast<char>(unit & 0xFF));
    };
    for (wchar_t c : wide) {
        uint32_t cp = static_cast<uint32_t>(c);
        if (cp > 0xFFFF) {
            cp -= 0x10000;
            put(0xD800 + (cp >> 10));
            put(0xDC00 + (cp & 0x3FF));
        } else {
            put(cp);
        }
    }
    return out;
}

// SpcSpOpusInfo: program name as [0] { [0] BMPString }, link as
// [1] { [0] IA5String }, as Windows' signing tools write them.
std::string ProgramNameAttribute(const std::string& programName, const std::string& link) {
    std::string fields;
    if (!programName.empty()) {
        fields += Der(0xA0, Der(0x80, Utf16BigEndian(programName)));
    }
    if (!link.empty()) {
        fields += Der(0xA1, Der(0x80, link));
    }
    return Der(0x30, fields);
}

bool LoadCertificates(const std::wstring& path, const char* what, std::vector<X509Ptr>* out,
                      std::string* error) {
    std::string pem;
    if (!base::ReadFileBytes(base::FilePath(path), &pem)) {
        return Fail(error,
                    std::string("cannot read the ") + what + " file " + base::WideToUTF8(path));
    }
    BioPtr bio = MemoryBio(pem);
    while (X509* cert = bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr) {
        out->emplace_back(cert);
    }
    ERR_clear_error();
    if (out->empty()) {
        return Fail(error, std::string("no PEM certificate in the ") + what + " file " +
                               base::WideToUTF8(path));
    }
    return true;
}

bool SignBytes(const std::string& content, const LibrarySigningInput& input, std::string* der,
               std::string* error) {
    std::vector<X509Ptr> signer;
    if (!LoadCertificates(input.certificatePath, "certificate", &signer, error)) {
        return false;
    }
    std::vector<X509Ptr> chain;
    if (!input.chainPath.empty() && !LoadCertificates(input.chainPath, "chain", &chain, error)) {
        return false;
    }
    std::string keyPem;
    if (!base::ReadFileBytes(base::FilePath(input.keyPath), &keyPem)) {
        return Fail(error, "cannot read the key file " + base::WideToUTF8(input.keyPath));
    }
    BioPtr keyBio = MemoryBio(keyPem);
    // With no callback, libcrypto takes the last argument as the passphrase.
    KeyPtr key(keyBio
                   ? PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr,
                                             const_cast<char*>(input.keyPassphrase.empty()
                                                                   ? nullptr
                                                                   : input.keyPassphrase.c_str()))
                   : nullptr);
    if (!key) {
        return Fail(error, "cannot read the private key in " + base::WideToUTF8(input.keyPath) +
                               " (wrong passphrase or not a PEM key)" + CryptoReason());
    }
    if (X509_check_private_key(signer.front().get(), key.get()) != 1) {
        ERR_clear_error();
        return Fail(error, "the private key does not belong to the certificate");
    }

    const int flags = CMS_DETACHED | CMS_BINARY | CMS_PARTIAL | CMS_NOSMIMECAP;
    CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
    CMS_SignerInfo* info =
        cms ? CMS_add1_signer(cms.get(), signer.front().get(), key.get(), EVP_sha256(), flags)
            : nullptr;
    if (!info) {
        return Fail(error, "cannot sign with this certificate and key" + CryptoReason());
    }
    // Further certificates of the certificate file count as chain too.
    for (std::size_t i = 1; i < signer.size(); ++i) {
        chain.push_back(std::move(signer[i]));
    }
    for (const X509Ptr& cert : chain) {
        if (CMS_add1_cert(cms.get(), cert.get()) != 1) {
            return Fail(error, "cannot add the chain certificates" + CryptoReason());
        }
    }
    if (!input.programName.empty() || !input.moreInfoLink.empty()) {
        std::string value = ProgramNameAttribute(input.programName, input.moreInfoLink);
        ObjectPtr oid(OBJ_txt2obj("1.3.6.1.4.1.311.2.1.12", 1));
        if (!oid || CMS_signed_add1_attr_by_OBJ(info, oid.get(), V_ASN1_SEQUENCE, value.data(),
                                                static_cast<int>(value.size())) != 1) {
            return Fail(error, "cannot add the program name" + CryptoReason());
        }
    }
    BioPtr data = MemoryBio(content);
    if (!data || CMS_final(cms.get(), data.get(), nullptr, flags) != 1) {
        return Fail(error, "signing failed" + CryptoReason());
    }
    unsigned char* bytes = nullptr;
    int size = i2d_CMS_ContentInfo(cms.get(), &bytes);
    if (size <= 0) {
        return Fail(error, "cannot encode the signature" + CryptoReason());
    }
    OpenSslBytes hold(bytes);
    der->assign(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    return true;
}

// The library's own bytes: an appended signature is taken off.
bool StripSignature(std::string* bytes, std::string* error) {
    std::size_t have = bytes->size() < platform::kAppendedSignatureTailSize
                           ? bytes->size()
                           : platform::kAppendedSignatureTailSize;
    const auto* tail = reinterpret_cast<const unsigned char*>(bytes->data() + bytes->size() - have);
    uint32_t blockSize = 0;
    switch (platform::ParseAppendedSignatureTail(tail, bytes->size(), &blockSize)) {
        case platform::AppendedSignature::kNone:
            return true;
        case platform::AppendedSignature::kPresent:
            bytes->resize(bytes->size() - platform::kAppendedSignatureTailSize - blockSize);
            return true;
        case platform::AppendedSignature::kTruncated:
        case platform::AppendedSignature::kMalformed:
            break;
    }
    return Fail(error,
                "the file ends with a damaged appended signature, so where the library ends is "
                "unknown; sign the original library instead");
}

bool Sign(const std::wstring& libraryPath, const LibrarySigningInput& input, std::string* error) {
    std::string library;
    if (!base::ReadFileBytes(base::FilePath(libraryPath), &library)) {
        return Fail(error, "cannot read the library " + base::WideToUTF8(libraryPath));
    }
    if (!StripSignature(&library, error)) {
        return false;
    }
    if (library.size() > static_cast<std::size_t>(INT_MAX)) {
        return Fail(error, "the library is too large to sign (2 GB at most)");
    }
    std::string der;
    if (!SignBytes(library, input, &der, error)) {
        return false;
    }
    library += der;
    library += platform::AppendedSignatureTail(static_cast<uint32_t>(der.size()));
    if (!platform::WriteFileAtomically(libraryPath, library)) {
        return Fail(error, "cannot write the signed library " + base::WideToUTF8(libraryPath) +
                               " (error " + std::to_string(platform::LastError()) + ")");
    }
    return true;
}

bool Digests(const std::wstring& libraryPath, ManifestDigests* out, std::string* error) {
    ManifestDigests result;
    if (!internal::FileMd5Text(libraryPath, &result.libFileMD5)) {
        return Fail(error, "cannot read the library " + base::WideToUTF8(libraryPath));
    }
    platform::SignatureDetails details;
    if (!platform::ReadSignatureDetails(libraryPath, &details) || !details.opened) {
        return Fail(error, "the library carries no signature that can be read");
    }
    if (!details.signerFound) {
        return Fail(error, "the signature does not carry its signer's certificate");
    }
    if (!details.signer.hasSubjectName || details.signer.subjectName.empty()) {
        return Fail(error, "the signer's certificate has no subject name");
    }
    result.signerName = base::WideToUTF8(details.signer.subjectName);
    if (!internal::Md5Text(result.signerName + result.libFileMD5 + internal::SignSalt(),
                           &result.signMD5)) {
        return Fail(error, "MD5 is not available in this libcrypto");
    }
    *out = std::move(result);
    return true;
}

}  // namespace

bool SignLibraryFile(const std::wstring& libraryPath, const LibrarySigningInput& input,
                     std::string* error) {
    try {
        bool ok = Sign(libraryPath, input, error);
        ERR_clear_error();
        return ok;
    } catch (const std::exception&) {
        ERR_clear_error();
        return Fail(error, "out of memory");
    }
}

bool ComputeManifestDigests(const std::wstring& libraryPath, ManifestDigests* out,
                            std::string* error) {
    if (!out) {
        return Fail(error, "no place for the result");
    }
    try {
        return Digests(libraryPath, out, error);
    } catch (const std::exception&) {
        return Fail(error, "out of memory");
    }
}

bool ComputeLibFileMD5(const std::wstring& libraryPath, std::string* out, std::string* error) {
    if (!out) {
        return Fail(error, "no place for the result");
    }
    try {
        if (!internal::FileMd5Text(libraryPath, out)) {
            return Fail(error, "cannot read the library " + base::WideToUTF8(libraryPath));
        }
        return true;
    } catch (const std::exception&) {
        return Fail(error, "out of memory");
    }
}

}  // namespace qzextensionkit
