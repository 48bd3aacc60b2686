#include "bundle/support/verify_pki.h"

#include <openssl/evp.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace qzetest {
namespace {

void Check(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(std::string("test helper: ") + what);
    }
}

}  // namespace

std::string Md5Hex(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    Check(EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) == 1, "MD5");
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += "0123456789abcdef"[digest[i] >> 4];
        hex += "0123456789abcdef"[digest[i] & 0xF];
    }
    return hex;
}

std::string ReadBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    Check(static_cast<bool>(out), "write file");
}

}  // namespace qzetest

#if !defined(_WIN32)

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace qzetest {
namespace {

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free_all)>;

BioPtr MemoryBio() {
    return BioPtr(BIO_new(BIO_s_mem()), &BIO_free_all);
}

std::string BioText(BIO* bio) {
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(size));
}

void AddExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
    Check(ext != nullptr && X509_add_ext(cert, ext, -1) == 1, "extension");
    X509_EXTENSION_free(ext);
}

std::string CertificatePem(const Identity& identity) {
    BioPtr bio = MemoryBio();
    Check(PEM_write_bio_X509(bio.get(), identity.cert.get()) == 1, "certificate PEM");
    return BioText(bio.get());
}

}  // namespace

Identity MakeIdentity(const CertRequest& request, const std::filesystem::path& dir,
                      const std::string& name) {
    Identity id;
    id.key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), &EVP_PKEY_free);
    Check(id.key != nullptr, "key");
    id.cert.reset(X509_new(), &X509_free);
    X509* cert = id.cert.get();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(cert), request.serial);
    X509_gmtime_adj(X509_getm_notBefore(cert), -86400L);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3650 * 86400L);
    for (std::size_t at = request.subject.find('/'); at != std::string::npos;) {
        const std::size_t equals = request.subject.find('=', at);
        const std::size_t end = request.subject.find('/', equals);
        const std::string value = request.subject.substr(equals + 1, end - equals - 1);
        Check(X509_NAME_add_entry_by_txt(
                  X509_get_subject_name(cert),
                  request.subject.substr(at + 1, equals - at - 1).c_str(), MBSTRING_UTF8,
                  reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0) == 1,
              "name");
        at = end;
    }
    X509* issuerCert = request.issuer ? request.issuer->cert.get() : cert;
    X509_set_issuer_name(cert, X509_get_subject_name(issuerCert));
    X509_set_pubkey(cert, id.key.get());
    AddExtension(cert, issuerCert, NID_basic_constraints,
                 request.ca ? "critical,CA:TRUE" : "CA:FALSE");
    if (!request.extendedUsage.empty()) {
        std::string usages;
        for (int nid : request.extendedUsage) {
            usages += (usages.empty() ? "" : ",") + std::string(OBJ_nid2sn(nid));
        }
        AddExtension(cert, issuerCert, NID_ext_key_usage, usages);
    }
    if (!request.altEmail.empty()) {
        AddExtension(cert, issuerCert, NID_subject_alt_name, "email:" + request.altEmail);
    }
    Check(X509_sign(cert, (request.issuer ? request.issuer : &id)->key.get(), EVP_sha256()) > 0,
          "signature");

    id.certPath = dir / (name + ".crt");
    id.keyPath = dir / (name + ".key");
    WriteBytes(id.certPath, CertificatePem(id));
    BioPtr keyBio = MemoryBio();
    Check(PEM_write_bio_PrivateKey(keyBio.get(), id.key.get(), nullptr, nullptr, 0, nullptr,
                                   nullptr) == 1,
          "key PEM");
    WriteBytes(id.keyPath, BioText(keyBio.get()));
    return id;
}

std::string SignDetached(const std::string& content, const Identity& signer,
                         const SignOptions& options) {
    const int flags = CMS_DETACHED | CMS_BINARY | CMS_PARTIAL | CMS_NOSMIMECAP;
    std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
        CMS_sign(nullptr, nullptr, nullptr, nullptr, flags), &CMS_ContentInfo_free);
    Check(cms != nullptr, "CMS");
    CMS_SignerInfo* info = CMS_add1_signer(cms.get(), signer.cert.get(), signer.key.get(),
                                           options.digest ? options.digest : EVP_sha256(), flags);
    Check(info != nullptr, "signer");
    for (const Identity* extra : options.chain) {
        Check(CMS_add1_cert(cms.get(), extra->cert.get()) == 1, "chain");
    }
    BioPtr data(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())), &BIO_free_all);
    Check(CMS_final(cms.get(), data.get(), nullptr, flags) == 1, "final");

    unsigned char* der = nullptr;
    int size = i2d_CMS_ContentInfo(cms.get(), &der);
    Check(size > 0, "encoding");
    std::string block(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return block;
}

std::string AppendSignature(const std::string& content, const std::string& block) {
    std::string out = content + block + std::string("\0\0\2\0\0\0\0\0", 8);
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>((block.size() >> shift) & 0xFF));
    }
    return out + "~Module signature appended~\n";
}

TestPki MakeTestPki(const std::filesystem::path& dir) {
    TestPki pki;
    std::filesystem::create_directories(dir);
    auto make = [&dir](const char* name, const char* commonName, const Identity* issuer,
                       uint64_t serial, CertRequest request = {}) {
        if (commonName) {
            request.subject = std::string("/CN=") + commonName;
        }
        request.issuer = issuer;
        request.serial = serial;
        return MakeIdentity(request, dir, name);
    };
    CertRequest ca;
    ca.ca = true;
    ca.extendedUsage.clear();
    pki.root = make("root", "Verify Test Root CA", nullptr, 0x1001, ca);
    pki.intermediate = make("intermediate", "Verify Test Intermediate CA", &pki.root, 0x1002, ca);
    CertRequest leaf;
    leaf.subject = "/C=DE/O=Example Software/CN=Example Signer Ltd";
    // High bit set: the DER serial carries a leading zero octet.
    pki.signer = make("signer", nullptr, &pki.intermediate, 0x8F1E2D3C4B5A6978ULL, leaf);
    pki.selfSigned = make("self_signed", nullptr, nullptr, 0x2003, leaf);
    pki.nonAscii = make("non_ascii", "Z\xC3\xBCrich Sign\xC3\xA9 \xE5\x8C\x97\xE4\xBA\xAC",
                        &pki.intermediate, 0x2004);
    pki.namelessRoot = make("nameless_root", nullptr, nullptr, 0x5001, ca);

    pki.trustFile = dir / "trust.pem";
    WriteBytes(pki.trustFile, CertificatePem(pki.root) + CertificatePem(pki.namelessRoot));
    pki.trustDir = dir / "trust.d";
    std::filesystem::create_directories(pki.trustDir);
    return pki;
}

}  // namespace qzetest

#endif  // !defined(_WIN32)
