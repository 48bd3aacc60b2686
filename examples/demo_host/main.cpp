// The demo host: what a desktop client does with the kit, from start to
// finish, on the installation the build staged beside it (see
// examples/CMakeLists.txt). Each step shows what it got and checks it; the
// program exits non-zero when a check fails, so it runs as a test too.
//
//   qzekit_demo_host [--verbose]    --verbose prints every line of the kit's log
//
// It gives back what it is handed as the README's "Reference counts" table
// says: an extension from a library is released once when done, except a
// singleton, which the kit's container also holds and hands out again
// without a new reference: the host keeps it to the end and never releases
// it. The host's own class is a singleton too, released once per request.
// GetExtension is asked only of points with one extension, as it builds
// them all and hands out the first.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "base/files/file_path.h"
#include "base/utf_string_conversions.h"
#include "component/com_loader.h"
#include "demo_extension.h"
#include "kit/qzextensionkit.h"
#include "manager/extension_object.h"
#include "model/artifact.h"
#include "platform/platform.h"

using namespace qzextensionkit;

namespace {

// ---------------------------------------------------------------- output

bool g_color = false;
bool g_verbose = false;
// The executable's folder, as the kit writes it in paths and log lines.
std::string g_binDir;

const char* Paint(const char* code) {
    return g_color ? code : "";
}
const char* const kReset = "\033[0m";
const char* const kBold = "\033[1m";
const char* const kDim = "\033[2m";
const char* const kRed = "\033[31m";
const char* const kGreen = "\033[32m";
const char* const kYellow = "\033[33m";
const char* const kCyan = "\033[36m";

// Colours only for a terminal that can show them; plain text on Windows,
// in pipes and files, and when NO_COLOR is set.
bool TerminalShowsColor() {
#if defined(_WIN32)
    return false;
#else
    const char* noColor = std::getenv("NO_COLOR");
    const char* term = std::getenv("TERM");
    return (noColor == nullptr || *noColor == '\0') && term != nullptr &&
           std::strcmp(term, "dumb") != 0 && isatty(STDOUT_FILENO) == 1;
#endif
}

// Paths below the executable's folder are shown from "<bin>" on.
std::string Short(std::string text) {
    for (std::size_t at = 0;
         !g_binDir.empty() && (at = text.find(g_binDir, at)) != std::string::npos;) {
        text.replace(at, g_binDir.size(), "<bin>");
        at += 5;
    }
    return text;
}

// The sink: keeps every line, and prints the ones worth a look (all of
// them with --verbose). The kit calls it under its own locks, so it only
// prints and stores.
class DemoLogger : public IQZELogger {
public:
    void Log(int, std::string text) override {
        std::lock_guard<std::mutex> hold(mutex_);
        const char* tag = "[QZExtensionKit] ";
        if (text.compare(0, std::strlen(tag), tag) == 0) {
            text.erase(0, std::strlen(tag));
        }
        // The container words a first look-up of a singleton as a failure;
        // it is only a miss before the object is made.
        bool failure = text.find("failed") != std::string::npos &&
                       text.find("because of object didn't founded") == std::string::npos;
        if (g_verbose || failure || text.find("hello bundle") == 0) {
            std::printf("    %skit | %s%s\n", Paint(failure ? kYellow : kDim), Short(text).c_str(),
                        Paint(kReset));
        }
        lines_.push_back(std::move(text));
    }

    std::size_t Count(const std::string& piece) {
        std::lock_guard<std::mutex> hold(mutex_);
        std::size_t count = 0;
        for (const std::string& line : lines_) {
            count += line.find(piece) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    std::size_t Lines() {
        std::lock_guard<std::mutex> hold(mutex_);
        return lines_.size();
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

// ---------------------------------------------------------------- checks

int g_passed = 0;
int g_failed = 0;
int g_stepFailed = 0;
int g_stepPassed = 0;

void EndStep() {
    if (g_stepPassed + g_stepFailed > 0 && g_stepFailed == 0) {
        std::printf("  %sok%s %d checks\n", Paint(kGreen), Paint(kReset), g_stepPassed);
    }
    g_stepPassed = 0;
    g_stepFailed = 0;
}

void Step(const char* title) {
    EndStep();
    std::printf("\n%s%s== %s%s\n", Paint(kBold), Paint(kCyan), title, Paint(kReset));
}

bool Expect(bool ok, const std::string& what) {
    if (ok) {
        ++g_passed;
        ++g_stepPassed;
    } else {
        ++g_failed;
        ++g_stepFailed;
        std::printf("  %sFAIL%s %s\n", Paint(kRed), Paint(kReset), what.c_str());
    }
    return ok;
}

bool ExpectText(const std::string& what, const std::string& got, const std::string& want) {
    return Expect(got == want,
                  what + ": got \"" + Short(got) + "\", expected \"" + Short(want) + "\"");
}

void Show(const char* label, const std::string& text) {
    std::printf("    %-11s %s\n", label, Short(text).c_str());
}

// Paths compare with either separator.
std::string Slashed(std::string path) {
    for (char& c : path) {
        c = c == '/' ? '\\' : c;
    }
    return path;
}

std::string BundlePath(const std::string& bundle, const std::string& folder) {
    return Slashed(g_binDir + "\\extensions\\" + bundle + "\\" + folder);
}

std::string Join(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : ", ") + item;
    }
    return text;
}

// ---------------------------------------------------------------- extensions

// What the demo expects a context to hold, and what it shows of it.
struct Expected {
    std::string extensionId;
    std::string unifiedId;
    std::map<std::string, std::string> payloads;
    std::map<std::string, std::vector<std::string>> constraints;
    std::string resourcesPath;
    std::string binDirPath;
    std::string url;
    std::string openType;
    int initializations = 1;
};

void ShowAndCheck(const char* name, IDemoExtension* extension, const Expected& want) {
    const DemoContextView& seen = extension->Seen();
    std::printf("  %s%s%s  id %s, unified id %s, initialised %dx\n", Paint(kBold), name,
                Paint(kReset), seen.extensionId.empty() ? "(none)" : seen.extensionId.c_str(),
                seen.unifiedId.empty() ? "(none)" : seen.unifiedId.c_str(), seen.initializations);
    std::string payloads;
    for (const auto& entry : seen.payloads) {
        payloads += (payloads.empty() ? "" : "  ") + entry.first + "=" + entry.second;
    }
    std::string constraints;
    for (const auto& entry : seen.constraints) {
        constraints +=
            (constraints.empty() ? "" : "  ") + entry.first + "=[" + Join(entry.second) + "]";
    }
    Show("payloads", payloads);
    Show("constraints", constraints.empty() ? "(none)" : constraints);
    Show("resources", seen.resourcesPath);
    Show("bin dir", seen.binDirPath);
    Show("launch", seen.openType.empty() ? "(none)"
                                         : seen.openType + " " + seen.url + "  " + seen.modalSize +
                                               " at " + seen.modalPosition);

    if (!want.extensionId.empty()) {
        ExpectText("extension id", seen.extensionId, want.extensionId);
    }
    ExpectText("unified id", seen.unifiedId, want.unifiedId);
    Expect(seen.payloads == want.payloads,
           std::string(name) + ": payloads differ from the manifest");
    Expect(seen.constraints == want.constraints,
           std::string(name) + ": constraints differ from the manifest");
    ExpectText("resources path", Slashed(seen.resourcesPath), want.resourcesPath);
    ExpectText("bin directory", Slashed(seen.binDirPath), want.binDirPath);
    ExpectText("launch url", seen.url, want.url);
    ExpectText("open type", seen.openType, want.openType);
    Expect(seen.initializations == want.initializations,
           std::string(name) + ": Initialization ran " + std::to_string(seen.initializations) +
               " times, expected " + std::to_string(want.initializations));
}

Expected FriendlyGreeter() {
    Expected want;
    want.extensionId = "com.example.hello.friendly";
    want.unifiedId = "hello-friendly";
    want.payloads = {
        {"title", "Friendly greeter"}, {"greeting", "Hello"}, {"signature", "signature.txt"}};
    want.constraints = {{"platform", {"windows", "linux"}}, {"locale", {"en", "de"}}};
    want.resourcesPath = BundlePath("hello", "resources");
    want.binDirPath = BundlePath("hello", "bin");
    want.url = "app://hello/greet";
    want.openType = "modal";
    return want;
}

Expected FormalGreeter() {
    Expected want = FriendlyGreeter();
    want.extensionId = "com.example.hello.formal";
    want.unifiedId = "hello-formal";
    want.payloads = {
        {"title", "Formal greeter"}, {"greeting", "Good day"}, {"signature", "signature.txt"}};
    want.constraints = {{"platform", {"windows"}}};
    want.url = "app://hello/greet?formal=1";
    want.openType = "dialog";
    return want;
}

const char* const kSignature = "-- the hello bundle, from its resources folder";

// The host's own extension class, built by the creator it registers.
class HostClock : public DemoExtension<IClock> {
public:
    int Tick() override { return ++ticks_; }

protected:
    std::vector<std::string> PayloadKeys() const override { return {"title", "zone"}; }

private:
    int ticks_ = 0;
};

int g_clocksMade = 0;

// The creator gets the interface id the extension point names.
bool CreateHostClock(const std::string& iid, const std::string&, void** out) {
    HostClock* clock = nullptr;
    if (QZExtensionObject<HostClock, IClock>::CreateInstance(&clock) != by::kOk) {
        return false;
    }
    ++g_clocksMade;
    auto* root = static_cast<IQZBaseExtension*>(clock);
    by::Result status = root->QueryInterface(by::ParseGuid(iid.c_str(), true), out);
    root->Release();
    return status == by::kOk;
}

std::string VersionText(const std::vector<uint32_t>& numbers) {
    std::string text;
    for (uint32_t n : numbers) {
        text += (text.empty() ? "" : ".") + std::to_string(n);
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--verbose") == 0 || std::strcmp(argv[i], "-v") == 0) {
            g_verbose = true;
        } else {
            std::fprintf(stderr, "usage: %s [--verbose]\n", argv[0]);
            return 2;
        }
    }
    // Unbuffered, so that the lines so far are there if a step crashes.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    g_color = TerminalShowsColor();
    std::wstring exe = platform::ExecutablePath();
    g_binDir = base::WideToUTF8(exe.substr(0, exe.find_last_of(L"\\/")));

    std::printf("%sQZExtensionKit demo host%s  (<bin> is %s)\n", Paint(kBold), Paint(kReset),
                g_binDir.c_str());

    Step("Start: InitSDK and a log sink");
    // The kit owns the sink from here on; the demo keeps a pointer to ask
    // it what the kit said.
    auto* logger = new DemoLogger();
    QZExtensionKit::InitSDK();
    Expect(QZELogService::GetInstance()->RegisterLogger(logger), "RegisterLogger");
    QZELogService::GetInstance()->LogMessage(0, "demo host - sink registered");
    Expect(logger->Count("demo host - sink registered") == 1, "the sink receives the kit's lines");

    Step("Settings, then Load");
    QZExtensionManager* extensions = QZExtensionManager::GetInstance();
    extensions->SetFoundationVersion("3.2.0");
    // config.json is encrypted with this key (a demo key, see
    // examples/CMakeLists.txt).
    Expect(extensions->SetSecKey(QZEKIT_DEMO_SEC_KEY), "SetSecKey");
    // Each library's MD5 must match its manifest's "libFileMD5". The
    // signature check stays off: it needs a signer the system trusts.
    extensions->SetLibFileVerifyEnable(true);
    extensions->SetSignVerifyEnable(false);
    Expect(extensions->GetLibFileVerifyEnable() && !extensions->GetSignVerifyEnable(),
           "library file check on, signature check off");
    std::printf("  foundation 3.2.0, sec key set, library file check on, signature check off\n");
    bool loaded = extensions->Load();
    Expect(loaded, "Load: mapping read, config.json decrypted, bundles opened");

    std::vector<Artifact*> artifacts;
    QZEConfigurationManager::GetInstance()->GetAllArtifacts(artifacts);
    std::vector<std::string> bundleSummary;
    int librariesOpen = 0;
    for (Artifact* artifact : artifacts) {
        if (artifact == nullptr) {
            continue;
        }
        std::string state = "manifest only";
        if (!artifact->GetMainEntry().empty()) {
            std::string key =
                base::WideToUTF8(artifact->GetRootPath().Append(artifact->GetMainEntry()).value());
            by::CComLoader* loader = nullptr;
            bool open = QZEBundleManager::GetInstance()->ComLoaderIsExist(key) &&
                        QZEBundleManager::GetInstance()->GetComLoader(key, &loader) &&
                        loader->IsLoaded();
            librariesOpen += open ? 1 : 0;
            state = open ? "library checked and open" : "library not open";
            if (!artifact->GetBundleClassId().empty()) {
                state += ", entry object";
            }
        }
        std::string line = artifact->GetId() + " " + VersionText(artifact->GetVersion());
        std::printf("  bundle %-30s %s\n", line.c_str(), state.c_str());
        bundleSummary.push_back(artifact->GetId() + " (" + state + ")");
    }
    Expect(artifacts.size() == 3, "three bundles listed in config.json");
    Expect(librariesOpen == 2, "the hello and adapter libraries passed their MD5 and are open");
    Expect(logger->Count("hello bundle - entry object started") == 1,
           "the hello bundle's entry object started once");
    std::printf(
        "  (the host's own bundle has no library, so the kit's \"load bundle failed\" "
        "for it is expected)\n");

    Step("Greeters by point: GetExtensionList(\"com.example.host.greeters\")");
    // What the kit handed out, for the summary.
    std::vector<std::string> handedOut;
    std::vector<void*> greeters;
    Expect(
        extensions->GetExtensionList("com.example.host.greeters", greeters) && greeters.size() == 2,
        "two greeters");
    // The singleton is kept, never released; see the top of this file.
    IGreeter* friendly = nullptr;
    for (void* object : greeters) {
        auto* greeter = static_cast<IGreeter*>(object);
        std::string id = greeter->Seen().extensionId;
        bool isFriendly = id == "com.example.hello.friendly";
        ShowAndCheck(isFriendly ? "friendly greeter (singleton)" : "formal greeter", greeter,
                     isFriendly ? FriendlyGreeter() : FormalGreeter());
        handedOut.push_back(id + " by point");
        std::string said = greeter->Greet("host");
        Show("says", said);
        ExpectText("greeting", said,
                   (isFriendly ? std::string("Hello") : std::string("Good day")) + ", host! " +
                       kSignature);
        if (isFriendly) {
            friendly = greeter;
        } else {
            greeter->Release();
        }
    }
    Expect(friendly != nullptr, "the friendly greeter is among them");

    Step("By id: GetExtensionById");
    void* object = nullptr;
    if (Expect(extensions->GetExtensionById("com.example.hello.formal", &object) && object,
               "com.example.hello.formal")) {
        auto* formal = static_cast<IGreeter*>(object);
        handedOut.push_back("com.example.hello.formal by id");
        Expect(formal->GreetingsGiven() == 0 && formal->Seen().initializations == 1,
               "not a singleton: a new object");
        std::printf("  formal greeter: a new object, %d greetings given, initialised %dx\n",
                    formal->GreetingsGiven(), formal->Seen().initializations);
        formal->Release();
    }
    object = nullptr;
    if (Expect(extensions->GetExtensionById("com.example.hello.friendly", &object) && object,
               "com.example.hello.friendly")) {
        // A singleton again: the same object, with no reference of its own.
        auto* again = static_cast<IGreeter*>(object);
        handedOut.push_back("com.example.hello.friendly by id");
        Expect(
            again == friendly && again->GreetingsGiven() == 1 && again->Seen().initializations == 2,
            "singleton: the same object, filled and initialised again");
        std::printf("  friendly greeter: the same object, %d greeting given, initialised %dx\n",
                    again->GreetingsGiven(), again->Seen().initializations);
    }

    Step("The adapter: GetExtension(\"com.example.adapter.webpanels\")");
    // The notes panel of the hello bundle has no code; the mapping sends it
    // to the adapter's web container as a derived record.
    object = nullptr;
    if (Expect(extensions->GetExtension("com.example.adapter.webpanels", &object) && object,
               "the adapter's point has a panel")) {
        auto* panel = static_cast<IWebPanel*>(object);
        handedOut.push_back("the notes panel through the adapter");
        Expected want;
        want.unifiedId = "hello-notes";
        want.payloads = {{"extensionId", "com.example.hello.notes"},
                         {"title", "Release notes"},
                         {"page", "notes.html"}};
        want.constraints = {{"role", {"member", "admin"}}};
        // The panel's own resources, the container's own library folder.
        want.resourcesPath = BundlePath("hello", "resources");
        want.binDirPath = BundlePath("adapter", "bin");
        want.url = "https://apps.example.com/hello/notes";
        want.openType = "sidebar";
        ShowAndCheck("web panel (derived record)", panel, want);
        const std::string& id = panel->Seen().extensionId;
        Expect(id.size() == 38 && id.front() == '{' && id.back() == '}',
               "a derived record's id is a new braced GUID");
        std::string opened = panel->Open();
        Show("opens", opened);
        ExpectText("panel", opened,
                   "sidebar https://apps.example.com/hello/notes for com.example.hello.notes: "
                   "page notes.html found, container.html found");
        panel->Release();
    }

    Step("A host class by the registry route: RegisterExtension, GetExtension");
    // A singleton, so the container keeps it: this route keeps one reference
    // more than it hands out, on purpose.
    Expect(extensions->RegisterExtension(&CreateHostClock, DEMO_HOST_CLOCK_CLSID, true),
           "RegisterExtension");
    for (int request = 1; request <= 2; ++request) {
        object = nullptr;
        if (!Expect(extensions->GetExtension("com.example.host.clocks", &object) && object,
                    "com.example.host.clocks, request " + std::to_string(request))) {
            continue;
        }
        auto* clock = static_cast<IClock*>(object);
        handedOut.push_back("the host clock by the registry route");
        if (request == 1) {
            Expected want;
            // This route sets neither ids nor launch parameters.
            want.payloads = {{"title", "Host clock"}, {"zone", "UTC"}};
            want.resourcesPath = BundlePath("hostparts", "resources");
            want.binDirPath = BundlePath("hostparts", "bin");
            ShowAndCheck("host clock", clock, want);
        }
        int ticks = clock->Tick();
        std::printf("  request %d: tick %d, creator called %d time(s)\n", request, ticks,
                    g_clocksMade);
        Expect(ticks == request && g_clocksMade == 1, "one clock, made once by the creator");
        clock->Release();
    }

    Step("Module and feature switches (config.json \"modules\")");
    QZEConfigurationManager* configuration = QZEConfigurationManager::GetInstance();
    struct ModuleCase {
        ModuleCode code;
        const char* name;
        bool on;
    };
    for (const ModuleCase& module :
         {ModuleCase{kModuleInstantMessaging, "instantmessaging", true},
          ModuleCase{kModuleMail, "mail", true}, ModuleCase{kModuleBlog, "blog", false}}) {
        bool enabled = !module.on;
        Expect(configuration->IsModuleEnabled(module.code, enabled) && enabled == module.on,
               std::string("module ") + module.name);
        std::printf("  module  %-26s %s\n", module.name, enabled ? "on" : "off");
    }
    struct FeatureCase {
        FeatureCode code;
        const char* name;
        bool on;
    };
    for (const FeatureCase& feature :
         {FeatureCase{kFeatureImEnableBurnChat, "im_enable_burn_chat", true},
          FeatureCase{kFeatureImEnableParseLink, "im_enable_parse_link", false}}) {
        bool enabled = !feature.on;
        Expect(configuration->IsFeatueEnabled(feature.code, enabled) && enabled == feature.on,
               std::string("feature ") + feature.name);
        std::printf("  feature %-26s %s\n", feature.name, enabled ? "on" : "off");
    }
    std::string groupSize;
    Expect(configuration->GetMuduleConfig("instantmessaging", "max_group_size", groupSize),
           "setting max_group_size");
    std::printf("  setting instantmessaging.max_group_size = %s (its defaultValue)\n",
                groupSize.c_str());
    ExpectText("max_group_size", groupSize, "500");

    Step("Summary");
    Expect(extensions->Unload(), "Unload");
    // One line per bundle and per kind of extension, with how often it came.
    std::vector<std::pair<std::string, int>> kinds;
    for (const std::string& item : handedOut) {
        if (!kinds.empty() && kinds.back().first == item) {
            ++kinds.back().second;
        } else {
            kinds.emplace_back(item, 1);
        }
    }
    const char* label = "bundles";
    for (const std::string& bundle : bundleSummary) {
        std::printf("  %-11s %s\n", label, bundle.c_str());
        label = "";
    }
    label = "extensions";
    for (const auto& kind : kinds) {
        std::printf("  %-11s %s%s\n", label, kind.first.c_str(),
                    kind.second > 1 ? (" x" + std::to_string(kind.second)).c_str() : "");
        label = "";
    }
    std::printf("  kit log     %lu lines%s\n", static_cast<unsigned long>(logger->Lines()),
                g_verbose ? "" : " (--verbose shows them all)");
    std::printf("  checks      %d passed, %d failed\n", g_passed, g_failed);
    g_stepPassed = 0;
    g_stepFailed = 0;

    if (g_failed == 0) {
        std::printf("\n%sDemo finished: every step worked.%s\n", Paint(kGreen), Paint(kReset));
        return 0;
    }
    std::printf("\n%sDemo finished with %d failed check(s).%s\n", Paint(kRed), g_failed,
                Paint(kReset));
    return 1;
}
