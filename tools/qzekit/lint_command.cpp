#include <filesystem>
#include <memory>
#include <string>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/version.h"
#include "qzekit/lint.h"
#include "qzekit/tool.h"

namespace qzekit {
namespace {

struct LintArguments {
    std::string hostDir;
    std::string keyFile;
    std::string foundation;
    bool json = false;
};

void PrintText(const std::vector<LintFinding>& findings, std::ostream& out) {
    for (const LintFinding& finding : findings) {
        out << finding.file << ": ";
        if (!finding.path.empty()) {
            out << finding.path << ": ";
        }
        out << finding.message << "\n";
    }
}

void PrintJson(const std::vector<LintFinding>& findings, std::ostream& out) {
    out << "{\"findings\": [";
    const char* separator = "\n";
    for (const LintFinding& finding : findings) {
        out << separator << "  {\"file\": " << JsonQuote(finding.file)
            << ", \"path\": " << JsonQuote(finding.path)
            << ", \"message\": " << JsonQuote(finding.message) << "}";
        separator = ",\n";
    }
    out << (findings.empty() ? "]}\n" : "\n]}\n");
}

}  // namespace

void AddLintCommand(CLI::App& app, Session& session) {
    auto* command = app.add_subcommand(
        "lint",
        "Read an installation's extension_adapter_mapping.json, extensions/config.json and "
        "bundle manifests as the kit does, and report every element that the kit would pass "
        "over or work around in silence, and why. Exit status 0 when clean, 1 with findings, 2 on "
        "a usage error.");
    command->footer(
        "Each finding names the file (relative to HOST_DIR), the JSON path and what the kit "
        "does, as in\n"
        "  extensions/a/manifest.json: extensionPoints[1].extensions[0]: no \"id\": the kit "
        "leaves a null entry\n\n"
        "Example:\n"
        "  qzekit lint --foundation 3.0 --key-file host.key /opt/host");
    auto arguments = std::make_shared<LintArguments>();
    command
        ->add_option("HOST_DIR", arguments->hostDir,
                     "the folder of the host executable: extension_adapter_mapping.json beside "
                     "it, extensions/ below it")
        ->required();
    auto* keyFile = command->add_option(
        "--key-file", arguments->keyFile,
        "a file holding the host's 32-byte sec key: config.json is then read as encrypted");
    auto* foundation = command->add_option(
        "--foundation", arguments->foundation,
        "the host's foundation version: bundles whose \"foundationVersion\" is above it are "
        "reported");
    command->add_flag("--json", arguments->json,
                      "print one JSON document: {\"findings\": [{\"file\", \"path\", "
                      "\"message\"}, ...]}");
    command->callback([&session, arguments, keyFile, foundation] {
        LintOptions options;
        std::error_code ignored;
        std::filesystem::path host = std::filesystem::u8path(arguments->hostDir);
        // The kit reads no path with a ".." part, and the executable's
        // folder never has one: resolve it first.
        std::filesystem::path absolute = std::filesystem::absolute(host, ignored);
        options.hostDir = WidePath(absolute.lexically_normal().u8string());
        if (!base::PathExists(base::FilePath(options.hostDir))) {
            session.err << "qzekit lint: no folder " << arguments->hostDir << "\n";
            session.status = kExitUsage;
            return;
        }
        std::string error;
        if (keyFile->count() != 0 && !ReadKeyFile(arguments->keyFile, &options.secKey, &error)) {
            session.err << "qzekit lint: " << error << "\n";
            session.status = kExitUsage;
            return;
        }
        if (foundation->count() != 0) {
            options.hasFoundation = true;
            options.foundationText = arguments->foundation;
            options.foundation = base::Version::Parse(arguments->foundation);
            if (options.foundation.empty()) {
                session.err << "qzekit lint: --foundation: \"" << arguments->foundation
                            << "\" is not a version\n";
                session.status = kExitUsage;
                return;
            }
        }
        std::vector<LintFinding> findings = LintInstallation(options);
        if (arguments->json) {
            PrintJson(findings, session.out);
        } else {
            PrintText(findings, session.out);
        }
        session.status = findings.empty() ? kExitOk : kExitFailure;
    });
}

}  // namespace qzekit
