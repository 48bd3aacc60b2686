// Cost of a request for an extension, against the work it can't avoid, in
// one run.
//
//   qzekit_extension_bench [--reps=N] [--iters=N] [--only=request|factory|floor|list] [--keep]
//
// An installation in a temporary folder holds two bundles, each with a copy
// of the benchmark's extension library: "bench.one" has one non-singleton
// extension, "bench.crowd" has 100. After Load, interleaving the
// measurements, it times
//   request:  GetExtension("bench.one") and the Release of the result;
//   factory:  the library's class factory called directly, through the
//             bundle's by::CComLoader::CreateInstance, and the Release;
//   floor:    what the request must do anyway: the two file tests and the 14
//             log lines it writes, formatted by the log service with the
//             same arguments;
//   list:     GetExtensionList("bench.crowd") and 100 Releases.
// The sink keeps nothing. Then a second installation with 100 bundles: the
// first Load (100 libraries opened), and Unload plus Load again.
// It prints medians and the ratios request/floor (target at most 1.5) and
// request/factory. --only times one of the four alone (for a profiler) and
// skips the loads.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/utf_string_conversions.h"
#include "component/com_loader.h"
#include "kit/bundle_manager.h"
#include "kit/extension_manager.h"
#include "kit/log_service.h"
#include "kit/qzextensionkit.h"
#include "platform/platform.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using qzextensionkit::QZELogService;
using qzextensionkit::QZExtensionManager;

namespace {

constexpr const char kClass[] = "{3C7D9E21-5A4B-4C6D-8E0F-1A2B3C4D5E61}";
constexpr const char kIid[] = "{3C7D9E21-5A4B-4C6D-8E0F-1A2B3C4D5E60}";
constexpr const char kBaseIid[] = "{E16D76C1-4200-CF27-9703-2480B97FC9E3}";
#if defined(_WIN32)
constexpr const char kLibrary[] = "bin/bench.dll";
#else
constexpr const char kLibrary[] = "bin/bench.so";
#endif

class DiscardingLogger : public qzextensionkit::IQZELogger {
public:
    void Log(int, std::string text) override { bytes_ += text.size(); }
    std::size_t bytes_ = 0;
};

void WriteFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out << text;
}

std::string Extension(const std::string& id) {
    return "{\"id\": \"" + id + "\", \"clsid\": \"" + kClass +
           "\", \"isSingleton\": false, \"unifiedId\": \"u-" + id +
           "\", \"payloads\": {\"title\": \"Panel " + id +
           "\", \"icon\": \"res/icon.png\"}, \"constraints\": [{\"key\": \"platform\", "
           "\"value\": [\"win\", \"mac\"]}], \"settingMap\": {\"modalPosition\": \"center\", "
           "\"modalSize\": \"800x600\", \"host\": \"https://apps.example.com\", \"uri\": "
           "\"/panel\", \"openType\": \"modal\"}}";
}

// A bundle folder with a copy of the library and one point.
void WriteBundle(const fs::path& extensions, const std::string& folder, const std::string& point,
                 int count, const fs::path& library) {
    std::string list;
    for (int i = 0; i < count; ++i) {
        list += (i ? ", " : "") + Extension(folder + "." + std::to_string(i));
    }
    WriteFile(extensions / folder / "manifest.json",
              "{\"id\": \"" + folder + "\", \"version\": \"1.0.0\", \"mainEntry\": \"" + kLibrary +
                  "\", \"extensionPoints\": [{\"id\": \"" + point + "\", \"iid\": \"" + kIid +
                  "\", \"extensions\": [" + list + "]}]}");
    fs::create_directories(extensions / folder / "bin");
    fs::copy_file(library, extensions / folder / kLibrary);
}

void WriteInstallation(const fs::path& root, const std::vector<std::string>& folders) {
    std::string list;
    for (const std::string& folder : folders) {
        list += (list.empty() ? "\"" : ", \"") + folder + "\"";
    }
    WriteFile(root / "extension_adapter_mapping.json", "{}");
    WriteFile(root / "extensions" / "config.json", "{\"artifacts\": [" + list + "]}");
}

std::wstring Wide(const fs::path& path) {
#if defined(_WIN32)
    return path.wstring();
#else
    return base::UTF8ToWide(path.string());
#endif
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Nanoseconds per call of `body`, over `iters` calls.
double PerCall(int iters, const std::function<void()>& body) {
    auto start = Clock::now();
    for (int i = 0; i < iters; ++i) {
        body();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / iters;
}

void Release(void* object) {
    static_cast<by::IBaseUnknown*>(object)->Release();
}

}  // namespace

int main(int argc, char** argv) {
    int reps = 7;
    int iters = 20000;
    bool keep = false;
    std::string only;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--reps=", 7) == 0) {
            reps = std::max(1, std::atoi(argv[i] + 7));
        } else if (std::strncmp(argv[i], "--iters=", 8) == 0) {
            iters = std::max(1, std::atoi(argv[i] + 8));
        } else if (std::strncmp(argv[i], "--only=", 7) == 0) {
            only = argv[i] + 7;
        } else if (std::strcmp(argv[i], "--keep") == 0) {
            keep = true;
        } else {
            std::fprintf(stderr,
                         "usage: %s [--reps=N] [--iters=N] [--only=request|factory|floor|list] "
                         "[--keep]\n",
                         argv[0]);
            return 2;
        }
    }
    const fs::path library = QZEKIT_BENCH_EXTENSION_LIBRARY;
    std::random_device random;
    const fs::path base =
        fs::temp_directory_path() / ("qzekit_extension_bench_" + std::to_string(random()));
    const fs::path small = base / "small";
    const fs::path large = base / "large";

    WriteInstallation(small, {"one", "crowd"});
    WriteBundle(small / "extensions", "one", "bench.one", 1, library);
    WriteBundle(small / "extensions", "crowd", "bench.crowd", 100, library);
    std::vector<std::string> hundred;
    for (int i = 0; i < 100; ++i) {
        hundred.push_back("b" + std::to_string(i));
        WriteBundle(large / "extensions", hundred.back(), "bench.p" + std::to_string(i % 10), 1,
                    library);
    }
    WriteInstallation(large, hundred);

    qzextensionkit::QZExtensionKit::InitSDK();
    QZELogService* log = QZELogService::GetInstance();
    log->RegisterLogger(new DiscardingLogger);
    QZExtensionManager* kit = QZExtensionManager::GetInstance();
    qzextensionkit::platform::testing::SetExecutablePathOverride(Wide(small / "host.exe"));
    if (!kit->Load()) {
        std::fprintf(stderr, "error: the installation did not load\n");
        return 1;
    }

    // The kit's own texts for this installation.
    const std::string root = base::WideToUTF8(Wide(small)) + "\\extensions\\one";
    const std::string key = root + "\\" + kLibrary;
    const base::FilePath rootPath(base::UTF8ToWide(root));
    const base::FilePath libraryPath(base::UTF8ToWide(key));
    by::CComLoader* loader = nullptr;
    if (!qzextensionkit::QZEBundleManager::GetInstance()->GetComLoader(key, &loader) ||
        !loader->IsLoaded()) {
        std::fprintf(stderr, "error: the bundle's library is not open\n");
        return 1;
    }
    const by::GUID classId = by::ParseGuid(kClass, true);
    const by::GUID baseIid = by::ParseGuid(kBaseIid, true);

    void* object = nullptr;
    auto request = [&] {
        kit->GetExtension("bench.one", &object);
        Release(object);
    };
    auto factory = [&] {
        loader->CreateInstance(classId, nullptr, nullptr, baseIid, &object);
        Release(object);
    };
    const std::string point = "bench.one";
    auto floor = [&] {
        bool exists = base::PathExists(rootPath) && base::PathExists(libraryPath);
        log->LogMessage(0, "extension manager impl - get extension by extension point id:%s",
                        point.c_str());
        log->LogMessage(0, "extension manager impl - get extension list by extension point id:%s",
                        point.c_str());
        log->LogMessage(0,
                        "configuration manager impl - get extension infos by extension point "
                        "id:%s, extension infos is founded, total(%d)",
                        point.c_str(), exists ? 1 : 0);
        log->LogMessage(0, "object container impl - class id:%s, class %s", kClass,
                        "is not registered");
        log->LogMessage(0, "Bundle Loader - key:%s, com loader %s", key.c_str(), "is exist");
        log->LogMessage(0, "Bundle Loader - key:%s, get com loader success", key.c_str());
        log->LogMessage(0,
                        "extension manager impl - create extension instance from dynamic "
                        "library, class id:%s, iid:%s, singleton:%s",
                        kClass, kIid, "false");
        log->LogMessage(0,
                        "object container impl - create object instance by library, iid:%s, "
                        "class id:%s, is singleton:%s",
                        kBaseIid, kClass, "false");
        log->LogMessage(0, "object container impl - com loader create instance success");
        log->LogMessage(0, "object container impl - create object instance success");
        log->LogMessage(
            0, "extension manager impl - create extension instance from dynamic library success");
        log->LogMessage(0,
                        "extension manager impl - get extension list by extension point id "
                        "success");
        log->LogMessage(0, "extension manager impl - get extension list first item");
        log->LogMessage(0, "extension manager impl - get extension by extension point id success");
    };
    std::vector<void*> list;
    auto crowd = [&] {
        list.clear();
        kit->GetExtensionList("bench.crowd", list);
        for (void* each : list) {
            Release(each);
        }
    };

    // Warm up every path once, then interleave.
    request();
    factory();
    floor();
    crowd();
    if (list.size() != 100) {
        std::fprintf(stderr, "error: the crowded point gave %zu objects\n", list.size());
        return 1;
    }
    if (!only.empty()) {
        const std::function<void()> bodies[] = {request, factory, floor, crowd};
        const char* names[] = {"request", "factory", "floor", "list"};
        for (int i = 0; i < 4; ++i) {
            if (only == names[i]) {
                const int n = i == 3 ? std::max(1, iters / 100) : iters;
                std::vector<double> times;
                for (int r = 0; r < reps; ++r) {
                    times.push_back(PerCall(n, bodies[i]));
                }
                std::printf("%s: %.0f ns\n", names[i], Median(times));
            }
        }
        kit->Unload();
        qzextensionkit::platform::testing::SetExecutablePathOverride(std::wstring());
        if (!keep) {
            std::error_code ignored;
            fs::remove_all(base, ignored);
        }
        return 0;
    }
    std::vector<double> requests, factories, floors, crowds;
    for (int r = 0; r < reps; ++r) {
        requests.push_back(PerCall(iters, request));
        factories.push_back(PerCall(iters, factory));
        floors.push_back(PerCall(iters, floor));
        crowds.push_back(PerCall(std::max(1, iters / 100), crowd));
    }

    // The large installation: the first Load opens 100 libraries.
    kit->Unload();
    qzextensionkit::platform::testing::SetExecutablePathOverride(Wide(large / "host.exe"));
    auto start = Clock::now();
    bool loaded = kit->Load();
    const double firstLoad =
        std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    std::vector<double> reloads;
    for (int r = 0; r < reps; ++r) {
        reloads.push_back(PerCall(std::max(1, iters / 1000),
                                  [&] {
                                      kit->Unload();
                                      loaded = kit->Load() && loaded;
                                  }) /
                          1000.0);
    }
    kit->Unload();
    qzextensionkit::platform::testing::SetExecutablePathOverride(std::wstring());

    const double req = Median(requests);
    const double fac = Median(factories);
    const double flo = Median(floors);
    std::printf("GetExtension, one non-singleton extension: %10.0f ns\n", req);
    std::printf("  class factory through CComLoader:       %10.0f ns   request/factory %.2f\n", fac,
                req / fac);
    std::printf(
        "  floor (2 file tests, 14 log lines):     %10.0f ns   request/floor   %.2f "
        "(target <= 1.50)\n",
        flo, req / flo);
    std::printf("GetExtensionList, 100 extensions:         %10.1f us  (%.0f ns per extension)\n",
                Median(crowds) / 1000.0, Median(crowds) / 100.0);
    std::printf("Load, 100 bundles, first (100 libraries): %10.1f us\n", firstLoad);
    std::printf("Unload + Load, 100 bundles, loaded:       %10.1f us%s\n", Median(reloads),
                loaded ? "" : "   (a load failed)");
    std::printf("(medians of %d repetitions; %d calls each, lists %d, reloads %d)\n", reps, iters,
                std::max(1, iters / 100), std::max(1, iters / 1000));

    if (!keep) {
        std::error_code ignored;
        fs::remove_all(base, ignored);
    }
    return loaded ? 0 : 1;
}
