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

constexpr uint32_t kModNotFound = 126;
constexpr uint32_t kProcNotFound = 127;
constexpr uint32_t kBadExeFormat = 193;

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
    fs::path dir = fs::path(pf::ExecutablePath()).parent_path();
#if defined(_WIN32)
    return Wide(dir / "qzextensionkit.dll");
#else
    return Wide(dir / "libqzextensionkit.so");
#endif
}

class PlatformTest : public ::testing::Test {
protected:
    void TearDown() override {
        pf::testing::ClearFailures();
        pf::testing::SetExecutablePathOverride(L"");
        pf::SetLibraryDirectory(L"");
    }
};

TEST_F(PlatformTest, ExecutablePathNamesThisProgramUnlessOverridden) {
    std::wstring real = pf::ExecutablePath();
    ASSERT_TRUE(fs::path(real).is_absolute());
    EXPECT_EQ(fs::path(real).stem().string(), "qzekit_platform_tests");

    pf::testing::SetExecutablePathOverride(L"C:\\host\\client.exe");
    EXPECT_EQ(pf::ExecutablePath(), L"C:\\host\\client.exe");
    pf::testing::SetExecutablePathOverride(L"");
    EXPECT_EQ(pf::ExecutablePath(), real);
}

TEST_F(PlatformTest, FilesExistAndReadWholeByEitherSeparator) {
    TempDir dir;
    // Bytes that a text-mode read would change, and a name outside ASCII.
    const std::string bytes("a\r\nb\0c\x1a\xff", 8);
    const fs::path file = Write(dir.path() / fs::u8path("d\xc3\xa4ta-\xe2\x82\xac.bin"), bytes);
    struct Case {
        fs::path path;
        bool exists;
        bool reads;
    };
    const Case cases[] = {
        {file, true, true},
        {dir.path(), true, false},  // a directory exists but has no contents to read
        {dir.path() / "absent.bin", false, false},
        {dir.path() / "absent" / "deeper.bin", false, false},
    };
    for (const Case& c : cases) {
        for (wchar_t separator : {L'/', L'\\'}) {
            std::wstring path = WithSeparator(Wide(c.path), separator);
            SCOPED_TRACE(base::WideToUTF8(path));
            EXPECT_EQ(pf::FileExists(path), c.exists);
            pf::FileHandle handle = pf::OpenFileForRead(path);
            ASSERT_EQ(handle != nullptr, c.reads);
            if (handle) {
                std::string read;
                char buf[3];  // small, so that reads come in several pieces
                long long n;
                while ((n = pf::ReadFromFile(handle, buf, sizeof buf)) > 0) {
                    read.append(buf, static_cast<size_t>(n));
                }
                EXPECT_EQ(n, 0);
                EXPECT_EQ(read, bytes);
                pf::CloseFile(handle);
            } else {
                EXPECT_NE(pf::LastError(), 0u);
            }
        }
    }
}

TEST_F(PlatformTest, GuidsAreRandomVersionFourInBraceForm) {
    by::GUID a, b;
    ASSERT_TRUE(pf::CreateGuid(&a));
    ASSERT_TRUE(pf::CreateGuid(&b));
    EXPECT_NE(std::memcmp(&a, &b, sizeof a), 0);
    EXPECT_EQ((a.Data3 >> 12), 4);
    EXPECT_EQ(a.Data4[0] & 0xC0, 0x80);
    // Text and binary forms agree field by field, in capitals.
    std::wstring text = pf::FormatGuid(a);
    EXPECT_TRUE(by::IsEqualId(by::ParseGuid(base::WideToUTF8(text).c_str(), true), a));
    EXPECT_EQ(pf::FormatGuid(by::IID_IQZEBundle), L"{E50226D4-EE3F-4A64-B53E-50114F0C99C7}");
}

TEST_F(PlatformTest, RunOnceRunsOnceWhileRacersWait) {
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
    EXPECT_TRUE(pf::RunOnce(&flag, init, nullptr));
    EXPECT_EQ(runs.load(), 1);
}

TEST_F(PlatformTest, RecursiveLockReentersAndExcludes) {
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

TEST_F(PlatformTest, ExportsAreFoundByExactName) {
    pf::LibraryHandle handle = pf::OpenLibrary(KitLibraryPath().c_str());
    ASSERT_NE(handle, nullptr) << pf::LastError();
    // Both toolchains mangle C++ names the same way.
    void* found = pf::FindExport(handle, "_ZN14qzextensionkit8platform9LastErrorEv");
    EXPECT_EQ(found, reinterpret_cast<void*>(&pf::LastError));
    EXPECT_EQ(pf::FindExport(handle, "_ZN14qzextensionkit8platform9lasterrorEv"), nullptr);
    EXPECT_EQ(pf::LastError(), kProcNotFound);
    pf::CloseLibrary(handle);
}

// The first 64 bytes of an ELF shared object: enough for the loader to judge
// the class and the machine.
std::string ElfHeader(unsigned char elfClass, unsigned char machine) {
    std::string header(64, '\0');
    header.replace(0, 4, "\177ELF");
    header[4] = static_cast<char>(elfClass);
    header[5] = header[6] = header[20] = 1;  // little-endian, versions
    header[16] = 3;                          // ET_DYN
    header[18] = static_cast<char>(machine);
    return header;
}

bool UnderWine() {
#if defined(_WIN32)
    pf::LibraryHandle ntdll = pf::OpenLibrary(L"ntdll.dll");
    bool wine = ntdll && pf::FindExport(ntdll, "wine_get_version");
    pf::CloseLibrary(ntdll);
    return wine;
#else
    return false;
#endif
}

// A library that fails to open reports the code a Windows host would see.
TEST_F(PlatformTest, OpenFailuresReportTheWindowsCode) {
    const bool wine = UnderWine();
    const struct {
        const char* name;
        fs::path (*prepare)(const fs::path& dir);  // returns the library to open
        uint32_t code;
        bool wineDiffers;
    } cases[] = {
        {"MissingFile", [](const fs::path& d) { return d / "absent.so"; }, kModNotFound, false},
        {"ShortText", [](const fs::path& d) { return Write(d / "text.so", "plain text"); },
         kBadExeFormat, false},
        {"HeaderSizedText",
         [](const fs::path& d) { return Write(d / "t.so", std::string(256, 'x')); }, kBadExeFormat,
         false},
        {"ElfOfTheOtherClass",
         [](const fs::path& d) {
             return Write(d / "e.so", ElfHeader(sizeof(void*) == 8 ? 1 : 2, 62));
         },
         kBadExeFormat, false},
        // glibc takes this for a missing file.
        {"ElfForAnotherMachine",
         [](const fs::path& d) {
             return Write(d / "e.so", ElfHeader(sizeof(void*) == 8 ? 2 : 1, 43));
         },
         kBadExeFormat, false},
        // An ELF file too short for its headers: glibc would map it and crash
        // on the first touch past the end.
        {"TruncatedLibrary",
         [](const fs::path& d) {
             const fs::path cut = d / (std::string("cut") + kLibrarySuffix);
             fs::copy_file(Plugin("qzekit_plugin_complete"), cut);
             fs::resize_file(cut, 1024);
             return cut;
         },
         kBadExeFormat, false},
        {"DependencyMissing",
         [](const fs::path&) { return Plugin("dep_bundle/qzekit_plugin_dependent"); }, kModNotFound,
         false},
        // Wine passes over a dependency that is not a PE file and reports it missing.
        {"DependencyIsNoLibrary",
         [](const fs::path& d) {
             Write(d / (std::string("qzekit_plugin_dep_helper") + kLibrarySuffix), "plain text");
             pf::SetLibraryDirectory(Wide(d).c_str());
             return Plugin("dep_bundle/qzekit_plugin_dependent");
         },
         kBadExeFormat, true},
        // Wine binds a missing import to a stub and loads the library.
        {"DependencyLacksAFunction",
         [](const fs::path&) {
             pf::SetLibraryDirectory(
                 Wide(fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_plugins" / "symbol_short").c_str());
             return Plugin("qzekit_plugin_symbol_user");
         },
         kProcNotFound, true},
    };
    for (const auto& c : cases) {
        if (c.wineDiffers && wine) {
            continue;
        }
        SCOPED_TRACE(c.name);
        TempDir dir;
        pf::LibraryHandle handle = pf::OpenLibrary(Wide(c.prepare(dir.path())).c_str());
        const uint32_t code = pf::LastError();
        pf::CloseLibrary(handle);
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(code, c.code);
        pf::SetLibraryDirectory(L"");
    }
}

TEST_F(PlatformTest, LibraryDirectoryRoundTrips) {
    TempDir dir;
#if defined(_WIN32)
    std::wstring value = WithSeparator(Wide(dir.path()), L'\\');
#else
    std::wstring value = Wide(dir.path());
#endif
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
    ASSERT_NE(kitHandle, nullptr);
    pf::FileHandle open = pf::OpenFileForRead(path);
    ASSERT_NE(open, nullptr);
    static pf::OnceFlag once;
    auto succeeds = [&](Operation op) {
        by::GUID guid;
        char c;
        pf::LibraryHandle library = nullptr;
        pf::FileHandle file = nullptr;
        switch (op) {
            case Operation::kOpenLibrary:
                library = pf::OpenLibrary(kit.c_str());
                pf::CloseLibrary(library);
                return library != nullptr;
            case Operation::kFindExport:
                return pf::FindExport(kitHandle, "_ZN14qzextensionkit8platform9LastErrorEv") !=
                       nullptr;
            case Operation::kSetLibraryDirectory:
                return pf::SetLibraryDirectory(L"") == 1;
            case Operation::kExecutablePath:
                return !pf::ExecutablePath().empty();
            case Operation::kFileExists:
                return pf::FileExists(path);
            case Operation::kOpenFile:
                file = pf::OpenFileForRead(path);
                pf::CloseFile(file);
                return file != nullptr;
            case Operation::kReadFile:
                return pf::ReadFromFile(open, &c, 0) >= 0;
            case Operation::kCreateGuid:
                return pf::CreateGuid(&guid);
            default:
                return pf::RunOnce(
                    &once, [](void*) {}, nullptr);
        }
    };
    for (Operation op :
         {Operation::kOpenLibrary, Operation::kFindExport, Operation::kSetLibraryDirectory,
          Operation::kExecutablePath, Operation::kFileExists, Operation::kOpenFile,
          Operation::kReadFile, Operation::kCreateGuid, Operation::kRunOnce}) {
        SCOPED_TRACE(static_cast<int>(op));
        // "1" per success: two failures with their code, failures until
        // cleared, two let through before one fails, clearing drops those.
        std::string runs;
        auto call = [&](int times) {
            for (int i = 0; i < times; ++i) {
                runs += succeeds(op) ? '1' : '0';
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
        EXPECT_EQ(runs, "10=01001110111");
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
    std::string console = ::testing::internal::GetCapturedStderr();
#if defined(_WIN32)
    EXPECT_EQ(console, "");
#else
    EXPECT_EQ(console, pf::DebuggerPresent() ? "not captured\n" : "");
#endif
}

}  // namespace
