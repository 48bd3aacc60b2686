#include "bundle/sign_verify_impl.h"

#include <exception>
#include <new>

#include "base/utf_string_conversions.h"
#include "bundle/verify_digest.h"
#include "kit/log_service.h"
#include "kit/singleton.h"
#include "platform/platform.h"

namespace qzextensionkit {
namespace {

// Paths longer than this are refused before the file is looked at, as the
// Windows path limit would.
constexpr std::size_t kMaxPathLength = 260;

QZELogService* Log() {
    return QZELogService::GetInstance();
}

// Runs the platform's trust check and logs its verdict. Returns the status:
// 0 when the signature is present, intact and trusted.
uint32_t CheckTrust(const std::wstring& libPath) {
    platform::TrustResult result = platform::VerifyFileTrust(libPath);
    std::string file = base::WideToUTF8(libPath);
    switch (result.status) {
        case 0:
            Log()->LogMessage(
                0, "[SignVerify] The file \"%s\" is signed and the signature was verified.",
                file.c_str());
            break;
        case platform::kTrustNoSignature:
            if (result.lastError == platform::kTrustNoSignature ||
                result.lastError == platform::kTrustSubjectForm ||
                result.lastError == platform::kTrustProviderUnknown) {
                Log()->LogMessage(0, "[SignVerify] The file \"%s\" is not signed.", file.c_str());
            } else {
                Log()->LogMessage(0,
                                  "[SignVerify] An unknown error occurred trying to verify the "
                                  "signature of the \"%s\" file.",
                                  file.c_str());
            }
            break;
        case platform::kTrustExplicitDistrust:
            Log()->LogMessage(
                0, "[SignVerify] The signature is present, but specifically disallowed.");
            break;
        case platform::kTrustSubjectNotTrusted:
            Log()->LogMessage(0, "[SignVerify] The signature is present, but not trusted.");
            break;
        case platform::kTrustSecuritySettings:
            Log()->LogMessage(
                0,
                "[SignVerify] CRYPT_E_SECURITY_SETTINGS - The hash representing the subject or "
                "the publisher wasn't explicitly trusted by the admin and admin policy has "
                "disabled user trust. No signature, publisher or timestamp errors.");
            break;
        default:
            Log()->LogMessage(0, "[SignVerify] Error is: 0x%x.", result.status);
            break;
    }
    return result.status;
}

void LogPublisher(const platform::SignatureDetails& details) {
    if (details.hasProgramName) {
        Log()->LogMessage(0, "[SignVerify] Program Name : %s",
                          base::WideToUTF8(details.programName).c_str());
    }
    if (details.hasPublisherLink) {
        Log()->LogMessage(0, "[SignVerify] Publisher Link : %s",
                          base::WideToUTF8(details.publisherLink).c_str());
    }
    if (details.hasMoreInfoLink) {
        Log()->LogMessage(0, "[SignVerify] MoreInfo Link : %s",
                          base::WideToUTF8(details.moreInfoLink).c_str());
    }
}

void LogCertificate(const platform::CertificateDetails& cert) {
    // Stored least significant byte first; printed in the usual order.
    static const char kDigits[] = "0123456789abcdef";
    std::string serial;
    for (auto it = cert.serialNumber.rbegin(); it != cert.serialNumber.rend(); ++it) {
        serial.push_back(kDigits[*it >> 4]);
        serial.push_back(kDigits[*it & 0x0F]);
    }
    Log()->LogMessage(0, "[SignVerify] Serial Number: %s", serial.c_str());

    if (!cert.hasIssuerName) {
        Log()->LogMessage(0, "[SignVerify] CertGetNameString failed.");
        return;
    }
    std::string issuer;
    try {
        issuer = base::WideToUTF8(cert.issuerName);
    } catch (const std::bad_alloc&) {
        Log()->LogMessage(0, "[SignVerify] Unable to allocate memory for issuer name.");
        return;
    }
    Log()->LogMessage(0, "[SignVerify] Issuer Name: %s", issuer.c_str());

    if (cert.hasSubjectName) {
        Log()->LogMessage(0, "[SignVerify] Subject Name: %s",
                          base::WideToUTF8(cert.subjectName).c_str());
    }
}

// The signer-and-file text: the signer's subject name in UTF-8, the
// manifest's libFileMD5 and the salt; its MD5 must be signMD5.
bool CompareSigner(const platform::CertificateDetails& signer, const std::string& signMD5,
                   const std::string& libFileMD5) {
    static const char kFailed[] =
        "[SignVerify] Verify signer certificate information failed, because of %s";
    if (signMD5.empty()) {
        Log()->LogMessage(0, kFailed, "sign md5 is empty.");
        return false;
    }
    if (libFileMD5.empty()) {
        Log()->LogMessage(0, kFailed, "lib file md5 is empty.");
        return false;
    }
    // The platform reports a failed name lookup as an absent name.
    if (!signer.hasSubjectName) {
        Log()->LogMessage(0, kFailed, "get subject name size failed.");
        return false;
    }
    std::string text;
    try {
        text = base::WideToUTF8(signer.subjectName);
        if (!text.empty()) {
            text.reserve(text.size() + libFileMD5.size() + internal::SignSalt().size());
        }
    } catch (const std::bad_alloc&) {
        Log()->LogMessage(0, kFailed, "allocate memory for subject name failed.");
        return false;
    }
    if (text.empty()) {
        Log()->LogMessage(0, kFailed, "subject name empty.");
        return false;
    }
    text += libFileMD5;
    text += internal::SignSalt();
    std::string digest;
    if (!internal::Md5Text(text, &digest)) {
        Log()->LogMessage(0, kFailed, "generate subject name md5 failed.");
        return false;
    }
    Log()->LogMessage(0, "[SignVerify] Compare config sign md5 with lib file cert md5.");
    if (signMD5 != digest) {
        Log()->LogMessage(0, kFailed, "sign md5 not match.");
        return false;
    }
    Log()->LogMessage(0, "[SignVerify] Verify signer certificate information success.");
    return true;
}

bool VerifySignature(const std::wstring& libPath, const std::string& signMD5,
                     const std::string& libFileMD5) {
    if (libPath.size() > kMaxPathLength) {
        Log()->LogMessage(0,
                          "[SignVerify] Sign Verify failed, because of file path length too long");
        return false;
    }
    if (CheckTrust(libPath) != 0) {
        return false;
    }

    // Failures to open the signature or to find its signer are silent: the
    // trust check has just spoken about this file.
    platform::SignatureDetails details;
    if (!platform::ReadSignatureDetails(libPath, &details) || !details.opened) {
        return false;
    }
    LogPublisher(details);
    if (!details.signerFound) {
        return false;
    }
    LogCertificate(details.signer);
    if (!CompareSigner(details.signer, signMD5, libFileMD5)) {
        return false;
    }

    // The time stamp is for the log only; the check has passed.
    if (details.hasTimestampSigner && details.timestampCertificateFound) {
        LogCertificate(details.timestampCertificate);
    }
    if (details.hasTimestampSigner && details.hasTimestampTime) {
        Log()->LogMessage(0, "[SignVerify] Date of TimeStamp : %02d/%02d/%04d %02d:%02d",
                          details.timestampMonth, details.timestampDay, details.timestampYear,
                          details.timestampHour, details.timestampMinute);
    }
    return true;
}

}  // namespace

QZEExtensionSignVerify::~QZEExtensionSignVerify() = default;

QZEExtensionSignVerify* QZEExtensionSignVerify::GetInstance() {
    return internal::ProcessSingleton<QZEExtensionSignVerifyImpl>::Get();
}

bool QZEExtensionSignVerifyImpl::Verify(const std::wstring& libPath, const std::string& signMD5,
                                        const std::string& libFileMD5) {
    try {
        return VerifySignature(libPath, signMD5, libFileMD5);
    } catch (const std::exception&) {
        // Out of memory somewhere along the way: the check fails.
        return false;
    }
}

}  // namespace qzextensionkit
