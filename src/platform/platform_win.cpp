// Windows implementation of the platform layer.

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <objbase.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/platform_internal.h"

namespace qzextensionkit {
namespace platform {
namespace {

using internal::SetLastErrorCode;
using internal::ShouldFail;
using testing::Operation;

static_assert(sizeof(by::GUID) == sizeof(::GUID), "GUID layouts differ");
static_assert(sizeof(OnceFlag) == sizeof(INIT_ONCE), "once storage differs");

// Kit paths may use "/"; LoadLibraryW in particular wants "\\".
std::wstring ToSystemPath(const wchar_t* path) {
    std::wstring out(path);
    for (wchar_t& c : out) {
        if (c == L'/') {
            c = L'\\';
        }
    }
    return out;
}

void KeepSystemError() {
    SetLastErrorCode(static_cast<uint32_t>(::GetLastError()));
}

CRITICAL_SECTION* Section(unsigned char* storage) {
    return reinterpret_cast<CRITICAL_SECTION*>(storage);
}

}  // namespace

LibraryHandle OpenLibrary(const wchar_t* path) {
    if (ShouldFail(Operation::kOpenLibrary)) {
        return nullptr;
    }
    if (!path) {
        SetLastErrorCode(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    // A host process must not stop on a "missing disk" or bad image dialog.
    DWORD previousMode = 0;
    ::SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previousMode);
    HMODULE module = ::LoadLibraryW(ToSystemPath(path).c_str());
    if (!module) {
        KeepSystemError();
    }
    ::SetThreadErrorMode(previousMode, nullptr);
    return reinterpret_cast<LibraryHandle>(module);
}

void* FindExport(LibraryHandle handle, const char* name) {
    if (ShouldFail(Operation::kFindExport)) {
        return nullptr;
    }
    if (!handle || !name) {
        SetLastErrorCode(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    FARPROC address = ::GetProcAddress(static_cast<HMODULE>(handle), name);
    if (!address) {
        KeepSystemError();
        return nullptr;
    }
    return reinterpret_cast<void*>(address);
}

void CloseLibrary(LibraryHandle handle) {
    if (handle) {
        ::FreeLibrary(static_cast<HMODULE>(handle));
    }
}

int SetLibraryDirectory(const wchar_t* directory) {
    if (ShouldFail(Operation::kSetLibraryDirectory)) {
        return 0;
    }
    // An empty text is passed on as it is: the search then skips the current
    // directory, which is what clearing the extra directory means here.
    std::wstring dir = ToSystemPath(directory ? directory : L"");
    if (!::SetDllDirectoryW(dir.c_str())) {
        KeepSystemError();
        return 0;
    }
    return 1;
}

std::size_t GetLibraryDirectory(wchar_t* buffer, std::size_t capacity) {
    if (!buffer || capacity == 0) {
        return 0;
    }
    std::vector<wchar_t> full(MAX_PATH + 1);
    for (;;) {
        DWORD n = ::GetDllDirectoryW(static_cast<DWORD>(full.size()), full.data());
        if (n < full.size()) {
            // The directory fits (or there is none: n is 0).
            std::size_t copied = n < capacity ? n : capacity - 1;
            std::wmemcpy(buffer, full.data(), copied);
            buffer[copied] = L'\0';
            return copied;
        }
        // Too small: n is the size needed, terminator included.
        full.resize(n + 1);
    }
}

bool DebuggerPresent() {
    return ::IsDebuggerPresent() != FALSE;
}

void DebugOutput(const char* text) {
    if (!text || internal::CaptureDebugOutput(text)) {
        return;
    }
    // Without a debugger of its own the process stays quiet, even when a
    // system-wide listener would pick the text up.
    if (DebuggerPresent()) {
        ::OutputDebugStringA(text);
    }
}

std::wstring ExecutablePath() {
    if (ShouldFail(Operation::kExecutablePath)) {
        return std::wstring();
    }
    std::wstring substitute = internal::ExecutablePathOverride();
    if (!substitute.empty()) {
        return substitute;
    }
    // Long paths do not fit MAX_PATH: grow until the name is not cut.
    std::vector<wchar_t> buf(MAX_PATH);
    for (;;) {
        DWORD n = ::GetModuleFileNameW(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
        if (n == 0) {
            KeepSystemError();
            return std::wstring();
        }
        if (n < buf.size()) {
            return std::wstring(buf.data(), n);
        }
        if (buf.size() >= 32768) {
            SetLastErrorCode(ERROR_INSUFFICIENT_BUFFER);
            return std::wstring();
        }
        buf.resize(buf.size() * 2);
    }
}

bool FileExists(const std::wstring& path) {
    if (ShouldFail(Operation::kFileExists)) {
        return false;
    }
    if (::GetFileAttributesW(ToSystemPath(path.c_str()).c_str()) == INVALID_FILE_ATTRIBUTES) {
        KeepSystemError();
        return false;
    }
    return true;
}

FileHandle OpenFileForRead(const std::wstring& path) {
    if (ShouldFail(Operation::kOpenFile)) {
        return nullptr;
    }
    // Without backup semantics a directory fails here with access denied, as
    // it should for a read of file contents.
    HANDLE file = ::CreateFileW(ToSystemPath(path.c_str()).c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        KeepSystemError();
        return nullptr;
    }
    return file;
}

long long ReadFromFile(FileHandle file, void* buffer, std::size_t size) {
    if (ShouldFail(Operation::kReadFile)) {
        return -1;
    }
    if (!file) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return -1;
    }
    // ReadFile takes a 32-bit count; a short read is allowed by the contract.
    DWORD want = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
    DWORD got = 0;
    if (!::ReadFile(static_cast<HANDLE>(file), buffer, want, &got, nullptr)) {
        KeepSystemError();
        return -1;
    }
    return static_cast<long long>(got);
}

void CloseFile(FileHandle file) {
    if (file) {
        ::CloseHandle(static_cast<HANDLE>(file));
    }
}

bool CreateGuid(by::GUID* out) {
    if (!out || ShouldFail(Operation::kCreateGuid)) {
        return false;
    }
    ::GUID id;
    HRESULT hr = ::CoCreateGuid(&id);
    if (FAILED(hr)) {
        SetLastErrorCode(static_cast<uint32_t>(hr));
        return false;
    }
    std::memcpy(out, &id, sizeof id);
    return true;
}

std::wstring FormatGuid(const by::GUID& id) {
    ::GUID native;
    std::memcpy(&native, &id, sizeof native);
    wchar_t text[39];
    int n = ::StringFromGUID2(native, text, 39);
    // n counts the terminator; 0 only when the buffer is too small.
    return n > 0 ? std::wstring(text, static_cast<std::size_t>(n - 1)) : std::wstring();
}

bool RunOnce(OnceFlag* flag, void (*fn)(void*), void* context) {
    if (ShouldFail(Operation::kRunOnce)) {
        return false;
    }
    auto* once = reinterpret_cast<INIT_ONCE*>(flag);
    BOOL pending = FALSE;
    if (!::InitOnceBeginInitialize(once, 0, &pending, nullptr)) {
        KeepSystemError();
        return false;
    }
    if (pending) {
        fn(context);
        if (!::InitOnceComplete(once, 0, nullptr)) {
            KeepSystemError();
            return false;
        }
    }
    return true;
}

RecursiveLock::RecursiveLock() {
    static_assert(sizeof(CRITICAL_SECTION) <= sizeof(storage_), "lock storage too small");
    // Never fails on Vista and later.
    ::InitializeCriticalSectionAndSpinCount(new (storage_) CRITICAL_SECTION, 2000);
}

RecursiveLock::~RecursiveLock() {
    ::DeleteCriticalSection(Section(storage_));
}

void RecursiveLock::Lock() {
    ::EnterCriticalSection(Section(storage_));
}
void RecursiveLock::Unlock() {
    ::LeaveCriticalSection(Section(storage_));
}

void YieldThread() {
    ::SwitchToThread();
}

}  // namespace platform
}  // namespace qzextensionkit

// The kit does nothing of its own when it is loaded: all set-up happens in
// InitSDK. The entry point only turns off the per-thread notifications,
// which the kit has no use for.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        ::DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}
