#include "bundle/support/verify_pki.h"

#if !defined(_WIN32)

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace qzetest {
namespace {

void Check(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(std::string("libcrypto: ") + what);
    }
}

struct BioFree {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
using BioPtr = std::unique_ptr<BIO, BioFree>;

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
    Check(ext != nullptr, "extension");
    X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
}

}  // namespace

Identity MakeIdentity(const CertSpec& spec, const std::filesystem::path& dir,
                      const std::string& name) {
    Identity id;
    id.key.reset(spec.rsa ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{3072})
                          : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"),
                 KeyFree());
    Check(id.key != nullptr, "key");
    id.cert.reset(X509_new(), X509Free());
    X509* cert = id.cert.get();
    X509_set_version(cert, 2);
    ASN1_INTEGER* serial = ASN1_INTEGER_new();
    ASN1_INTEGER_set_uint64(serial, spec.serial);
    X509_set_serialNumber(cert, serial);
    ASN1_INTEGER_free(serial);
    X509_gmtime_adj(X509_getm_notBefore(cert), spec.validFromDays * 86400L);
    X509_gmtime_adj(X509_getm_notAfter(cert), spec.validToDays * 86400L);
    X509_NAME* subject = X509_get_subject_name(cert);
    for (const NameField& field : spec.subject) {
        Check(X509_NAME_add_entry_by_NID(
                  subject, field.nid, MBSTRING_UTF8,
                  reinterpret_cast<const unsigned char*>(field.value.c_str()), -1, -1, 0) == 1,
              "name");
    }
    X509* issuerCert = spec.issuer ? spec.issuer->cert.get() : cert;
    EVP_PKEY* issuerKey = spec.issuer ? spec.issuer->key.get() : id.key.get();
    X509_set_issuer_name(cert, X509_get_subject_name(issuerCert));
    X509_set_pubkey(cert, id.key.get());
    AddExtension(cert, issuerCert, NID_basic_constraints,
                 spec.ca ? "critical,CA:TRUE" : "CA:FALSE");
    AddExtension(cert, issuerCert, NID_key_usage,
                 spec.ca ? "critical,keyCertSign,cRLSign" : "critical,digitalSignature");
    AddExtension(cert, issuerCert, NID_subject_key_identifier, "hash");
    if (spec.issuer) {
        AddExtension(cert, issuerCert, NID_authority_key_identifier, "keyid");
    }
    if (!spec.extendedUsage.empty()) {
        std::string usages;
        for (int nid : spec.extendedUsage) {
            usages += (usages.empty() ? "" : ",") + std::string(OBJ_nid2sn(nid));
        }
        AddExtension(cert, issuerCert, NID_ext_key_usage, usages);
    }
    if (!spec.altEmail.empty()) {
        AddExtension(cert, issuerCert, NID_subject_alt_name, "email:" + spec.altEmail);
    }
    Check(X509_sign(cert, issuerKey, spec.digest ? spec.digest : EVP_sha256()) > 0,
          "certificate signature");

    id.certPath = dir / (name + ".crt");
    id.keyPath = dir / (name + ".key");
    WriteBytes(id.certPath, CertificatePem(id));
    BioPtr keyBio(BIO_new(BIO_s_mem()));
    Check(PEM_write_bio_PrivateKey(keyBio.get(), id.key.get(), nullptr, nullptr, 0, nullptr,
                                   nullptr) == 1,
          "key PEM");
    WriteBytes(id.keyPath, BioText(keyBio.get()));
    return id;
}

std::string CertificatePem(const Identity& identity) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    Check(PEM_write_bio_X509(bio.get(), identity.cert.get()) == 1, "certificate PEM");
    return BioText(bio.get());
}

std::string RejectedForCodeSigningPem(const Identity& identity) {
    std::unique_ptr<X509, X509Free> copy(X509_dup(identity.cert.get()));
    Check(X509_add1_reject_object(copy.get(), OBJ_nid2obj(NID_code_sign)) == 1, "reject");
    BioPtr bio(BIO_new(BIO_s_mem()));
    Check(PEM_write_bio_X509_AUX(bio.get(), copy.get()) == 1, "trusted certificate PEM");
    return BioText(bio.get());
}

std::string SignDetached(const std::string& content, const Identity& signer,
                         const SignOptions& options) {
    const int flags = CMS_DETACHED | CMS_BINARY | CMS_PARTIAL | CMS_NOSMIMECAP |
                      (options.withoutCertificates ? CMS_NOCERTS : 0);
    std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
        CMS_sign(nullptr, nullptr, nullptr, nullptr, flags), &CMS_ContentInfo_free);
    Check(cms != nullptr, "CMS");
    CMS_SignerInfo* info = CMS_add1_signer(cms.get(), signer.cert.get(), signer.key.get(),
                                           options.digest ? options.digest : EVP_sha256(), flags);
    Check(info != nullptr, "signer");
    for (const Identity* extra : options.chain) {
        Check(CMS_add1_cert(cms.get(), extra->cert.get()) == 1, "chain");
    }
    if (!options.programNameDer.empty()) {
        ASN1_OBJECT* oid = OBJ_txt2obj("1.3.6.1.4.1.311.2.1.12", 1);
        int added =
            CMS_signed_add1_attr_by_OBJ(info, oid, V_ASN1_SEQUENCE, options.programNameDer.data(),
                                        static_cast<int>(options.programNameDer.size()));
        ASN1_OBJECT_free(oid);
        Check(added == 1, "program name");
    }
    BioPtr data(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    Check(CMS_final(cms.get(), data.get(), nullptr, flags) == 1, "final");

    if (options.countersigner) {
        // A PKCS#9 countersignature: a SignerInfo over the signature value.
        ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(info);
        BioPtr signed_value(
            BIO_new_mem_buf(ASN1_STRING_get0_data(value), ASN1_STRING_length(value)));
        const int p7flags = PKCS7_DETACHED | PKCS7_BINARY | PKCS7_PARTIAL | PKCS7_NOSMIMECAP;
        std::unique_ptr<PKCS7, decltype(&PKCS7_free)> p7(
            PKCS7_sign(nullptr, nullptr, nullptr, nullptr, p7flags), &PKCS7_free);
        Check(p7 != nullptr, "countersignature");
        PKCS7_SIGNER_INFO* counter =
            PKCS7_sign_add_signer(p7.get(), options.countersigner->cert.get(),
                                  options.countersigner->key.get(), EVP_sha256(), p7flags);
        Check(counter != nullptr, "countersigner");
        ASN1_TIME* when = ASN1_TIME_set(nullptr, options.countersignTime);
        Check(PKCS7_add0_attrib_signing_time(counter, when) == 1, "signing time");
        Check(PKCS7_final(p7.get(), signed_value.get(), p7flags) == 1, "countersignature final");
        unsigned char* der = nullptr;
        int size = i2d_PKCS7_SIGNER_INFO(counter, &der);
        Check(size > 0, "countersignature encoding");
        int added = CMS_unsigned_add1_attr_by_NID(info, NID_pkcs9_countersignature, V_ASN1_SEQUENCE,
                                                  der, size);
        OPENSSL_free(der);
        Check(added == 1, "countersignature attribute");
        Check(CMS_add1_cert(cms.get(), options.countersigner->cert.get()) == 1,
              "countersigner certificate");
    }

    unsigned char* der = nullptr;
    int size = i2d_CMS_ContentInfo(cms.get(), &der);
    Check(size > 0, "encoding");
    std::string block(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return block;
}

std::string AppendSignature(const std::string& content, const std::string& block) {
    std::string out = content + block;
    const unsigned char head[8] = {0, 0, 2, 0, 0, 0, 0, 0};
    out.append(reinterpret_cast<const char*>(head), sizeof head);
    uint32_t size = static_cast<uint32_t>(block.size());
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>((size >> shift) & 0xFF));
    }
    return out + "~Module signature appended~\n";
}

std::string Md5Hex(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    Check(EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) == 1, "MD5");
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += kDigits[digest[i] >> 4];
        hex += kDigits[digest[i] & 0xF];
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

TestPki MakeTestPki(const std::filesystem::path& dir, bool rsaSigner) {
    TestPki pki;
    pki.dir = dir;
    std::filesystem::create_directories(dir);
    const std::vector<int> codeSigning = {NID_code_sign};

    CertSpec root;
    root.subject = {{NID_organizationName, "Verify Test"}, {NID_commonName, "Verify Test Root CA"}};
    root.serial = 0x1001;
    root.validToDays = 3650;
    root.ca = true;
    pki.root = MakeIdentity(root, dir, "root");

    CertSpec intermediate = root;
    intermediate.subject = {{NID_commonName, "Verify Test Intermediate CA"}};
    intermediate.issuer = &pki.root;
    intermediate.serial = 0x1002;
    pki.intermediate = MakeIdentity(intermediate, dir, "intermediate");

    CertSpec leaf;
    leaf.subject = {{NID_countryName, "DE"},
                    {NID_organizationName, "Example Software"},
                    {NID_commonName, "Example Signer Ltd"}};
    leaf.issuer = &pki.intermediate;
    // High bit set: the DER serial carries a leading zero octet.
    leaf.serial = 0x8F1E2D3C4B5A6978ULL;
    leaf.extendedUsage = codeSigning;
    leaf.rsa = rsaSigner;
    pki.signer = MakeIdentity(leaf, dir, "signer");

    CertSpec expired = leaf;
    expired.rsa = false;
    expired.serial = 0x2001;
    expired.validFromDays = -30;
    expired.validToDays = -1;
    pki.expired = MakeIdentity(expired, dir, "expired");

    CertSpec wrongUsage = expired;
    wrongUsage.serial = 0x2002;
    wrongUsage.validFromDays = -1;
    wrongUsage.validToDays = 365;
    wrongUsage.extendedUsage = {NID_server_auth};
    pki.wrongUsage = MakeIdentity(wrongUsage, dir, "wrong_usage");

    CertSpec selfSigned = wrongUsage;
    selfSigned.issuer = nullptr;
    selfSigned.serial = 0x2003;
    selfSigned.extendedUsage = codeSigning;
    pki.selfSigned = MakeIdentity(selfSigned, dir, "self_signed");

    CertSpec nonAscii = selfSigned;
    nonAscii.issuer = &pki.intermediate;
    nonAscii.serial = 0x2004;
    nonAscii.subject = {{NID_commonName, "Z\xC3\xBCrich Sign\xC3\xA9 \xE5\x8C\x97\xE4\xBA\xAC"}};
    pki.nonAscii = MakeIdentity(nonAscii, dir, "non_ascii");

    CertSpec rejectedRoot = root;
    rejectedRoot.subject = {{NID_commonName, "Verify Test Rejected Root"}};
    rejectedRoot.serial = 0x3001;
    pki.rejectedRoot = MakeIdentity(rejectedRoot, dir, "rejected_root");

    CertSpec belowRejected = nonAscii;
    belowRejected.issuer = &pki.rejectedRoot;
    belowRejected.serial = 0x3002;
    belowRejected.subject = {{NID_commonName, "Signer Below Rejected Root"}};
    pki.belowRejected = MakeIdentity(belowRejected, dir, "below_rejected");

    CertSpec timestamper = nonAscii;
    timestamper.serial = 0x4001;
    timestamper.subject = {{NID_commonName, "Verify Test Time Stamping"}};
    timestamper.extendedUsage = {NID_time_stamp};
    pki.timestamper = MakeIdentity(timestamper, dir, "timestamper");

    CertSpec namelessRoot = root;
    namelessRoot.subject = {};
    namelessRoot.serial = 0x5001;
    pki.namelessRoot = MakeIdentity(namelessRoot, dir, "nameless_root");

    CertSpec belowNameless = nonAscii;
    belowNameless.issuer = &pki.namelessRoot;
    belowNameless.serial = 0x5002;
    belowNameless.subject = {{NID_commonName, "Signer Below Nameless Root"}};
    pki.belowNameless = MakeIdentity(belowNameless, dir, "below_nameless");

    pki.trustFile = dir / "trust.pem";
    WriteBytes(pki.trustFile, CertificatePem(pki.root) +
                                  RejectedForCodeSigningPem(pki.rejectedRoot) +
                                  CertificatePem(pki.namelessRoot));
    pki.trustDir = dir / "trust.d";
    std::filesystem::create_directories(pki.trustDir);
    return pki;
}

}  // namespace qzetest

#endif  // !defined(_WIN32)
