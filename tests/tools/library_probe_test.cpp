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

// A 64-bit ELF header for `machine`, little-endian unless `big`.
std::string Elf(unsigned machine, bool big = false) {
    std::string image("\177ELF\2", 5);
    image.resize(64);
    image[5] = big ? 2 : 1;
    image[big ? 19 : 18] = static_cast<char>(machine & 0xff);
    image[big ? 18 : 19] = static_cast<char>(machine >> 8);
    return image;
}

TEST(QzekitLibraryProbe, NamesTheMachineOfAHeader) {
    const std::pair<std::string, qzekit::Machine> cases[] = {
        {Elf(21, true), {"ELF", "PowerPC 64"}},
        {Elf(0x1234), {"ELF", "machine 0x1234"}},
        {"MZ but too short", {}},
    };
    for (const auto& [image, machine] : cases) {
        EXPECT_EQ(qzekit::MachineOf(image), machine) << qzekit::Describe(machine);
    }
}

}  // namespace
}  // namespace qzetest
