#pragma once

// Why a component library does not open, in words a plug-in author can act
// on: what the file header says about its machine, the system loader's own
// message, and the dependency, symbol or export that is missing by name.

#include <cstdint>
#include <string>
#include <vector>

namespace qzekit {

// The machine a file was built for, from its ELF or PE header.
struct Machine {
    std::string format;  // "ELF" or "PE"; empty when the file is neither
    std::string name;    // "x86-64", "ARM64", ..., or "machine 0x...."
    bool operator==(const Machine& other) const {
        return format == other.format && name == other.name;
    }
    bool operator!=(const Machine& other) const { return !(*this == other); }
};

// "x86-64 (ELF)".
std::string Describe(const Machine& machine);
// The machine of the file whose first bytes are `image`.
Machine MachineOf(const std::string& image);
// The machine this tool was built for.
Machine HostMachine();

// One library a PE file imports from, with the functions it takes by name.
struct PeImport {
    std::string library;
    std::vector<std::string> functions;
};
// The import table of a PE file; empty for anything else.
std::vector<PeImport> PeImportsOf(const std::string& image);

// What the probing of one library found.
struct LibraryDiagnosis {
    bool opened = false;
    std::string loaderMessage;
    bool notALibrary = false;
    Machine builtFor;
    bool otherMachine = false;
    std::vector<std::string> missingDependencies;
    std::vector<std::string> missingSymbols;
    std::vector<std::string> missingExports;
    // All four exports are there, yet the module object did not come.
    bool noModuleObject = false;
};

// Opens the library at `library` as the kit does, with `searchDirectory` as
// the extra search directory, and says what stands in the way. The library
// is closed again and the search directory put back.
LibraryDiagnosis DiagnoseLibrary(const std::wstring& library, const std::wstring& searchDirectory);

// The names a Linux loader message gives for a missing dependency (anything
// it could not open other than `library` itself) and for missing symbols.
void ParseLoaderMessage(const std::string& message, const std::string& library,
                        std::vector<std::string>* dependencies, std::vector<std::string>* symbols);

// Whether the library at `library` serves `classId` through its
// DllGetClassObject; `status` receives what that export answered. False
// with status 0 when the library can't be opened or the export is missing.
bool ServesClass(const std::wstring& library, const std::string& classId, int32_t* status);

}  // namespace qzekit
