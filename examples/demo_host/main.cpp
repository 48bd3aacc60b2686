// The demo host: what a desktop client does with the kit, step by step.
//
// It sets the kit up, registers a log sink that prints to the terminal, and
// then uses what the kit offers: the sample bundle's component library
// beside the executable, the object container with a host-registered class,
// the bundle's manifest read through the kit's JSON reader, and the URL
// parser. It exits non-zero when any step fails.

#include <cstdio>
#include <memory>
#include <string>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/json/json_reader.h"
#include "base/utf_string_conversions.h"
#include "base/values.h"
#include "component/com_loader.h"
#include "component/object_container.h"
#include "hello_api.h"
#include "kit/qzextensionkit.h"
#include "platform/platform.h"
#include "util/url_parser.h"

using namespace qzextensionkit;

namespace {

// Prints every line of the kit to the terminal.
class TerminalLogger : public IQZELogger {
public:
    void Log(int level, std::string text) override {
        std::printf("    log[%d] %s\n", level, text.c_str());
    }
};

int g_failures = 0;

void Step(const char* title) {
    std::printf("\n== %s\n", title);
}

void Check(bool ok, const char* what) {
    std::printf("  %s %s\n", ok ? "[ok]  " : "[FAIL]", what);
    if (!ok) {
        ++g_failures;
    }
}

base::FilePath ExecutableDirectory() {
    std::wstring exe = platform::ExecutablePath();
    size_t cut = exe.find_last_of(L"\\/");
    return base::FilePath(exe.c_str(), cut == std::wstring::npos ? 0 : cut);
}

// A class the host supplies itself, registered with a creator.
class IClock : public by::IBaseUnknown {
public:
    BY_DECLARE_INTERFACE_ID("{9b7f4a3c-2d1e-4f60-8a5b-3c2d1e0f9a01}")
    virtual int Tick() = 0;
};

class HostClock : public IClock, public by::CUnknownImp {
public:
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }
    int Tick() override { return ++ticks_; }

private:
    int ticks_ = 0;
};

}  // namespace

int main() {
    std::printf("QZExtensionKit demo host\n");

    Step("Start the kit and register a log sink");
    QZELogService::GetInstance()->RegisterLogger(new TerminalLogger());
    QZExtensionKit::InitSDK();
    QZELogService::GetInstance()->LogMessage(0, "demo host - kit started");
    Check(true, "InitSDK ran and the sink receives the kit's lines");

    base::FilePath bundleRoot =
        ExecutableDirectory().AppendASCII("extensions").AppendASCII("hello");

    Step("Read the sample bundle's manifest with the kit's JSON reader");
    std::string manifestText;
    bool read = base::ReadFileToString(bundleRoot.AppendASCII("manifest.json"), &manifestText);
    Check(read, "extensions/hello/manifest.json read");
    int32_t code = 0;
    std::string message;
    std::unique_ptr<base::Value> manifest = base::JSONReader::ReadAndReturnError(
        manifestText.data(), manifestText.size(), 0, &code, &message, nullptr, nullptr);
    base::DictionaryValue* root = nullptr;
    Check(manifest && manifest->GetAsDictionary(&root), "manifest parsed (comments allowed)");
    std::string bundleId;
    std::string mainEntry;
    if (root) {
        root->GetString("id", &bundleId);
        root->GetString("mainEntry", &mainEntry);
        std::printf("  bundle id: %s, library: %s\n", bundleId.c_str(), mainEntry.c_str());
    } else {
        std::printf("  reader said: %s\n", message.c_str());
    }
    Check(bundleId == "com.example.hello", "bundle id found");

    Step("Open the bundle's component library and build an object");
    base::FilePath library = bundleRoot.Append(base::UTF8ToWide(mainEntry));
    // The bundle's "bin" is searched for the library's dependencies.
    platform::SetLibraryDirectory(bundleRoot.AppendASCII("bin").value().c_str());
    auto loader = std::make_shared<by::CComLoader>();
    bool loaded = loader->LoadCom(library.value().c_str());
    platform::SetLibraryDirectory(L"");
    Check(loaded, "component library loaded");
    if (loaded) {
        QZEObjectContainer* container = QZEObjectContainer::GetInstance();
        void* object = nullptr;
        bool built = container->CreateObjectInstanceByLibrary(
            "{5d0b9d0e-9a43-4c39-8f2e-6b1f3f0c7a10}", HELLO_GREETER_CLSID, false, loader.get(),
            &object);
        Check(built && object, "greeter built through the object container");
        if (object) {
            auto* greeter = static_cast<IHelloGreeter*>(object);
            char text[128];
            greeter->Greet("host", text, sizeof text);
            std::printf("  greeter says: %s\n", text);
            greeter->Release();
        }
    }

    Step("Register a host class and get it as a singleton");
    QZEObjectContainer* container = QZEObjectContainer::GetInstance();
    const std::string clockClass = "{9b7f4a3c-2d1e-4f60-8a5b-3c2d1e0f9a02}";
    container->Register(
        [](const std::string&, const std::string&, void** out) {
            HostClock* clock = nullptr;
            if (by::CComObject<HostClock>::CreateInstance(&clock) != by::kOk) {
                return false;
            }
            *out = static_cast<IClock*>(clock);
            return true;
        },
        clockClass, true);
    void* first = nullptr;
    void* second = nullptr;
    container->CreateObjectInstanceByCreator("{9b7f4a3c-2d1e-4f60-8a5b-3c2d1e0f9a01}", clockClass,
                                             &first);
    container->CreateObjectInstanceByCreator("{9b7f4a3c-2d1e-4f60-8a5b-3c2d1e0f9a01}", clockClass,
                                             &second);
    Check(first != nullptr && first == second, "both requests got the one singleton");
    if (first) {
        static_cast<IClock*>(first)->Tick();
        std::printf("  clock ticks: %d\n", static_cast<IClock*>(second)->Tick());
    }

    Step("Split a URL");
    QZEUrlParser* url =
        QZEUrlParser::parseUrl("https://docs.example.com:8443/bundles/hello?lang=en#top");
    Check(url->host == "docs.example.com" && url->port == "8443", "host and port found");
    std::printf("  scheme=%s host=%s port=%s path=%s query=%s fragment=%s\n", url->scheme.c_str(),
                url->host.c_str(), url->port.c_str(), url->path.c_str(), url->query.c_str(),
                url->fragment.c_str());
    QZEUrlParser::destroy(&url);

    std::printf("\n%s\n", g_failures == 0 ? "Demo finished: every step worked."
                                          : "Demo finished with failures.");
    return g_failures == 0 ? 0 : 1;
}
