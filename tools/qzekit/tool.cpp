#include "qzekit/tool.h"

#include <cstdio>
#include <exception>

#include "base/utf_string_conversions.h"
#include "qzekit/signer.h"

namespace qzekit {

std::wstring WidePath(const std::string& path) {
    return base::UTF8ToWide(path);
}

std::string Utf8Path(const std::wstring& path) {
    return base::WideToUTF8(path);
}

bool ReadKeyFile(const std::string& path, std::string* key, std::string* error) {
    constexpr std::size_t kKeySize = 32;
    if (!ReadFileBytes(path, key)) {
        *error = "cannot read the key file " + path;
        return false;
    }
    std::size_t lineEnd = 0;
    if (key->size() >= 2 && key->compare(key->size() - 2, 2, "\r\n") == 0) {
        lineEnd = 2;
    } else if (!key->empty() && key->back() == '\n') {
        lineEnd = 1;
    }
    if (lineEnd && key->size() == kKeySize + lineEnd) {
        key->resize(kKeySize);
    }
    if (key->size() != kKeySize) {
        *error = "the key in " + path + " is " + std::to_string(key->size() - lineEnd) +
                 " bytes long (one line end after it not counted); a key is exactly 32 bytes";
        return false;
    }
    return true;
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
