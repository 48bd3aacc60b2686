#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "base/base64.h"
#include "base/guid.h"
#include "base/string_util.h"
#include "base/utf_string_conversions.h"
#include "platform/platform.h"

namespace {

using base::UTF8ToWide;
using base::WideToUTF8;

constexpr wchar_t kFFFD = 0xFFFD;

TEST(UTFConversionTest, WellFormedTextRoundTrips) {
    EXPECT_EQ(UTF8ToWide("plain"), L"plain");
    const std::string mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a é € 😀 z
    const std::wstring wide = UTF8ToWide(mixed);
    if (sizeof(wchar_t) == 4) {
        EXPECT_EQ(wide, std::wstring({L'a', 0xE9, 0x20AC, static_cast<wchar_t>(0x1F600), L'z'}));
    } else {
        EXPECT_EQ(wide, std::wstring({L'a', 0xE9, 0x20AC, 0xD83D, 0xDE00, L'z'}));
    }
    EXPECT_EQ(WideToUTF8(wide), mixed);
    EXPECT_EQ(UTF8ToWide(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(UTFConversionTest, EachMalformedSequenceGivesOneReplacement) {
    const std::pair<std::string, std::wstring> cases[] = {
        {"\xC3", {kFFFD}},
        {"\xE2\x82"
         "A",
         {kFFFD, L'A'}},                                     // cut short, then ASCII
        {"\x80\xBF", {kFFFD, kFFFD}},                        // stray continuation bytes
        {"\xC0\xAF", {kFFFD, kFFFD}},                        // overlong "/"
        {"\xED\xA0\x80", {kFFFD, kFFFD, kFFFD}},             // encoded surrogate
        {"\xF4\x90\x80\x80", {kFFFD, kFFFD, kFFFD, kFFFD}},  // above U+10FFFF
    };
    for (const auto& c : cases) {
        EXPECT_EQ(UTF8ToWide(c.first), c.second) << c.first;
    }
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(WideToUTF8(std::wstring({L'a', 0xD800, L'b'})), "a" + replacement + "b");
    EXPECT_EQ(WideToUTF8(std::wstring(1, static_cast<wchar_t>(0xDC00))), replacement);
}

TEST(Base64DecodeTest, DecodesOnlyWellFormedTextAndLeavesOutputAloneOtherwise) {
    const std::pair<const char*, std::string> good[] = {
        {"QQ==", "A"}, {"QUI=", "AB"}, {"QUJD", "ABC"}, {"+/8A", std::string("\xFB\xFF\x00", 3)},
        {"", ""},
    };
    for (const auto& c : good) {
        std::string out = "old";
        EXPECT_TRUE(base::Base64Decode(c.first, &out) && out == c.second) << c.first;
    }
    for (const char* bad : {"Q", "QQ=", "QUJDR", "Q===", "QQ=A", "Q=Q=", "QU I", "QUJD\r\n", "QU-_",
                            "QUJD====", "QUJ\x80"}) {
        std::string out = "old";
        EXPECT_FALSE(base::Base64Decode(bad, &out)) << bad;
        EXPECT_EQ(out, "old") << bad;
    }
}

TEST(StartsWithTest, ComparesByMode) {
    using base::CompareCase;
    using base::StartsWith;
    EXPECT_TRUE(StartsWith("Bundle.json", "Bundle", CompareCase::SENSITIVE));
    EXPECT_FALSE(StartsWith("Bundle.json", "bundle", CompareCase::SENSITIVE));
    EXPECT_TRUE(StartsWith("Bundle.json", "bUNDLE", CompareCase::INSENSITIVE_ASCII));
    EXPECT_FALSE(StartsWith("ab", "abc", CompareCase::INSENSITIVE_ASCII));
    // Only A-Z fold: "[" and "{" differ by the same bit as a case pair.
    EXPECT_FALSE(StartsWith("[", "{", CompareCase::INSENSITIVE_ASCII));
    EXPECT_FALSE(StartsWith("\xC3\x89", "\xC3\xA9", CompareCase::INSENSITIVE_ASCII));
    // The mode as a plain number.
    EXPECT_TRUE(StartsWith("Abc", "a", 1));
    EXPECT_FALSE(StartsWith("Abc", "a", 0));
    EXPECT_FALSE(StartsWith("abc", "a", 7));
    EXPECT_TRUE(StartsWith(std::wstring(L"C:\\Path"), std::wstring(L"c:\\p"),
                           CompareCase::INSENSITIVE_ASCII));
    EXPECT_FALSE(StartsWith(std::wstring(L"\u00C9"), std::wstring(L"\u00E9"),
                            CompareCase::INSENSITIVE_ASCII));
}

TEST(GenerateGUIDTest, GivesUnbracedIds) {
    const std::string id = base::GenerateGUID();
    ASSERT_EQ(id.size(), 36u) << id;
    for (std::size_t i = 0; i < id.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            EXPECT_EQ(id[i], '-') << id;
        } else {
            EXPECT_TRUE(std::isxdigit(static_cast<unsigned char>(id[i]))) << id;
        }
    }
}

TEST(GenerateGUIDTest, PlatformFailureGivesEmptyText) {
    namespace seam = qzextensionkit::platform::testing;
    seam::InjectFailure(seam::Operation::kCreateGuid, 1);
    EXPECT_EQ(base::GenerateGUID(), "");
    seam::ClearFailures();
    EXPECT_EQ(base::GenerateGUID().size(), 36u);
}

}  // namespace
