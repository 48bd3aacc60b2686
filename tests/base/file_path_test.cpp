#include "base/files/file_path.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using base::FilePath;

const std::wstring kSep(1, FilePath::kSeparator);

std::wstring Joined(const std::wstring& base, const std::wstring& component) {
    return FilePath(base).Append(component).value();
}

TEST(FilePathTest, AppendPutsOneSystemSeparatorBetweenParts) {
    EXPECT_EQ(Joined(L"a", L"b"), L"a" + kSep + L"b");
    EXPECT_EQ(Joined(L"C:\\x\\", L"manifest.json"), L"C:\\x" + kSep + L"manifest.json");
    // Any run of either separator at the end is replaced by one.
    EXPECT_EQ(Joined(L"a/\\//", L"b"), L"a" + kSep + L"b");
    EXPECT_EQ(Joined(L"", L"manifest.json"), L"manifest.json");
    EXPECT_EQ(Joined(L"a\\", L""), L"a");
    EXPECT_EQ(Joined(L"a", L""), L"a");
    // The component is taken as it stands.
    EXPECT_EQ(Joined(L"a", L"/b/../c/"), L"a" + kSep + L"/b/../c/");
}

TEST(FilePathTest, AppendKeepsRootsAndDrives) {
    EXPECT_EQ(Joined(L"C:", L"manifest.json"), L"C:manifest.json");
    EXPECT_EQ(Joined(L"C:\\", L"a"), L"C:\\a");
    EXPECT_EQ(Joined(L"C:/\\", L"a"), L"C:/a");
    EXPECT_EQ(Joined(L"/", L"a"), L"/a");
    EXPECT_EQ(Joined(L"\\\\", L"server"), L"\\\\server");
    EXPECT_EQ(Joined(L"///", L"server"), L"//server");
    EXPECT_EQ(Joined(L"\\\\", L""), L"\\\\");
    // "1:" is not a drive, so its separator may go.
    EXPECT_EQ(Joined(L"1:\\", L"a"), L"1:" + kSep + L"a");
}

TEST(FilePathTest, AppendToCurrentDirectoryGivesComponentAlone) {
    EXPECT_EQ(Joined(L".", L"a"), L"a");
    EXPECT_EQ(Joined(L"./", L"a"), L"." + kSep + L"a");
}

TEST(FilePathTest, TextIsCutAtFirstNul) {
    const std::wstring withNul(L"b\0c", 3);
    EXPECT_EQ(Joined(L"a", withNul), L"a" + kSep + L"b");
    EXPECT_EQ(FilePath(withNul).value(), L"b");
    EXPECT_EQ(FilePath(withNul.data(), withNul.size()).value(), L"b");
    EXPECT_EQ(FilePath(L"abc", 2).value(), L"ab");
    EXPECT_TRUE(FilePath(nullptr, 4).empty());
}

TEST(FilePathTest, AppendLeavesReceiverAndTakesPaths) {
    const FilePath root(L"root/");
    FilePath joined = root.Append(FilePath(L"x"));
    EXPECT_EQ(root.value(), L"root/");
    EXPECT_EQ(joined.value(), L"root" + kSep + L"x");
    EXPECT_EQ(joined, root.AppendASCII("x"));
    EXPECT_NE(joined, root);
}

TEST(FilePathTest, AppendAsciiWidensEachByte) {
    const std::wstring got = FilePath().AppendASCII("a\xE9\xFF").value();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[1], static_cast<wchar_t>(0xE9));
    EXPECT_EQ(got[2], static_cast<wchar_t>(0xFF));
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
