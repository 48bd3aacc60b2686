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

TEST_F(FileUtilTest, ReadsWholeFilesAsBytes) {
    std::string big(3 * 65536 + 123, '\0');
    for (std::size_t i = 0; i < big.size(); ++i) {
        big[i] = static_cast<char>(i * 7 + i / 65536);
    }
    // Nothing is decoded or stripped, a byte order mark included.
    for (const std::string& bytes :
         {std::string("\xEF\xBB\xBF{}\r\n\0tail", 10), big, std::string()}) {
        std::string contents = "old";
        EXPECT_TRUE(base::ReadFileToString(Write("f", bytes), &contents));
        EXPECT_TRUE(contents == bytes) << bytes.size();
    }
    EXPECT_TRUE(base::ReadFileToString(Path("f"), nullptr));
    EXPECT_TRUE(base::PathExists(Path("sub")));
    EXPECT_FALSE(base::PathExists(Path("nothing")));
    // Either separator reaches the same file.
    EXPECT_TRUE(base::PathExists(FilePath(dir_.wstring() + L"\\sub")));
}

TEST_F(FileUtilTest, RefusalsAndReadErrorsClearTheContents) {
    Write("target", "data");
    const FilePath refused[] = {
        Path("missing"),
        Path("sub"),
        // A ".." is refused even when the file is there, trailing blanks or not.
        Path("sub").AppendASCII("..").AppendASCII("target"),
        Path("sub").AppendASCII(".. ").AppendASCII("target"),
    };
    ASSERT_TRUE(base::PathExists(refused[2]));
    for (const FilePath& path : refused) {
        std::string contents = "old";
        EXPECT_FALSE(base::ReadFileToString(path, &contents));
        EXPECT_TRUE(contents.empty());
    }
    testing_seam::InjectFailure(testing_seam::Operation::kReadFile, 1);
    std::string contents = "old";
    EXPECT_FALSE(base::ReadFileToString(Path("target"), &contents));
    EXPECT_TRUE(contents.empty());
    // The failure was used up.
    EXPECT_TRUE(base::ReadFileToString(Path("target"), &contents) && contents == "data");
}

}  // namespace
