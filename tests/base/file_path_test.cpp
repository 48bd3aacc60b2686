#include "base/files/file_path.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using base::FilePath;

TEST(FilePathTest, AppendJoinsWithOneBackslash) {
    const struct {
        std::wstring base, component, joined;
    } cases[] = {
        // Any run of either separator at the end is replaced by one.
        {L"a/\\//", L"b", L"a\\b"},
        {L"", L"manifest.json", L"manifest.json"},
        {L"a\\", L"", L"a"},
        // The component is taken as it stands.
        {L"a", L"/b/../c/", L"a\\/b/../c/"},
        // Roots and drives keep their separators.
        {L"C:", L"manifest.json", L"C:manifest.json"},
        {L"C:/\\", L"a", L"C:/a"},
        {L"/", L"a", L"/a"},
        {L"///", L"server", L"//server"},
        // "1:" is no drive, so its separator may go.
        {L"1:/", L"a", L"1:\\a"},
        {L".", L"a", L"a"},
        {L"./", L"a", L".\\a"},
        // Text after a NUL is not part of the component.
        {L"a", std::wstring(L"b\0c", 3), L"a\\b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FilePath(c.base).Append(c.component).value(), c.joined);
    }
    const FilePath root(L"root/");
    EXPECT_EQ(root.Append(FilePath(L"x")), root.AppendASCII("x"));
    EXPECT_EQ(root.value(), L"root/");
}

TEST(FilePathTest, ConstructionCutsAtNul) {
    const std::wstring withNul(L"b\0c", 3);
    EXPECT_EQ(FilePath(withNul).value() + FilePath(withNul.data(), withNul.size()).value() +
                  FilePath(L"abc", 2).value() + FilePath(nullptr, 4).value(),
              L"bbab");
}

TEST(FilePathTest, ReferencesParentFindsDotDotComponents) {
    for (const wchar_t* path : {L"..", L"a\\..\\b", L"a/../b", L"a\\.. \\b", L"a/...", L"a/. ..\t",
                                L"x/..\r\n", L"../"}) {
        EXPECT_TRUE(FilePath(path).ReferencesParent()) << path;
    }
    for (const wchar_t* path : {L"", L".", L"a..b", L"a/..b", L"a/b..", L"./a", L"a/. /b"}) {
        EXPECT_FALSE(FilePath(path).ReferencesParent()) << path;
    }
}

}  // namespace
