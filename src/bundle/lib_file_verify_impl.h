#pragma once

#include <string>

#include "bundle/lib_file_verify.h"

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

// Hashes the file afresh on every call; holds no state.
class QZEExtensionLibFileVerifyImpl : public QZEExtensionLibFileVerify {
public:
    bool Verify(const std::wstring& libPath, const std::string& libFileMD5) override;

private:
    friend class internal::ProcessSingleton<QZEExtensionLibFileVerifyImpl>;
    QZEExtensionLibFileVerifyImpl() = default;
    ~QZEExtensionLibFileVerifyImpl() override = default;
};

}  // namespace qzextensionkit
