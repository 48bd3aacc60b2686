#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "qzekit/tool.h"

namespace qzetest {

// What one run of the tool printed and returned.
struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs qzekit in this process with UTF-8 arguments (no program name).
inline ToolRun RunTool(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv{"qzekit"};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    ToolRun run;
    run.status = qzekit::Run(static_cast<int>(argv.size()), argv.data(), out, err);
    run.out = out.str();
    run.err = err.str();
    return run;
}

}  // namespace qzetest
