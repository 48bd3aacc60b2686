#pragma once

#include <string>

#include "platform/export.h"

namespace base {

// A new random id as 36 characters, "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX",
// without braces and in the letter case the system gives. Empty when the
// system could not make one.
QZEKIT_EXPORT std::string GenerateGUID();

}  // namespace base
