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

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

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

// dlerror's text in the C locale. glibc translates the message and the errno
// text when dlerror runs, so a host that set its own locale would otherwise
// get words this file can't read.
std::string LoaderMessage() {
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
        if (void* h = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL)) {
            held->push_back(h);
        } else {
            failures->push_back({name, candidate, LoaderMessage()});
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
        std::string message = LoaderMessage();
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
    }
    return address;
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

bool DebuggerPresent() {
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
    }
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

}  // namespace platform
}  // namespace qzextensionkit
