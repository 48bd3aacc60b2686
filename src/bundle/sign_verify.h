#pragma once

#include <string>

#include "platform/export.h"

namespace qzextensionkit {

// Checks that a library is signed by a trusted signer bound to its content:
// the MD5 of the signer's subject name, `libFileMD5` and the kit's salt must
// equal `signMD5`.
class QZEKIT_EXPORT QZEExtensionSignVerify {
public:
    // The one process-wide instance, made on first use and never destroyed.
    static QZEExtensionSignVerify* GetInstance();

    virtual bool Verify(const std::wstring& libPath, const std::string& signMD5,
                        const std::string& libFileMD5) = 0;

protected:
    virtual ~QZEExtensionSignVerify();
};

}  // namespace qzextensionkit
