#include "qzekit/library_probe.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/utf_string_conversions.h"
#include "component/com_loader.h"
#include "component/guid.h"
#include "platform/platform.h"

namespace qzekit {
namespace {

namespace platform = qzextensionkit::platform;

// Little-endian fields of a file image; 0 past its end, which no valid
// header holds where these are read.
uint32_t U16(const std::string& image, uint64_t offset) {
    if (offset + 2 > image.size()) {
        return 0;
    }
    auto byte = [&](uint64_t i) { return static_cast<uint32_t>(static_cast<uint8_t>(image[i])); };
    return byte(offset) | byte(offset + 1) << 8;
}
uint32_t U32(const std::string& image, uint64_t offset) {
    return offset + 4 > image.size() ? 0 : U16(image, offset) | U16(image, offset + 2) << 16;
}
uint64_t U64(const std::string& image, uint64_t offset) {
    return offset + 8 > image.size()
               ? 0
               : U32(image, offset) | static_cast<uint64_t>(U32(image, offset + 4)) << 32;
}
std::string CString(const std::string& image, uint64_t offset) {
    if (offset >= image.size()) {
        return std::string();
    }
    std::size_t end = image.find('\0', static_cast<std::size_t>(offset));
    return image.substr(static_cast<std::size_t>(offset),
                        end == std::string::npos ? std::string::npos : end - offset);
}

std::string Hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04x", static_cast<unsigned>(value));
    return text;
}

std::string ElfMachineName(uint32_t machine, bool wide) {
    switch (machine) {
        case 3:
            return "x86";
        case 62:
            return "x86-64";
        case 40:
            return "ARM";
        case 183:
            return "ARM64";
        case 243:
            return wide ? "RISC-V 64" : "RISC-V 32";
        case 8:
            return "MIPS";
        case 20:
            return "PowerPC";
        case 21:
            return "PowerPC 64";
        case 22:
            return "s390";
        case 258:
            return "LoongArch";
        default:
            return "machine " + Hex(machine);
    }
}

std::string PeMachineName(uint32_t machine) {
    switch (machine) {
        case 0x14c:
            return "x86";
        case 0x8664:
            return "x86-64";
        case 0x1c0:
        case 0x1c4:
            return "ARM";
        case 0xaa64:
            return "ARM64";
        case 0x5032:
            return "RISC-V 32";
        case 0x5064:
            return "RISC-V 64";
        case 0x200:
            return "Itanium";
        default:
            return "machine " + Hex(machine);
    }
}

// Offset of the PE signature, or 0 when `image` is no PE file.
uint64_t PeHeader(const std::string& image) {
    if (image.size() < 0x40 || image.compare(0, 2, "MZ") != 0) {
        return 0;
    }
    uint64_t pe = U32(image, 0x3c);
    return U32(image, pe) == 0x00004550 ? pe : 0;  // "PE\0\0"
}

// Library handles of the probe, closed when it ends.
struct LibraryCloser {
    void operator()(void* handle) const { platform::CloseLibrary(handle); }
};
using OwnedLibrary = std::unique_ptr<void, LibraryCloser>;

OwnedLibrary Open(const std::wstring& path) {
    return OwnedLibrary(platform::OpenLibrary(path.c_str()));
}

// Sets the extra search directory for the probe and puts the old one back.
class SearchDirectoryScope {
public:
    explicit SearchDirectoryScope(const std::wstring& directory) {
        wchar_t previous[by::kMaxModulePath] = {};
        platform::GetLibraryDirectory(previous, by::kMaxModulePath);
        previous_ = previous;
        platform::SetLibraryDirectory(directory.c_str());
    }
    ~SearchDirectoryScope() { platform::SetLibraryDirectory(previous_.c_str()); }
    SearchDirectoryScope(const SearchDirectoryScope&) = delete;
    SearchDirectoryScope& operator=(const SearchDirectoryScope&) = delete;

private:
    std::wstring previous_;
};

const char* const kRequiredExports[] = {"DllGetClassObject", "DllCanUnloadNow", "DllRegisterServer",
                                        "DllUnregisterServer"};

// The Windows loader names neither the missing library nor the missing
// function: open each import by name, as the loader would, and look for
// each function it takes.
void ProbePeImports(const std::string& image, LibraryDiagnosis* out) {
    for (const PeImport& import : PeImportsOf(image)) {
        OwnedLibrary dependency = Open(base::UTF8ToWide(import.library));
        if (!dependency) {
            out->missingDependencies.push_back(import.library);
            continue;
        }
        for (const std::string& function : import.functions) {
            if (platform::FindExport(dependency.get(), function.c_str()) == nullptr) {
                out->missingSymbols.push_back(import.library + "!" + function);
            }
        }
    }
}

}  // namespace

std::string Describe(const Machine& machine) {
    return machine.name + " (" + machine.format + ")";
}

Machine MachineOf(const std::string& image) {
    if (image.size() >= 20 && image.compare(0, 4,
                                            "\x7f"
                                            "ELF") == 0) {
        bool bigEndian = image[5] == 2;
        uint32_t machine = U16(image, 18);
        if (bigEndian) {
            machine = (machine >> 8) | (machine & 0xff) << 8;
        }
        return {"ELF", ElfMachineName(machine, image[4] == 2)};
    }
    if (uint64_t pe = PeHeader(image)) {
        return {"PE", PeMachineName(U16(image, pe + 4))};
    }
    return {};
}

Machine HostMachine() {
#if defined(_WIN32)
    const char* format = "PE";
#else
    const char* format = "ELF";
#endif
#if defined(__x86_64__) || defined(_M_X64)
    const char* name = "x86-64";
#elif defined(__i386__) || defined(_M_IX86)
    const char* name = "x86";
#elif defined(__aarch64__) || defined(_M_ARM64)
    const char* name = "ARM64";
#elif defined(__arm__) || defined(_M_ARM)
    const char* name = "ARM";
#elif defined(__riscv) && __riscv_xlen == 64
    const char* name = "RISC-V 64";
#else
    const char* name = "unknown machine";
#endif
    return {format, name};
}

std::vector<PeImport> PeImportsOf(const std::string& image) {
    std::vector<PeImport> imports;
    uint64_t pe = PeHeader(image);
    if (pe == 0) {
        return imports;
    }
    const uint64_t coff = pe + 4;
    const uint32_t sectionCount = U16(image, coff + 2);
    const uint64_t optional = coff + 20;
    const bool wide = U16(image, optional) == 0x20b;  // PE32+
    const uint64_t directories = optional + (wide ? 112 : 96);
    if (U32(image, directories - 4) < 2) {  // no import directory
        return imports;
    }
    const uint32_t importRva = U32(image, directories + 8);
    const uint64_t sections = optional + U16(image, coff + 16);
    // A relative address to its offset in the file, or 0.
    auto offsetOf = [&](uint64_t rva) -> uint64_t {
        for (uint32_t i = 0; i < sectionCount; ++i) {
            uint64_t header = sections + i * 40ull;
            uint64_t start = U32(image, header + 12);
            uint64_t size = std::max(U32(image, header + 8), U32(image, header + 16));
            if (rva >= start && rva < start + size) {
                return U32(image, header + 20) + (rva - start);
            }
        }
        return 0;
    };
    uint64_t descriptor = importRva ? offsetOf(importRva) : 0;
    for (int n = 0; descriptor != 0 && n < 4096; ++n, descriptor += 20) {
        uint32_t nameRva = U32(image, descriptor + 12);
        if (nameRva == 0) {
            break;
        }
        PeImport import{CString(image, offsetOf(nameRva)), {}};
        uint32_t thunks =
            U32(image, descriptor) ? U32(image, descriptor) : U32(image, descriptor + 16);
        uint64_t thunk = thunks ? offsetOf(thunks) : 0;
        const uint64_t step = wide ? 8 : 4;
        for (int k = 0; thunk != 0 && k < 65536; ++k, thunk += step) {
            uint64_t entry = wide ? U64(image, thunk) : U32(image, thunk);
            const uint64_t byOrdinal = wide ? 1ull << 63 : 1ull << 31;
            if (entry == 0) {
                break;
            }
            if ((entry & byOrdinal) == 0) {
                import.functions.push_back(CString(image, offsetOf(entry) + 2));
            }
        }
        imports.push_back(import);
    }
    return imports;
}

void ParseLoaderMessage(const std::string& message, const std::string& library,
                        std::vector<std::string>* dependencies, std::vector<std::string>* symbols) {
    const std::string cannotOpen = ": cannot open shared object file";
    std::size_t at = message.find(cannotOpen);
    if (at != std::string::npos && message.compare(0, at, library) != 0) {
        dependencies->push_back(message.substr(0, at));
    }
    // "...: undefined symbol: NAME", possibly followed by ", version V".
    const std::string undefined = "undefined symbol: ";
    at = message.find(undefined);
    if (at != std::string::npos) {
        std::string name = message.substr(at + undefined.size());
        symbols->push_back(name.substr(0, name.find_first_of(", (")));
    }
    // "symbol NAME version V not defined in file F with link time reference"
    at = message.find("symbol ");
    std::size_t notDefined = message.find(" not defined in file ");
    if (at != std::string::npos && notDefined != std::string::npos && at < notDefined &&
        message.find(undefined) == std::string::npos) {
        symbols->push_back(message.substr(at + 7, notDefined - at - 7));
    }
    // "version `V' not found (required by R)"
    at = message.find("version `");
    std::size_t quote = at == std::string::npos ? at : message.find('\'', at);
    if (quote != std::string::npos && message.find(" not found", quote) != std::string::npos) {
        symbols->push_back("version " + message.substr(at + 9, quote - at - 9));
    }
}

LibraryDiagnosis DiagnoseLibrary(const std::wstring& library, const std::wstring& searchDirectory) {
    LibraryDiagnosis out;
    std::string image;
    base::ReadFileToString(base::FilePath(library), &image);
    out.builtFor = MachineOf(image);
    out.notALibrary = out.builtFor.format.empty();
    out.otherMachine = !out.notALibrary && out.builtFor != HostMachine();

    SearchDirectoryScope scope(searchDirectory);
    OwnedLibrary handle = Open(library);
    if (!handle) {
        out.loaderMessage = platform::LoaderMessage();
        // Windows texts such as "%1 is not a valid Win32 application." leave
        // the file to the caller.
        std::size_t insert = out.loaderMessage.find("%1");
        if (insert != std::string::npos) {
            out.loaderMessage.replace(insert, 2, base::WideToUTF8(library));
        }
        if (out.notALibrary || out.otherMachine) {
            return out;
        }
        if (out.builtFor.format == "PE") {
            ProbePeImports(image, &out);
        } else {
            std::string systemPath = base::WideToUTF8(library);
            for (char& c : systemPath) {
                c = c == '\\' ? '/' : c;
            }
            ParseLoaderMessage(out.loaderMessage, systemPath, &out.missingDependencies,
                               &out.missingSymbols);
        }
        return out;
    }
    out.opened = true;
    // Wine binds a missing import to a stub and opens the library anyway.
    if (out.builtFor.format == "PE") {
        ProbePeImports(image, &out);
    }
    for (const char* name : kRequiredExports) {
        if (platform::FindExport(handle.get(), name) == nullptr) {
            out.missingExports.push_back(name);
        }
    }
    if (!out.missingExports.empty()) {
        return out;
    }
    auto getClassObject = reinterpret_cast<by::CComLoader::DllGetClassObjectFunc>(
        platform::FindExport(handle.get(), "DllGetClassObject"));
    by::IOFClassFactory* module = nullptr;
    getClassObject(by::CLSID_ModuleObject, by::IID_IOFClassFactory,
                   reinterpret_cast<void**>(&module));
    if (module == nullptr) {
        out.noModuleObject = true;
    } else {
        module->Release();
    }
    return out;
}

bool ServesClass(const std::wstring& library, const std::string& classId, int32_t* status) {
    *status = 0;
    OwnedLibrary handle = Open(library);
    auto getClassObject = handle ? reinterpret_cast<by::CComLoader::DllGetClassObjectFunc>(
                                       platform::FindExport(handle.get(), "DllGetClassObject"))
                                 : nullptr;
    if (getClassObject == nullptr) {
        return false;
    }
    by::IBaseUnknown* factory = nullptr;
    *status = getClassObject(by::ParseGuid(classId.c_str(), true), by::IID_IClassFactory,
                             reinterpret_cast<void**>(&factory));
    if (factory != nullptr) {
        factory->Release();
    }
    return *status >= 0 && factory != nullptr;
}

}  // namespace qzekit
