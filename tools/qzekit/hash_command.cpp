#include <string>

#include "bundle/library_signer.h"
#include "qzekit/tool.h"

namespace qzekit {

void AddHashCommand(CLI::App& app, Session& session) {
    auto* command =
        app.add_subcommand("hash", "Print a library's libFileMD5, as the kit computes it.");
    command->footer("Example:\n  qzekit hash extensions/hello/bin/hello.so");
    auto library = std::make_shared<std::string>();
    command->add_option("LIB", *library, "the component library")->required();
    command->callback([&session, library] {
        std::string md5;
        std::string error;
        if (!qzextensionkit::ComputeLibFileMD5(WidePath(*library), &md5, &error)) {
            session.err << "qzekit hash: " << error << "\n";
            session.status = kExitFailure;
            return;
        }
        session.out << md5 << "\n";
    });
}

}  // namespace qzekit
