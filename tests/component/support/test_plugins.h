#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "platform/platform.h"

namespace qzetest {

inline std::string TestPluginDir() {
    return std::string(QZEKIT_TEST_BIN_DIR) + "/test_plugins";
}

// A test library by its name without suffix.
inline std::wstring TestPluginPath(const std::string& name) {
#if defined(_WIN32)
    return base::UTF8ToWide(TestPluginDir() + "/" + name + ".dll");
#else
    return base::UTF8ToWide(TestPluginDir() + "/" + name + ".so");
#endif
}

// Calls a `long ()` export of the copy the loader has open; -1 if none.
inline long CallCountExport(const std::wstring& path, const char* name) {
    namespace platform = qzextensionkit::platform;
    platform::LibraryHandle handle = platform::OpenLibrary(path.c_str());
    if (handle == nullptr) {
        return -1;
    }
    void* address = platform::FindExport(handle, name);
    long result = address ? reinterpret_cast<long (*)()>(address)() : -1;
    platform::CloseLibrary(handle);
    return result;
}

// Collects DebugOutput text while alive, per call or joined into lines.
class DebugCapture {
public:
    DebugCapture() {
        qzextensionkit::platform::testing::SetDebugOutputCapture([this](const char* text) {
            std::lock_guard<std::mutex> hold(mutex_);
            calls_.emplace_back(text);
        });
    }
    ~DebugCapture() { qzextensionkit::platform::testing::SetDebugOutputCapture(nullptr); }
    DebugCapture(const DebugCapture&) = delete;
    DebugCapture& operator=(const DebugCapture&) = delete;

    std::vector<std::string> Calls() {
        std::lock_guard<std::mutex> hold(mutex_);
        return calls_;
    }
    std::vector<std::string> Lines() {
        std::string all;
        for (const std::string& call : Calls()) {
            all += call;
        }
        std::vector<std::string> lines;
        for (size_t start = 0, end; start < all.size(); start = end + 1) {
            end = std::min(all.find('\n', start), all.size());
            lines.push_back(all.substr(start, end - start));
        }
        return lines;
    }
    void Clear() {
        std::lock_guard<std::mutex> hold(mutex_);
        calls_.clear();
    }

private:
    std::mutex mutex_;
    std::vector<std::string> calls_;
};

}  // namespace qzetest
