#include "qzekit/library_probe.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qzetest {
namespace {

TEST(QzekitLibraryProbe, ReadsTheNamesFromLinuxLoaderMessages) {
    const std::string lib = "/h/extensions/b/bin/main.so";
    using Names = std::vector<std::string>;
    const struct {
        std::string message;
        Names dependencies, symbols;
    } cases[] = {
        {"helper.so: cannot open shared object file: No such file or directory", {"helper.so"}, {}},
        // The library itself is no dependency.
        {lib + ": cannot open shared object file: No such file or directory", {}, {}},
        {lib + ": undefined symbol: Extra, version V2", {}, {"Extra"}},
        {lib + ": symbol Extra version V2 not defined in file dep.so with link time reference",
         {},
         {"Extra version V2"}},
        {"/lib/libc.so.6: version `GLIBC_2.99' not found (required by " + lib + ")",
         {},
         {"version GLIBC_2.99"}},
        {lib + ": invalid ELF header", {}, {}},
    };
    for (const auto& c : cases) {
        Names dependencies, symbols;
        qzekit::ParseLoaderMessage(c.message, lib, &dependencies, &symbols);
        EXPECT_EQ(dependencies, c.dependencies) << c.message;
        EXPECT_EQ(symbols, c.symbols) << c.message;
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
std::string Elf(char elfClass, unsigned machine, bool big = false) {
    std::string image = Header("\177ELF", 64, 18, machine, big);
    image[4] = elfClass;
    image[5] = big ? 2 : 1;
    return image;
}
std::string Pe(unsigned machine) {
    std::string image = Header("MZ", 0x100, 0x44, machine);
    image[0x3c] = '\x40';
    image.replace(0x40, 4, std::string("PE\0\0", 4));
    return image;
}

TEST(QzekitLibraryProbe, NamesTheMachineOfAHeader) {
    const std::pair<std::string, qzekit::Machine> cases[] = {
        {Elf(2, 62), {"ELF", "x86-64"}},
        {Elf(1, 3), {"ELF", "x86"}},
        {Elf(2, 21, true), {"ELF", "PowerPC 64"}},
        {Elf(2, 0x1234), {"ELF", "machine 0x1234"}},
        {Pe(0x8664), {"PE", "x86-64"}},
        {Pe(0xaa64), {"PE", "ARM64"}},
        {"MZ but too short", {}},
    };
    for (const auto& [image, machine] : cases) {
        EXPECT_EQ(qzekit::MachineOf(image), machine) << qzekit::Describe(machine);
    }
    // Headers without an import directory list no imports.
    EXPECT_TRUE(qzekit::PeImportsOf(Pe(0x8664)).empty());
}

}  // namespace
}  // namespace qzetest
