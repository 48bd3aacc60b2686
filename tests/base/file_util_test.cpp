#include "base/files/file_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace {

namespace fs = std::filesystem;
using base::FilePath;

TEST(FileUtilTest, ReadsWholeFilesAsBytesAndRefusesTheRest) {
    const fs::path dir =
        fs::temp_directory_path() / ("qzekit_file_util_" + std::to_string(std::random_device{}()));
    fs::create_directories(dir / "sub");
    const FilePath root(dir.wstring());
    // A BOM, CR LF and NUL stay, over several read chunks.
    std::string big("\xEF\xBB\xBF{}\r\n\0tail", 10);
    for (std::size_t i = 0; i < 3 * 65536 + 123; ++i) {
        big += static_cast<char>(i * 7 + i / 65536);
    }
    // A ".." is refused even when the file is there. Either separator reaches the file.
    const struct {
        const char* name;
        std::string bytes;  // written unless `name` is null
        FilePath path;
        bool reads;
    } cases[] = {
        {"big", big, root.AppendASCII("big"), true},
        {"empty", "", root.AppendASCII("empty"), true},
        {"t", "data", FilePath(dir.wstring() + L"\\t"), true},
        {nullptr, "", root.AppendASCII("missing"), false},
        {nullptr, "", root.AppendASCII("sub"), false},
        {nullptr, "", root.AppendASCII("sub").AppendASCII("..").AppendASCII("t"), false},
    };
    for (const auto& c : cases) {
        if (c.name) {
            std::ofstream(dir / c.name, std::ios::binary) << c.bytes;
        }
    }
    for (const auto& c : cases) {
        std::string contents = "old";  // cleared when refused
        EXPECT_TRUE(base::ReadFileToString(c.path, &contents) == c.reads && contents == c.bytes)
            << (c.name ? c.name : "refused");
    }
    EXPECT_TRUE(base::ReadFileToString(root.AppendASCII("t"), nullptr) &&
                base::PathExists(FilePath(dir.wstring() + L"\\sub")) &&
                !base::PathExists(root.AppendASCII("missing")) && base::PathExists(cases[5].path));
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

}  // namespace
