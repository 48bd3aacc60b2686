#include "qzekit/library_probe.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qzetest {
namespace {

TEST(QzekitLibraryProbe, ReadsTheNamesFromLinuxLoaderMessages) {
    using Names = std::vector<std::string>;
    const std::string lib = "/h/extensions/b/bin/main.so";
    // The symbol each names; the library itself is no dependency. A missing
    // dependency and an undefined symbol are read in the inspect tests.
    const std::pair<std::string, std::string> cases[] = {
        {lib + ": cannot open shared object file: No such file or directory", ""},
        {lib + ": symbol Extra version V2 not defined in file dep.so with link time reference",
         "Extra version V2"},
        {"/lib/libc.so.6: version `GLIBC_2.99' not found (required by " + lib + ")",
         "version GLIBC_2.99"},
    };
    for (const auto& [message, symbol] : cases) {
        Names dependencies, symbols;
        qzekit::ParseLoaderMessage(message, lib, &dependencies, &symbols);
        EXPECT_TRUE(dependencies.empty()) << message;
        EXPECT_EQ(symbols, symbol.empty() ? Names() : Names{symbol}) << message;
    }
}

// Headers with the machine field at `at`, little-endian unless `big`.
std::string Header(const char* magic, std::size_t size, std::size_t at, unsigned machine,
                   bool big = false) {
    std::string image(size, '\0');
    image.replace(0, std::string(magic).size(), magic);
    image[at + (big ? 1 : 0)] = static_cast<char>(machine & 0xff);
    image[at + (big ? 0 : 1)] = static_cast<char>(machine >> 8);
    return image;
}
std::string Elf(unsigned machine, bool big = false) {
    std::string image = Header("\177ELF", 64, 18, machine, big);
    image[4] = 2;
    image[5] = big ? 2 : 1;
    return image;
}

TEST(QzekitLibraryProbe, NamesTheMachineOfAHeader) {
    std::string pe = Header("MZ", 0x100, 0x44, 0x8664);
    pe[0x3c] = '\x40';
    pe.replace(0x40, 4, std::string("PE\0\0", 4));
    const std::pair<std::string, qzekit::Machine> cases[] = {
        {Elf(21, true), {"ELF", "PowerPC 64"}},
        {Elf(0x1234), {"ELF", "machine 0x1234"}},
        {pe, {"PE", "x86-64"}},
        {"MZ but too short", {}},
    };
    for (const auto& [image, machine] : cases) {
        EXPECT_EQ(qzekit::MachineOf(image), machine) << qzekit::Describe(machine);
    }
    // Headers without an import directory list no imports.
    EXPECT_TRUE(qzekit::PeImportsOf(pe).empty());
}

}  // namespace
}  // namespace qzetest
