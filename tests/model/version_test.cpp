#include "base/version.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using base::Version;
using Numbers = std::vector<uint32_t>;

TEST(VersionTest, ParseAndCompare) {
    // Only the first number must be written without leading zeros.
    EXPECT_EQ(Version::Parse("1.02.3"), (Numbers{1, 2, 3}));
    EXPECT_EQ(Version::Parse("0"), (Numbers{0}));
    EXPECT_EQ(Version("4294967295.4294967295").components(), (Numbers{4294967295u, 4294967295u}));
    // One text per way to fail.
    for (const std::string& text : std::vector<std::string>{
             "01.2.3", "1.4294967296", "1.2a", "1..2", "", "+1", std::string("1\0.2", 4)}) {
        EXPECT_EQ(Version::Parse(text), Numbers()) << '"' << text << '"';
        EXPECT_FALSE(Version(text).IsValid()) << '"' << text << '"';
    }
    // Number by number, trailing zeros ignored; an invalid text is 0.
    const struct {
        const char* a;
        const char* b;
        int expected;
    } cases[] = {
        {"1.2.3", "1.2.3", 0}, {"1.2", "1.2.0.0", 0},
        {"bad", "0.0", 0},     {"1.9", "1.10", -1},
        {"1.99.99", "2", -1},  {"1", "1.0.0.1", -1},
        {"", "0.0.1", -1},     {"4294967294", "4294967295", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.a) + " <=> " + c.b);
        EXPECT_EQ(Version(c.a).CompareTo(Version(c.b)), c.expected);
        EXPECT_EQ(Version::Compare(Version::Parse(c.b), Version::Parse(c.a)), -c.expected);
    }
}

}  // namespace
