#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "bundle/lib_file_verify.h"
#include "bundle/library_signer.h"
#include "bundle/sign_verify.h"
#include "kit/log_service.h"
#include "model/artifact.h"
#include "model/manifest.h"
#include "qzekit/tool.h"

namespace qzekit {
namespace {

using Lines = std::vector<std::string>;

// Keeps what the kit logs during one check.
class LineSink : public qzextensionkit::IQZELogger {
public:
    explicit LineSink(std::shared_ptr<Lines> lines) : lines_(std::move(lines)) {}
    void Log(int, std::string text) override {
        std::lock_guard<std::mutex> hold(mutex_);
        lines_->push_back(std::move(text));
    }

private:
    std::mutex mutex_;
    std::shared_ptr<Lines> lines_;
};

struct Check {
    bool passed = false;
    Lines log;
};

// Runs one check with a fresh sink; the kit owns the sink once registered.
template <class Run>
Check Logged(Run run) {
    auto lines = std::make_shared<Lines>();
    qzextensionkit::QZELogService::GetInstance()->RegisterLogger(new LineSink(lines));
    Check check;
    check.passed = run();
    check.log = *lines;
    return check;
}

std::string JsonList(const Lines& lines) {
    std::string list = "[";
    for (const std::string& line : lines) {
        list += (list.size() > 1 ? ", " : "") + JsonQuote(line);
    }
    return list + "]";
}

std::string JsonCheck(const Check& check) {
    return std::string("{\"passed\": ") + (check.passed ? "true" : "false") +
           ", \"log\": " + JsonList(check.log) + "}";
}

void Verify(const std::string& bundle, bool json, Session& session) {
    auto fail = [&session](const std::string& text) {
        session.err << "qzekit verify: " << text << "\n";
        session.status = kExitFailure;
    };
    const base::FilePath root(WidePath(bundle));
    qzextensionkit::Artifact* read = nullptr;
    if (!qzextensionkit::ReadManifest(root, &read)) {
        fail("cannot read " + Utf8Path(root.Append(L"manifest.json").value()) +
             " (missing, unreadable or not JSON)");
        return;
    }
    std::unique_ptr<qzextensionkit::Artifact> artifact(read);
    if (!artifact) {
        fail("the manifest of " + bundle + " is not a JSON object");
        return;
    }
    if (artifact->GetMainEntry().empty()) {
        fail("the manifest of " + bundle + " names no library (\"mainEntry\")");
        return;
    }
    // The library path as the bundle manager builds it.
    const base::FilePath library = root.Append(artifact->GetMainEntry());
    const std::string libraryText = Utf8Path(library.value());
    if (!base::PathExists(library)) {
        fail("the library " + libraryText + " that \"mainEntry\" names does not exist");
        return;
    }
    const std::string libFileMD5 = artifact->GetLibFileMD5();
    const std::string signMD5 = artifact->GetSignMD5();
    std::string fileMD5;
    std::string error;
    if (!qzextensionkit::ComputeLibFileMD5(library.value(), &fileMD5, &error)) {
        fail(error);
        return;
    }

    // Both checks run, so that one report tells all; the kit stops loading
    // at the first that fails.
    Check file = Logged([&] {
        return qzextensionkit::QZEExtensionLibFileVerify::GetInstance()->Verify(library.value(),
                                                                                libFileMD5);
    });
    Check signature = Logged([&] {
        return qzextensionkit::QZEExtensionSignVerify::GetInstance()->Verify(library.value(),
                                                                             signMD5, libFileMD5);
    });
    const bool accepted = file.passed && signature.passed;
    session.status = accepted ? kExitOk : kExitFailure;

    if (json) {
        session.out << "{\"bundle\": " << JsonQuote(bundle)
                    << ", \"library\": " << JsonQuote(libraryText)
                    << ", \"libFileMD5\": " << JsonQuote(libFileMD5)
                    << ", \"fileMD5\": " << JsonQuote(fileMD5)
                    << ", \"signMD5\": " << JsonQuote(signMD5)
                    << ", \"fileCheck\": " << JsonCheck(file)
                    << ", \"signatureCheck\": " << JsonCheck(signature)
                    << ", \"verdict\": " << (accepted ? "\"accepted\"" : "\"rejected\"") << "}\n";
        return;
    }
    session.out << "library: " << libraryText << "\n";
    for (const std::string& line : file.log) {
        session.out << line << "\n";
    }
    if (file.passed) {
        session.out << "file check: passed\n";
    } else {
        // The kit logs nothing of its own for a mismatch.
        session.out << "file check: failed: the manifest's libFileMD5 is \"" << libFileMD5
                    << "\", the file's MD5 is " << fileMD5 << "\n";
    }
    for (const std::string& line : signature.log) {
        session.out << line << "\n";
    }
    session.out << "signature check: " << (signature.passed ? "passed" : "failed") << "\n";
    session.out << "verdict: " << (accepted ? "accepted" : "rejected") << "\n";
}

}  // namespace

void AddVerifyCommand(CLI::App& app, Session& session) {
    auto* command = app.add_subcommand(
        "verify", "Run the kit's file and signature checks on a bundle's library.");
    command->footer(
        "Reads BUNDLE_DIR/manifest.json, then checks the library that \"mainEntry\" names "
        "against its \"libFileMD5\" and \"signMD5\" exactly as the kit does before it loads a "
        "bundle, with this system's code-signing service and trust store. Prints the kit's "
        "log lines and the verdict; exits 0 when both checks pass, 1 otherwise.\n\n"
        "Example:\n"
        "  qzekit verify extensions/hello\n"
        "  qzekit verify --json extensions/hello");
    auto bundle = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    command->add_option("BUNDLE_DIR", *bundle, "the bundle's folder")->required();
    command->add_flag("--json", *json,
                      "print the result as one JSON object (bundle, library, the digests, "
                      "fileCheck and signatureCheck with passed and log, verdict)");
    command->callback([&session, bundle, json] { Verify(*bundle, *json, session); });
}

}  // namespace qzekit
