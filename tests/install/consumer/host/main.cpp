// A host built against the installed kit: loads the sample bundle from
// extensions/ beside it, with the library digest check on.

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

}  // namespace

int main() {
    std::vector<std::string> lines;
    QZExtensionKit::InitSDK();
    QZELogService::GetInstance()->RegisterLogger(new Lines(&lines));
    QZExtensionManager* extensions = QZExtensionManager::GetInstance();
    extensions->SetFoundationVersion("1.0");
    extensions->SetLibFileVerifyEnable(true);
    void* object = nullptr;
    std::string text = "(no extension)";
    int starts = 0;
    if (extensions->Load() && extensions->GetExtensionById("com.example.sample.greeter", &object) &&
        object) {
        auto* greeter = static_cast<ISampleGreeter*>(object);
        text = greeter->Greet("consumer");
        starts = greeter->BundleStarts();
        greeter->Release();
    }
    if (text != "Hello, consumer! Built against the installed kit." || starts != 1) {
        std::printf("FAILED: greeting \"%s\", bundle started %d times\n", text.c_str(), starts);
        for (const std::string& line : lines) {
            std::printf("  kit: %s\n", line.c_str());
        }
        return 1;
    }
    std::printf("sample host: all checks passed\n");
    return 0;
}
