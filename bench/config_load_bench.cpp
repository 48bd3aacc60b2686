// Cost of loading an installation, against reading and parsing the same
// files with the kit's own JSON reader, in one run.
//
//   qzekit_config_bench [--reps=N] [--sizes=100,1000,10000] [--only=parse|load] [--keep]
//
// For each size N it writes an installation of N bundles with 10 extensions
// each (manifests of a few kilobytes, points shared by many bundles, points
// named in the adapter mapping so that records are derived onto the adapter
// bundle, which "artifacts" lists last). Then, interleaving the sizes and the
// two measurements, it times:
//   parse:  read and parse the mapping, config.json and every manifest;
//   load:   LoadAllExtensionInfos followed by UnloadAllExtensionInfos.
// It prints medians, load/parse per size, the growth from one size to the
// next, and the time of one lookup of a point with 100 extensions.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "base/json/json_reader.h"
#include "base/values.h"
#include "kit/configuration_manager.h"
#include "kit/log_service.h"
#include "kit/qzextensionkit.h"
#include "model/extension.h"
#include "platform/platform.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kSharedPoints = 8;
constexpr int kMappedPoints = 3;
constexpr int kHundredBundles = 20;  // 20 bundles x 5 extensions = 100

// A host sink that keeps nothing: the load's lines are formatted as they
// would be for a real host.
class DiscardingLogger : public qzextensionkit::IQZELogger {
public:
    void Log(int, std::string text) override { bytes_ += text.size(); }
    std::size_t bytes_ = 0;
};

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

std::string Extension(const std::string& id, int n) {
    std::ostringstream s;
    s << "{\"id\": \"" << id << "\", \"version\": \"1.0." << n << "\",\n"
      << "  \"clsid\": \"{6B0F3A52-1C4D-4E8A-9F31-" << 100000000000 + n << "}\",\n"
      << "  \"isSingleton\": " << (n % 2 ? "true" : "false") << ",\n"
      << "  \"unifiedId\": \"unified-" << id << "\",\n"
      << "  \"payloads\": {\"title\": \"Extension " << n << "\", \"icon\": \"res/icon" << n
      << ".png\", \"order\": \"" << n << "\", \"tooltip\": \"Opens the panel of item " << n
      << "\", \"empty\": \"\"},\n"
      << "  \"constraints\": [{\"key\": \"platform\", \"value\": [\"win\", \"mac\"]},"
      << " {\"key\": \"role\", \"value\": [\"admin\", \"\", \"member\"]}],\n"
      << "  \"settingMap\": {\"modalPosition\": \"center\", \"modalSize\": \"800x600\","
      << " \"host\": \"https://apps.example.com\", \"uri\": \"/panel/" << n
      << "\", \"openType\": \"modal\"}}";
    return s.str();
}

std::string Point(const std::string& id, const std::vector<std::string>& extensions) {
    std::string s = "{\"id\": \"" + id + "\", \"type\": \"ui\", \"iid\": " +
                    "\"{0F6A1B2C-3D4E-5F60-7182-93A4B5C6D7E8}\", \"extensions\": [\n";
    for (std::size_t i = 0; i < extensions.size(); ++i) {
        s += (i ? ",\n" : "") + extensions[i];
    }
    return s + "]}";
}

std::string Manifest(const std::string& id, const std::vector<std::string>& points) {
    std::string s = "{\"id\": \"" + id +
                    "\", \"version\": \"2.3.4\", \"foundationVersion\": \"1.0\",\n"
                    "\"mainEntry\": \"bin\\\\bundle.dll\", \"libFileMD5\": "
                    "\"0123456789abcdef0123456789abcdef\", \"signMD5\": "
                    "\"fedcba9876543210fedcba9876543210\",\n"
                    "\"BundleClassId\": \"{11111111-2222-3333-4444-555555555555}\",\n"
                    "\"extensionPoints\": [\n";
    for (std::size_t i = 0; i < points.size(); ++i) {
        s += (i ? ",\n" : "") + points[i];
    }
    return s + "]}\n";
}

std::string SharedPoint(int k) {
    return "com.bench.shared.p" + std::to_string(k);
}

// Writes an installation and returns the directory of its executable.
fs::path WriteInstallation(const fs::path& dir, int bundles, std::vector<fs::path>* files) {
    fs::create_directories(dir / "extensions");
    // Ids with dots are reached as nested objects in the mapping.
    std::string mapping = "{\"com\": {\"bench\": {\"shared\": {";
    for (int k = 0; k < kMappedPoints; ++k) {
        mapping += std::string(k ? ", " : "") + "\"p" + std::to_string(k) +
                   "\": {\"extensionPointId\": \"com.bench.adapter.t" + std::to_string(k) +
                   "\", \"version\": \"1.0\", \"clsid\": \"{22222222-0000-0000-0000-00000000000" +
                   std::to_string(k) +
                   "}\", \"iid\": \"{33333333-0000-0000-0000-000000000000}\", \"isSingleton\": "
                   "false}";
    }
    mapping += "}}}}\n";
    WriteFile(dir / "extension_adapter_mapping.json", mapping);
    files->push_back(dir / "extension_adapter_mapping.json");

    std::string config =
        "{\"modules\": [{\"id\": \"instantmessaging\", \"configurations\": [{\"key\": "
        "\"im_enable_burn_chat\", \"value\": \"true\"}]}, {\"id\": \"mail\"}],\n"
        "\"ExtensionAuthInfo\": {\"Native\": [{\"bundleId\": \"com.bench.b0\", \"accessKey\": "
        "\"k0\"}]},\n\"artifacts\": [";
    for (int b = 0; b < bundles; ++b) {
        const std::string name = "b" + std::to_string(b);
        fs::create_directories(dir / "extensions" / name);
        std::vector<std::string> own, shared;
        for (int e = 0; e < 5; ++e) {
            own.push_back(Extension("com.bench." + name + ".own" + std::to_string(e), e));
            shared.push_back(Extension("com.bench." + name + ".shared" + std::to_string(e), e));
        }
        const std::string sharedId =
            b < kHundredBundles ? "com.bench.hundred" : SharedPoint(b % kSharedPoints);
        const std::string text =
            Manifest("com.bench." + name,
                     {Point("com.bench." + name + ".own", own), Point(sharedId, shared)});
        WriteFile(dir / "extensions" / name / "manifest.json", text);
        files->push_back(dir / "extensions" / name / "manifest.json");
        config += "\"" + name + "\", ";
    }
    // The adapter bundle comes last, as in a real installation.
    fs::create_directories(dir / "extensions" / "adapter");
    std::vector<std::string> points;
    for (int k = 0; k < kMappedPoints; ++k) {
        points.push_back(Point("com.bench.adapter.t" + std::to_string(k), {}));
    }
    WriteFile(dir / "extensions" / "adapter" / "manifest.json",
              Manifest("extension_adapter", points));
    files->push_back(dir / "extensions" / "adapter" / "manifest.json");
    config += "\"adapter\"]}\n";
    WriteFile(dir / "extensions" / "config.json", config);
    files->push_back(dir / "extensions" / "config.json");
    return dir;
}

double ParseAll(const std::vector<fs::path>& files) {
    const auto start = Clock::now();
    std::size_t nodes = 0;
    for (const fs::path& file : files) {
        std::string text;
        if (!base::ReadFileToString(base::FilePath(file.wstring()), &text)) {
            std::fprintf(stderr, "cannot read %s\n", file.string().c_str());
            std::exit(1);
        }
        std::unique_ptr<base::Value> root = base::JSONReader::Read(text);
        nodes += root ? 1 : 0;
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (nodes != files.size()) {
        std::fprintf(stderr, "a file did not parse\n");
        std::exit(1);
    }
    return seconds;
}

double LoadAndUnload(const fs::path& exeDir, std::size_t* tableSize) {
    namespace kit = qzextensionkit;
    kit::platform::testing::SetExecutablePathOverride((exeDir / "host").wstring());
    auto* config = kit::QZEConfigurationManager::GetInstance();
    const auto start = Clock::now();
    if (!config->LoadAllExtensionInfos()) {
        std::fprintf(stderr, "the load failed in %s\n", exeDir.string().c_str());
        std::exit(1);
    }
    std::vector<kit::Extension*> all;
    config->GetAllExtensionInfos(all);
    config->UnloadAllExtensionInfos();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    *tableSize = all.size();
    return seconds;
}

double Median(std::vector<double> v) {
    if (v.empty()) {
        return 0;
    }
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    int reps = 5;
    std::vector<int> sizes = {100, 1000, 10000};
    bool keep = false;
    // For profiling one side alone: "parse" or "load".
    std::string only;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg.rfind("--reps=", 0) == 0) {
            reps = std::max(1, std::atoi(arg.c_str() + 7));
        } else if (arg.rfind("--sizes=", 0) == 0) {
            sizes.clear();
            std::stringstream list(arg.substr(8));
            for (std::string n; std::getline(list, n, ',');) {
                sizes.push_back(std::max(kHundredBundles, std::atoi(n.c_str())));
            }
        } else if (arg.rfind("--only=", 0) == 0) {
            only = arg.substr(7);
        } else if (arg == "--keep") {
            keep = true;
        } else {
            std::fprintf(stderr,
                         "usage: %s [--reps=N] [--sizes=A,B,...] [--only=parse|load] [--keep]\n",
                         argv[0]);
            return 2;
        }
    }

    namespace kit = qzextensionkit;
    kit::QZExtensionKit::InitSDK();
    auto* sink = new DiscardingLogger;
    kit::QZELogService::GetInstance()->RegisterLogger(sink);
    kit::QZEConfigurationManager::GetInstance()->SetFoundationVersion("1.0");

    const fs::path root = fs::temp_directory_path() /
                          ("qzekit_config_bench_" + std::to_string(std::random_device{}()));
    struct Size {
        int bundles;
        fs::path dir;
        std::vector<fs::path> files;
        std::uintmax_t bytes = 0;
        std::vector<double> parse, load;
        std::size_t tableSize = 0;
    };
    std::vector<Size> runs;
    for (int n : sizes) {
        Size s;
        s.bundles = n;
        s.dir = WriteInstallation(root / std::to_string(n), n, &s.files);
        for (const fs::path& f : s.files) {
            s.bytes += fs::file_size(f);
        }
        runs.push_back(std::move(s));
    }

    // One warm-up pass, then the repetitions, each size and measurement in
    // a shuffled order so that neither always runs first.
    std::mt19937 shuffle(12345);
    for (int rep = -1; rep < reps; ++rep) {
        std::vector<int> order;
        for (std::size_t i = 0; i < runs.size() * 2; ++i) {
            order.push_back(static_cast<int>(i));
        }
        std::shuffle(order.begin(), order.end(), shuffle);
        for (int job : order) {
            Size& s = runs[static_cast<std::size_t>(job / 2)];
            const bool load = job % 2 == 1;
            if (!only.empty() && only != (load ? "load" : "parse")) {
                continue;
            }
            const double t = load ? LoadAndUnload(s.dir, &s.tableSize) : ParseAll(s.files);
            if (rep >= 0) {
                (load ? s.load : s.parse).push_back(t);
            }
        }
    }

    // One lookup of the point that 20 bundles fill with 5 extensions each.
    double lookup = 0;
    std::size_t found = 0;
    {
        kit::platform::testing::SetExecutablePathOverride((runs.front().dir / "host").wstring());
        auto* config = kit::QZEConfigurationManager::GetInstance();
        config->LoadAllExtensionInfos();
        std::vector<double> times;
        for (int i = 0; i < 201; ++i) {
            std::vector<std::shared_ptr<kit::Extension>> out;
            const auto start = Clock::now();
            config->GetExtensionInfosByExntensionPointID("com.bench.hundred", out);
            times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
            found = out.size();
        }
        config->UnloadAllExtensionInfos();
        lookup = Median(times);
    }

    std::printf(
        "%d repetitions, medians (parse: read and parse every file with the kit's reader;\n"
        "load: LoadAllExtensionInfos then UnloadAllExtensionInfos)\n\n",
        reps);
    std::printf(
        "| bundles | files MB | records in table | parse ms | load ms | load/parse "
        "(target <= 2) |\n|---:|---:|---:|---:|---:|---:|\n");
    for (const Size& s : runs) {
        const double parse = Median(s.parse), load = Median(s.load);
        std::printf("| %d | %.1f | %zu | %.1f | %.1f | %.2f |\n", s.bundles, s.bytes / 1e6,
                    s.tableSize, parse * 1e3, load * 1e3, load / parse);
    }
    std::printf("\n");
    for (std::size_t i = 1; i < runs.size(); ++i) {
        std::printf("load growth %d -> %d bundles: %.2fx (target for 10x bundles <= 12)\n",
                    runs[i - 1].bundles, runs[i].bundles,
                    Median(runs[i].load) / Median(runs[i - 1].load));
    }
    std::printf("GetExtensionInfosByExntensionPointID, point with %zu extensions: %.1f us\n", found,
                lookup * 1e6);

    if (!keep) {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    } else {
        std::printf("installations kept in %s\n", root.string().c_str());
    }
    return 0;
}
