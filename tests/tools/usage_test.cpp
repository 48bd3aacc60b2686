#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

// Every command's usage error (2), a failure (1) and a success (0),
// each by the first line it prints: on stdout when it succeeds, else on stderr.
TEST(QzekitTool, ExitStatusesAndFirstLines) {
    TempDir dir;
    const std::string d = dir.path().u8string();
    WriteBytes(dir.path() / "lib.bin", "abc");
    WriteBytes(dir.path() / "short.key", "0123");
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string line;
    } rows[] = {
        // MD5("abc"), the kit's lower-case text.
        {{"hash", d + "/lib.bin"}, 0, "900150983cd24fb0d6963f7d28e17f72"},
        {{"hash", d + "/none.bin"}, 1, "qzekit hash: cannot read the library " + d + "/none.bin"},
        {{}, 2, "qzekit: A subcommand is required"},
        {{"sign"}, 2, "qzekit: LIB is required"},
        {{"verify"}, 2, "qzekit: BUNDLE_DIR is required"},
        {{"config", "encrypt", "in", "out"}, 2, "qzekit: --key-file is required"},
        {{"lint", "--key-file", d + "/short.key", d},
         2,
         "qzekit lint: the key in " + d +
             "/short.key is 4 bytes long (one line end after it not counted); a key is exactly 32 "
             "bytes"},
        {{"inspect"}, 2, "qzekit: HOST_DIR is required"},
        {{"inspect", d + "/none"}, 1, "qzekit inspect: no such folder: " + d + "/none"},
    };
    for (const auto& row : rows) {
        ToolRun run = RunTool(row.arguments);
        const std::string& printed = row.status == 0 ? run.out : run.err;
        EXPECT_EQ(std::to_string(run.status) + printed.substr(0, printed.find('\n')) + "|" +
                      (row.status == 0 ? run.err : run.out),
                  std::to_string(row.status) + row.line + "|")
            << ::testing::PrintToString(row.arguments);
    }
}

}  // namespace
}  // namespace qzetest
