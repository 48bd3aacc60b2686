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
#include <vector>

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
// The system loader's own words for the last failed OpenLibrary or
// FindExport on this thread (dlerror on POSIX, the system's text for the
// error code on Windows), without a line end. Empty when there is none. The
// kit does not use it; it is there for diagnostics such as the qzekit tool's.
QZEKIT_EXPORT std::string LoaderMessage();

// ---- Diagnostics -----------------------------------------------------------

// True when a debugger is attached to this process: IsDebuggerPresent on
// Windows, a tracer (non-zero "TracerPid:" in /proc/self/status) on Linux.
QZEKIT_EXPORT bool DebuggerPresent();
// Writes text to the debugger channel, as it stands (no line end added). On
// Linux that channel is standard error, the host's console, so the text is
// written there only while a debugger is attached. A capture set by a test
// gets the text always.
QZEKIT_EXPORT void DebugOutput(const char* text);

// ---- Module path and files -------------------------------------------------

// Full path of the running executable; empty on failure.
QZEKIT_EXPORT std::wstring ExecutablePath();
// The absolute form of `path`, taken from the current directory when it is
// relative; the path as given when the system can't tell.
QZEKIT_EXPORT std::wstring FullPath(const std::wstring& path);
// True when anything (file or directory) exists at the path.
QZEKIT_EXPORT bool FileExists(const std::wstring& path);

// A file opened for binary reading by wide path.
using FileHandle = void*;
QZEKIT_EXPORT FileHandle OpenFileForRead(const std::wstring& path);
// Reads up to `size` bytes. Returns the count read (0 at the end), or -1 on a
// read error.
QZEKIT_EXPORT long long ReadFromFile(FileHandle file, void* buffer, std::size_t size);
QZEKIT_EXPORT void CloseFile(FileHandle file);

// ---- Code signing ----------------------------------------------------------
// On Windows these are Authenticode through WinVerifyTrust and CryptoAPI. On
// Linux a signed library carries, after its own bytes, a detached DER CMS
// SignedData over those bytes, a 12-byte trailer (00 00 02 00 00 00 00 00,
// then the CMS length, big-endian 32 bits) and "~Module signature appended~\n";
// it is checked with OpenSSL against the system trust store.

// Status codes of a trust check, as Windows reports them.
constexpr uint32_t kTrustNoSignature = 0x800B0100;      // TRUST_E_NOSIGNATURE
constexpr uint32_t kTrustSubjectForm = 0x800B0003;      // TRUST_E_SUBJECT_FORM_UNKNOWN
constexpr uint32_t kTrustProviderUnknown = 0x800B0001;  // TRUST_E_PROVIDER_UNKNOWN
constexpr uint32_t kTrustSubjectNotTrusted = 0x800B0004;
constexpr uint32_t kTrustBadDigest = 0x80096010;         // TRUST_E_BAD_DIGEST
constexpr uint32_t kTrustUntrustedRoot = 0x800B0109;     // CERT_E_UNTRUSTEDROOT
constexpr uint32_t kTrustChaining = 0x800B010A;          // CERT_E_CHAINING
constexpr uint32_t kTrustExpired = 0x800B0101;           // CERT_E_EXPIRED
constexpr uint32_t kTrustWrongUsage = 0x800B0110;        // CERT_E_WRONG_USAGE
constexpr uint32_t kTrustExplicitDistrust = 0x800B0111;  // TRUST_E_EXPLICIT_DISTRUST
constexpr uint32_t kTrustSecuritySettings = 0x80092026;  // CRYPT_E_SECURITY_SETTINGS

struct TrustResult {
    // 0 when the embedded signature is present, intact and trusted.
    uint32_t status = 0;
    // The thread's last error right after the check.
    uint32_t lastError = 0;
};

// Checks the embedded signature of the file at `path`: present, matching the
// file's bytes, by a signer that chains to a trusted root, at the present
// time, with no revocation check and no user interface.
QZEKIT_EXPORT TrustResult VerifyFileTrust(const std::wstring& path);

// A certificate as the signature check logs and compares it. Each name is
// the simple display name (on Windows CertGetNameStringW with
// CERT_NAME_SIMPLE_DISPLAY_TYPE); an absent flag stands for a failed lookup.
struct CertificateDetails {
    // As stored: least significant byte first.
    std::vector<uint8_t> serialNumber;
    bool hasIssuerName = false;
    std::wstring issuerName;
    bool hasSubjectName = false;
    std::wstring subjectName;
};

struct SignatureDetails {
    // The embedded signature could be opened and its first signer's
    // information read.
    bool opened = false;
    // From the signer's program-name attribute (1.3.6.1.4.1.311.2.1.12);
    // links only when they are of the URL or file kind.
    bool hasProgramName = false;
    std::wstring programName;
    bool hasPublisherLink = false;
    std::wstring publisherLink;
    bool hasMoreInfoLink = false;
    std::wstring moreInfoLink;
    // The signer's certificate, found by issuer and serial number.
    bool signerFound = false;
    CertificateDetails signer;
    // A countersignature (1.2.840.113549.1.9.6), its certificate when found
    // in the same store, and its signing time (1.2.840.113549.1.9.5) in local
    // time.
    bool hasTimestampSigner = false;
    bool timestampCertificateFound = false;
    CertificateDetails timestampCertificate;
    bool hasTimestampTime = false;
    int timestampYear = 0, timestampMonth = 0, timestampDay = 0, timestampHour = 0,
        timestampMinute = 0;
};

// Reads what the signature check logs and compares. False (with `opened`
// false) when the file has no embedded signature that can be read.
QZEKIT_EXPORT bool ReadSignatureDetails(const std::wstring& path, SignatureDetails* details);

// Replaces the file at `path` with `bytes`, so that a reader sees either the
// old or the new content and never a part: written beside it, then renamed.
QZEKIT_EXPORT bool WriteFileAtomically(const std::wstring& path, const std::string& bytes);

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

// Has `callback` run on the calling thread when that thread ends; one per
// thread, a later call replaces it. False where a thread's own storage may
// be gone by then (MinGW's emulated thread-local storage): nothing is set.
QZEKIT_EXPORT bool SetThreadEndCallback(void (*callback)());

// ---- Seams for tests --------------------------------------------------------
// Not configuration: only tests call these, to stand in for a different
// executable location or to make one operation fail. The qzekit tool's
// inspect command also sets the executable path, so that the kit reads an
// installation in a folder of the user's choice; it clears it again when done.
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
// `errorCode` reported by LastError where the operation sets it. The first
// `skip` calls still succeed, so that a later call of a sequence can fail.
QZEKIT_EXPORT void InjectFailure(Operation op, int times = -1, uint32_t errorCode = 5,
                                 int skip = 0);
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
