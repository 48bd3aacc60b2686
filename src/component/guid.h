#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/guid_type.h"

namespace by {

// Equal when all 16 bytes are equal. There is no ordering of binary ids.
QZEKIT_EXPORT bool IsEqualId(const GUID& a, const GUID& b);
#if !defined(_WIN32)
// Windows' own header already gives these for its GUID.
inline bool operator==(const GUID& a, const GUID& b) {
    return IsEqualId(a, b);
}
inline bool operator!=(const GUID& a, const GUID& b) {
    return !IsEqualId(a, b);
}
#endif

// Turns "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (braced, 38 characters) or
// the same without braces (36) into a GUID. It never fails: a wrong length
// gives the all-zero id, and text that stops being hexadecimal part way gives
// the id filled up to that point. Callers rely on that and test nothing.
QZEKIT_EXPORT GUID ParseGuid(const char* text, bool braced);

// Ids the kit knows by heart.
QZEKIT_EXPORT extern const GUID IID_IBaseUnknown;     // {00000000-0000-0000-C000-000000000046}
QZEKIT_EXPORT extern const GUID IID_IClassFactory;    // {00000001-0000-0000-C000-000000000046}
QZEKIT_EXPORT extern const GUID IID_IOFClassFactory;  // {6966e385-dbfa-4131-a29e-d0e9464f3f53}
QZEKIT_EXPORT extern const GUID CLSID_ModuleObject;   // {e9678781-a3cb-46fb-9121-3ed22c24cfad}
QZEKIT_EXPORT extern const GUID IID_IQZEBundle;       // {e50226d4-ee3f-4a64-b53e-50114f0c99c7}
QZEKIT_EXPORT extern const GUID
    IID_IQZNotificationService;  // {B2F1A919-D15D-4C72-A8C3-2143E2176131}
QZEKIT_EXPORT extern const GUID
    CLSID_QZNotificationService;  // {45ED99D7-00C2-4082-98D8-5507D2AA3A0F}

}  // namespace by
