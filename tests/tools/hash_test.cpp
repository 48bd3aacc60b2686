#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

TEST(QzekitTool, HashAndUsage) {
    auto dir = std::filesystem::temp_directory_path() / "qzekit_hash_test";
    std::filesystem::create_directories(dir);
    auto library = dir / "lib.bin";
    std::ofstream(library, std::ios::binary) << "abc";

    // MD5("abc"), the kit's lower-case text.
    ToolRun hashed = RunTool({"hash", library.u8string()});
    EXPECT_EQ(hashed.status, 0) << hashed.err;
    EXPECT_EQ(hashed.out, "900150983cd24fb0d6963f7d28e17f72\n");

    ToolRun missing = RunTool({"hash", (dir / "none.bin").u8string()});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("cannot read the library"), std::string::npos) << missing.err;

    struct Usage {
        std::vector<std::string> arguments;
        int status;
    } usages[] = {
        {{}, 2},         {{"hash"}, 2},           {{"no-such-command"}, 2}, {{"hash", "a", "b"}, 2},
        {{"--help"}, 0}, {{"hash", "--help"}, 0},
    };
    for (const Usage& usage : usages) {
        ToolRun run = RunTool(usage.arguments);
        EXPECT_EQ(run.status, usage.status) << ::testing::PrintToString(usage.arguments);
    }
    // A command's help shows its example.
    EXPECT_NE(RunTool({"hash", "--help"}).out.find("Example:"), std::string::npos);
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace qzetest
