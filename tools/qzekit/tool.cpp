#include "qzekit/tool.h"

#include <cstdio>
#include <exception>

#include "base/utf_string_conversions.h"

namespace qzekit {

std::wstring WidePath(const std::string& path) {
    return base::UTF8ToWide(path);
}

std::string Utf8Path(const std::wstring& path) {
    return base::WideToUTF8(path);
}

std::string JsonQuote(const std::string& text) {
    std::string quoted = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                quoted += "\\\"";
                break;
            case '\\':
                quoted += "\\\\";
                break;
            case '\n':
                quoted += "\\n";
                break;
            case '\r':
                quoted += "\\r";
                break;
            case '\t':
                quoted += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    quoted += escaped;
                } else {
                    quoted += static_cast<char>(c);
                }
        }
    }
    return quoted + "\"";
}

int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CLI::App app{
        "qzekit: builds, checks and inspects bundles and installations of the "
        "extension kit.",
        "qzekit"};
    app.require_subcommand(1);
    // Options are "--name" everywhere: an argument beginning with "/" is a path,
    // also in a Windows build.
    app.allow_windows_style_options(false);
    app.footer("Run 'qzekit COMMAND --help' for a command's options and an example.");
    Session session{out, err};
    AddHashCommand(app, session);
    AddInspectCommand(app, session);
    AddLintCommand(app, session);
    AddSignCommand(app, session);
    AddVerifyCommand(app, session);
    AddConfigCommand(app, session);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return kExitOk;
    } catch (const CLI::CallForAllHelp&) {
        out << app.help("", CLI::AppFormatMode::All);
        return kExitOk;
    } catch (const CLI::ParseError& e) {
        err << "qzekit: " << e.what() << "\n";
        err << "Run 'qzekit --help' for the commands.\n";
        return kExitUsage;
    } catch (const std::exception& e) {
        err << "qzekit: " << e.what() << "\n";
        return kExitFailure;
    }
    return session.status;
}

}  // namespace qzekit
