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

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "base/files/file_path.h"
#include "base/utf_string_conversions.h"
#include "component/com_loader.h"
#include "config/extension_auth_info.h"
#include "demo_extension.h"
#include "kit/qzextensionkit.h"
#include "manager/extension_object.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_factory.h"
#include "model/setting_map.h"
#include "platform/platform.h"
#include "services/notification_registrar.h"
#include "services/open_network_api.h"

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

// ---------------------------------------------------------------- services

// The host's "OpenNetService": answers from a small table, in process, on
// the caller's thread. A real host would send the request out.
const char* const kDemoNetInterfaceId = "{3A7C2E10-6B4D-4F8E-9C21-5D0E7F1A2B33}";
const char* const kDemoNetClassId = "{3A7C2E10-6B4D-4F8E-9C21-5D0E7F1A2B34}";
class DemoNetService : public IQZOpenNetService, public by::CUnknownImp {
public:
    BY_DECLARE_INTERFACE_ID(kDemoNetInterfaceId)
    by::Result init_class(by::IBaseUnknown*, by::IBaseUnknown*) { return 0; }

    bool StartRequest(const std::string& field, const std::string& first, const std::string& second,
                      const std::string&, const std::function<void(const std::string&)>& success,
                      const std::function<void(QZStartRequestError&)>& failure) override {
        static const std::map<std::string, std::string> kTable = {
            {"GET /status/mail", "{\"mail\": \"up\", \"queue\": 3}"},
            {"GET /status/im", "{\"im\": \"up\", \"online\": 42}"},
        };
        auto found = kTable.find(first + " " + second);
        if (found == kTable.end()) {
            QZStartRequestError error(404, field + ": no route " + first + " " + second);
            failure(error);
        } else {
            success(found->second);
        }
        return true;
    }
};

// A document the demo sends events about, and what it sends with them.
struct DemoDocument {
    std::string name;
};
struct DemoSaveInfo {
    int version;
};
const int kDemoDocumentSaved = 1001;

// Records the events it gets; the badge removes itself at its first one.
class DemoObserver : public QZNotificationObserver {
public:
    DemoObserver(const char* name, bool removeSelf, const DemoDocument* document)
        : name_(name), removeSelf_(removeSelf) {
        registrar_.Add(this, kDemoDocumentSaved, Source<DemoDocument>(document));
    }
    void Observe(int type, const QZNotificationSource& source,
                 const QZNotificationParameters& params) override {
        const DemoDocument* document = SourceAs<DemoDocument>(source);
        const DemoSaveInfo* info = ParamsAs<DemoSaveInfo>(params);
        got_.push_back(document->name + " v" + std::to_string(info->version));
        std::string line = "  " + name_ + " got " + got_.back();
        if (removeSelf_) {
            registrar_.Remove(this, type, source);
            line += ", and removed itself";
        }
        std::printf("%s\n", line.c_str());
    }
    const std::vector<std::string>& Got() const { return got_; }
    bool Registered() const { return !registrar_.IsEmpty(); }

private:
    std::string name_;
    bool removeSelf_;
    std::vector<std::string> got_;
    QZNotificationRegistrar registrar_;
};

// ---------------------------------------------------------------- remote

// The host's remote configuration: FetchConfig answers from a thread of its
// own, as a network client would; the records are built there.
class DemoRemoteSource : public IQZERemoteConfigDataSource {
public:
    ~DemoRemoteSource() override { Join(); }

    void FetchConfig(const std::function<void()>& onSuccess,
                     const std::function<void(const std::string&)>&) override {
        // The functions are valid only during this call: the thread keeps
        // copies.
        std::function<void()> done = onSuccess;
        worker_ = std::thread([this, done]() {
            Build();
            done();
        });
    }
    void GetConfig(std::map<std::string, std::list<std::shared_ptr<Extension>>>& extensions,
                   std::list<std::shared_ptr<QZExtensionAuthInfo>>& authInfos) override {
        std::lock_guard<std::mutex> hold(mutex_);
        extensions = extensions_;
        authInfos = authInfos_;
    }
    bool HasFetchedConfig() override {
        std::lock_guard<std::mutex> hold(mutex_);
        return fetched_;
    }
    bool HasCachedConfig() override { return false; }

    std::thread::id FetchThread() {
        std::lock_guard<std::mutex> hold(mutex_);
        return fetchThread_;
    }
    void Join() {
        if (worker_.joinable()) {
            worker_.join();
        }
    }

private:
    // What a server would send: two panels for the host's panel point (the
    // notes again, retitled, and a new one), and the auth record of the new
    // one, whose key is still to be fetched.
    void Build() {
        std::list<std::shared_ptr<Extension>> panels;
        std::map<std::string, std::vector<std::string>> constraints = {{"role", {"admin"}}};
        std::map<std::string, std::string> notes = {{"title", "Release notes (remote)"},
                                                    {"page", "notes.html"}};
        panels.push_back(ExtensionFactory::createExtension(
            "com.example.hello.notes", "com.example.host.panels", notes, constraints,
            SettingMap("right", "400x600", "https://apps.example.com/hello/notes", "sidebar",
                       "https://apps.example.com", "/hello/notes"),
            "hello-notes"));
        std::map<std::string, std::string> status = {{"title", "Service status"},
                                                     {"page", "status.html"}};
        panels.push_back(ExtensionFactory::createExtension(
            "com.example.status.board", "com.example.host.panels", status, constraints,
            SettingMap("right", "400x300", "https://status.example.com/board", "sidebar",
                       "https://status.example.com", "/board"),
            "status-board"));
        std::lock_guard<std::mutex> hold(mutex_);
        extensions_["com.example.host.panels"] = panels;
        authInfos_ = {std::make_shared<QZExtensionAuthInfo>("https://status.example.com",
                                                            "com.example.status", "")};
        fetched_ = true;
        fetchThread_ = std::this_thread::get_id();
    }

    std::mutex mutex_;
    std::thread worker_;
    std::map<std::string, std::list<std::shared_ptr<Extension>>> extensions_;
    std::list<std::shared_ptr<QZExtensionAuthInfo>> authInfos_;
    bool fetched_ = false;
    std::thread::id fetchThread_;
};

const char* const kPanelPoint = "com.example.adapter.webpanels";
const char* const kAdapterClassId = "{2F1E0C7B-4A35-4E0C-9C61-7B1D2E3F4A5B}";

// The records of the adapter's point, as the configuration holds them; the
// panel each one stands for, by its "extensionId" payload, in order.
std::vector<std::string> ShowPanelTable(const char* when) {
    std::vector<std::shared_ptr<Extension>> records;
    QZEConfigurationManager::GetInstance()->GetExtensionInfosByExntensionPointID(kPanelPoint,
                                                                                 records);
    std::printf("  %s: %lu record(s) on %s\n", when, static_cast<unsigned long>(records.size()),
                kPanelPoint);
    std::vector<std::string> panels;
    for (const auto& record : records) {
        std::map<std::string, std::string> payloads = record->GetPayloads();
        panels.push_back(payloads["extensionId"]);
        std::printf("    %s  %-25s \"%s\"  %s\n", record->GetId().c_str(),
                    payloads["extensionId"].c_str(), payloads["title"].c_str(),
                    record->GetSettingMap().url.c_str());
        Expect(record->GetClsid() == kAdapterClassId,
               "a derived record runs on the adapter's class, not " + record->GetClsid());
    }
    return panels;
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
    // A bundle the reader adds to config.json is listed too, but the checks
    // count the demo's own.
    const std::set<std::string> demoBundles = {"com.example.hello", "extension_adapter",
                                               "com.example.hostparts"};
    int demoBundlesListed = 0;
    int librariesOpen = 0;
    for (Artifact* artifact : artifacts) {
        if (artifact == nullptr) {
            continue;
        }
        const bool demoBundle = demoBundles.count(artifact->GetId()) != 0;
        demoBundlesListed += demoBundle ? 1 : 0;
        std::string state = "manifest only";
        if (!artifact->GetMainEntry().empty()) {
            std::string key =
                base::WideToUTF8(artifact->GetRootPath().Append(artifact->GetMainEntry()).value());
            by::CComLoader* loader = nullptr;
            bool open = QZEBundleManager::GetInstance()->ComLoaderIsExist(key) &&
                        QZEBundleManager::GetInstance()->GetComLoader(key, &loader) &&
                        loader->IsLoaded();
            librariesOpen += open && demoBundle ? 1 : 0;
            state = open ? "library checked and open" : "library not open";
            if (!artifact->GetBundleClassId().empty()) {
                state += ", entry object";
            }
        }
        std::string line = artifact->GetId() + " " + VersionText(artifact->GetVersion());
        std::printf("  bundle %-30s %s\n", line.c_str(), state.c_str());
        bundleSummary.push_back(artifact->GetId() + " (" + state + ")");
    }
    Expect(demoBundlesListed == 3, "three bundles listed in config.json");
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

    Step("The host's \"OpenNetService\" through QZOpenNetworkAPI");
    // A singleton: each request keeps the reference its lookup hands out.
    Expect(QZServiceManager::GetInstance()->RegisterService<DemoNetService>(
               "OpenNetService", kDemoNetClassId, kDemoNetInterfaceId, true),
           "RegisterService(\"OpenNetService\")");
    QZOpenNetworkAPI network("demo-host");
    struct Request {
        const char* path;
        const char* want;
    };
    for (const Request& request :
         {Request{"/status/mail", "200 {\"mail\": \"up\", \"queue\": 3}"},
          Request{"/status/blog", "404 demo-host: no route GET /status/blog"}}) {
        std::string answer = "(no answer)";
        bool sent = network.StartRequest(
            "GET", request.path, "", [&answer](const std::string& body) { answer = "200 " + body; },
            [&answer](int code, const std::string& message) {
                answer = std::to_string(code) + " " + message;
            });
        std::printf("  GET %-13s -> %s\n", request.path, answer.c_str());
        Expect(sent, std::string("request ") + request.path + " sent");
        ExpectText("answer", answer, request.want);
    }

    Step("Notifications: two observers, one removes itself while notified");
    {
        DemoDocument report{"report.txt"};
        DemoObserver panel("panel", false, &report);
        DemoObserver badge("badge", true, &report);
        auto* notifications = QZServiceManager::GetInstance()->GetService<IQZNotificationService>(
            kNotificationServiceName);
        if (Expect(notifications != nullptr, "\"NotificationService\" is registered")) {
            for (int version = 1; version <= 2; ++version) {
                DemoSaveInfo info{version};
                std::printf("  notify: %s saved, v%d\n", report.name.c_str(), version);
                notifications->Notify(kDemoDocumentSaved, Source<DemoDocument>(&report),
                                      Params<DemoSaveInfo>(&info));
            }
            notifications->Release();
        }
        std::printf("  panel got %s; badge got %s\n", Join(panel.Got()).c_str(),
                    Join(badge.Got()).c_str());
        Expect(panel.Got() == std::vector<std::string>{"report.txt v1", "report.txt v2"},
               "the panel got both events");
        Expect(badge.Got() == std::vector<std::string>{"report.txt v1"},
               "the badge got the first event only");
        Expect(panel.Registered() && !badge.Registered(), "only the panel is still registered");
    }

    Step("Remote configuration, completed on another thread");
    {
        std::printf("  mapping     com.example.host.panels -> %s, adapter class %s\n", kPanelPoint,
                    kAdapterClassId);
        std::vector<std::string> before = ShowPanelTable("before");
        Expect(before == std::vector<std::string>{"com.example.hello.notes"},
               "before: the local notes panel only");
        auto source = std::make_shared<DemoRemoteSource>();
        configuration->SetRemoteConfigDataSource(source);
        std::promise<std::string> outcome;
        configuration->FetchRemoteConfig(
            true, [&outcome]() { outcome.set_value("merged"); },
            [&outcome](const std::string& reason) { outcome.set_value("failed: " + reason); });
        std::future<std::string> done = outcome.get_future();
        bool finished = done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
        std::string result = finished ? done.get() : "no answer in 10 s";
        source->Join();
        bool otherThread = source->FetchThread() != std::thread::id() &&
                           source->FetchThread() != std::this_thread::get_id();
        std::printf("  FetchRemoteConfig: %s, on %s\n", result.c_str(),
                    otherThread ? "the source's own thread" : "the calling thread");
        ExpectText("fetch", result, "merged");
        Expect(otherThread, "the completion ran on the source's thread");
        std::vector<std::string> after = ShowPanelTable("after");
        Expect(after ==
                   std::vector<std::string>{"com.example.hello.notes", "com.example.status.board"},
               "after: the remote list replaces the local one");

        std::vector<void*> panels;
        Expect(extensions->GetExtensionList(kPanelPoint, panels) && panels.size() == 2,
               "two panels to open");
        // A remote record comes with no bundle: its page is not on disk here.
        for (void* item : panels) {
            auto* panel = static_cast<IWebPanel*>(item);
            std::string opened = panel->Open();
            std::printf("  opens %s\n", Short(opened).c_str());
            const auto& payloads = panel->Seen().payloads;
            const auto named = payloads.find("extensionId");
            const std::string id = named == payloads.end() ? "(none)" : named->second;
            Expect(opened.find(" for " + id + ": ") != std::string::npos &&
                       opened.find("container.html found") != std::string::npos,
                   "the adapter's container runs " + id);
            handedOut.push_back("a remote panel through the adapter");
            panel->Release();
        }

        std::printf("  missing access key, fetched through the host's callback:\n");
        std::string keyBefore = configuration->GetExtensionAccessKey("com.example.status");
        std::vector<std::string> asked;
        configuration->SetFetchExtensionAuthInfoCallback(
            [&asked](std::vector<std::string> bundleIds,
                     const std::function<void(const std::map<std::string, std::string>&)>& found,
                     const std::function<void(const std::string&)>&) {
                asked = bundleIds;
                std::map<std::string, std::string> keys;
                // The host's own key service would answer here.
                if (bundleIds == std::vector<std::string>{"com.example.status"}) {
                    keys["com.example.status"] = "status-key-7f3a";
                }
                found(keys);
            });
        configuration->CheckAndFetchExtensionAuthInfo();
        std::string keyAfter = configuration->GetExtensionAccessKey("com.example.status");
        std::printf(
            "    GetExtensionAccessKey(\"com.example.status\") before \"%s\", after \"%s\"\n",
            keyBefore.c_str(), keyAfter.c_str());
        std::printf("    the callback was asked for: %s\n", Join(asked).c_str());
        ExpectText("key before", keyBefore, "");
        ExpectText("key after", keyAfter, "status-key-7f3a");
        Expect(asked == std::vector<std::string>{"com.example.status"},
               "the callback is asked for the bundle without a key");
        Expect(logger->Count("total(1) bundleIds were found without access key") == 1,
               "the kit logs the bundle without a key");
    }

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
