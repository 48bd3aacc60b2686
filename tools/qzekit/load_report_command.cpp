// The inspect command: loads an installation with the kit and reports what
// is in force and why any bundle failed to load.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/version.h"
#include "bundle/bundle_manager_impl.h"
#include "bundle/lib_file_verify.h"
#include "bundle/library_signer.h"
#include "component/com_loader.h"
#include "component/guid.h"
#include "config/configuration_manager_impl.h"
#include "kit/qzextensionkit.h"
#include "model/artifact.h"
#include "model/extension.h"
#include "model/extension_point.h"
#include "model/manifest.h"
#include "platform/platform.h"
#include "qzekit/library_probe.h"
#include "qzekit/tool.h"

namespace qzekit {
namespace {

using namespace qzextensionkit;

// Where the kit is told the host's executable lies: a made-up name in the
// folder to inspect.
constexpr wchar_t kHostExecutable[] = L"qzekit-inspect.exe";
constexpr int kModuleCodeCount = 38;
constexpr int kFeatureCodeCount = 14;

struct Options {
    std::string hostDir;
    std::string keyFile;
    std::string foundation;
    bool libFileVerify = false;
    bool signVerify = false;
    bool json = false;
};

// The log lines of the load, as the host's sink would get them.
struct LogLines {
    std::mutex mutex;
    bool active = true;
    std::vector<std::string> lines;
};

class CaptureSink : public IQZELogger {
public:
    explicit CaptureSink(std::shared_ptr<LogLines> lines) : lines_(std::move(lines)) {}
    void Log(int, std::string text) override {
        std::lock_guard<std::mutex> hold(lines_->mutex);
        if (lines_->active) {
            lines_->lines.push_back(std::move(text));
        }
    }

private:
    std::shared_ptr<LogLines> lines_;
};

class DiscardSink : public IQZELogger {
public:
    void Log(int, std::string) override {}
};

struct ExtensionRow {
    std::string id, clsid, library;
    bool singleton = false;
};

struct PointRow {
    std::string id, iid;
    std::vector<ExtensionRow> extensions;
};

struct BundleRow {
    std::string id, version, foundationVersion, root, library, classId;
    bool foundationFits = true;
    bool loaded = false;
    std::string outcome;  // what happened, in one sentence
    LibraryDiagnosis probe;
    std::string classStatus;  // what DllGetClassObject or CreateInstance answered
};

struct Report {
    std::string hostDir;
    bool loadSucceeded = false;
    std::string loadProblem;
    std::vector<PointRow> points;
    std::vector<BundleRow> bundles;
    std::vector<std::pair<std::string, std::map<std::string, std::string>>> modules;
    std::vector<std::string> features;
    std::vector<std::string> log;
};

std::string VersionText(const std::vector<uint32_t>& numbers) {
    std::string text;
    for (uint32_t n : numbers) {
        text += (text.empty() ? "" : ".") + std::to_string(n);
    }
    return text;
}

std::string StatusText(int32_t status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(status));
    std::string named = text;
    if (status == by::kFail) {
        named += " (E_FAIL)";
    } else if (status == by::kNoInterface) {
        named += " (E_NOINTERFACE)";
    } else if (static_cast<uint32_t>(status) == 0x80040111) {
        named += " (CLASS_E_CLASSNOTAVAILABLE)";
    }
    return named;
}

// The kit's facades set up on fresh implementations, so that no setting,
// table or library of an earlier inspect in this process carries over; put
// back to their empty state when this goes.
class KitSession {
public:
    explicit KitSession(const std::wstring& hostDir)
        : lines_(std::make_shared<LogLines>()),
          config_(std::make_shared<QZEConfigurationManagerImpl>()),
          bundles_(std::make_shared<QZEBundleManagerImpl>()) {
        platform::testing::SetExecutablePathOverride(hostDir + L"\\" + kHostExecutable);
        QZExtensionKit::InitSDK();
        QZEConfigurationManager::GetInstance()->Initialize(config_);
        QZEBundleManager::GetInstance()->Initialize(bundles_);
        // After InitSDK: a second InitSDK in one process logs a refused
        // registration, which is no part of the installation.
        QZELogService::GetInstance()->RegisterLogger(new CaptureSink(lines_));
    }
    ~KitSession() {
        // Bundle objects and libraries go first, while the facades that
        // their destructors may call still stand.
        QZEBundleManager::GetInstance()->UnInitialize();
        bundles_.reset();
        QZExtensionManager::GetInstance()->SetLibFileVerifyEnable(false);
        QZExtensionManager::GetInstance()->SetSignVerifyEnable(false);
        QZExtensionManager::GetInstance()->UnInitialize();
        QZEConfigurationManager::GetInstance()->UnInitialize();
        QZServiceManager::GetInstance()->UnInitialize();
        QZELogService::GetInstance()->RegisterLogger(new DiscardSink);
        platform::testing::SetExecutablePathOverride(std::wstring());
    }
    KitSession(const KitSession&) = delete;
    KitSession& operator=(const KitSession&) = delete;

    // The lines logged so far; later lines are not kept.
    std::vector<std::string> StopLog() {
        std::lock_guard<std::mutex> hold(lines_->mutex);
        lines_->active = false;
        return lines_->lines;
    }
    QZEBundleManagerImpl& bundles() { return *bundles_; }

private:
    std::shared_ptr<LogLines> lines_;
    std::shared_ptr<QZEConfigurationManagerImpl> config_;
    std::shared_ptr<QZEBundleManagerImpl> bundles_;
};

void DescribeOpenFailure(BundleRow& row, const base::FilePath& bin) {
    row.probe = DiagnoseLibrary(WidePath(row.library), bin.value());
    const LibraryDiagnosis& probe = row.probe;
    if (probe.notALibrary) {
        row.outcome = "the file is not a library: it has neither an ELF nor a PE header";
    } else if (probe.otherMachine) {
        row.outcome = "the library is built for another machine";
    } else if (!probe.missingDependencies.empty()) {
        row.outcome = "a library it depends on is missing";
    } else if (!probe.missingSymbols.empty()) {
        row.outcome = "a function or symbol it needs is missing from its dependencies";
    } else if (!probe.missingExports.empty()) {
        row.outcome = "the library lacks an export that every component library must have";
    } else if (probe.noModuleObject) {
        row.outcome =
            "DllGetClassObject gave no module object for {e9678781-a3cb-46fb-9121-3ed22c24cfad}";
    } else if (!probe.opened) {
        row.outcome = "the system loader could not open the library";
    } else {
        row.outcome = "the kit could not open the library, though it opens now";
    }
}

// Why the kit's attempt at one bundle ended as it did, found by asking the
// bundle manager what it holds and by opening the library again.
void DescribeBundle(Artifact* artifact, const Options& options, KitSession& kit, BundleRow& row) {
    base::FilePath root = artifact->GetRootPath();
    base::FilePath library = root.Append(artifact->GetMainEntry());
    row.library = Utf8Path(library.value());
    row.classId = artifact->GetBundleClassId();
    if (!base::PathExists(root)) {
        row.outcome = "the bundle folder does not exist";
        return;
    }
    if (artifact->GetMainEntry().empty()) {
        row.outcome = "manifest.json names no library (mainEntry is empty)";
        return;
    }
    if (!base::PathExists(library)) {
        row.outcome = "the library file does not exist";
        return;
    }
    QZEBundleManagerImpl& bundles = kit.bundles();
    std::string key = Utf8Path(library.value());
    if (!bundles.ComLoaderIsExist(key)) {
        if (!options.libFileVerify) {
            row.outcome = "the kit did not try to open the library";
        } else if (!QZEExtensionLibFileVerify::GetInstance()->Verify(library.value(),
                                                                     artifact->GetLibFileMD5())) {
            std::string md5, error;
            ComputeLibFileMD5(library.value(), &md5, &error);
            row.outcome = "the file check refused the library: its MD5 is " + md5 +
                          ", manifest.json says libFileMD5 \"" + artifact->GetLibFileMD5() + "\"";
        } else {
            row.outcome = "the signature check refused the library (see the log for the signer)";
        }
        return;
    }
    by::CComLoader* loader = nullptr;
    bundles.GetComLoader(key, &loader);
    if (!loader->IsLoaded() || loader->ModuleObject() == nullptr) {
        DescribeOpenFailure(row, root.Append(L"bin"));
        return;
    }
    if (row.classId.empty()) {
        row.loaded = true;
        row.outcome = "loaded; no entry class (BundleClassId is empty)";
        return;
    }
    by::IBaseUnknown* object = nullptr;
    if (bundles.GetBundleObject(row.classId, &object) && object != nullptr) {
        row.loaded = true;
        row.outcome = "loaded; entry object " + row.classId + " is live";
        return;
    }
    int32_t status = 0;
    if (!ServesClass(library.value(), row.classId, &status)) {
        row.classStatus = status != 0 ? "DllGetClassObject answered " + StatusText(status)
                                      : "DllGetClassObject gave no class factory";
        row.outcome = "the library does not serve the entry class id " + row.classId +
                      " (BundleClassId); the component model reports this as E_FAIL";
        return;
    }
    void* entry = nullptr;
    status = loader->CreateInstance(by::ParseGuid(row.classId.c_str(), true), nullptr, nullptr,
                                    by::IID_IQZEBundle, &entry);
    if (entry != nullptr) {
        static_cast<by::IBaseUnknown*>(entry)->Release();
    }
    row.classStatus = "CreateInstance answered " + StatusText(status);
    row.outcome = status == by::kNoInterface
                      ? "the entry class " + row.classId +
                            " does not answer IQZEBundle {e50226d4-ee3f-4a64-b53e-50114f0c99c7}"
                      : "the entry object of class " + row.classId + " could not be made";
}

void Collect(const Options& options, KitSession& kit, Report& report) {
    IQZEConfigurationManager* config = QZEConfigurationManager::GetInstance();
    std::vector<uint32_t> foundation = base::Version(options.foundation).components();

    std::vector<Artifact*> artifacts;
    config->GetAllArtifacts(artifacts);
    std::map<std::string, PointRow> points;
    for (Artifact* artifact : artifacts) {
        BundleRow row;
        row.id = artifact->GetId();
        row.version = VersionText(artifact->GetVersion());
        row.foundationVersion = VersionText(artifact->GetFoundationVersion());
        row.root = Utf8Path(artifact->GetRootPath().value());
        row.foundationFits = FoundationVersionFits(artifact->GetFoundationVersion(), foundation);
        if (row.foundationFits) {
            std::list<ExtensionPoint*> own;
            artifact->GetExtensionPoints(own);
            for (ExtensionPoint* point : own) {
                points[point->GetId()] = {point->GetId(), point->GetIid(), {}};
            }
        }
        DescribeBundle(artifact, options, kit, row);
        report.bundles.push_back(row);
    }
    std::vector<Extension*> records;
    config->GetAllExtensionInfos(records);
    for (Extension* record : records) {
        PointRow& point = points[record->GetExtensionPointId()];
        point.id = record->GetExtensionPointId();
        if (point.iid.empty()) {
            point.iid = record->GetIid();
        }
        point.extensions.push_back({record->GetId(), record->GetClsid(),
                                    Utf8Path(record->GetMainEntry()), record->IsSingleton()});
    }
    for (auto& point : points) {
        report.points.push_back(point.second);
    }
    for (int code = 0; code < kModuleCodeCount; ++code) {
        std::string id = QZEConfigurationManagerImpl::ModuleCodeToString(ModuleCode(code));
        bool enabled = false;
        if (!id.empty() && config->IsModuleEnabled(ModuleCode(code), enabled) && enabled) {
            std::map<std::string, std::string> settings;
            config->GetConfigurationsByID(ModuleCode(code), &settings);
            report.modules.emplace_back(id, settings);
        }
    }
    std::sort(report.modules.begin(), report.modules.end());
    for (int code = 0; code < kFeatureCodeCount; ++code) {
        bool enabled = false;
        if (config->IsFeatueEnabled(FeatureCode(code), enabled) && enabled) {
            report.features.push_back(
                QZEConfigurationManagerImpl::FeatureCodeToString(FeatureCode(code)));
        }
    }
}

// One bundle's findings as lines of text, without indentation.
std::vector<std::string> Findings(const BundleRow& row) {
    std::vector<std::string> lines;
    const LibraryDiagnosis& probe = row.probe;
    if (!row.loaded && !row.library.empty()) {
        lines.push_back("library: " + row.library);
    }
    if (!probe.loaderMessage.empty()) {
        lines.push_back("system loader: " + probe.loaderMessage);
    }
    if (probe.otherMachine) {
        lines.push_back("built for " + Describe(probe.builtFor) + ", this host is " +
                        Describe(HostMachine()));
    }
    for (const std::string& name : probe.missingDependencies) {
        lines.push_back("missing dependency: " + name +
                        " (not in the bundle's bin folder nor on the system's search path)");
    }
    for (const std::string& name : probe.missingSymbols) {
        lines.push_back("missing symbol: " + name);
    }
    for (const std::string& name : probe.missingExports) {
        lines.push_back("missing export: " + name);
    }
    if (!row.classStatus.empty()) {
        lines.push_back("class id " + row.classId + ": " + row.classStatus);
    }
    return lines;
}

void PrintText(const Report& report, const Options& options, std::ostream& out) {
    out << "Host folder: " << report.hostDir << "\n";
    out << "Settings: foundation version "
        << (options.foundation.empty() ? "not set" : options.foundation) << "; sec key "
        << (options.keyFile.empty() ? "not set" : "set") << "; lib file verify "
        << (options.libFileVerify ? "on" : "off") << "; sign verify "
        << (options.signVerify ? "on" : "off") << "\n";
    out << "Load: "
        << (report.loadSucceeded
                ? "succeeded"
                : "failed: " + (report.loadProblem.empty() ? "see the log" : report.loadProblem))
        << "\n";

    out << "\nExtension points in force:\n";
    if (report.points.empty()) {
        out << "  (none)\n";
    }
    for (const PointRow& point : report.points) {
        out << "  " << point.id << "  iid " << point.iid << "\n";
        if (point.extensions.empty()) {
            out << "    (no extensions)\n";
        }
        for (const ExtensionRow& ext : point.extensions) {
            out << "    " << ext.id << "  clsid " << ext.clsid << "  "
                << (ext.library.empty() ? "no library (host registry)" : "library " + ext.library)
                << (ext.singleton ? "  singleton" : "") << "\n";
        }
    }

    out << "\nBundles:\n";
    if (report.bundles.empty()) {
        out << "  (none)\n";
    }
    for (const BundleRow& row : report.bundles) {
        out << "  " << (row.id.empty() ? "(no id)" : row.id) << "  version "
            << (row.version.empty() ? "-" : row.version) << "  " << row.root << "\n";
        out << "    foundation " << (row.foundationVersion.empty() ? "-" : row.foundationVersion)
            << ": "
            << (row.foundationFits ? "fits"
                                   : "needs a newer foundation; its extensions are not in force")
            << "\n";
        out << "    " << (row.loaded ? "" : "FAILED: ") << row.outcome << "\n";
        for (const std::string& line : Findings(row)) {
            out << "    " << line << "\n";
        }
    }

    out << "\nModules on:";
    for (const auto& module : report.modules) {
        out << " " << module.first;
    }
    out << (report.modules.empty() ? " (none)\n" : "\n");
    out << "Features on:";
    for (const std::string& feature : report.features) {
        out << " " << feature;
    }
    out << (report.features.empty() ? " (none)\n" : "\n");

    out << "\nLog:\n";
    for (const std::string& line : report.log) {
        out << "  " << line << "\n";
    }
}

std::string JsonList(const std::vector<std::string>& items) {
    std::string text = "[";
    for (const std::string& item : items) {
        text += (text.size() > 1 ? ", " : "") + JsonQuote(item);
    }
    return text + "]";
}

void PrintJson(const Report& report, const Options& options, std::ostream& out) {
    auto flag = [](bool value) { return value ? "true" : "false"; };
    out << "{\n  \"hostDir\": " << JsonQuote(report.hostDir) << ",\n";
    out << "  \"settings\": {\"foundationVersion\": " << JsonQuote(options.foundation)
        << ", \"secKey\": " << flag(!options.keyFile.empty())
        << ", \"libFileVerify\": " << flag(options.libFileVerify)
        << ", \"signVerify\": " << flag(options.signVerify) << "},\n";
    out << "  \"loaded\": " << flag(report.loadSucceeded) << ",\n";
    out << "  \"loadProblem\": " << JsonQuote(report.loadProblem) << ",\n";
    out << "  \"extensionPoints\": [";
    for (std::size_t i = 0; i < report.points.size(); ++i) {
        const PointRow& point = report.points[i];
        out << (i ? ",\n    " : "\n    ") << "{\"id\": " << JsonQuote(point.id)
            << ", \"iid\": " << JsonQuote(point.iid) << ", \"extensions\": [";
        for (std::size_t k = 0; k < point.extensions.size(); ++k) {
            const ExtensionRow& ext = point.extensions[k];
            out << (k ? ", " : "") << "{\"id\": " << JsonQuote(ext.id)
                << ", \"clsid\": " << JsonQuote(ext.clsid)
                << ", \"library\": " << JsonQuote(ext.library)
                << ", \"singleton\": " << flag(ext.singleton) << "}";
        }
        out << "]}";
    }
    out << (report.points.empty() ? "],\n" : "\n  ],\n");
    out << "  \"bundles\": [";
    for (std::size_t i = 0; i < report.bundles.size(); ++i) {
        const BundleRow& row = report.bundles[i];
        const LibraryDiagnosis& probe = row.probe;
        out << (i ? ",\n    " : "\n    ") << "{\"id\": " << JsonQuote(row.id)
            << ", \"version\": " << JsonQuote(row.version) << ", \"root\": " << JsonQuote(row.root)
            << ", \"foundationVersion\": " << JsonQuote(row.foundationVersion)
            << ", \"foundationFits\": " << flag(row.foundationFits)
            << ", \"library\": " << JsonQuote(row.library) << ", \"loaded\": " << flag(row.loaded)
            << ", \"outcome\": " << JsonQuote(row.outcome)
            << ", \"loaderMessage\": " << JsonQuote(probe.loaderMessage)
            << ", \"builtFor\": " << JsonQuote(probe.otherMachine ? Describe(probe.builtFor) : "")
            << ", \"missingDependencies\": " << JsonList(probe.missingDependencies)
            << ", \"missingSymbols\": " << JsonList(probe.missingSymbols)
            << ", \"missingExports\": " << JsonList(probe.missingExports)
            << ", \"entryClass\": " << JsonQuote(row.classId)
            << ", \"entryClassStatus\": " << JsonQuote(row.classStatus) << "}";
    }
    out << (report.bundles.empty() ? "],\n" : "\n  ],\n");
    out << "  \"modules\": [";
    for (std::size_t i = 0; i < report.modules.size(); ++i) {
        out << (i ? ", " : "") << "{\"id\": " << JsonQuote(report.modules[i].first)
            << ", \"settings\": {";
        bool first = true;
        for (const auto& setting : report.modules[i].second) {
            out << (first ? "" : ", ") << JsonQuote(setting.first) << ": "
                << JsonQuote(setting.second);
            first = false;
        }
        out << "}}";
    }
    out << "],\n  \"features\": " << JsonList(report.features) << ",\n";
    out << "  \"log\": " << JsonList(report.log) << "\n}\n";
}

// The folder as the kit's paths begin it: absolute, without a trailing
// separator.
std::wstring HostFolder(const std::string& argument) {
    std::wstring folder = platform::FullPath(WidePath(argument));
    while (folder.size() > 1 && (folder.back() == L'/' || folder.back() == L'\\') &&
           folder[folder.size() - 2] != L':') {
        folder.pop_back();
    }
    return folder;
}

// The kit's log says only that the load failed; a missing file is the usual
// reason.
std::string MissingFile(const std::wstring& hostDir) {
    base::FilePath root(hostDir);
    if (!base::PathExists(root.Append(L"extension_adapter_mapping.json"))) {
        return "extension_adapter_mapping.json is missing";
    }
    if (!base::PathExists(root.Append(L"extensions").Append(L"config.json"))) {
        return "extensions\\config.json is missing";
    }
    return std::string();
}

void RunInspect(const Options& options, Session& session) {
    std::wstring hostDir = HostFolder(options.hostDir);
    if (!platform::FileExists(hostDir)) {
        session.err << "qzekit inspect: no such folder: " << options.hostDir << "\n";
        session.status = kExitFailure;
        return;
    }
    std::string key;
    std::string error;
    if (!options.keyFile.empty() && !ReadKeyFile(options.keyFile, &key, &error)) {
        session.err << "qzekit inspect: " << error << "\n";
        session.status = kExitUsage;
        return;
    }
    Report report;
    report.hostDir = Utf8Path(hostDir);
    {
        KitSession kit(hostDir);
        QZExtensionManager* manager = QZExtensionManager::GetInstance();
        if (!options.foundation.empty()) {
            manager->SetFoundationVersion(options.foundation);
        }
        if (!key.empty()) {
            manager->SetSecKey(key);
        }
        manager->SetLibFileVerifyEnable(options.libFileVerify);
        manager->SetSignVerifyEnable(options.signVerify);
        report.loadSucceeded = manager->Load();
        if (!report.loadSucceeded) {
            report.loadProblem = MissingFile(hostDir);
        }
        // The questions below log too; they are not the host's.
        report.log = kit.StopLog();
        Collect(options, kit, report);
    }
    if (options.json) {
        PrintJson(report, options, session.out);
    } else {
        PrintText(report, options, session.out);
    }
    bool allLoaded = report.loadSucceeded;
    for (const BundleRow& row : report.bundles) {
        allLoaded = allLoaded && row.loaded;
    }
    session.status = allLoaded ? kExitOk : kExitFailure;
}

}  // namespace

void AddInspectCommand(CLI::App& app, Session& session) {
    auto* command = app.add_subcommand(
        "inspect",
        "Load an installation with the kit's own code and show what is in force: extension "
        "points and extensions, bundles with their foundation check and why any failed to "
        "load, modules and features switched on, and the kit's log. Exits 1 when the load or "
        "any bundle failed.");
    command->footer(
        "Example:\n  qzekit inspect --foundation 3.2 --key-file sec.key \"C:\\Program "
        "Files\\Host\"");
    auto options = std::make_shared<Options>();
    command
        ->add_option("HOST_DIR", options->hostDir,
                     "the host executable's folder (with extension_adapter_mapping.json "
                     "and extensions/)")
        ->required();
    command->add_option("--key-file", options->keyFile,
                        "a file holding the 32-byte sec key, for an encrypted config.json");
    command->add_option("--foundation", options->foundation,
                        "the host's foundation version, as SetFoundationVersion gets it");
    command->add_flag("--lib-file-verify", options->libFileVerify,
                      "check each library's MD5 against libFileMD5, as SetLibFileVerifyEnable");
    command->add_flag("--sign-verify", options->signVerify,
                      "also check each library's signature, as SetSignVerifyEnable (needs "
                      "--lib-file-verify)");
    command->add_flag("--json", options->json, "print one JSON document, for pipelines");
    command->callback([&session, options] { RunInspect(*options, session); });
}

}  // namespace qzekit
