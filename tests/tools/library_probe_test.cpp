#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qzekit/library_probe.h"

namespace qzetest {
namespace {

using qzekit::Machine;

TEST(QzekitLibraryProbe, ReadsTheNamesFromLinuxLoaderMessages) {
    const std::string library = "/h/extensions/b/bin/main.so";
    struct Case {
        std::string message;
        std::vector<std::string> dependencies, symbols;
    } cases[] = {
        {"helper.so: cannot open shared object file: No such file or directory", {"helper.so"}, {}},
        // The library itself is no dependency.
        {library + ": cannot open shared object file: No such file or directory", {}, {}},
        {library + ": undefined symbol: Extra, version V2", {}, {"Extra"}},
        {library + ": symbol Extra version V2 not defined in file dep.so with link time reference",
         {},
         {"Extra version V2"}},
        {"/lib/libc.so.6: version `GLIBC_2.99' not found (required by " + library + ")",
         {},
         {"version GLIBC_2.99"}},
        {library + ": invalid ELF header", {}, {}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> dependencies, symbols;
        qzekit::ParseLoaderMessage(c.message, library, &dependencies, &symbols);
        EXPECT_EQ(dependencies, c.dependencies) << c.message;
        EXPECT_EQ(symbols, c.symbols) << c.message;
    }
}

// The first bytes of an ELF file: class, byte order and machine.
std::string Elf(char elfClass, char order, unsigned machine) {
    std::string image(64, '\0');
    image.replace(0, 4, "\177ELF");
    image[4] = elfClass;
    image[5] = order;
    image[order == 1 ? 18 : 19] = static_cast<char>(machine & 0xff);
    image[order == 1 ? 19 : 18] = static_cast<char>(machine >> 8);
    return image;
}

// A PE file's headers with the given machine, and nothing after them.
std::string Pe(unsigned machine) {
    std::string image(0x100, '\0');
    image.replace(0, 2, "MZ");
    image[0x3c] = '\x40';
    image.replace(0x40, 4, std::string("PE\0\0", 4));
    image[0x44] = static_cast<char>(machine & 0xff);
    image[0x45] = static_cast<char>(machine >> 8);
    return image;
}

TEST(QzekitLibraryProbe, NamesTheMachineOfAHeader) {
    struct Case {
        std::string image;
        Machine machine;
    } cases[] = {
        {Elf(2, 1, 62), {"ELF", "x86-64"}},
        {Elf(1, 1, 3), {"ELF", "x86"}},
        {Elf(2, 2, 21), {"ELF", "PowerPC 64"}},  // big-endian field
        {Elf(2, 1, 0x1234), {"ELF", "machine 0x1234"}},
        {Pe(0x8664), {"PE", "x86-64"}},
        {Pe(0xaa64), {"PE", "ARM64"}},
        {"MZ but too short", {}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(qzekit::MachineOf(c.image), c.machine) << qzekit::Describe(c.machine);
    }
    // Headers without an import directory list no imports.
    EXPECT_TRUE(qzekit::PeImportsOf(Pe(0x8664)).empty());
}

}  // namespace
}  // namespace qzetest
