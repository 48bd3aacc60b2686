#include "component/guid.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

by::GUID Zero() {
    by::GUID g;
    std::memset(&g, 0, sizeof g);
    return g;
}

TEST(ParseGuid, BracedTextInEitherCaseGivesTheSameId) {
    by::GUID lower = by::ParseGuid("{e50226d4-ee3f-4a64-b53e-50114f0c99c7}", true);
    by::GUID upper = by::ParseGuid("{E50226D4-EE3F-4A64-B53E-50114F0C99C7}", true);
    EXPECT_TRUE(by::IsEqualId(lower, upper));
    EXPECT_TRUE(by::IsEqualId(lower, by::IID_IQZEBundle));
    EXPECT_EQ(lower.Data1, 0xe50226d4u);
    EXPECT_EQ(lower.Data2, 0xee3f);
    EXPECT_EQ(lower.Data3, 0x4a64);
    const uint8_t data4[8] = {0xb5, 0x3e, 0x50, 0x11, 0x4f, 0x0c, 0x99, 0xc7};
    EXPECT_EQ(std::memcmp(lower.Data4, data4, 8), 0);
}

TEST(ParseGuid, BareFormNeedsTheFlag) {
    by::GUID bare = by::ParseGuid("e50226d4-ee3f-4a64-b53e-50114f0c99c7", false);
    EXPECT_TRUE(by::IsEqualId(bare, by::IID_IQZEBundle));
    // Right length for the bare form, wrong for the braced one.
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("e50226d4-ee3f-4a64-b53e-50114f0c99c7", true), Zero()));
    // 38 characters without braces: the first pattern character fails at once.
    EXPECT_TRUE(
        by::IsEqualId(by::ParseGuid("xe50226d4-ee3f-4a64-b53e-50114f0c99c7x", true), Zero()));
}

TEST(ParseGuid, WrongLengthOrNullGivesZero) {
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("", true), Zero()));
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid(nullptr, true), Zero()));
    EXPECT_TRUE(
        by::IsEqualId(by::ParseGuid("{e50226d4-ee3f-4a64-b53e-50114f0c99c7}x", true), Zero()));
    EXPECT_TRUE(
        by::IsEqualId(by::ParseGuid("{e50226d4-ee3f-4a64-b53e-50114f0c99c}", true), Zero()));
}

TEST(ParseGuid, TextThatStopsBeingHexKeepsWhatWasRead) {
    by::GUID g = by::ParseGuid("{e50226d4-ee3f-zzzz-b53e-50114f0c99c7}", true);
    EXPECT_EQ(g.Data1, 0xe50226d4u);
    EXPECT_EQ(g.Data2, 0xee3f);
    EXPECT_EQ(g.Data3, 0);
    for (uint8_t b : g.Data4) {
        EXPECT_EQ(b, 0);
    }
}

TEST(ParseGuid, WellKnownIdsMatchTheirTexts) {
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("{00000000-0000-0000-C000-000000000046}", true),
                              by::IID_IBaseUnknown));
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("{00000001-0000-0000-C000-000000000046}", true),
                              by::IID_IClassFactory));
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("{6966e385-dbfa-4131-a29e-d0e9464f3f53}", true),
                              by::IID_IOFClassFactory));
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("{e9678781-a3cb-46fb-9121-3ed22c24cfad}", true),
                              by::CLSID_ModuleObject));
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("{B2F1A919-D15D-4C72-A8C3-2143E2176131}", true),
                              by::IID_IQZNotificationService));
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid("{45ED99D7-00C2-4082-98D8-5507D2AA3A0F}", true),
                              by::CLSID_QZNotificationService));
}

}  // namespace
