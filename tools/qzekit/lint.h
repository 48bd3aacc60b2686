#pragma once

// The checks behind 'qzekit lint': an installation read the way the kit
// reads it, and every element that the kit would pass over or work around
// without telling anyone.

#include <cstdint>
#include <string>
#include <vector>

namespace qzekit {

struct LintFinding {
    // Relative to the host folder, with "/" between the parts.
    std::string file;
    // Where in the file's JSON, as in "extensionPoints[1].extensions[0]";
    // empty for the file as a whole.
    std::string path;
    std::string message;
};

struct LintOptions {
    // The folder of the host executable.
    std::wstring hostDir;
    // The host's sec key: empty for a plain config.json, else 32 bytes.
    std::string secKey;
    // The host's foundation version, as given and as numbers; only checked
    // when given.
    bool hasFoundation = false;
    std::string foundationText;
    std::vector<uint32_t> foundation;
};

// The findings in the order the kit meets the elements.
std::vector<LintFinding> LintInstallation(const LintOptions& options);

}  // namespace qzekit
