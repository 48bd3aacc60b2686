#include <gtest/gtest.h>

#include <string>

#include "base/base64.h"
#include "base/string_util.h"
#include "base/utf_string_conversions.h"

namespace {

using base::UTF8ToWide;
using base::WideToUTF8;

constexpr wchar_t kFFFD = 0xFFFD;

TEST(UTFConversionTest, WellFormedTextRoundTripsAndMalformedIsReplaced) {
    const std::string mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a é € 😀 z
    const std::wstring wide = UTF8ToWide(mixed);
    if (sizeof(wchar_t) == 4) {
        EXPECT_EQ(wide, std::wstring({L'a', 0xE9, 0x20AC, static_cast<wchar_t>(0x1F600), L'z'}));
    } else {
        EXPECT_EQ(wide, std::wstring({L'a', 0xE9, 0x20AC, 0xD83D, 0xDE00, L'z'}));
    }
    EXPECT_EQ(WideToUTF8(wide), mixed);
    EXPECT_EQ(UTF8ToWide(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
    // Each malformed sequence gives one replacement.
    const std::pair<std::string, std::wstring> cases[] = {
        {"\xC3", {kFFFD}},
        {"\xE2\x82\x41", {kFFFD, L'A'}},                     // cut short, then ASCII
        {"\x80\xBF", {kFFFD, kFFFD}},                        // stray continuation bytes
        {"\xC0\xAF", {kFFFD, kFFFD}},                        // overlong "/"
        {"\xED\xA0\x80", {kFFFD, kFFFD, kFFFD}},             // encoded surrogate
        {"\xF4\x90\x80\x80", {kFFFD, kFFFD, kFFFD, kFFFD}},  // above U+10FFFF
    };
    for (const auto& c : cases) {
        EXPECT_EQ(UTF8ToWide(c.first), c.second) << c.first;
    }
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(WideToUTF8(std::wstring({L'a', 0xD800, L'b', static_cast<wchar_t>(0xDC00)})),
              "a" + replacement + "b" + replacement);
}

TEST(Base64DecodeTest, DecodesOnlyWellFormedTextAndLeavesOutputAloneOtherwise) {
    const std::pair<const char*, std::string> good[] = {
        {"QQ==", "A"}, {"QUI=", "AB"}, {"+/8A", std::string("\xFB\xFF\x00", 3)}, {"", ""}};
    for (const auto& [text, decoded] : good) {
        std::string out = "old";
        EXPECT_TRUE(base::Base64Decode(text, &out) && out == decoded) << text;
    }
    for (const char* bad : {"Q", "QQ=", "QUJDR", "Q===", "QQ=A", "Q=Q=", "QU I", "QUJD\r\n", "QU-_",
                            "QUJD====", "QUJ\x80"}) {
        std::string out = "old";
        EXPECT_TRUE(!base::Base64Decode(bad, &out) && out == "old") << bad;
    }
}

TEST(StartsWithTest, ComparesByMode) {
    const struct {
        const char *text, *prefix;
        int mode;  // 0: SENSITIVE, 1: INSENSITIVE_ASCII
        bool starts;
    } cases[] = {
        {"Bundle.json", "Bundle", 0, true},
        {"Bundle.json", "bundle", 0, false},
        {"ab", "abc", 1, false},
        // Only A-Z fold: "[" and "{" differ by the same bit as a case pair.
        {"[", "{", 1, false},
        {"Abc", "a", 1, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(base::StartsWith(c.text, c.prefix, c.mode), c.starts) << c.text << c.prefix;
    }
}

}  // namespace
