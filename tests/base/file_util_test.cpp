#include "base/files/file_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;
namespace seam = qzextensionkit::platform::testing;
using base::FilePath;

TEST(FileUtilTest, ReadsWholeFilesAsBytesAndRefusesTheRest) {
    const fs::path dir =
        fs::temp_directory_path() / ("qzekit_file_util_" + std::to_string(std::random_device{}()));
    fs::create_directories(dir / "sub");
    const FilePath root(dir.wstring());
    std::string big(3 * 65536 + 123, '\0');
    for (std::size_t i = 0; i < big.size(); ++i) {
        big[i] = static_cast<char>(i * 7 + i / 65536);
    }
    const std::string bom("\xEF\xBB\xBF{}\r\n\0tail", 10);
    // Nothing is decoded or stripped; a ".." is refused even when the file
    // is there, trailing blanks or not. Either separator reaches the file.
    const struct {
        const char* name;
        std::string bytes;  // written unless `name` is null
        FilePath path;
        bool reads;
    } cases[] = {
        {"bom", bom, root.AppendASCII("bom"), true},
        {"big", big, root.AppendASCII("big"), true},
        {"empty", "", root.AppendASCII("empty"), true},
        {"t", "data", FilePath(dir.wstring() + L"\\t"), true},
        {nullptr, "", root.AppendASCII("missing"), false},
        {nullptr, "", root.AppendASCII("sub"), false},
        {nullptr, "", root.AppendASCII("sub").AppendASCII("..").AppendASCII("t"), false},
        {nullptr, "", root.AppendASCII("sub").AppendASCII(".. ").AppendASCII("t"), false},
    };
    for (const auto& c : cases) {
        if (c.name) {
            std::ofstream(dir / c.name, std::ios::binary) << c.bytes;
        }
    }
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name ? c.name : "refused");
        std::string contents = "old";
        EXPECT_EQ(base::ReadFileToString(c.path, &contents), c.reads);
        EXPECT_TRUE(contents == c.bytes) << contents.size();  // cleared when refused
    }
    EXPECT_TRUE(base::ReadFileToString(root.AppendASCII("t"), nullptr));
    EXPECT_TRUE(base::PathExists(FilePath(dir.wstring() + L"\\sub")));
    EXPECT_FALSE(base::PathExists(root.AppendASCII("missing")));
    ASSERT_TRUE(base::PathExists(cases[6].path));

    seam::InjectFailure(seam::Operation::kReadFile, 1);
    std::string contents = "old";
    EXPECT_FALSE(base::ReadFileToString(root.AppendASCII("t"), &contents) || !contents.empty());
    // The failure was used up.
    EXPECT_TRUE(base::ReadFileToString(root.AppendASCII("t"), &contents) && contents == "data");
    seam::ClearFailures();
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

}  // namespace
