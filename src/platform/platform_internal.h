#pragma once

// Shared by the per-system implementations: the test seam's state and the
// thread's last error code.

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace qzextensionkit {
namespace platform {
namespace internal {

// True when a test asked `op` to fail now; sets the last error to the
// injected code.
bool ShouldFail(testing::Operation op);
void SetLastErrorCode(uint32_t code);
uint32_t GetLastErrorCode();
// The executable path a test substituted, or empty.
std::wstring ExecutablePathOverride();
// Hands `text` to the capture a test set; false when there is none.
bool CaptureDebugOutput(const char* text);

}  // namespace internal
}  // namespace platform
}  // namespace qzextensionkit
