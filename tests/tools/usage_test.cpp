#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bundle/support/bundle_dirs.h"
#include "bundle/support/verify_pki.h"
#include "tools/support/run_tool.h"

namespace qzetest {
namespace {

// `printed` is part of stdout, or of stderr when the run fails.
// Every command: its usage errors (2), its failures (1) and its help (0).
TEST(QzekitTool, ExitStatusesAndWhatEachPrints) {
    TempDir dir;
    const std::string d = dir.path().u8string();
    WriteBytes(dir.path() / "lib.bin", "abc");
    WriteBytes(dir.path() / "short.key", "0123");
    for (const char* bundle : {"empty", "noentry", "nofile"}) {
        std::filesystem::create_directories(dir.path() / bundle);
    }
    WriteBytes(dir.path() / "noentry" / "manifest.json", "{\"id\": \"x\"}");
    WriteBytes(dir.path() / "nofile" / "manifest.json", "{\"mainEntry\": \"bin/none.so\"}");
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string printed;
    } rows[] = {
        // MD5("abc"), the kit's lower-case text.
        {{"hash", d + "/lib.bin"}, 0, "900150983cd24fb0d6963f7d28e17f72\n"},
        {{"hash", d + "/none.bin"}, 1, "cannot read the library"},
        {{}, 2, ""},
        {{"no-such-command"}, 2, ""},
        {{"hash", "a", "b"}, 2, ""},
        {{"sign"}, 2, ""},
        {{"sign", d + "/none.so"}, 1, "qzekit sign: cannot read the library"},
        {{"sign", d + "/lib.bin", "--key", d + "/lib.bin"},
         2,
         "is not a Windows (PE) library, so it is signed here"},
        {{"verify", d + "/empty"}, 1, "manifest.json (missing, unreadable or not JSON)"},
        {{"verify", d + "/noentry"},
         1,
         "qzekit verify: the manifest of " + d + "/noentry names no library (\"mainEntry\")"},
        {{"verify", d + "/nofile"}, 1, "bin/none.so that \"mainEntry\" names does not exist"},
        {{"config", "encrypt", "in", "out"}, 2, ""},
        {{"lint", "--foundation", "1.+2", d}, 2, "qzekit lint: --foundation: \"1.+2\" is not a"},
        {{"lint", "--key-file", d + "/short.key", d}, 2, "qzekit lint: "},
        {{"lint", d + "/none"}, 2, "qzekit lint: no folder"},
        {{"inspect"}, 2, "HOST_DIR"},
        {{"inspect", d + "/none"}, 1, "qzekit inspect: no such folder"},
        {{"inspect", "--key-file", d + "/short.key", d}, 2, "qzekit inspect: the key in "},
        {{"--help"}, 0, "Run 'qzekit COMMAND --help'"},
        {{"hash", "--help"}, 0, "Example:\n  qzekit hash"},
        {{"config", "decrypt", "--help"}, 0, "Example:\n  qzekit config"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.arguments));
        ToolRun run = RunTool(row.arguments);
        EXPECT_EQ(run.status, row.status) << run.err;
        EXPECT_NE((row.status == 0 ? run.out : run.err).find(row.printed), std::string::npos);
        EXPECT_EQ(run.out.empty(), row.status != 0) << run.out;
    }
}

}  // namespace
}  // namespace qzetest
