#pragma once

#include <string>

#include "platform/export.h"

namespace qzextensionkit {

// Checks that a library file is the file its manifest names: the MD5 of its
// bytes, as 32 lower-case hexadecimal digits, must equal `libFileMD5`.
class QZEKIT_EXPORT QZEExtensionLibFileVerify {
public:
    // The one process-wide instance, made on first use and never destroyed.
    static QZEExtensionLibFileVerify* GetInstance();

    virtual bool Verify(const std::wstring& libPath, const std::string& libFileMD5) = 0;

protected:
    virtual ~QZEExtensionLibFileVerify();
};

}  // namespace qzextensionkit
