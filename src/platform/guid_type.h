#pragma once

// The 16-byte identifier that the system fills in. The component model's ids
// build on this layout (component/guid.h).

#include <cstdint>

#if defined(_WIN32)
#include <guiddef.h>
#endif

namespace by {

#if defined(_WIN32)
// On Windows plug-ins and the kit share the system's own id type.
using GUID = ::GUID;
#else
struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
#endif

static_assert(sizeof(GUID) == 16, "GUID must be 16 bytes");

}  // namespace by
