#include "base/version.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/manifest.h"

namespace {

using base::Version;
using Numbers = std::vector<uint32_t>;

TEST(VersionTest, ParsesTextIntoNumbers) {
    const struct {
        std::string text;
        Numbers numbers;
    } cases[] = {
        {"1.2.3", {1, 2, 3}},
        {"3", {3}},
        {"0", {0}},
        {"0.0.1", {0, 0, 1}},
        // Only the first number must be written without leading zeros.
        {"1.02.3", {1, 2, 3}},
        {"1.00", {1, 0}},
        {"4294967295.4294967295", {4294967295u, 4294967295u}},
        {"01.2.3", {}},
        {"00", {}},
        {"4294967296", {}},
        {"1.4294967296", {}},
        {"1.99999999999999999999", {}},
        {"1.+2", {}},
        {"+1.2", {}},
        {"-1", {}},
        {"1.-0", {}},
        {"1..2", {}},
        {"1.2.", {}},
        {".1", {}},
        {".", {}},
        {"", {}},
        {"1.2 ", {}},
        {" 1.2", {}},
        {"1. 2", {}},
        {"1.2a", {}},
        {"1,2", {}},
        {"0x10", {}},
        {std::string("1\0.2", 4), {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("\"" + c.text + "\"");
        EXPECT_EQ(Version::Parse(c.text), c.numbers);
        Version version(c.text);
        EXPECT_EQ(version.IsValid(), !c.numbers.empty());
        EXPECT_EQ(version.components(), c.numbers);
        if (version.IsValid()) {
            // What GetString writes reads back as the same numbers.
            EXPECT_EQ(Version(version.GetString()).components(), c.numbers);
        } else {
            EXPECT_EQ(version.GetString(), "");
        }
    }
}

TEST(VersionTest, ComparesNumberByNumberWithTrailingZerosIgnored) {
    const struct {
        const char* a;
        const char* b;
        int expected;
    } cases[] = {
        {"1.2.3", "1.2.3", 0},
        {"1.2", "1.2.0", 0},
        {"1.2", "1.2.0.0.0", 0},
        {"", "0", 0},
        {"", "0.0", 0},
        {"", "", 0},
        {"not a version", "0.0.0", 0},
        {"1.2", "1.2.1", -1},
        {"1.2", "1.3", -1},
        {"1.9", "1.10", -1},
        {"1.99.99", "2", -1},
        {"1", "1.0.0.1", -1},
        {"", "0.0.1", -1},
        {"4294967294", "4294967295", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.a) + " <=> " + c.b);
        Version a(c.a), b(c.b);
        EXPECT_EQ(a.CompareTo(b), c.expected);
        EXPECT_EQ(b.CompareTo(a), -c.expected);
        EXPECT_EQ(Version::Compare(a.components(), b.components()), c.expected);
        EXPECT_EQ(a == b, c.expected == 0);
        EXPECT_EQ(a < b, c.expected < 0);
        EXPECT_EQ(a <= b, c.expected <= 0);
        EXPECT_EQ(a > b, c.expected > 0);
    }
}

TEST(VersionTest, FoundationCheckTakesBundlesUpToTheFoundationVersion) {
    const struct {
        const char* required;
        const char* foundation;
        bool fits;
    } cases[] = {
        {"1.2", "1.2.0", true},
        {"1.2", "1.3", true},
        {"1.2.0", "1.2", true},
        {"3.2.0", "3.2.0", true},
        {"1.2.1", "1.2", false},
        {"10.0", "9.9", false},
        // An empty or invalid requirement fits every foundation.
        {"", "3.2.0", true},
        {"01.5", "0.1", true},
        {"1..2", "1.0", true},
        // A foundation version never set (or invalid) takes only bundles
        // whose requirement is empty or all zeros.
        {"", "", true},
        {"0.0", "", true},
        {"0.0.1", "", false},
        {"1", "bad", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.required) + " on " + c.foundation);
        EXPECT_EQ(qzextensionkit::FoundationVersionFits(Version::Parse(c.required),
                                                        Version::Parse(c.foundation)),
                  c.fits);
    }
}

}  // namespace
