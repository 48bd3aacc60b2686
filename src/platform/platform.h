#pragma once

// Every operating-system call the kit makes goes through this header. There
// is one implementation per system (platform_posix.cpp, platform_win.cpp);
// no other file of the kit talks to the system directly.
//
// Paths are wide strings, as on the host's platform. On POSIX systems "\\"
// in a path is taken as "/" when the system is called, so one manifest
// written for Windows serves both.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/export.h"
#include "platform/guid_type.h"

namespace qzextensionkit {
namespace platform {

// ---- Library loading -------------------------------------------------------

using LibraryHandle = void*;

// Opens a library and its dependencies. Dependencies are looked for first in
// the directory last given to SetLibraryDirectory. Null on failure.
QZEKIT_EXPORT LibraryHandle OpenLibrary(const wchar_t* path);
// Finds an export by its exact name; null when missing.
QZEKIT_EXPORT void* FindExport(LibraryHandle handle, const char* name);
// Drops one load of the library.
QZEKIT_EXPORT void CloseLibrary(LibraryHandle handle);
// Sets the process-wide extra search directory; an empty text is a valid
// value and clears it. Returns 1 on success, 0 on failure.
QZEKIT_EXPORT int SetLibraryDirectory(const wchar_t* directory);
// Copies the present extra search directory, terminated, into a buffer of
// `capacity` wide characters. Returns the length copied.
QZEKIT_EXPORT std::size_t GetLibraryDirectory(wchar_t* buffer, std::size_t capacity);
// The failure code of the last failed operation of this layer on this thread.
// Windows numbers on both systems; after a failed OpenLibrary: 126 the file or
// a dependency is missing, 127 a dependency lacks a function the library
// needs, 193 the file or a dependency is not a library of this machine, 5 the
// file can't be read.
QZEKIT_EXPORT uint32_t LastError();

// ---- Diagnostics -----------------------------------------------------------

// True when a debugger is attached to this process: IsDebuggerPresent on
// Windows, a tracer (non-zero "TracerPid:" in /proc/self/status) on Linux.
QZEKIT_EXPORT bool DebuggerPresent();
// Writes text to the debugger channel, as it stands (no line end added), but
// only while a debugger is attached: on Linux that channel is standard error,
// which is the host's console. A capture set by a test gets the text always.
QZEKIT_EXPORT void DebugOutput(const char* text);

// ---- Module path and files -------------------------------------------------

// Full path of the running executable; empty on failure.
QZEKIT_EXPORT std::wstring ExecutablePath();
// True when anything (file or directory) exists at the path.
QZEKIT_EXPORT bool FileExists(const std::wstring& path);

// A file opened for binary reading by wide path.
using FileHandle = void*;
QZEKIT_EXPORT FileHandle OpenFileForRead(const std::wstring& path);
// Reads up to `size` bytes. Returns the count read (0 at the end), or -1 on a
// read error.
QZEKIT_EXPORT long long ReadFromFile(FileHandle file, void* buffer, std::size_t size);
QZEKIT_EXPORT void CloseFile(FileHandle file);

// ---- Identifiers -----------------------------------------------------------

// A new random (version 4) id. False when the system could not give one.
QZEKIT_EXPORT bool CreateGuid(by::GUID* out);
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", 38 characters, in the case the
// system uses (capitals on both systems).
QZEKIT_EXPORT std::wstring FormatGuid(const by::GUID& id);

// ---- One-time initialisation -------------------------------------------------

// Zero-initialised storage for a once-record; static storage needs no
// constructor call.
struct OnceFlag {
    void* word;
};
// Runs `fn(context)` exactly once per flag while other callers wait. Returns
// false when the system reports a failure of the primitive itself.
QZEKIT_EXPORT bool RunOnce(OnceFlag* flag, void (*fn)(void*), void* context);

// ---- Recursive lock ----------------------------------------------------------

// A lock that the thread holding it may take again. On Windows a critical
// section with a spin count of 2000.
class QZEKIT_EXPORT RecursiveLock {
public:
    RecursiveLock();
    ~RecursiveLock();
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

    void Lock();
    void Unlock();
    // Meets the standard Lockable requirements, for std::lock_guard.
    void lock() { Lock(); }
    void unlock() { Unlock(); }

private:
    alignas(16) unsigned char storage_[64];
};

// ---- Process --------------------------------------------------------------

// Gives the processor to another thread, in spin-wait loops.
QZEKIT_EXPORT void YieldThread();

// ---- Seams for tests --------------------------------------------------------
// Not configuration: only tests call these, to stand in for a different
// executable location or to make one operation fail.
namespace testing {

enum class Operation {
    kOpenLibrary,
    kFindExport,
    kSetLibraryDirectory,
    kExecutablePath,
    kFileExists,
    kOpenFile,
    kReadFile,
    kCreateGuid,
    kRunOnce,
    kCount
};

// Makes the next `times` calls of `op` fail (times < 0: until cleared), with
// `errorCode` reported by LastError where the operation sets it.
QZEKIT_EXPORT void InjectFailure(Operation op, int times = -1, uint32_t errorCode = 5);
QZEKIT_EXPORT void ClearFailures();
// Substitutes the executable path; an empty text restores the real one.
QZEKIT_EXPORT void SetExecutablePathOverride(const std::wstring& path);
// Sends DebugOutput text to `capture` instead of the debugger channel,
// whether a debugger is attached or not; an empty function restores the
// channel.
QZEKIT_EXPORT void SetDebugOutputCapture(std::function<void(const char*)> capture);

}  // namespace testing

}  // namespace platform
}  // namespace qzextensionkit
