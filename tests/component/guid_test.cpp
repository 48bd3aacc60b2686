#include "component/guid.h"

#include <gtest/gtest.h>

namespace {

TEST(ParseGuid, Cases) {
    const struct {
        const char* text;
        bool braced;
        by::GUID want;
    } cases[] = {
        {"e50226d4-ee3f-4a64-b53e-50114f0c99c7", false, by::IID_IQZEBundle},
        // Wrong length for the form asked for.
        {"e50226d4-ee3f-4a64-b53e-50114f0c99c7", true, {}},
        {nullptr, true, {}},
        // Not all hexadecimal: the scanner fills the id up to where it stops.
        {"{e50226d4-ee3f-4a64-b53e-50114f0c99cg}",
         true,
         {0xe50226d4, 0xee3f, 0x4a64, {0xb5, 0x3e, 0x50, 0x11, 0x4f, 0x0c, 0x99, 0x0c}}},
        {"{00000000-0000-0000-C000-000000000046}", true, by::IID_IBaseUnknown},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(by::IsEqualId(by::ParseGuid(c.text, c.braced), c.want))
            << (c.text ? c.text : "(null)") << c.braced;
    }
}

}  // namespace
