#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "qzekit/tool.h"

namespace qzetest {

// What one run of the tool returned and printed.
struct ToolRun {
    int status;
    std::string out, err;
};

// Runs qzekit in this process with UTF-8 arguments (no program name).
inline ToolRun RunTool(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv{"qzekit"};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    std::ostringstream out, err;
    const int status = qzekit::Run(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
}

}  // namespace qzetest
