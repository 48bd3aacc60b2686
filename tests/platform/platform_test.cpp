#include "platform/platform.h"

#include "component/guid.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bundle/support/bundle_dirs.h"

namespace {

namespace fs = std::filesystem;
namespace pf = qzextensionkit::platform;

using qzetest::kLibrarySuffix;
using qzetest::TempDir;
using qzetest::Wide;

constexpr uint32_t kModNotFound = 126, kProcNotFound = 127, kBadExeFormat = 193;

class PlatformTest : public ::testing::Test {
protected:
    void TearDown() override {
        pf::testing::ClearFailures();
        pf::SetLibraryDirectory(L"");
    }
};

TEST_F(PlatformTest, GuidsAreRandomVersionFourInBraceForm) {
    by::GUID a, b;
    EXPECT_TRUE(pf::CreateGuid(&a) && pf::CreateGuid(&b) && std::memcmp(&a, &b, sizeof a) != 0 &&
                (a.Data3 >> 12) == 4 && (a.Data4[0] & 0xC0) == 0x80);
    EXPECT_EQ(pf::FormatGuid(by::IID_IQZEBundle), L"{E50226D4-EE3F-4A64-B53E-50114F0C99C7}");
}

TEST_F(PlatformTest, RunOnceRunsOnceWhileRacersWaitAndTheLockReenters) {
    static pf::OnceFlag flag;  // zero storage, as a static would have
    static std::atomic<int> runs{0};
    auto init = [](void*) {
        // Long enough that the other threads arrive while this one runs.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        runs.fetch_add(1);
    };
    std::atomic<int> sawDone{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { sawDone += pf::RunOnce(&flag, init, nullptr) && runs == 1; });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_TRUE(sawDone == 8 && pf::RunOnce(&flag, init, nullptr) && runs == 1);

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

// A library that fails to open reports the code a Windows host would see.
TEST_F(PlatformTest, OpenAndFindFailuresReportTheWindowsCode) {
    pf::LibraryHandle plugin =
        pf::OpenLibrary(Wide(qzetest::BuiltPlugin("qzekit_plugin_complete")).c_str());
    ASSERT_NE(plugin, nullptr) << pf::LastError();
    EXPECT_TRUE(pf::FindExport(plugin, "DllGetClassObject") &&
                !pf::FindExport(plugin, "dllgetclassobject") && pf::LastError() == kProcNotFound);
    pf::CloseLibrary(plugin);

    // One library per code; other broken files give the cut one's.
    TempDir dir;
    const fs::path cut = dir.path() / (std::string("cut") + kLibrarySuffix);
    fs::copy_file(qzetest::BuiltPlugin("qzekit_plugin_complete"), cut);
    fs::resize_file(cut, 1024);
    const struct {
        fs::path library, directory;  // the library directory while it opens
        uint32_t code;
        bool wineDiffers;
    } cases[] = {
        {dir.path() / "absent.so", {}, kModNotFound, false},
        // An ELF file too short for its headers: glibc would map it and crash
        // on the first touch past the end.
        {cut, {}, kBadExeFormat, false},
        // Wine binds a missing import to a stub and loads the library.
        {qzetest::BuiltPlugin("qzekit_plugin_symbol_user"),
         fs::u8path(QZEKIT_TEST_BIN_DIR) / "test_plugins" / "symbol_short", kProcNotFound, true},
    };
    pf::LibraryHandle ntdll = pf::OpenLibrary(L"ntdll.dll");
    const bool wine = ntdll && pf::FindExport(ntdll, "wine_get_version");
    pf::CloseLibrary(ntdll);
    for (const auto& c : cases) {
        pf::SetLibraryDirectory(Wide(c.directory).c_str());
        pf::LibraryHandle handle = pf::OpenLibrary(Wide(c.library).c_str());
        const uint32_t code = pf::LastError();
        pf::CloseLibrary(handle);
        EXPECT_TRUE((handle == nullptr && code == c.code) || (c.wineDiffers && wine))
            << c.library << " " << c.directory << ": " << code;
    }
}

}  // namespace
