#include <iostream>
#include <string>
#include <vector>

#include "qzekit/tool.h"

#if defined(_WIN32)
int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.push_back(qzekit::Utf8Path(argv[i]));
    }
    std::vector<const char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    return qzekit::Run(argc, pointers.data(), std::cout, std::cerr);
}
#else
int main(int argc, char** argv) {
    return qzekit::Run(argc, argv, std::cout, std::cerr);
}
#endif
