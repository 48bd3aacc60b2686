// POSIX implementation of the platform layer (Linux and similar systems).

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <locale.h>
#include <pthread.h>
#include <sched.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/asn1.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/appended_signature.h"
#include "platform/platform_internal.h"
#include "platform/utf8.h"

namespace qzextensionkit {
namespace platform {
namespace {

// Error codes reported by LastError. They carry the Windows numbers, so that
// log lines read the same on both systems.
constexpr uint32_t kErrorFileNotFound = 2;
constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorModNotFound = 126;
constexpr uint32_t kErrorProcNotFound = 127;
constexpr uint32_t kErrorBadExeFormat = 193;

using internal::SetLastErrorCode;
using internal::ShouldFail;
using testing::Operation;

// Kit paths may use "\\" as a separator; the system wants "/".
std::string ToSystemPath(const std::wstring& path) {
    std::string out = WideToUtf8(path);
    for (char& c : out) {
        if (c == '\\') {
            c = '/';
        }
    }
    return out;
}

std::mutex& DirectoryMutex() {
    static std::mutex m;
    return m;
}
std::wstring& ExtraDirectory() {
    static std::wstring dir;
    return dir;
}

bool ReadWhole(const std::string& path, std::vector<unsigned char>* out) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        return false;
    }
    unsigned char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
        out->insert(out->end(), buf, buf + n);
    }
    bool ok = !std::ferror(f);
    std::fclose(f);
    return ok;
}

// Reads the DT_NEEDED names from an ELF file's dynamic section.
template <typename Ehdr, typename Shdr, typename Dyn>
std::vector<std::string> NeededOf(const std::vector<unsigned char>& image) {
    std::vector<std::string> names;
    if (image.size() < sizeof(Ehdr)) {
        return names;
    }
    Ehdr eh;
    std::memcpy(&eh, image.data(), sizeof eh);
    if (eh.e_shentsize != sizeof(Shdr) || eh.e_shoff == 0 ||
        eh.e_shoff + static_cast<uint64_t>(eh.e_shnum) * sizeof(Shdr) > image.size()) {
        return names;
    }
    auto section = [&](size_t index) {
        Shdr sh;
        std::memcpy(&sh, image.data() + eh.e_shoff + index * sizeof(Shdr), sizeof sh);
        return sh;
    };
    for (size_t i = 0; i < eh.e_shnum; ++i) {
        Shdr dyn = section(i);
        if (dyn.sh_type != SHT_DYNAMIC || dyn.sh_link >= eh.e_shnum) {
            continue;
        }
        Shdr str = section(dyn.sh_link);
        if (dyn.sh_offset + dyn.sh_size > image.size() ||
            str.sh_offset + str.sh_size > image.size()) {
            return names;
        }
        for (uint64_t off = 0; off + sizeof(Dyn) <= dyn.sh_size; off += sizeof(Dyn)) {
            Dyn d;
            std::memcpy(&d, image.data() + dyn.sh_offset + off, sizeof d);
            if (d.d_tag == DT_NULL) {
                break;
            }
            if (d.d_tag == DT_NEEDED && d.d_un.d_val < str.sh_size) {
                const char* s =
                    reinterpret_cast<const char*>(image.data() + str.sh_offset + d.d_un.d_val);
                names.emplace_back(s, strnlen(s, str.sh_size - d.d_un.d_val));
            }
        }
        break;
    }
    return names;
}

std::vector<std::string> NeededLibraries(const std::string& path) {
    std::vector<unsigned char> image;
    if (!ReadWhole(path, &image) || image.size() < EI_NIDENT ||
        std::memcmp(image.data(), ELFMAG, SELFMAG) != 0) {
        return {};
    }
    if (image[EI_CLASS] == ELFCLASS64) {
        return NeededOf<Elf64_Ehdr, Elf64_Shdr, Elf64_Dyn>(image);
    }
    if (image[EI_CLASS] == ELFCLASS32) {
        return NeededOf<Elf32_Ehdr, Elf32_Shdr, Elf32_Dyn>(image);
    }
    return {};
}

// The loader's text of the last failure on this thread, for LoaderMessage.
thread_local std::string t_loaderMessage;

// True unless the file is an ELF image whose program headers or loaded
// segments reach past its end. glibc maps such a file all the same, and the
// first touch of a page past the end kills the process with SIGBUS; Windows
// refuses a truncated image, and so must this loader. Anything that isn't
// ELF is left to dlopen, which names its fault.
template <typename Ehdr, typename Phdr>
bool SegmentsWithin(int fd, uint64_t size) {
    Ehdr eh;
    if (::pread(fd, &eh, sizeof eh, 0) != static_cast<ssize_t>(sizeof eh)) {
        return false;
    }
    if (eh.e_phnum == 0) {
        return true;
    }
    if (eh.e_phentsize != sizeof(Phdr) || eh.e_phoff > size ||
        static_cast<uint64_t>(eh.e_phnum) * sizeof(Phdr) > size - eh.e_phoff) {
        return false;
    }
    for (uint64_t i = 0; i < eh.e_phnum; ++i) {
        Phdr ph;
        const off_t at = static_cast<off_t>(eh.e_phoff + i * sizeof(Phdr));
        if (::pread(fd, &ph, sizeof ph, at) != static_cast<ssize_t>(sizeof ph)) {
            return false;
        }
        if (ph.p_type == PT_LOAD && (ph.p_offset > size || ph.p_filesz > size - ph.p_offset)) {
            return false;
        }
    }
    return true;
}

bool WholeImage(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return true;
    }
    bool whole = true;
    struct stat st;
    unsigned char ident[EI_NIDENT];
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
        ::pread(fd, ident, sizeof ident, 0) == static_cast<ssize_t>(sizeof ident) &&
        std::memcmp(ident, ELFMAG, SELFMAG) == 0) {
        const uint64_t size = static_cast<uint64_t>(st.st_size);
        if (ident[EI_CLASS] == ELFCLASS64) {
            whole = SegmentsWithin<Elf64_Ehdr, Elf64_Phdr>(fd, size);
        } else if (ident[EI_CLASS] == ELFCLASS32) {
            whole = SegmentsWithin<Elf32_Ehdr, Elf32_Phdr>(fd, size);
        }
    }
    ::close(fd);
    return whole;
}

// dlerror's text in the C locale. glibc translates the message and the errno
// text when dlerror runs, so a host that set its own locale would otherwise
// get words this file can't read.
std::string DlErrorText() {
    static const locale_t c = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    locale_t previous = c ? ::uselocale(c) : static_cast<locale_t>(0);
    const char* text = ::dlerror();
    std::string message = text ? text : "";
    if (c) {
        ::uselocale(previous);
    }
    return message;
}

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

bool Names(const std::string& message, const std::string& file) {
    return message.size() > file.size() + 1 && message.compare(0, file.size(), file) == 0 &&
           message.compare(file.size(), 2, ": ") == 0;
}

// The Windows code for a failed dlopen of `file`, from the loader's message.
uint32_t OpenFailureCode(const std::string& file, const std::string& message) {
    // A dependency lacks a function (or the version of it) that the library
    // needs.
    static const char* const kMissingFunction[] = {"undefined symbol", "not defined in file",
                                                   "' not found (required by"};
    // The file, or a dependency, is not a library of this machine.
    static const char* const kBadImage[] = {"invalid ELF header",
                                            "file too short",
                                            "wrong ELF class",
                                            "ELF file",
                                            "nonzero padding in e_ident",
                                            "only ET_DYN and ET_EXEC",
                                            "cannot dynamically load"};
    for (const char* part : kMissingFunction) {
        if (Contains(message, part)) {
            return kErrorProcNotFound;
        }
    }
    for (const char* part : kBadImage) {
        if (Contains(message, part)) {
            return kErrorBadExeFormat;
        }
    }
    struct stat st;
    bool exists = ::stat(file.c_str(), &st) == 0;
    if (Contains(message, "cannot open shared object file")) {
        // The loader names what it could not open: the file or a dependency.
        if (!exists || !Names(message, file)) {
            return kErrorModNotFound;
        }
        // The file is there, yet the loader passed it over: it can't be read,
        // or it was built for another machine.
        return Contains(message, "Permission denied") ? kErrorAccessDenied : kErrorBadExeFormat;
    }
    return exists ? kErrorBadExeFormat : kErrorModNotFound;
}

// A dependency from the search directory that could not be opened.
struct PreloadFailure {
    std::string name;  // as the library that needs it names it
    std::string path;
    std::string message;
};

// The loader has no extra search directory of its own. Opening, by full path,
// every dependency that lies in that directory (depth first) makes glibc
// reuse it when the library itself is opened. It matches an open library by
// its soname only, so a dependency built without one is not found this way.
void PreloadFromDirectory(const std::string& library, const std::string& directory,
                          std::vector<void*>* held, std::vector<PreloadFailure>* failures,
                          int depth) {
    if (depth > 16) {
        return;
    }
    for (const std::string& name : NeededLibraries(library)) {
        if (name.find('/') != std::string::npos) {
            continue;
        }
        std::string candidate = directory + "/" + name;
        struct stat st;
        if (::stat(candidate.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
            continue;
        }
        PreloadFromDirectory(candidate, directory, held, failures, depth + 1);
        if (!WholeImage(candidate)) {
            failures->push_back({name, candidate, candidate + ": file too short"});
        } else if (void* h = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL)) {
            held->push_back(h);
        } else {
            failures->push_back({name, candidate, DlErrorText()});
        }
    }
}

}  // namespace

LibraryHandle OpenLibrary(const wchar_t* path) {
    if (ShouldFail(Operation::kOpenLibrary)) {
        return nullptr;
    }
    if (!path) {
        SetLastErrorCode(kErrorModNotFound);
        return nullptr;
    }
    std::string file = ToSystemPath(path);
    if (!WholeImage(file)) {
        SetLastErrorCode(kErrorBadExeFormat);
        t_loaderMessage = file + ": file too short";
        return nullptr;
    }
    std::wstring extra;
    {
        std::lock_guard<std::mutex> hold(DirectoryMutex());
        extra = ExtraDirectory();
    }
    std::vector<void*> preloaded;
    std::vector<PreloadFailure> failures;
    if (!extra.empty()) {
        PreloadFromDirectory(file, ToSystemPath(extra), &preloaded, &failures, 0);
    }
    void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::string failed = file;
        std::string message = DlErrorText();
        // A dependency from the search directory that failed to open shows up
        // here as not found; its own failure tells the real reason.
        for (size_t hop = 0; hop < failures.size(); ++hop) {
            auto cause = std::find_if(failures.begin(), failures.end(), [&](const auto& f) {
                return f.path != failed && Names(message, f.name);
            });
            if (cause == failures.end()) {
                break;
            }
            failed = cause->path;
            message = cause->message;
        }
        SetLastErrorCode(OpenFailureCode(failed, message));
        t_loaderMessage = message;
    }
    // The library now holds its own references to what it needs.
    for (void* h : preloaded) {
        ::dlclose(h);
    }
    return handle;
}

void* FindExport(LibraryHandle handle, const char* name) {
    if (ShouldFail(Operation::kFindExport)) {
        return nullptr;
    }
    if (!handle || !name) {
        SetLastErrorCode(kErrorProcNotFound);
        return nullptr;
    }
    void* address = ::dlsym(handle, name);
    if (!address) {
        SetLastErrorCode(kErrorProcNotFound);
        t_loaderMessage = DlErrorText();
    }
    return address;
}

std::string LoaderMessage() {
    return t_loaderMessage;
}

void CloseLibrary(LibraryHandle handle) {
    if (handle) {
        ::dlclose(handle);
    }
}

int SetLibraryDirectory(const wchar_t* directory) {
    if (ShouldFail(Operation::kSetLibraryDirectory)) {
        return 0;
    }
    std::lock_guard<std::mutex> hold(DirectoryMutex());
    ExtraDirectory() = directory ? directory : L"";
    return 1;
}

std::size_t GetLibraryDirectory(wchar_t* buffer, std::size_t capacity) {
    if (!buffer || capacity == 0) {
        return 0;
    }
    std::lock_guard<std::mutex> hold(DirectoryMutex());
    const std::wstring& dir = ExtraDirectory();
    std::size_t n = dir.size() < capacity ? dir.size() : capacity - 1;
    std::wmemcpy(buffer, dir.data(), n);
    buffer[n] = L'\0';
    return n;
}

namespace {

bool ReadTracerPresent() {
    // A debugger here is a tracer; the status file names its process.
    int fd = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char status[4096];
    size_t used = 0;
    while (used < sizeof status - 1) {
        ssize_t n = ::read(fd, status + used, sizeof status - 1 - used);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        used += static_cast<size_t>(n);
    }
    ::close(fd);
    status[used] = '\0';
    const char* field = std::strstr(status, "\nTracerPid:");
    if (!field) {
        return false;
    }
    field += std::strlen("\nTracerPid:");
    while (*field == ' ' || *field == '\t') {
        ++field;
    }
    return *field >= '1' && *field <= '9';
}

}  // namespace

bool DebuggerPresent() {
    // The kernel writes the whole status file for each read, which costs
    // more than the rest of a request for an extension. The answer is kept
    // for a tenth of a second: a debugger that attaches sees the loader's
    // lines from then on.
    constexpr int64_t kRecheckNs = 100 * 1000 * 1000;
    static std::atomic<int64_t> checkedAt{0};
    static std::atomic<bool> present{false};
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t nowNs = static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec + 1;
    const int64_t last = checkedAt.load(std::memory_order_acquire);
    if (last != 0 && nowNs - last < kRecheckNs) {
        return present.load(std::memory_order_relaxed);
    }
    const bool traced = ReadTracerPresent();
    present.store(traced, std::memory_order_relaxed);
    checkedAt.store(nowNs, std::memory_order_release);
    return traced;
}

void DebugOutput(const char* text) {
    if (!text || internal::CaptureDebugOutput(text)) {
        return;
    }
    // Standard error is the nearest thing to a debugger channel here. As on
    // Windows, nobody sees the text unless a debugger is attached, so it
    // must not land in the host's console otherwise.
    if (DebuggerPresent()) {
        std::fputs(text, stderr);
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
    std::vector<char> buf(4096);
    for (;;) {
        ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size());
        if (n < 0) {
            SetLastErrorCode(kErrorFileNotFound);
            return std::wstring();
        }
        if (static_cast<size_t>(n) < buf.size()) {
            return Utf8ToWide(buf.data(), static_cast<size_t>(n));
        }
        buf.resize(buf.size() * 2);
    }
}

std::wstring FullPath(const std::wstring& path) {
    std::string file = ToSystemPath(path);
    if (file.empty() || file[0] == '/') {
        return path;
    }
    std::vector<char> buf(4096);
    while (::getcwd(buf.data(), buf.size()) == nullptr) {
        if (errno != ERANGE) {
            return path;
        }
        buf.resize(buf.size() * 2);
    }
    std::string directory = buf.data();
    if (directory.empty() || directory.back() != '/') {
        directory += '/';
    }
    return Utf8ToWide(directory.data(), directory.size()) + path;
}

bool FileExists(const std::wstring& path) {
    if (ShouldFail(Operation::kFileExists)) {
        return false;
    }
    struct stat st;
    if (::stat(ToSystemPath(path).c_str(), &st) != 0) {
        SetLastErrorCode(kErrorFileNotFound);
        return false;
    }
    return true;
}

FileHandle OpenFileForRead(const std::wstring& path) {
    if (ShouldFail(Operation::kOpenFile)) {
        return nullptr;
    }
    std::string file = ToSystemPath(path);
    struct stat st;
    // A directory opens on POSIX but reads fail; refuse it up front as
    // Windows does.
    if (::stat(file.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        SetLastErrorCode(5);
        return nullptr;
    }
    FILE* f = std::fopen(file.c_str(), "rb");
    if (!f) {
        SetLastErrorCode(kErrorFileNotFound);
        return nullptr;
    }
    // Callers read in small blocks (the library digest takes 1,024 bytes at
    // a time); a larger buffer saves most of the system calls.
    std::setvbuf(f, nullptr, _IOFBF, 65536);
    return f;
}

long long ReadFromFile(FileHandle file, void* buffer, std::size_t size) {
    if (ShouldFail(Operation::kReadFile)) {
        return -1;
    }
    FILE* f = static_cast<FILE*>(file);
    size_t n = std::fread(buffer, 1, size, f);
    if (n == 0 && std::ferror(f)) {
        return -1;
    }
    return static_cast<long long>(n);
}

void CloseFile(FileHandle file) {
    if (file) {
        std::fclose(static_cast<FILE*>(file));
    }
}

// ---- Code signing -----------------------------------------------------------
// Linux has no code-signing service: libcrypto stands in for it. The
// signature is appended to the library (appended_signature.h), and trust
// comes from OpenSSL's default certificate file and directory.

namespace {

// Windows statuses the trust check gives beyond those platform.h names.
constexpr uint32_t kTrustSystemError = 0x80096001;       // TRUST_E_SYSTEM_ERROR
constexpr uint32_t kTrustNoSignerCert = 0x80096002;      // TRUST_E_NO_SIGNER_CERT
constexpr uint32_t kTrustCertSignature = 0x80096004;     // TRUST_E_CERT_SIGNATURE
constexpr uint32_t kTrustBasicConstraints = 0x80096019;  // TRUST_E_BASIC_CONSTRAINTS
constexpr uint32_t kTrustPathLength = 0x800B0104;        // CERT_E_PATHLENCONST
constexpr uint32_t kTrustCritical = 0x800B0105;          // CERT_E_CRITICAL
constexpr uint32_t kTrustFail = 0x800B010B;              // TRUST_E_FAIL
constexpr uint32_t kBadAlgorithm = 0x80090008;           // NTE_BAD_ALGID
constexpr uint32_t kAsn1EndOfData = 0x80093102;          // CRYPT_E_ASN1_EOD
constexpr uint32_t kAsn1BadTag = 0x8009310B;             // CRYPT_E_ASN1_BADTAG
constexpr uint32_t kFileNotFoundStatus = 0x80070002;     // ERROR_FILE_NOT_FOUND as HRESULT
constexpr uint32_t kAccessDeniedStatus = 0x80070005;     // ERROR_ACCESS_DENIED as HRESULT
constexpr uint32_t kFileErrorStatus = 0x80092003;        // CRYPT_E_FILE_ERROR

template <auto Free>
struct OpenSslFree {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};
struct CertStackFree {
    void operator()(STACK_OF(X509) * certs) const { sk_X509_pop_free(certs, X509_free); }
};
struct OpenSslBytesFree {
    void operator()(unsigned char* bytes) const { OPENSSL_free(bytes); }
};
using CmsPtr = std::unique_ptr<CMS_ContentInfo, OpenSslFree<&CMS_ContentInfo_free>>;
using BioPtr = std::unique_ptr<BIO, OpenSslFree<&BIO_free_all>>;
using StorePtr = std::unique_ptr<X509_STORE, OpenSslFree<&X509_STORE_free>>;
using StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, OpenSslFree<&X509_STORE_CTX_free>>;
using CertStackPtr = std::unique_ptr<STACK_OF(X509), CertStackFree>;
using GeneralNamesPtr = std::unique_ptr<GENERAL_NAMES, OpenSslFree<&GENERAL_NAMES_free>>;
using Pkcs7SignerPtr = std::unique_ptr<PKCS7_SIGNER_INFO, OpenSslFree<&PKCS7_SIGNER_INFO_free>>;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, OpenSslFree<&ASN1_OBJECT_free>>;
using OpenSslBytes = std::unique_ptr<unsigned char, OpenSslBytesFree>;

struct FdCloser {
    int fd;
    ~FdCloser() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

bool ReadAt(int fd, uint64_t offset, void* buffer, std::size_t size) {
    auto* out = static_cast<unsigned char*>(buffer);
    while (size > 0) {
        ssize_t n = ::pread(fd, out, size, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        out += n;
        offset += static_cast<uint64_t>(n);
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

enum class SignedFileRead {
    kOk,
    kOpenFailed,
    kReadFailed,
    kTooLarge,  // more than libcrypto's memory streams take
    kUnsigned,
    kTruncated,
    kMalformed
};

struct SignedFile {
    // The library's own bytes, when asked for. Read, not mapped: a file cut
    // short under a mapping would kill the host with SIGBUS.
    std::unique_ptr<char[]> content;
    std::size_t contentSize = 0;
    std::string block;  // the DER CMS SignedData
};

// Reads the signature block of a file, and the bytes it signs when
// `withContent` is set. `*error` gets errno when the file can't be opened.
SignedFileRead ReadSignedFile(const std::wstring& path, bool withContent, SignedFile* out,
                              int* error) {
    FdCloser file{::open(ToSystemPath(path).c_str(), O_RDONLY | O_CLOEXEC)};
    if (file.fd < 0) {
        *error = errno;
        return SignedFileRead::kOpenFailed;
    }
    struct stat st;
    if (::fstat(file.fd, &st) != 0) {
        *error = errno;
        return SignedFileRead::kOpenFailed;
    }
    if (!S_ISREG(st.st_mode)) {
        *error = EISDIR;
        return SignedFileRead::kOpenFailed;
    }
    uint64_t size = static_cast<uint64_t>(st.st_size);
    unsigned char tail[kAppendedSignatureTailSize];
    std::size_t have =
        size < sizeof tail ? static_cast<std::size_t>(size) : kAppendedSignatureTailSize;
    if (!ReadAt(file.fd, size - have, tail, have)) {
        return SignedFileRead::kReadFailed;
    }
    uint32_t blockSize = 0;
    switch (ParseAppendedSignatureTail(tail, size, &blockSize)) {
        case AppendedSignature::kNone:
            return SignedFileRead::kUnsigned;
        case AppendedSignature::kTruncated:
            return SignedFileRead::kTruncated;
        case AppendedSignature::kMalformed:
            return SignedFileRead::kMalformed;
        case AppendedSignature::kPresent:
            break;
    }
    uint64_t contentSize = size - kAppendedSignatureTailSize - blockSize;
    out->block.resize(blockSize);
    if (!ReadAt(file.fd, contentSize, &out->block[0], blockSize)) {
        return SignedFileRead::kReadFailed;
    }
    if (withContent) {
        if (contentSize > static_cast<uint64_t>(INT_MAX)) {
            return SignedFileRead::kTooLarge;
        }
        out->contentSize = static_cast<std::size_t>(contentSize);
        out->content.reset(new char[out->contentSize]);
        if (!ReadAt(file.fd, 0, out->content.get(), out->contentSize)) {
            return SignedFileRead::kReadFailed;
        }
    }
    return SignedFileRead::kOk;
}

// The block as a detached SignedData with at least one signer; null for
// anything else, trailing bytes included.
CmsPtr ParseSignatureBlock(const std::string& block) {
    const auto* start = reinterpret_cast<const unsigned char*>(block.data());
    const unsigned char* p = start;
    CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(block.size())));
    if (!cms || p != start + block.size()) {
        return nullptr;
    }
    if (OBJ_obj2nid(CMS_get0_type(cms.get())) != NID_pkcs7_signed ||
        CMS_is_detached(cms.get()) != 1) {
        return nullptr;
    }
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms.get());
    if (!signers || sk_CMS_SignerInfo_num(signers) < 1) {
        return nullptr;
    }
    return cms;
}

CMS_SignerInfo* FirstSigner(CMS_ContentInfo* cms) {
    return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0);
}

bool IsWeakDigest(int nid) {
    return nid == NID_md5 || nid == NID_sha1 || nid == NID_md5_sha1 || nid == NID_md4 ||
           nid == NID_md2;
}

// MD5 and SHA-1 no longer bind a signature to its content.
bool UsesWeakDigest(CMS_ContentInfo* cms) {
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
    for (int i = 0; i < sk_CMS_SignerInfo_num(signers); ++i) {
        X509_ALGOR* digest = nullptr;
        X509_ALGOR* signature = nullptr;
        CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(signers, i), nullptr, nullptr, &digest,
                                 &signature);
        const ASN1_OBJECT* object = nullptr;
        X509_ALGOR_get0(&object, nullptr, nullptr, digest);
        if (IsWeakDigest(OBJ_obj2nid(object))) {
            return true;
        }
        X509_ALGOR_get0(&object, nullptr, nullptr, signature);
        int signatureDigest = NID_undef;
        if (OBJ_find_sigid_algs(OBJ_obj2nid(object), &signatureDigest, nullptr) &&
            IsWeakDigest(signatureDigest)) {
            return true;
        }
    }
    return false;
}

// OpenSSL's default certificate file and directory, loaded once: reading the
// system's certificates costs more than a whole check.
X509_STORE* TrustStore() {
    static const StorePtr store = [] {
        StorePtr built(X509_STORE_new());
        if (built && X509_STORE_set_default_paths(built.get()) != 1) {
            built.reset();
        }
        return built;
    }();
    return store.get();
}

uint32_t ChainStatus(int error) {
    switch (error) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return kTrustExpired;
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_CERT_UNTRUSTED:
            return kTrustUntrustedRoot;
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return kTrustChaining;
        case X509_V_ERR_CERT_REJECTED:
            return kTrustExplicitDistrust;
        case X509_V_ERR_INVALID_PURPOSE:
            return kTrustWrongUsage;
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
        case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
        case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
            return kTrustCertSignature;
        case X509_V_ERR_CA_MD_TOO_WEAK:
        case X509_V_ERR_CA_KEY_TOO_SMALL:
        case X509_V_ERR_EE_KEY_TOO_SMALL:
            return kBadAlgorithm;
        case X509_V_ERR_INVALID_CA:
        case X509_V_ERR_INVALID_NON_CA:
            return kTrustBasicConstraints;
        case X509_V_ERR_PATH_LENGTH_EXCEEDED:
            return kTrustPathLength;
        case X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION:
            return kTrustCritical;
        default:
            return kTrustFail;
    }
}

// True when an error of `reason` from `library` is queued; empties the
// queue.
bool DrainErrorsFor(int library, int reason) {
    bool found = false;
    while (unsigned long error = ERR_get_error()) {
        if (ERR_GET_LIB(error) == library && ERR_GET_REASON(error) == reason) {
            found = true;
        }
    }
    return found;
}

TrustResult Trust(uint32_t status) {
    return TrustResult{status, status};
}

TrustResult CheckFileTrust(const std::wstring& path) {
    SignedFile file;
    int openError = 0;
    switch (ReadSignedFile(path, true, &file, &openError)) {
        case SignedFileRead::kOk:
            break;
        case SignedFileRead::kOpenFailed:
            if (openError == ENOENT || openError == ENOTDIR) {
                return Trust(kFileNotFoundStatus);
            }
            return Trust(openError == EACCES || openError == EPERM || openError == EISDIR
                             ? kAccessDeniedStatus
                             : kFileErrorStatus);
        case SignedFileRead::kReadFailed:
        case SignedFileRead::kTooLarge:
            return Trust(kFileErrorStatus);
        case SignedFileRead::kUnsigned:
            return Trust(kTrustNoSignature);
        // A damaged block reads as no signature, with the decoder's complaint
        // as the last error, as on Windows.
        case SignedFileRead::kTruncated:
            return TrustResult{kTrustNoSignature, kAsn1EndOfData};
        case SignedFileRead::kMalformed:
            return TrustResult{kTrustNoSignature, kAsn1BadTag};
    }
    CmsPtr cms = ParseSignatureBlock(file.block);
    if (!cms) {
        return TrustResult{kTrustNoSignature, kAsn1BadTag};
    }
    if (UsesWeakDigest(cms.get())) {
        return Trust(kBadAlgorithm);
    }

    // The content's digest and the signature first, then the signer's chain.
    BioPtr content(BIO_new_mem_buf(file.content.get(), static_cast<int>(file.contentSize)));
    if (!content) {
        return Trust(kTrustSystemError);
    }
    ERR_clear_error();
    if (CMS_verify(cms.get(), nullptr, nullptr, content.get(), nullptr,
                   CMS_DETACHED | CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) != 1) {
        if (DrainErrorsFor(ERR_LIB_CMS, CMS_R_SIGNER_CERTIFICATE_NOT_FOUND)) {
            return Trust(kTrustNoSignerCert);
        }
        return Trust(kTrustBadDigest);
    }

    X509* signer = nullptr;
    CMS_SignerInfo_get0_algs(FirstSigner(cms.get()), nullptr, &signer, nullptr, nullptr);
    X509_STORE* store = TrustStore();
    if (!signer || !store) {
        return Trust(kTrustSystemError);
    }
    CertStackPtr intermediates(CMS_get1_certs(cms.get()));
    StoreCtxPtr ctx(X509_STORE_CTX_new());
    if (!ctx || X509_STORE_CTX_init(ctx.get(), store, signer, intermediates.get()) != 1) {
        return Trust(kTrustSystemError);
    }
    // Trust settings for code signing count: a root marked as rejected for
    // it is distrusted. Weak certificate signatures (MD5, SHA-1) and keys
    // below 80 bits of strength are refused.
    X509_STORE_CTX_set_trust(ctx.get(), X509_TRUST_OBJECT_SIGN);
    X509_VERIFY_PARAM_set_auth_level(X509_STORE_CTX_get0_param(ctx.get()), 1);
    if (X509_verify_cert(ctx.get()) != 1) {
        return Trust(ChainStatus(X509_STORE_CTX_get_error(ctx.get())));
    }
    // A certificate that limits its use must allow code signing.
    STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(ctx.get());
    for (int i = 0; i < sk_X509_num(chain); ++i) {
        X509* cert = sk_X509_value(chain, i);
        if ((X509_get_extension_flags(cert) & EXFLAG_XKUSAGE) &&
            !(X509_get_extended_key_usage(cert) & XKU_CODE_SIGN)) {
            return Trust(kTrustWrongUsage);
        }
    }
    return Trust(0);
}

bool Asn1Text(const ASN1_STRING* value, std::wstring* out) {
    unsigned char* utf8 = nullptr;
    int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length < 0) {
        return false;
    }
    OpenSslBytes hold(utf8);
    *out = Utf8ToWide(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(length));
    return true;
}

// Windows' simple display name: the first common name, unit, organisation
// or e-mail attribute, else the first e-mail alternative name, else the
// first attribute of the name. A name with none of these is an empty text,
// as Windows gives it (one character, the terminator), not a failure.
bool SimpleDisplayName(X509* cert, bool issuer, std::wstring* out) {
    const X509_NAME* name = issuer ? X509_get_issuer_name(cert) : X509_get_subject_name(cert);
    static const int kPreferred[] = {NID_commonName, NID_organizationalUnitName,
                                     NID_organizationName, NID_pkcs9_emailAddress};
    for (int nid : kPreferred) {
        int index = X509_NAME_get_index_by_NID(name, nid, -1);
        if (index >= 0) {
            return Asn1Text(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)), out);
        }
    }
    GeneralNamesPtr alternatives(static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(
        cert, issuer ? NID_issuer_alt_name : NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; alternatives && i < sk_GENERAL_NAME_num(alternatives.get()); ++i) {
        const GENERAL_NAME* alternative = sk_GENERAL_NAME_value(alternatives.get(), i);
        if (alternative->type == GEN_EMAIL) {
            return Asn1Text(alternative->d.rfc822Name, out);
        }
    }
    if (X509_NAME_entry_count(name) > 0) {
        return Asn1Text(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, 0)), out);
    }
    out->clear();
    return true;
}

// The serial number's content octets, least significant first, as Windows
// keeps them (a leading zero octet included).
std::vector<uint8_t> SerialBytes(const ASN1_INTEGER* serial) {
    unsigned char* der = nullptr;
    int size = i2d_ASN1_INTEGER(serial, &der);
    if (size <= 0) {
        return {};
    }
    OpenSslBytes hold(der);
    const unsigned char* p = der;
    long length = 0;
    int tag = 0;
    int cls = 0;
    if (ASN1_get_object(&p, &length, &tag, &cls, size) & 0x80) {
        return {};
    }
    return std::vector<uint8_t>(std::make_reverse_iterator(p + length),
                                std::make_reverse_iterator(p));
}

void DescribeCertificate(X509* cert, CertificateDetails* out) {
    out->serialNumber = SerialBytes(X509_get0_serialNumber(cert));
    out->hasIssuerName = SimpleDisplayName(cert, true, &out->issuerName);
    out->hasSubjectName = SimpleDisplayName(cert, false, &out->subjectName);
}

// One DER element at `*p`; moves `*p` past it.
struct DerElement {
    int tag = 0;
    int cls = 0;
    bool constructed = false;
    const unsigned char* content = nullptr;
    long length = 0;
};

bool NextElement(const unsigned char** p, long* left, DerElement* out) {
    const unsigned char* q = *p;
    int flags = ASN1_get_object(&q, &out->length, &out->tag, &out->cls, *left);
    // 0x80: malformed; 1: indefinite length, which DER does not allow.
    if ((flags & 0x80) || (flags & 1)) {
        return false;
    }
    out->constructed = (flags & V_ASN1_CONSTRUCTED) != 0;
    out->content = q;
    long used = static_cast<long>(q - *p) + out->length;
    *p += used;
    *left -= used;
    return true;
}

// SpcString: [0] BMPString or [1] IA5String, tagged implicitly.
bool SpcStringText(const unsigned char* p, long left, std::wstring* out) {
    DerElement e;
    if (!NextElement(&p, &left, &e) || e.cls != V_ASN1_CONTEXT_SPECIFIC || e.constructed) {
        return false;
    }
    if (e.tag == 1) {
        *out = Utf8ToWide(reinterpret_cast<const char*>(e.content),
                          static_cast<std::size_t>(e.length));
        return true;
    }
    if (e.tag != 0 || e.length % 2 != 0) {
        return false;
    }
    std::string utf8;
    for (long i = 0; i < e.length; i += 2) {
        uint32_t unit = (uint32_t(e.content[i]) << 8) | e.content[i + 1];
        if (unit >= 0xD800 && unit < 0xDC00 && i + 3 < e.length) {
            uint32_t low = (uint32_t(e.content[i + 2]) << 8) | e.content[i + 3];
            if (low >= 0xDC00 && low < 0xE000) {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                i += 2;
            }
        }
        if (unit >= 0xD800 && unit < 0xE000) {
            unit = 0xFFFD;
        }
        AppendUtf8(&utf8, unit);
    }
    *out = Utf8ToWide(utf8.data(), utf8.size());
    return true;
}

// SpcLink: a URL ([0] IA5String) or a file ([2] SpcString); a moniker ([1])
// counts as absent.
bool SpcLinkText(const unsigned char* p, long left, std::wstring* out) {
    DerElement e;
    if (!NextElement(&p, &left, &e) || e.cls != V_ASN1_CONTEXT_SPECIFIC) {
        return false;
    }
    if (e.tag == 0 && !e.constructed) {
        *out = Utf8ToWide(reinterpret_cast<const char*>(e.content),
                          static_cast<std::size_t>(e.length));
        return true;
    }
    if (e.tag == 2 && e.constructed) {
        return SpcStringText(e.content, e.length, out);
    }
    return false;
}

// DER of the first value of an attribute.
std::string FirstValueDer(X509_ATTRIBUTE* attribute) {
    ASN1_TYPE* value = attribute ? X509_ATTRIBUTE_get0_type(attribute, 0) : nullptr;
    unsigned char* der = nullptr;
    int size = value ? i2d_ASN1_TYPE(value, &der) : 0;
    if (size <= 0) {
        return std::string();
    }
    OpenSslBytes hold(der);
    return std::string(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size));
}

// The program-name attribute (SpcSpOpusInfo): a SEQUENCE of a program name
// [0], a more-info link [1] and a publisher link [2], each optional.
void ReadProgramName(CMS_SignerInfo* signer, SignatureDetails* out) {
    ObjectPtr oid(OBJ_txt2obj("1.3.6.1.4.1.311.2.1.12", 1));
    int index = oid ? CMS_signed_get_attr_by_OBJ(signer, oid.get(), -1) : -1;
    if (index < 0) {
        return;
    }
    std::string der = FirstValueDer(CMS_signed_get_attr(signer, index));
    const auto* p = reinterpret_cast<const unsigned char*>(der.data());
    long left = static_cast<long>(der.size());
    DerElement info;
    if (der.empty() || !NextElement(&p, &left, &info) || info.tag != V_ASN1_SEQUENCE ||
        !info.constructed) {
        return;
    }
    p = info.content;
    left = info.length;
    DerElement field;
    while (left > 0 && NextElement(&p, &left, &field)) {
        if (field.cls != V_ASN1_CONTEXT_SPECIFIC || !field.constructed) {
            continue;
        }
        if (field.tag == 0) {
            out->hasProgramName = SpcStringText(field.content, field.length, &out->programName);
        } else if (field.tag == 1) {
            out->hasMoreInfoLink = SpcLinkText(field.content, field.length, &out->moreInfoLink);
        } else if (field.tag == 2) {
            out->hasPublisherLink = SpcLinkText(field.content, field.length, &out->publisherLink);
        }
    }
}

X509* FindSignerCertificate(CMS_SignerInfo* signer, STACK_OF(X509) * certs) {
    for (int i = 0; certs && i < sk_X509_num(certs); ++i) {
        if (CMS_SignerInfo_cert_cmp(signer, sk_X509_value(certs, i)) == 0) {
            return sk_X509_value(certs, i);
        }
    }
    return nullptr;
}

// A countersignature (a PKCS#7 SignerInfo as an unsigned attribute): its
// certificate from the same set, and its signing time in local time.
void ReadCountersignature(CMS_SignerInfo* signer, STACK_OF(X509) * certs, SignatureDetails* out) {
    int index = CMS_unsigned_get_attr_by_NID(signer, NID_pkcs9_countersignature, -1);
    if (index < 0) {
        return;
    }
    std::string der = FirstValueDer(CMS_unsigned_get_attr(signer, index));
    const auto* p = reinterpret_cast<const unsigned char*>(der.data());
    Pkcs7SignerPtr counter(
        der.empty() ? nullptr : d2i_PKCS7_SIGNER_INFO(nullptr, &p, static_cast<long>(der.size())));
    if (!counter || !counter->issuer_and_serial) {
        return;
    }
    out->hasTimestampSigner = true;
    if (X509* cert = certs
                         ? X509_find_by_issuer_and_serial(certs, counter->issuer_and_serial->issuer,
                                                          counter->issuer_and_serial->serial)
                         : nullptr) {
        out->timestampCertificateFound = true;
        DescribeCertificate(cert, &out->timestampCertificate);
    }
    ASN1_TYPE* when = PKCS7_get_signed_attribute(counter.get(), NID_pkcs9_signingTime);
    if (!when || (when->type != V_ASN1_UTCTIME && when->type != V_ASN1_GENERALIZEDTIME)) {
        return;
    }
    struct tm utc {};
    if (ASN1_TIME_to_tm(when->value.utctime, &utc) != 1) {
        return;
    }
    time_t seconds = ::timegm(&utc);
    struct tm local {};
    if (!::localtime_r(&seconds, &local)) {
        return;
    }
    out->hasTimestampTime = true;
    out->timestampYear = local.tm_year + 1900;
    out->timestampMonth = local.tm_mon + 1;
    out->timestampDay = local.tm_mday;
    out->timestampHour = local.tm_hour;
    out->timestampMinute = local.tm_min;
}

bool ReadDetails(const std::wstring& path, SignatureDetails* details) {
    SignedFile file;
    int openError = 0;
    if (ReadSignedFile(path, false, &file, &openError) != SignedFileRead::kOk) {
        return false;
    }
    CmsPtr cms = ParseSignatureBlock(file.block);
    if (!cms) {
        return false;
    }
    CMS_SignerInfo* signer = FirstSigner(cms.get());
    details->opened = true;
    ReadProgramName(signer, details);
    CertStackPtr certs(CMS_get1_certs(cms.get()));
    X509* cert = FindSignerCertificate(signer, certs.get());
    if (!cert) {
        return true;
    }
    details->signerFound = true;
    DescribeCertificate(cert, &details->signer);
    ReadCountersignature(signer, certs.get(), details);
    return true;
}

uint32_t WriteErrorCode(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return 3;  // ERROR_PATH_NOT_FOUND
        case EACCES:
        case EPERM:
        case EROFS:
            return kErrorAccessDenied;
        case ENOSPC:
        case EDQUOT:
            return 112;  // ERROR_DISK_FULL
        default:
            return 29;  // ERROR_WRITE_FAULT
    }
}

bool WriteAll(int fd, const std::string& bytes) {
    const char* p = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n == 0) {
                errno = EIO;
            }
            return false;
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

TrustResult VerifyFileTrust(const std::wstring& path) {
    TrustResult result;
    try {
        result = CheckFileTrust(path);
    } catch (const std::exception&) {
        result = Trust(kTrustSystemError);
    }
    // libcrypto's complaints stay here: its queue is per thread.
    ERR_clear_error();
    SetLastErrorCode(result.lastError);
    return result;
}

bool ReadSignatureDetails(const std::wstring& path, SignatureDetails* details) {
    if (!details) {
        return false;
    }
    *details = SignatureDetails();
    bool read = false;
    try {
        read = ReadDetails(path, details);
    } catch (const std::exception&) {
        *details = SignatureDetails();
        read = false;
    }
    ERR_clear_error();
    return read;
}

bool WriteFileAtomically(const std::wstring& path, const std::string& bytes) {
    std::string target = ToSystemPath(path);
    // Replace what a link points to, not the link.
    struct stat st;
    if (::lstat(target.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        if (char* real = ::realpath(target.c_str(), nullptr)) {
            target = real;
            std::free(real);
        }
    }
    bool existing = ::stat(target.c_str(), &st) == 0;
    if (existing && !S_ISREG(st.st_mode)) {
        SetLastErrorCode(kErrorAccessDenied);
        return false;
    }
    std::size_t slash = target.rfind('/');
    std::string directory = slash == std::string::npos ? "." : target.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? target : target.substr(slash + 1);

    // A new name beside the file, so that the rename stays on one file system.
    std::string temp;
    int fd = -1;
    for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
        unsigned char random[8];
        if (::getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
            SetLastErrorCode(29);
            return false;
        }
        char suffix[17];
        for (int i = 0; i < 8; ++i) {
            std::snprintf(suffix + 2 * i, 3, "%02x", random[i]);
        }
        temp = (slash == std::string::npos ? std::string() : directory) + "." + name + "." +
               suffix + ".tmp";
        fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) {
            SetLastErrorCode(WriteErrorCode(errno));
            return false;
        }
    }
    if (fd < 0) {
        SetLastErrorCode(80);  // ERROR_FILE_EXISTS
        return false;
    }
    // The replacement keeps the permissions of the file it replaces: a
    // library stays executable.
    bool ok = (!existing || ::fchmod(fd, st.st_mode & 07777) == 0) && WriteAll(fd, bytes) &&
              ::fsync(fd) == 0;
    int error = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (ok && ::rename(temp.c_str(), target.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        ::unlink(temp.c_str());
        SetLastErrorCode(WriteErrorCode(error));
        return false;
    }
    // Make the rename itself durable.
    FdCloser dir{::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (dir.fd >= 0) {
        ::fsync(dir.fd);
    }
    return true;
}

bool CreateGuid(by::GUID* out) {
    if (!out || ShouldFail(Operation::kCreateGuid)) {
        return false;
    }
    unsigned char bytes[16];
    size_t got = 0;
    while (got < sizeof bytes) {
        ssize_t n = ::getrandom(bytes + got, sizeof bytes - got, 0);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            SetLastErrorCode(static_cast<uint32_t>(errno));
            return false;
        }
        got += static_cast<size_t>(n);
    }
    // Version 4, variant 10xx.
    out->Data1 = (uint32_t(bytes[0]) << 24) | (uint32_t(bytes[1]) << 16) |
                 (uint32_t(bytes[2]) << 8) | bytes[3];
    out->Data2 = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
    out->Data3 = static_cast<uint16_t>((((bytes[6] << 8) | bytes[7]) & 0x0FFF) | 0x4000);
    std::memcpy(out->Data4, bytes + 8, 8);
    out->Data4[0] = static_cast<uint8_t>((out->Data4[0] & 0x3F) | 0x80);
    return true;
}

std::wstring FormatGuid(const by::GUID& id) {
    static const wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring out;
    out.reserve(38);
    auto put = [&](uint32_t value, int digits) {
        for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
            out.push_back(kDigits[(value >> shift) & 0xF]);
        }
    };
    out.push_back(L'{');
    put(id.Data1, 8);
    out.push_back(L'-');
    put(id.Data2, 4);
    out.push_back(L'-');
    put(id.Data3, 4);
    out.push_back(L'-');
    put(id.Data4[0], 2);
    put(id.Data4[1], 2);
    out.push_back(L'-');
    for (int i = 2; i < 8; ++i) {
        put(id.Data4[i], 2);
    }
    out.push_back(L'}');
    return out;
}

bool RunOnce(OnceFlag* flag, void (*fn)(void*), void* context) {
    if (ShouldFail(Operation::kRunOnce)) {
        return false;
    }
    // The word goes 0 (not run) -> 1 (running) -> 2 (done).
    auto* word = reinterpret_cast<uintptr_t*>(&flag->word);
    uintptr_t state = __atomic_load_n(word, __ATOMIC_ACQUIRE);
    if (state == 2) {
        return true;
    }
    uintptr_t expected = 0;
    if (__atomic_compare_exchange_n(word, &expected, 1, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE)) {
        fn(context);
        __atomic_store_n(word, 2, __ATOMIC_RELEASE);
        return true;
    }
    while (__atomic_load_n(word, __ATOMIC_ACQUIRE) != 2) {
        ::sched_yield();
    }
    return true;
}

RecursiveLock::RecursiveLock() {
    static_assert(sizeof(pthread_mutex_t) <= sizeof(storage_), "lock storage too small");
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(new (storage_) pthread_mutex_t, &attr);
    pthread_mutexattr_destroy(&attr);
}

RecursiveLock::~RecursiveLock() {
    pthread_mutex_destroy(reinterpret_cast<pthread_mutex_t*>(storage_));
}

void RecursiveLock::Lock() {
    pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(storage_));
}
void RecursiveLock::Unlock() {
    pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(storage_));
}

void YieldThread() {
    ::sched_yield();
}

bool SetThreadEndCallback(void (*callback)()) {
    struct Hook {
        void (*callback)() = nullptr;
        ~Hook() {
            if (callback) {
                callback();
            }
        }
    };
    static thread_local Hook hook;
    hook.callback = callback;
    return true;
}

}  // namespace platform
}  // namespace qzextensionkit
