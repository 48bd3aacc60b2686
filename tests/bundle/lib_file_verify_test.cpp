#include "bundle/lib_file_verify.h"

#include <gtest/gtest.h>

#if !defined(_WIN32)

#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "base/utf_string_conversions.h"
#include "bundle/support/verify_pki.h"
#include "common/capture_logger.h"
#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;
using qzextensionkit::QZEExtensionLibFileVerify;
namespace platform = qzextensionkit::platform;

const char kSuccess[] = "[QZExtensionKit] [SignVerify] Verify lib file md5 success.";
const char kHashFailed[] =
    "[QZExtensionKit] [SignVerify] Verify lib file md5 failed, because of generate lib file md5 "
    "failed.";

std::string Upper(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'f') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return text;
}

struct FileCase {
    const char* name;
    // Writes the file (or not) and returns its path below `dir`.
    std::function<fs::path(const fs::path& dir)> make;
    // The manifest's text, from the digest of the bytes on disk.
    std::function<std::string(const std::string& actual)> manifest;
    bool expected;
    std::vector<std::string> lines;
    bool failNextRead = false;
};

fs::path Write(const fs::path& path, const std::string& bytes) {
    qzetest::WriteBytes(path, bytes);
    return path;
}

fs::path CopyOfTestLibrary(const fs::path& dir) {
    fs::path path = dir / "plugin.so";
    fs::copy_file(std::string(QZEKIT_TEST_BIN_DIR) + "/test_plugins/qzekit_plugin_complete.so",
                  path);
    return path;
}

std::string Same(const std::string& actual) {
    return actual;
}

TEST(LibFileVerifyTest, DigestMatrix) {
    const std::string kEmptyMd5 = "d41d8cd98f00b204e9800998ecf8427e";
    const std::vector<FileCase> cases = {
        {"real library", CopyOfTestLibrary, Same, true, {kSuccess}},
        // 1,024-byte reads: one byte past a block, and a block exactly.
        {"1025 bytes",
         [](const fs::path& d) { return Write(d / "a", std::string(1025, 'x')); },
         Same,
         true,
         {kSuccess}},
        {"1024 bytes",
         [](const fs::path& d) { return Write(d / "a", std::string(1024, '\0')); },
         Same,
         true,
         {kSuccess}},
        {"empty file",
         [](const fs::path& d) { return Write(d / "empty", ""); },
         [&](const std::string&) { return kEmptyMd5; },
         true,
         {kSuccess}},
        {"other digest",
         CopyOfTestLibrary,
         [&](const std::string&) { return kEmptyMd5; },
         false,
         {}},
        {"upper case", CopyOfTestLibrary, Upper, false, {}},
        {"empty text",
         CopyOfTestLibrary,
         [](const std::string&) { return std::string(); },
         false,
         {}},
        {"trailing newline",
         CopyOfTestLibrary,
         [](const std::string& actual) { return actual + "\n"; },
         false,
         {}},
        {"missing file",
         [](const fs::path& d) { return d / "missing.so"; },
         Same,
         false,
         {kHashFailed}},
        {"directory", [](const fs::path& d) { return d; }, Same, false, {kHashFailed}},
        {"read error", CopyOfTestLibrary, Same, false, {kHashFailed}, true},
        {"name outside ASCII",
         [](const fs::path& d) {
             return Write(d / fs::u8path("\xE5\x8A\xA0\xE8\xBD\xBD\xC3\xA9.so"), "bytes");
         },
         Same,
         true,
         {kSuccess}},
    };

    std::random_device random;
    for (const FileCase& c : cases) {
        SCOPED_TRACE(c.name);
        fs::path dir =
            fs::temp_directory_path() /
            ("qzekit_file_verify_" + std::to_string(random()) + std::to_string(random()));
        fs::create_directories(dir);
        fs::path path = c.make(dir);
        std::string actual = fs::is_regular_file(path)
                                 ? qzetest::Md5Hex(qzetest::ReadBytes(path))
                                 : std::string("0123456789abcdef0123456789abcdef");
        auto log = qzetest::CaptureLog();
        if (c.failNextRead) {
            platform::testing::InjectFailure(platform::testing::Operation::kReadFile, 1);
        }
        bool result = QZEExtensionLibFileVerify::GetInstance()->Verify(
            base::UTF8ToWide(path.string()), c.manifest(actual));
        platform::testing::ClearFailures();
        EXPECT_EQ(result, c.expected);
        EXPECT_EQ(log->Texts(), c.lines);
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }
}

}  // namespace

#else

TEST(LibFileVerifyTest, DigestMatrix) {
    GTEST_SKIP() << "the Windows side is tested with the Windows code-signing layer";
}

#endif  // !defined(_WIN32)
