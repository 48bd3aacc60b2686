#include "platform/platform.h"

#include "component/guid.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/utf_string_conversions.h"
#include "bundle/support/bundle_dirs.h"

namespace {

namespace fs = std::filesystem;
namespace pf = qzextensionkit::platform;
using pf::testing::Operation;

using qzetest::kLibrarySuffix;
using qzetest::TempDir;
using qzetest::Wide;

constexpr uint32_t kModNotFound = 126, kProcNotFound = 127, kBadExeFormat = 193;
constexpr char kLastErrorSymbol[] = "_ZN14qzextensionkit8platform9LastErrorEv";

fs::path Write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
}

class PlatformTest : public ::testing::Test {
protected:
    void TearDown() override {
        pf::testing::ClearFailures();
        pf::SetLibraryDirectory(L"");
    }
};

// Reading files is the base tests' part; a folder exists but does not open,
// as on Windows.
TEST_F(PlatformTest, AFolderExistsButDoesNotOpen) {
    TempDir dir;
    EXPECT_TRUE(pf::FileExists(Wide(dir.path())) && !pf::OpenFileForRead(Wide(dir.path())) &&
                pf::LastError() != 0);
}

TEST_F(PlatformTest, GuidsAreRandomVersionFourInBraceForm) {
    by::GUID a, b;
    ASSERT_TRUE(pf::CreateGuid(&a) && pf::CreateGuid(&b));
    EXPECT_TRUE(std::memcmp(&a, &b, sizeof a) != 0 && (a.Data3 >> 12) == 4 &&
                (a.Data4[0] & 0xC0) == 0x80);
    // Text and binary forms agree field by field, in capitals.
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid(base::WideToUTF8(pf::FormatGuid(a)).c_str(), true), a));
    EXPECT_EQ(pf::FormatGuid(by::IID_IQZEBundle), L"{E50226D4-EE3F-4A64-B53E-50114F0C99C7}");
}

TEST_F(PlatformTest, RunOnceRunsOnceWhileRacersWaitAndTheLockReenters) {
    static pf::OnceFlag flag;  // zero storage, as a static would have
    static std::atomic<int> runs{0};
    static std::atomic<bool> done{false};
    auto init = [](void*) {
        runs.fetch_add(1);
        // Long enough that the other threads arrive while this one runs.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        done.store(true);
    };
    std::atomic<int> sawDone{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { sawDone += pf::RunOnce(&flag, init, nullptr) && done.load(); });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(sawDone.load(), 8);
    EXPECT_TRUE(pf::RunOnce(&flag, init, nullptr) && runs.load() == 1);

    pf::RecursiveLock lock;
    lock.Lock();
    lock.Lock();  // same thread: must not deadlock
    std::atomic<bool> otherGotIn{false};
    std::thread other([&] {
        std::lock_guard<pf::RecursiveLock> hold(lock);
        otherGotIn.store(true);
    });
    lock.Unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(otherGotIn.load()) << "one unlock of two released the lock";
    lock.Unlock();
    other.join();
    EXPECT_TRUE(otherGotIn.load());
}

// A library that fails to open reports the code a Windows host would see;
// exports are found by their exact name only.
TEST_F(PlatformTest, OpenAndFindFailuresReportTheWindowsCode) {
    // The kit library sits beside the test program.
    const char* kitName = kLibrarySuffix[1] == 'd' ? "qzextensionkit.dll" : "libqzextensionkit.so";
    pf::LibraryHandle kit =
        pf::OpenLibrary(Wide(fs::path(pf::ExecutablePath()).parent_path() / kitName).c_str());
    ASSERT_NE(kit, nullptr) << pf::LastError();
    // Both toolchains mangle C++ names the same way.
    EXPECT_EQ(pf::FindExport(kit, kLastErrorSymbol), reinterpret_cast<void*>(&pf::LastError));
    EXPECT_TRUE(!pf::FindExport(kit, "_ZN14qzextensionkit8platform9lasterrorEv") &&
                pf::LastError() == kProcNotFound);
    pf::CloseLibrary(kit);

    TempDir dir, helperDir;
    const fs::path cut = dir.path() / (std::string("cut") + kLibrarySuffix);
    fs::copy_file(qzetest::BuiltPlugin("qzekit_plugin_complete"), cut);
    fs::resize_file(cut, 1024);
    Write(helperDir.path() / (std::string("qzekit_plugin_dep_helper") + kLibrarySuffix), "plain");
    const fs::path dependent = qzetest::BuiltPlugin("dep_bundle/qzekit_plugin_dependent");
    // An ELF header of this program's class: little-endian, version 1, ET_DYN,
    // for another machine (43, SPARC V9).
    std::string elf = "\177ELF" + std::string(1, sizeof(void*) == 8 ? 2 : 1) +
                      std::string("\1\1\0\0\0\0\0\0\0\0\0\3\0\53\0\1", 16);
    elf.resize(64);
    const fs::path symbolShort = fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_plugins" / "symbol_short";
    const struct {
        fs::path library, directory;  // the library directory while it opens
        uint32_t code;
        bool wineDiffers;
    } cases[] = {
        {dir.path() / "absent.so", {}, kModNotFound, false},
        {Write(dir.path() / "t.so", std::string(256, 'x')), {}, kBadExeFormat, false},
        // glibc takes this for a missing file.
        {Write(dir.path() / "e.so", elf), {}, kBadExeFormat, false},
        // An ELF file too short for its headers: glibc would map it and crash
        // on the first touch past the end.
        {cut, {}, kBadExeFormat, false},
        {dependent, {}, kModNotFound, false},
        // Wine passes over a dependency that is not a PE file and reports it missing.
        {dependent, helperDir.path(), kBadExeFormat, true},
        // Wine binds a missing import to a stub and loads the library.
        {qzetest::BuiltPlugin("qzekit_plugin_symbol_user"), symbolShort, kProcNotFound, true},
    };
#if defined(_WIN32)
    pf::LibraryHandle ntdll = pf::OpenLibrary(L"ntdll.dll");
    const bool wine = ntdll && pf::FindExport(ntdll, "wine_get_version");
    pf::CloseLibrary(ntdll);
#else
    const bool wine = false;
#endif
    for (const auto& c : cases) {
        pf::SetLibraryDirectory(Wide(c.directory).c_str());
        pf::LibraryHandle handle = pf::OpenLibrary(Wide(c.library).c_str());
        const uint32_t code = pf::LastError();
        pf::CloseLibrary(handle);
        EXPECT_TRUE((handle == nullptr && code == c.code) || (c.wineDiffers && wine))
            << c.library << " " << c.directory << ": " << code;
    }

    // A short buffer takes the directory's start, terminated; the whole is
    // read back by the other folders' tests.
    const std::wstring value = Wide(dir.path());
    ASSERT_EQ(pf::SetLibraryDirectory(value.c_str()), 1);
    wchar_t small[4];
    EXPECT_EQ(pf::GetLibraryDirectory(small, 4), 3u);
    EXPECT_EQ(std::wstring(small), value.substr(0, 3));
    ASSERT_EQ(pf::SetLibraryDirectory(L""), 1);
    EXPECT_EQ(pf::GetLibraryDirectory(small, 4), 0u);
}

// The countdown is the same for every operation; the others' seams are
// driven by the kit's fault tests.
TEST_F(PlatformTest, InjectedFailuresCountDownAndReportTheirCode) {
    static pf::OnceFlag once;
    void (*nothing)(void*) = [](void*) {};
    // "1" per success: two failures with their code, failures until
    // cleared, two let through before one fails, clearing drops those.
    std::string runs;
    auto call = [&](int times) {
        for (int i = 0; i < times; ++i) {
            runs += pf::RunOnce(&once, nothing, nullptr) ? '1' : '0';
        }
    };
    call(1);
    pf::testing::InjectFailure(Operation::kRunOnce, 2, 1234);
    call(1);
    runs += pf::LastError() == 1234u ? "=" : "?";
    call(2);
    pf::testing::InjectFailure(Operation::kRunOnce);
    call(2);
    pf::testing::ClearFailures();
    call(1);
    pf::testing::InjectFailure(Operation::kRunOnce, 1, 1234, 2);
    call(4);
    pf::testing::InjectFailure(Operation::kRunOnce, 1, 1234, 1);
    pf::testing::ClearFailures();
    call(2);
    EXPECT_EQ(runs, "10=01001110111");
}

TEST_F(PlatformTest, DebugOutputReachesTheCaptureAlwaysAndTheConsoleOnlyUnderADebugger) {
    std::string seen;
    pf::testing::SetDebugOutputCapture([&](const char* text) { seen += text; });
    pf::DebugOutput("one ");
    pf::DebugOutput(nullptr);
    pf::testing::SetDebugOutputCapture(nullptr);
    EXPECT_EQ(seen, "one ");
    ::testing::internal::CaptureStderr();
    pf::DebugOutput("not captured\n");
    // Windows sends it to the debugger; POSIX to the console while one is attached.
    const bool toConsole = pf::DebuggerPresent() && fs::path::preferred_separator == '/';
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), toConsole ? "not captured\n" : "");
}

}  // namespace
