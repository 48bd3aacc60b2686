// A host built against the installed kit: it loads the sample bundle from
// extensions/ beside it, with the library digest check on, and checks what
// the bundle's extension answers.

#include <cstdio>
#include <string>
#include <vector>

#include "kit/qzextensionkit.h"
#include "sample_interfaces.h"

using namespace qzextensionkit;

namespace {

class Lines : public IQZELogger {
public:
    explicit Lines(std::vector<std::string>* lines) : lines_(lines) {}
    void Log(int, std::string text) override { lines_->push_back(text); }

private:
    std::vector<std::string>* lines_;
};

int failures = 0;

void Check(bool ok, const std::string& what) {
    std::printf("%s: %s\n", ok ? "ok" : "FAILED", what.c_str());
    if (!ok) {
        ++failures;
    }
}

}  // namespace

int main() {
    std::vector<std::string> lines;
    QZExtensionKit::InitSDK();
    QZELogService::GetInstance()->RegisterLogger(new Lines(&lines));

    QZExtensionManager* extensions = QZExtensionManager::GetInstance();
    extensions->SetFoundationVersion("1.0");
    extensions->SetLibFileVerifyEnable(true);
    Check(extensions->Load(), "Load");

    void* object = nullptr;
    bool found = extensions->GetExtensionById("com.example.sample.greeter", &object);
    Check(found && object != nullptr, "GetExtensionById(com.example.sample.greeter)");
    if (found && object != nullptr) {
        auto* greeter = static_cast<ISampleGreeter*>(object);
        std::string text = greeter->Greet("consumer");
        Check(text == "Hello, consumer! Built against the installed kit.", "Greet: " + text);
        Check(greeter->BundleStarts() == 1, "the bundle's entry object started once");
        greeter->Release();
    }

    if (failures != 0) {
        for (const std::string& line : lines) {
            std::printf("  kit: %s\n", line.c_str());
        }
        return 1;
    }
    std::printf("sample host: all checks passed\n");
    return 0;
}
