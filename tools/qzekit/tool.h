#pragma once

// The qzekit tool's commands. Each command file adds one subcommand to the
// application; Run parses the arguments and runs the chosen command.

#include <CLI/CLI.hpp>

#include <ostream>
#include <string>

namespace qzekit {

// Exit statuses: the command did what was asked (or found nothing), the
// command failed (or found something), the command line was wrong.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// What every command writes to and how it ends.
struct Session {
    std::ostream& out;
    std::ostream& err;
    int status = kExitOk;
};

// Runs the tool on UTF-8 arguments (argv[0] is the program name) and returns
// the exit status.
int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

// Wide paths for the kit's functions, from UTF-8 arguments, and back.
std::wstring WidePath(const std::string& path);
std::string Utf8Path(const std::wstring& path);

// The host's 32-byte sec key from a file. One line end after the 32 bytes
// is dropped, since editors add one; a key's own last byte is never taken
// for a line end.
bool ReadKeyFile(const std::string& path, std::string* key, std::string* error);

// Text quoted for a JSON document.
std::string JsonQuote(const std::string& text);

void AddHashCommand(CLI::App& app, Session& session);
void AddInspectCommand(CLI::App& app, Session& session);
void AddLintCommand(CLI::App& app, Session& session);
void AddSignCommand(CLI::App& app, Session& session);
void AddVerifyCommand(CLI::App& app, Session& session);
void AddConfigCommand(CLI::App& app, Session& session);

}  // namespace qzekit
