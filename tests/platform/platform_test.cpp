#include "platform/platform.h"

#include "component/guid.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
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

std::wstring WithSeparator(std::wstring path, wchar_t separator) {
    for (wchar_t& c : path) {
        c = (c == L'/' || c == L'\\') ? separator : c;
    }
    return path;
}

fs::path Write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
}

fs::path Plugin(const std::string& relative) {
    return fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_plugins" / fs::u8path(relative + kLibrarySuffix);
}

// The kit library sits beside the test program.
std::wstring KitLibraryPath() {
    const char* name = kLibrarySuffix[1] == 'd' ? "qzextensionkit.dll" : "libqzextensionkit.so";
    return Wide(fs::path(pf::ExecutablePath()).parent_path() / name);
}

class PlatformTest : public ::testing::Test {
protected:
    void TearDown() override {
        pf::testing::ClearFailures();
        pf::SetLibraryDirectory(L"");
    }
};

TEST_F(PlatformTest, ExecutablePathNamesThisProgram) {
    const fs::path real(pf::ExecutablePath());
    EXPECT_TRUE(real.is_absolute() && real.stem() == "qzekit_platform_tests") << real;
}

TEST_F(PlatformTest, FilesExistAndReadWholeByEitherSeparator) {
    TempDir dir;
    // Bytes that a text-mode read would change, and a name outside ASCII.
    const std::string bytes("a\r\nb\0c\x1a\xff", 8);
    const fs::path file = Write(dir.path() / fs::u8path("d\xc3\xa4ta-\xe2\x82\xac.bin"), bytes);
    // "exists|contents", the contents read three bytes at a time.
    const std::pair<fs::path, std::string> cases[] = {
        {file, "1|" + bytes},
        {dir.path(), "1|-"},  // a directory exists but has no contents to read
        {dir.path() / "absent" / "deeper.bin", "0|-"},
    };
    for (const auto& [where, expected] : cases) {
        for (wchar_t separator : {L'/', L'\\'}) {
            std::wstring path = WithSeparator(Wide(where), separator);
            std::string seen = pf::FileExists(path) ? "1|" : "0|";
            pf::FileHandle handle = pf::OpenFileForRead(path);
            char buf[3];
            long long n = 0;
            while (handle && (n = pf::ReadFromFile(handle, buf, sizeof buf)) > 0) {
                seen.append(buf, static_cast<size_t>(n));
            }
            seen += handle ? (n == 0 ? "" : "?") : (pf::LastError() != 0 ? "-" : "?");
            pf::CloseFile(handle);
            EXPECT_EQ(seen, expected) << base::WideToUTF8(path);
        }
    }
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
    pf::LibraryHandle kit = pf::OpenLibrary(KitLibraryPath().c_str());
    ASSERT_NE(kit, nullptr) << pf::LastError();
    // Both toolchains mangle C++ names the same way.
    EXPECT_EQ(pf::FindExport(kit, kLastErrorSymbol), reinterpret_cast<void*>(&pf::LastError));
    EXPECT_TRUE(!pf::FindExport(kit, "_ZN14qzextensionkit8platform9lasterrorEv") &&
                pf::LastError() == kProcNotFound);
    pf::CloseLibrary(kit);

    TempDir dir, helperDir;
    const fs::path cut = dir.path() / (std::string("cut") + kLibrarySuffix);
    fs::copy_file(Plugin("qzekit_plugin_complete"), cut);
    fs::resize_file(cut, 1024);
    Write(helperDir.path() / (std::string("qzekit_plugin_dep_helper") + kLibrarySuffix), "plain");
    const fs::path dependent = Plugin("dep_bundle/qzekit_plugin_dependent");
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
        {Plugin("qzekit_plugin_symbol_user"), symbolShort, kProcNotFound, true},
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

    // The directory reads back whole, or its start when the buffer is short.
    const std::wstring value = WithSeparator(Wide(dir.path()), fs::path::preferred_separator);
    ASSERT_EQ(pf::SetLibraryDirectory(value.c_str()), 1);
    std::vector<wchar_t> buf(value.size() + 8, L'#');
    EXPECT_EQ(pf::GetLibraryDirectory(buf.data(), buf.size()), value.size());
    EXPECT_EQ(std::wstring(buf.data()), value);
    wchar_t small[4];  // the start of the text, terminated
    EXPECT_EQ(pf::GetLibraryDirectory(small, 4), 3u);
    EXPECT_EQ(std::wstring(small), value.substr(0, 3));
    ASSERT_EQ(pf::SetLibraryDirectory(L""), 1);
    EXPECT_EQ(pf::GetLibraryDirectory(buf.data(), buf.size()), 0u);
}

TEST_F(PlatformTest, InjectedFailuresCountDownAndReportTheirCode) {
    TempDir dir;
    const std::wstring path = Wide(Write(dir.path() / "f.txt", "abc"));
    const std::wstring kit = KitLibraryPath();
    pf::LibraryHandle kitHandle = pf::OpenLibrary(kit.c_str());
    pf::FileHandle open = pf::OpenFileForRead(path);
    ASSERT_TRUE(kitHandle && open);
    static pf::OnceFlag once;
    void (*nothing)(void*) = [](void*) {};
    by::GUID guid;
    char c;
    auto closed = [](auto handle, void (*close)(decltype(handle))) {
        close(handle);
        return handle != nullptr;
    };
    const std::pair<Operation, std::function<bool()>> operations[] = {
        {Operation::kOpenLibrary,
         [&] { return closed(pf::OpenLibrary(kit.c_str()), pf::CloseLibrary); }},
        {Operation::kFindExport, [&] { return pf::FindExport(kitHandle, kLastErrorSymbol); }},
        {Operation::kSetLibraryDirectory, [] { return pf::SetLibraryDirectory(L"") == 1; }},
        {Operation::kExecutablePath, [] { return !pf::ExecutablePath().empty(); }},
        {Operation::kFileExists, [&] { return pf::FileExists(path); }},
        {Operation::kOpenFile, [&] { return closed(pf::OpenFileForRead(path), pf::CloseFile); }},
        {Operation::kReadFile, [&] { return pf::ReadFromFile(open, &c, 0) >= 0; }},
        {Operation::kCreateGuid, [&] { return pf::CreateGuid(&guid); }},
        {Operation::kRunOnce, [&] { return pf::RunOnce(&once, nothing, nullptr); }},
    };
    for (const auto& [op, succeeds] : operations) {
        // "1" per success: two failures with their code, failures until
        // cleared, two let through before one fails, clearing drops those.
        std::string runs;
        auto call = [&, &succeeds = succeeds](int times) {
            for (int i = 0; i < times; ++i) {
                runs += succeeds() ? '1' : '0';
            }
        };
        call(1);
        pf::testing::InjectFailure(op, 2, 1234);
        call(1);
        runs += pf::LastError() == 1234u ? "=" : "?";
        call(2);
        pf::testing::InjectFailure(op);
        call(2);
        pf::testing::ClearFailures();
        call(1);
        pf::testing::InjectFailure(op, 1, 1234, 2);
        call(4);
        pf::testing::InjectFailure(op, 1, 1234, 1);
        pf::testing::ClearFailures();
        call(2);
        EXPECT_EQ(runs, "10=01001110111") << static_cast<int>(op);
    }
    pf::CloseFile(open);
    pf::CloseLibrary(kitHandle);
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
