#include "component/guid.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

namespace {

const by::GUID kBundle = {
    0xe50226d4, 0xee3f, 0x4a64, {0xb5, 0x3e, 0x50, 0x11, 0x4f, 0x0c, 0x99, 0xc7}};

TEST(ParseGuid, Cases) {
    struct Case {
        const char* text;
        bool braced;
        by::GUID want;
    } cases[] = {
        {"{e50226d4-ee3f-4a64-b53e-50114f0c99c7}", true, kBundle},
        {"{E50226D4-EE3F-4A64-B53E-50114F0C99C7}", true, kBundle},
        {"e50226d4-ee3f-4a64-b53e-50114f0c99c7", false, kBundle},
        // Wrong length for the form asked for.
        {"e50226d4-ee3f-4a64-b53e-50114f0c99c7", true, {}},
        {"{e50226d4-ee3f-4a64-b53e-50114f0c99c7}", false, {}},
        {"{e50226d4-ee3f-4a64-b53e-50114f0c99c7}x", true, {}},
        {nullptr, true, {}},
        // The ids known by heart.
        {"{00000000-0000-0000-C000-000000000046}", true, by::IID_IBaseUnknown},
        {"{00000001-0000-0000-C000-000000000046}", true, by::IID_IClassFactory},
        {"{6966e385-dbfa-4131-a29e-d0e9464f3f53}", true, by::IID_IOFClassFactory},
        {"{e9678781-a3cb-46fb-9121-3ed22c24cfad}", true, by::CLSID_ModuleObject},
        {"{e50226d4-ee3f-4a64-b53e-50114f0c99c7}", true, by::IID_IQZEBundle},
        {"{B2F1A919-D15D-4C72-A8C3-2143E2176131}", true, by::IID_IQZNotificationService},
        {"{45ED99D7-00C2-4082-98D8-5507D2AA3A0F}", true, by::CLSID_QZNotificationService},
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(by::IsEqualId(by::ParseGuid(c.text, c.braced), c.want))
            << (c.text ? c.text : "(null)") << c.braced;
    }
}

// The scan the kit falls back on, as the reference for its fast path too.
by::GUID Scanned(const std::string& text, bool braced) {
    by::GUID id{};
    unsigned int data1 = 0;
    unsigned int g[10] = {0};
    char buffer[128] = {0};
    std::memcpy(buffer, text.data(), text.size());
    (void)std::sscanf(buffer,
                      braced ? "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}"
                             : "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                      &data1, &g[0], &g[1], &g[2], &g[3], &g[4], &g[5], &g[6], &g[7], &g[8], &g[9]);
    id.Data1 = data1;
    id.Data2 = static_cast<uint16_t>(g[0]);
    id.Data3 = static_cast<uint16_t>(g[1]);
    for (int i = 0; i < 8; ++i) {
        id.Data4[i] = static_cast<uint8_t>(g[i + 2]);
    }
    return id;
}

TEST(ParseGuid, AgreesWithTheScanOnUsualAndAlmostUsualTexts) {
    // Usual texts, and some with one character the scanner treats oddly.
    std::mt19937 random(20240611);
    const std::string hex = "0123456789abcdefABCDEF";
    const std::string odd = " +-xXgG0}{\t";
    for (int round = 0; round < 4000; ++round) {
        const bool braced = round % 2 == 0;
        std::string text;
        for (int i = 0; i < 36; ++i) {
            text += (i == 8 || i == 13 || i == 18 || i == 23) ? '-' : hex[random() % hex.size()];
        }
        if (braced) {
            text = "{" + text + "}";
        }
        if (round % 4 >= 2) {
            text[random() % text.size()] = odd[random() % odd.size()];
        }
        if (round % 16 == 3) {
            text.replace(braced ? 1 : 0, 2, "0x");
        }
        SCOPED_TRACE(text);
        ASSERT_TRUE(by::IsEqualId(by::ParseGuid(text.c_str(), braced), Scanned(text, braced)));
    }
}

}  // namespace
