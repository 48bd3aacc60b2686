#include "component/guid.h"

#include <cstdio>
#include <cstring>

#include "base/string_util.h"

namespace by {

bool IsEqualId(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

namespace {

// The usual text: every group all hexadecimal digits, the separators in
// place. The scanner below reads exactly these values from it, at a cost
// that showed in every request for an extension; anything else goes to it.
bool ParseCanonical(const char* text, bool braced, GUID* id) {
    if (braced && (text[0] != '{' || text[37] != '}')) {
        return false;
    }
    const char* p = braced ? text + 1 : text;
    if (p[8] != '-' || p[13] != '-' || p[18] != '-' || p[23] != '-') {
        return false;
    }
    // Where each byte's two digits start.
    static const int kPairs[16] = {0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};
    uint8_t bytes[16];
    for (int n = 0; n < 16; ++n) {
        const int high = base::HexDigitValue(p[kPairs[n]]);
        const int low = base::HexDigitValue(p[kPairs[n] + 1]);
        if (high < 0 || low < 0) {
            return false;
        }
        bytes[n] = static_cast<uint8_t>(high << 4 | low);
    }
    id->Data1 = static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
                static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
    id->Data2 = static_cast<uint16_t>(bytes[4] << 8 | bytes[5]);
    id->Data3 = static_cast<uint16_t>(bytes[6] << 8 | bytes[7]);
    std::memcpy(id->Data4, bytes + 8, 8);
    return true;
}

}  // namespace

GUID ParseGuid(const char* text, bool braced) {
    GUID id;
    std::memset(&id, 0, sizeof id);
    if (text == nullptr) {
        return id;
    }
    const size_t expected = braced ? 38 : 36;
    if (std::strlen(text) != expected) {
        return id;
    }
    if (ParseCanonical(text, braced, &id)) {
        return id;
    }
    char buffer[128] = {0};
    std::memcpy(buffer, text, expected);
    unsigned int data1 = 0;
    unsigned int g[10] = {0};
    // The count of converted fields is deliberately not looked at: a text
    // that stops being hexadecimal gives the id filled up to there.
    const char* pattern = braced ? "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}"
                                 : "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X";
    (void)std::sscanf(buffer, pattern, &data1, &g[0], &g[1], &g[2], &g[3], &g[4], &g[5], &g[6],
                      &g[7], &g[8], &g[9]);
    id.Data1 = data1;
    id.Data2 = static_cast<uint16_t>(g[0]);
    id.Data3 = static_cast<uint16_t>(g[1]);
    for (int i = 0; i < 8; ++i) {
        id.Data4[i] = static_cast<uint8_t>(g[i + 2]);
    }
    return id;
}

// Written out so that they are ready before any dynamic initialisation.
const GUID IID_IBaseUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const GUID IID_IClassFactory = {0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const GUID IID_IOFClassFactory = {
    0x6966e385, 0xdbfa, 0x4131, {0xa2, 0x9e, 0xd0, 0xe9, 0x46, 0x4f, 0x3f, 0x53}};
const GUID CLSID_ModuleObject = {
    0xe9678781, 0xa3cb, 0x46fb, {0x91, 0x21, 0x3e, 0xd2, 0x2c, 0x24, 0xcf, 0xad}};
const GUID IID_IQZEBundle = {
    0xe50226d4, 0xee3f, 0x4a64, {0xb5, 0x3e, 0x50, 0x11, 0x4f, 0x0c, 0x99, 0xc7}};
const GUID IID_IQZNotificationService = {
    0xB2F1A919, 0xD15D, 0x4C72, {0xA8, 0xC3, 0x21, 0x43, 0xE2, 0x17, 0x61, 0x31}};
const GUID CLSID_QZNotificationService = {
    0x45ED99D7, 0x00C2, 0x4082, {0x98, 0xD8, 0x55, 0x07, 0xD2, 0xAA, 0x3A, 0x0F}};

}  // namespace by
