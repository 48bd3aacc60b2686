#pragma once

#include <string>

#include "bundle/sign_verify.h"

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

// Trust check through the platform's code-signing service, then the signer
// comparison. Holds no state: every call reads the file afresh.
class QZEExtensionSignVerifyImpl : public QZEExtensionSignVerify {
public:
    bool Verify(const std::wstring& libPath, const std::string& signMD5,
                const std::string& libFileMD5) override;

private:
    friend class internal::ProcessSingleton<QZEExtensionSignVerifyImpl>;
    QZEExtensionSignVerifyImpl() = default;
    ~QZEExtensionSignVerifyImpl() override = default;
};

}  // namespace qzextensionkit
