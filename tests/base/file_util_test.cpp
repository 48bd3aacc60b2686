#include "base/files/file_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;
namespace testing_seam = qzextensionkit::platform::testing;
using base::FilePath;

class FileUtilTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("qzekit_file_util_" + std::to_string(std::random_device{}()));
        fs::create_directories(dir_ / "sub");
    }
    void TearDown() override {
        testing_seam::ClearFailures();
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    FilePath Write(const std::string& name, const std::string& bytes) {
        std::ofstream(dir_ / name, std::ios::binary) << bytes;
        return Path(name);
    }
    FilePath Path(const std::string& name) const {
        return FilePath(dir_.wstring()).AppendASCII(name);
    }

    fs::path dir_;
};

TEST_F(FileUtilTest, ReadsBytesUnchanged) {
    const std::string bytes("\xEF\xBB\xBF{\"a\":1}\r\n\0tail", 16);
    FilePath path = Write("bom.json", bytes);
    std::string contents = "old";
    ASSERT_TRUE(base::ReadFileToString(path, &contents));
    EXPECT_EQ(contents, bytes);
    // Without a buffer the answer only says whether the file reads.
    EXPECT_TRUE(base::ReadFileToString(path, nullptr));
}

TEST_F(FileUtilTest, ReadsAcrossManyBlocks) {
    std::string bytes(3 * 65536 + 123, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 65536);
    }
    std::string contents;
    ASSERT_TRUE(base::ReadFileToString(Write("big.bin", bytes), &contents));
    EXPECT_EQ(contents.size(), bytes.size());
    EXPECT_TRUE(contents == bytes);
}

TEST_F(FileUtilTest, EmptyFileReadsAsEmpty) {
    std::string contents = "old";
    EXPECT_TRUE(base::ReadFileToString(Write("empty", ""), &contents));
    EXPECT_TRUE(contents.empty());
}

TEST_F(FileUtilTest, MissingFileOrDirectoryFailsAndClears) {
    std::string contents = "old";
    EXPECT_FALSE(base::ReadFileToString(Path("missing"), &contents));
    EXPECT_TRUE(contents.empty());
    EXPECT_FALSE(base::ReadFileToString(Path("sub"), &contents));
}

TEST_F(FileUtilTest, ParentReferenceIsRefusedEvenWhenFileExists) {
    Write("target", "data");
    FilePath viaParent = Path("sub").AppendASCII("..").AppendASCII("target");
    ASSERT_TRUE(base::PathExists(viaParent));
    std::string contents = "old";
    EXPECT_FALSE(base::ReadFileToString(viaParent, &contents));
    EXPECT_TRUE(contents.empty());
    // Trailing blanks do not hide the "..".
    EXPECT_FALSE(
        base::ReadFileToString(Path("sub").AppendASCII(".. ").AppendASCII("target"), &contents));
}

TEST_F(FileUtilTest, ReadErrorReportsFailure) {
    FilePath path = Write("data", "abc");
    testing_seam::InjectFailure(qzextensionkit::platform::testing::Operation::kReadFile, 1);
    std::string contents = "old";
    EXPECT_FALSE(base::ReadFileToString(path, &contents));
    EXPECT_TRUE(contents.empty());
    // The failure was used up; the file still reads.
    EXPECT_TRUE(base::ReadFileToString(path, &contents));
    EXPECT_EQ(contents, "abc");
}

TEST_F(FileUtilTest, PathExistsForFilesAndDirectories) {
    EXPECT_TRUE(base::PathExists(Write("f", "x")));
    EXPECT_TRUE(base::PathExists(Path("sub")));
    EXPECT_FALSE(base::PathExists(Path("nothing")));
    // Either separator reaches the same file.
    EXPECT_TRUE(base::PathExists(FilePath(dir_.wstring() + L"\\sub")));
}

}  // namespace
