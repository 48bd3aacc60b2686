#pragma once

// Where the test component libraries are, and what the loader writes to the
// debugger channel.

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "base/utf_string_conversions.h"
#include "platform/platform.h"

namespace qzetest {

// The folder of the test libraries, below the build's bin directory.
std::string TestPluginDir();
// Full wide path of a test library, from its name without suffix, in the
// test library folder or in `directory`.
std::wstring TestPluginPath(const std::string& name);
std::wstring TestPluginPathIn(const std::wstring& directory, const std::string& name);
// The fake bundle of the dependent library, and its "bin" directory.
std::wstring TestBundleDir();
std::wstring TestBundleBinDir();

// Calls a `long ()` export of a test library through a handle of its own,
// so that the answer comes from the copy the loader has open (if any).
// Returns -1 when the library or the export can't be found.
long CallCountExport(const std::wstring& path, const char* name);

// Collects DebugOutput text while alive. Calls are what each call of
// DebugOutput passed; Lines joins them up to each "\n".
class DebugCapture {
public:
    DebugCapture();
    ~DebugCapture();
    DebugCapture(const DebugCapture&) = delete;
    DebugCapture& operator=(const DebugCapture&) = delete;

    std::vector<std::string> Calls();
    std::vector<std::string> Lines();
    bool HasLine(const std::string& line);
    void Clear();

private:
    std::mutex mutex_;
    std::vector<std::string> calls_;
};

}  // namespace qzetest
