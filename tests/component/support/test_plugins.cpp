#include "component/support/test_plugins.h"

#include <algorithm>

namespace qzetest {

namespace platform = qzextensionkit::platform;

std::string TestPluginDir() {
    return std::string(QZEKIT_TEST_BIN_DIR) + "/test_plugins";
}

std::wstring TestPluginPathIn(const std::wstring& directory, const std::string& name) {
#if defined(_WIN32)
    const char* suffix = ".dll";
#else
    const char* suffix = ".so";
#endif
    return directory + L"/" + base::UTF8ToWide(name + suffix);
}

std::wstring TestPluginPath(const std::string& name) {
    return TestPluginPathIn(base::UTF8ToWide(TestPluginDir()), name);
}

std::wstring TestBundleDir() {
    return base::UTF8ToWide(TestPluginDir() + "/dep_bundle");
}

std::wstring TestBundleBinDir() {
    return TestBundleDir() + L"/bin";
}

long CallCountExport(const std::wstring& path, const char* name) {
    platform::LibraryHandle handle = platform::OpenLibrary(path.c_str());
    if (handle == nullptr) {
        return -1;
    }
    long result = -1;
    if (void* address = platform::FindExport(handle, name)) {
        result = reinterpret_cast<long (*)()>(address)();
    }
    platform::CloseLibrary(handle);
    return result;
}

DebugCapture::DebugCapture() {
    platform::testing::SetDebugOutputCapture([this](const char* text) {
        std::lock_guard<std::mutex> hold(mutex_);
        calls_.emplace_back(text);
    });
}

DebugCapture::~DebugCapture() {
    platform::testing::SetDebugOutputCapture(nullptr);
}

std::vector<std::string> DebugCapture::Calls() {
    std::lock_guard<std::mutex> hold(mutex_);
    return calls_;
}

std::vector<std::string> DebugCapture::Lines() {
    std::lock_guard<std::mutex> hold(mutex_);
    std::vector<std::string> lines;
    std::string current;
    for (const std::string& call : calls_) {
        current += call;
        size_t end;
        while ((end = current.find('\n')) != std::string::npos) {
            lines.push_back(current.substr(0, end));
            current.erase(0, end + 1);
        }
    }
    if (!current.empty()) {
        lines.push_back(current);
    }
    return lines;
}

bool DebugCapture::HasLine(const std::string& line) {
    std::vector<std::string> lines = Lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

void DebugCapture::Clear() {
    std::lock_guard<std::mutex> hold(mutex_);
    calls_.clear();
}

}  // namespace qzetest
