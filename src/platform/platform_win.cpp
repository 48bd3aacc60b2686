// Windows implementation of the platform layer.

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <objbase.h>
#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/platform_internal.h"
#include "platform/utf8.h"

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

// The code of the last failed OpenLibrary or FindExport on this thread, for
// LoaderMessage.
thread_local DWORD t_loaderError = 0;

// Read once: reaching a thread-local variable may itself reset the
// thread's last error (TlsGetValue does).
void KeepLoaderError() {
    const DWORD error = ::GetLastError();
    t_loaderError = error;
    SetLastErrorCode(static_cast<uint32_t>(error));
}

CRITICAL_SECTION* Section(unsigned char* storage) {
    return reinterpret_cast<CRITICAL_SECTION*>(storage);
}

// ---- Owners of CryptoAPI and kernel handles ----

struct LocalFreer {
    void operator()(void* block) const { ::LocalFree(block); }
};
// A zeroed LocalAlloc block.
using LocalBlock = std::unique_ptr<void, LocalFreer>;

struct StoreCloser {
    void operator()(void* store) const { ::CertCloseStore(store, 0); }
};
using StoreHandle = std::unique_ptr<void, StoreCloser>;

struct MessageCloser {
    void operator()(void* message) const { ::CryptMsgClose(message); }
};
using MessageHandle = std::unique_ptr<void, MessageCloser>;

struct CertificateFreer {
    void operator()(const CERT_CONTEXT* certificate) const {
        ::CertFreeCertificateContext(certificate);
    }
};
using CertificateHandle = std::unique_ptr<const CERT_CONTEXT, CertificateFreer>;

class FileOwner {
public:
    explicit FileOwner(HANDLE file) : file_(file) {}
    ~FileOwner() { Close(); }
    FileOwner(const FileOwner&) = delete;
    FileOwner& operator=(const FileOwner&) = delete;

    bool valid() const { return file_ != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return file_; }
    bool Close() {
        bool ok = true;
        if (file_ != INVALID_HANDLE_VALUE) {
            ok = ::CloseHandle(file_) != FALSE;
            file_ = INVALID_HANDLE_VALUE;
        }
        return ok;
    }

private:
    HANDLE file_;
};

constexpr DWORD kMessageEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// Decodes one attribute value into a zeroed block, size first; empty on
// failure.
LocalBlock DecodeAttribute(LPCSTR structType, const CRYPT_ATTR_BLOB& value) {
    DWORD size = 0;
    if (!::CryptDecodeObject(kMessageEncoding, structType, value.pbData, value.cbData, 0, nullptr,
                             &size)) {
        return LocalBlock();
    }
    LocalBlock block(::LocalAlloc(LPTR, size));
    if (!block || !::CryptDecodeObject(kMessageEncoding, structType, value.pbData, value.cbData, 0,
                                       block.get(), &size)) {
        return LocalBlock();
    }
    return block;
}

// The first value of the first attribute with the identifier, or null.
const CRYPT_ATTR_BLOB* FirstValue(const CRYPT_ATTRIBUTES& attributes, const char* oid) {
    for (DWORD i = 0; i < attributes.cAttr; ++i) {
        const CRYPT_ATTRIBUTE& attribute = attributes.rgAttr[i];
        if (attribute.pszObjId && std::strcmp(attribute.pszObjId, oid) == 0) {
            return attribute.cValue > 0 ? &attribute.rgValue[0] : nullptr;
        }
    }
    return nullptr;
}

// A simple display name, size first; false when the call fails.
bool DisplayName(const CERT_CONTEXT* certificate, DWORD flags, std::wstring* out) {
    DWORD size = ::CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, flags, nullptr,
                                      nullptr, 0);
    if (size == 0) {
        return false;
    }
    std::vector<wchar_t> text(size);
    DWORD got = ::CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, flags, nullptr,
                                     text.data(), size);
    if (got == 0) {
        return false;
    }
    // `got` counts the terminator.
    out->assign(text.data(), got - 1);
    return true;
}

// Finds the certificate a signer names by issuer and serial number.
CertificateHandle FindSignerCertificate(HCERTSTORE store, const CERT_NAME_BLOB& issuer,
                                        const CRYPT_INTEGER_BLOB& serial) {
    CERT_INFO wanted = {};
    wanted.Issuer = issuer;
    wanted.SerialNumber = serial;
    return CertificateHandle(::CertFindCertificateInStore(
        store, kMessageEncoding, 0, CERT_FIND_SUBJECT_CERT, &wanted, nullptr));
}

void ReadCertificate(const CERT_CONTEXT* certificate, CertificateDetails* out) {
    const CRYPT_INTEGER_BLOB& serial = certificate->pCertInfo->SerialNumber;
    out->serialNumber.assign(serial.pbData, serial.pbData + serial.cbData);
    out->hasIssuerName = DisplayName(certificate, CERT_NAME_ISSUER_FLAG, &out->issuerName);
    out->hasSubjectName = DisplayName(certificate, 0, &out->subjectName);
}

// A program-name link counts only when it names a URL or a file.
bool LinkText(const SPC_LINK* link, std::wstring* out) {
    if (!link) {
        return false;
    }
    const wchar_t* text = nullptr;
    if (link->dwLinkChoice == SPC_URL_LINK_CHOICE) {
        text = link->pwszUrl;
    } else if (link->dwLinkChoice == SPC_FILE_LINK_CHOICE) {
        text = link->pwszFile;
    }
    if (!text) {
        return false;
    }
    out->assign(text);
    return true;
}

void ReadProgramInfo(const CMSG_SIGNER_INFO& signer, SignatureDetails* details) {
    const CRYPT_ATTR_BLOB* value = FirstValue(signer.AuthAttrs, SPC_SP_OPUS_INFO_OBJID);
    if (!value) {
        return;
    }
    LocalBlock block = DecodeAttribute(SPC_SP_OPUS_INFO_OBJID, *value);
    if (!block) {
        return;
    }
    const auto* info = static_cast<const SPC_SP_OPUS_INFO*>(block.get());
    if (info->pwszProgramName) {
        details->hasProgramName = true;
        details->programName = info->pwszProgramName;
    }
    details->hasPublisherLink = LinkText(info->pPublisherInfo, &details->publisherLink);
    details->hasMoreInfoLink = LinkText(info->pMoreInfo, &details->moreInfoLink);
}

// The countersignature of the time stamp, its certificate and its signing
// time in local time.
void ReadTimestamp(HCERTSTORE store, const CMSG_SIGNER_INFO& signer, SignatureDetails* details) {
    const CRYPT_ATTR_BLOB* value = FirstValue(signer.UnauthAttrs, szOID_RSA_counterSign);
    if (!value) {
        return;
    }
    LocalBlock block = DecodeAttribute(PKCS7_SIGNER_INFO, *value);
    if (!block) {
        return;
    }
    details->hasTimestampSigner = true;
    const auto* stamp = static_cast<const CMSG_SIGNER_INFO*>(block.get());
    CertificateHandle certificate =
        FindSignerCertificate(store, stamp->Issuer, stamp->SerialNumber);
    if (certificate) {
        details->timestampCertificateFound = true;
        ReadCertificate(certificate.get(), &details->timestampCertificate);
    }
    const CRYPT_ATTR_BLOB* time = FirstValue(stamp->AuthAttrs, szOID_RSA_signingTime);
    if (!time) {
        return;
    }
    FILETIME utc = {};
    DWORD size = sizeof utc;
    FILETIME local = {};
    SYSTEMTIME fields = {};
    if (!::CryptDecodeObject(kMessageEncoding, szOID_RSA_signingTime, time->pbData, time->cbData, 0,
                             &utc, &size) ||
        !::FileTimeToLocalFileTime(&utc, &local) || !::FileTimeToSystemTime(&local, &fields)) {
        return;
    }
    details->hasTimestampTime = true;
    details->timestampYear = fields.wYear;
    details->timestampMonth = fields.wMonth;
    details->timestampDay = fields.wDay;
    details->timestampHour = fields.wHour;
    details->timestampMinute = fields.wMinute;
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
        KeepLoaderError();
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
        KeepLoaderError();
        return nullptr;
    }
    return reinterpret_cast<void*>(address);
}

std::string LoaderMessage() {
    if (t_loaderError == 0) {
        return std::string();
    }
    wchar_t* text = nullptr;
    DWORD n = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, t_loaderError, 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    std::wstring message = n != 0 && text != nullptr ? std::wstring(text, n) : std::wstring();
    if (text != nullptr) {
        ::LocalFree(text);
    }
    while (!message.empty() &&
           (message.back() == L'\r' || message.back() == L'\n' || message.back() == L' ')) {
        message.pop_back();
    }
    if (message.empty()) {
        return "error " + std::to_string(t_loaderError);
    }
    return WideToUtf8(message);
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
    // Costs little without a listener, and a system-wide one (DebugView)
    // sees the lines without a debugger attached.
    ::OutputDebugStringA(text);
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

std::wstring FullPath(const std::wstring& path) {
    std::wstring system = ToSystemPath(path.c_str());
    DWORD n = ::GetFullPathNameW(system.c_str(), 0, nullptr, nullptr);
    if (n == 0) {
        return path;
    }
    std::vector<wchar_t> buf(n);
    DWORD written = ::GetFullPathNameW(system.c_str(), n, buf.data(), nullptr);
    if (written == 0 || written >= n) {
        return path;
    }
    return std::wstring(buf.data(), written);
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

TrustResult VerifyFileTrust(const std::wstring& path) {
    const std::wstring systemPath = ToSystemPath(path.c_str());
    WINTRUST_FILE_INFO file = {};
    file.cbStruct = sizeof file;
    file.pcwszFilePath = systemPath.c_str();
    file.hFile = nullptr;
    file.pgKnownSubject = nullptr;

    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    WINTRUST_DATA data = {};
    data.cbStruct = sizeof data;
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_NONE;
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &file;
    data.dwStateAction = WTD_STATEACTION_VERIFY;
    // No network: what the cache holds or nothing.
    data.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL;

    TrustResult result;
    result.status = static_cast<uint32_t>(::WinVerifyTrust(nullptr, &action, &data));
    result.lastError = static_cast<uint32_t>(::GetLastError());
    // The verify call keeps state for the caller until it is closed.
    data.dwStateAction = WTD_STATEACTION_CLOSE;
    ::WinVerifyTrust(nullptr, &action, &data);
    if (result.status != 0) {
        SetLastErrorCode(result.lastError);
    }
    return result;
}

bool ReadSignatureDetails(const std::wstring& path, SignatureDetails* details) {
    if (!details) {
        return false;
    }
    *details = SignatureDetails();
    const std::wstring systemPath = ToSystemPath(path.c_str());
    HCERTSTORE rawStore = nullptr;
    HCRYPTMSG rawMessage = nullptr;
    if (!::CryptQueryObject(CERT_QUERY_OBJECT_FILE, systemPath.c_str(),
                            CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED,
                            CERT_QUERY_FORMAT_FLAG_BINARY, 0, nullptr, nullptr, nullptr, &rawStore,
                            &rawMessage, nullptr)) {
        KeepSystemError();
        return false;
    }
    StoreHandle store(rawStore);
    MessageHandle message(rawMessage);

    DWORD size = 0;
    if (!::CryptMsgGetParam(message.get(), CMSG_SIGNER_INFO_PARAM, 0, nullptr, &size)) {
        KeepSystemError();
        return false;
    }
    LocalBlock block(::LocalAlloc(LPTR, size));
    if (!block) {
        KeepSystemError();
        return false;
    }
    if (!::CryptMsgGetParam(message.get(), CMSG_SIGNER_INFO_PARAM, 0, block.get(), &size)) {
        KeepSystemError();
        return false;
    }
    details->opened = true;
    const auto* signer = static_cast<const CMSG_SIGNER_INFO*>(block.get());

    ReadProgramInfo(*signer, details);
    CertificateHandle certificate =
        FindSignerCertificate(store.get(), signer->Issuer, signer->SerialNumber);
    if (!certificate) {
        // Without the signer's certificate the time stamp is not looked at.
        return true;
    }
    details->signerFound = true;
    ReadCertificate(certificate.get(), &details->signer);
    ReadTimestamp(store.get(), *signer, details);
    return true;
}

bool WriteFileAtomically(const std::wstring& path, const std::string& bytes) {
    const std::wstring target = ToSystemPath(path.c_str());
    // Beside the target, so that the rename stays on one volume.
    ::GUID id;
    HRESULT made = ::CoCreateGuid(&id);
    wchar_t unique[39];
    if (FAILED(made) || ::StringFromGUID2(id, unique, 39) == 0) {
        SetLastErrorCode(static_cast<uint32_t>(made));
        return false;
    }
    const std::wstring temporary = target + L"." + unique + L".tmp";
    FileOwner file(::CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.valid()) {
        KeepSystemError();
        return false;
    }
    bool written = true;
    std::size_t done = 0;
    while (written && done < bytes.size()) {
        std::size_t left = bytes.size() - done;
        DWORD chunk = left > 0x40000000u ? 0x40000000u : static_cast<DWORD>(left);
        DWORD put = 0;
        written = ::WriteFile(file.get(), bytes.data() + done, chunk, &put, nullptr) && put > 0;
        done += put;
    }
    // On disk before the rename makes it the file others read.
    written = written && ::FlushFileBuffers(file.get());
    if (!written) {
        KeepSystemError();
    }
    if (!file.Close() && written) {
        KeepSystemError();
        written = false;
    }
    if (written && ::MoveFileExW(temporary.c_str(), target.c_str(),
                                 MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return true;
    }
    if (written) {
        KeepSystemError();
    }
    ::DeleteFileW(temporary.c_str());
    return false;
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

bool SetThreadEndCallback(void (*)()) {
    return false;
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
