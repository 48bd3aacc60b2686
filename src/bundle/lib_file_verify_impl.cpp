#include "bundle/lib_file_verify_impl.h"

#include <exception>

#include "bundle/verify_digest.h"
#include "kit/log_service.h"
#include "kit/singleton.h"

namespace qzextensionkit {

QZEExtensionLibFileVerify::~QZEExtensionLibFileVerify() = default;

QZEExtensionLibFileVerify* QZEExtensionLibFileVerify::GetInstance() {
    return internal::ProcessSingleton<QZEExtensionLibFileVerifyImpl>::Get();
}

bool QZEExtensionLibFileVerifyImpl::Verify(const std::wstring& libPath,
                                           const std::string& libFileMD5) {
    std::string hash;
    bool hashed = false;
    try {
        hashed = internal::FileMd5Text(libPath, &hash);
    } catch (const std::exception&) {
        hashed = false;
    }
    if (!hashed) {
        QZELogService::GetInstance()->LogMessage(
            0, "[SignVerify] Verify lib file md5 failed, because of generate lib file md5 failed.");
        return false;
    }
    // Byte for byte: an upper-case or empty text never matches. The caller
    // logs the mismatch.
    if (libFileMD5 != hash) {
        return false;
    }
    QZELogService::GetInstance()->LogMessage(0, "[SignVerify] Verify lib file md5 success.");
    return true;
}

}  // namespace qzextensionkit
