// Parse speed and tree size of the kit's JSON reader beside nlohmann::json
// and RapidJSON, on the same bytes and in the same run.
//
//   qzekit_json_bench [--data_dir=DIR] [any Google Benchmark flag]
//
// Random interleaving and repetitions are switched on unless given, since
// the machine is shared; the summary uses the median of the repetitions.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "base/json/json_reader.h"
#include "base/values.h"

#if defined(QZEKIT_BENCH_NLOHMANN)
#include <nlohmann/json.hpp>
#endif
#if defined(QZEKIT_BENCH_RAPIDJSON)
#include <rapidjson/document.h>
#endif

// ---------------------------------------------------------------- counting operator new
//
// Counts the heap bytes (as malloc_usable_size reports them) that are live
// while counting is on. Parsing is single-threaded here.

namespace {
bool g_counting = false;
long long g_live_bytes = 0;
long long g_allocations = 0;

void* CountedAlloc(std::size_t size) {
    void* p = std::malloc(size ? size : 1);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    if (g_counting) {
        g_live_bytes += static_cast<long long>(malloc_usable_size(p));
        ++g_allocations;
    }
    return p;
}

void CountedFree(void* p) {
    if (p != nullptr && g_counting) {
        g_live_bytes -= static_cast<long long>(malloc_usable_size(p));
    }
    std::free(p);
}
}  // namespace

void* operator new(std::size_t size) {
    return CountedAlloc(size);
}
void* operator new[](std::size_t size) {
    return CountedAlloc(size);
}
void operator delete(void* p) noexcept {
    CountedFree(p);
}
void operator delete[](void* p) noexcept {
    CountedFree(p);
}
void operator delete(void* p, std::size_t) noexcept {
    CountedFree(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    CountedFree(p);
}

namespace {

struct Input {
    std::string name;
    std::string text;
};

std::vector<Input> LoadInputs(const std::string& dir) {
    std::vector<Input> inputs;
    for (const char* name : {"twitter", "canada", "citm_catalog", "manifest_like"}) {
        std::ifstream file(dir + "/" + name + ".json", std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s/%s.json\n", dir.c_str(), name);
            std::exit(1);
        }
        std::ostringstream content;
        content << file.rdbuf();
        inputs.push_back({name, content.str()});
    }
    return inputs;
}

std::unique_ptr<base::Value> ParseKit(const std::string& text) {
    return base::JSONReader::Read(text.data(), text.size());
}

#if defined(QZEKIT_BENCH_NLOHMANN)
nlohmann::json ParseNlohmann(const std::string& text) {
    return nlohmann::json::parse(text.data(), text.data() + text.size());
}
#endif

#if defined(QZEKIT_BENCH_RAPIDJSON)
bool ParseRapid(rapidjson::Document* doc, const std::string& text) {
    doc->Parse(text.data(), text.size());
    return !doc->HasParseError();
}
#endif

struct Footprint {
    long long bytes = 0;
    long long allocations = 0;
};

template <typename Parse>
Footprint Measure(Parse parse) {
    g_live_bytes = 0;
    g_allocations = 0;
    g_counting = true;
    auto tree = parse();
    Footprint f{g_live_bytes, g_allocations};
    g_counting = false;
    benchmark::DoNotOptimize(tree);
    return f;
}

// Keeps the medians of bytes_per_second per benchmark name while printing
// as usual.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                auto it = run.counters.find("bytes_per_second");
                if (it != run.counters.end()) {
                    medians_[run.run_name.function_name] = it->second.value;
                }
            } else if (run.repetitions <= 1 && run.run_type == Run::RT_Iteration) {
                auto it = run.counters.find("bytes_per_second");
                if (it != run.counters.end()) {
                    medians_[run.run_name.function_name] = it->second.value;
                }
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    double MBps(const std::string& name) const {
        auto it = medians_.find(name);
        return it == medians_.end() ? 0.0 : it->second / 1e6;
    }

private:
    std::map<std::string, double> medians_;
};

bool HasFlag(int argc, char** argv, const char* prefix) {
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], prefix, std::strlen(prefix)) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    std::string dir = QZEKIT_BENCH_JSON_DIR;
    std::vector<char*> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], "--data_dir=", 11) == 0) {
            dir = argv[i] + 11;
        } else {
            args.push_back(argv[i]);
        }
    }
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    static char repetitions[] = "--benchmark_repetitions=5";
    if (!HasFlag(argc, argv, "--benchmark_enable_random_interleaving")) {
        args.push_back(interleave);
    }
    if (!HasFlag(argc, argv, "--benchmark_repetitions")) {
        args.push_back(repetitions);
    }
    int bench_argc = static_cast<int>(args.size());
    args.push_back(nullptr);

    const std::vector<Input> inputs = LoadInputs(dir);
    std::vector<std::string> parsers = {"kit"};
#if defined(QZEKIT_BENCH_NLOHMANN)
    parsers.push_back("nlohmann");
#else
    std::printf("nlohmann::json not built in: skipped\n");
#endif
#if defined(QZEKIT_BENCH_RAPIDJSON)
    parsers.push_back("rapidjson");
#else
    std::printf("RapidJSON not built in: skipped\n");
#endif

    std::printf("Tree size after one parse (live heap bytes, malloc_usable_size):\n");
    std::printf("%-14s %10s %14s %14s %12s\n", "file", "text", "kit", "nlohmann", "kit/nlohmann");
    // The kit's nodes come from free lists that keep freed memory for reuse:
    // measure its trees first, in a fresh process, and keep them all alive
    // until the end so that no tree is built from another's leftovers.
    std::vector<std::unique_ptr<base::Value>> kit_trees;
    std::vector<Footprint> kit_footprints;
    for (const Input& in : inputs) {
        kit_footprints.push_back(Measure([&] {
            kit_trees.push_back(ParseKit(in.text));
            return kit_trees.back().get();
        }));
    }
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const Input& in = inputs[i];
        const Footprint& kit = kit_footprints[i];
        double ratio = 0;
        long long peer = 0;
#if defined(QZEKIT_BENCH_NLOHMANN)
        peer = Measure([&] { return ParseNlohmann(in.text); }).bytes;
        ratio = static_cast<double>(kit.bytes) / static_cast<double>(peer);
#endif
        std::printf("%-14s %10zu %14lld %14lld %12.2f\n", in.name.c_str(), in.text.size(),
                    kit.bytes, peer, ratio);
    }
#if defined(QZEKIT_BENCH_RAPIDJSON)
    std::printf("(RapidJSON keeps its tree in a malloc'd pool outside this count; pool sizes:");
    for (const Input& in : inputs) {
        rapidjson::Document doc;
        ParseRapid(&doc, in.text);
        std::printf(" %s %zu", in.name.c_str(), doc.GetAllocator().Capacity());
    }
    std::printf(")\n\n");
#endif
    kit_trees.clear();

    // Every parser must accept every file before any timing counts.
    for (const Input& in : inputs) {
        if (!ParseKit(in.text)) {
            std::fprintf(stderr, "kit reader refused %s\n", in.name.c_str());
            return 1;
        }
#if defined(QZEKIT_BENCH_RAPIDJSON)
        rapidjson::Document doc;
        if (!ParseRapid(&doc, in.text)) {
            std::fprintf(stderr, "RapidJSON refused %s\n", in.name.c_str());
            return 1;
        }
#endif
    }

    for (const Input& in : inputs) {
        const std::string* text = &in.text;
        benchmark::RegisterBenchmark(("kit/" + in.name).c_str(), [text](benchmark::State& state) {
            for (auto _ : state) {
                auto root = ParseKit(*text);
                benchmark::DoNotOptimize(root.get());
            }
            state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text->size()));
        })->Unit(benchmark::kMillisecond);
#if defined(QZEKIT_BENCH_NLOHMANN)
        benchmark::RegisterBenchmark(("nlohmann/" + in.name).c_str(), [text](
                                                                          benchmark::State& state) {
            for (auto _ : state) {
                auto root = ParseNlohmann(*text);
                benchmark::DoNotOptimize(root);
            }
            state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text->size()));
        })->Unit(benchmark::kMillisecond);
#endif
#if defined(QZEKIT_BENCH_RAPIDJSON)
        benchmark::RegisterBenchmark(("rapidjson/" + in.name).c_str(), [text](benchmark::State&
                                                                                  state) {
            for (auto _ : state) {
                rapidjson::Document doc;
                benchmark::DoNotOptimize(ParseRapid(&doc, *text));
            }
            state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text->size()));
        })->Unit(benchmark::kMillisecond);
#endif
    }

    benchmark::Initialize(&bench_argc, args.data());
    if (benchmark::ReportUnrecognizedArguments(bench_argc, args.data())) {
        return 1;
    }
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\nMedian MB/s (1 MB = 10^6 bytes) and ratios from this run:\n");
    std::printf("%-14s %10s %10s %10s %14s %15s\n", "file", "kit", "nlohmann", "rapidjson",
                "kit/nlohmann", "kit/RapidJSON");
    for (const Input& in : inputs) {
        double kit = reporter.MBps("kit/" + in.name);
        double nl = reporter.MBps("nlohmann/" + in.name);
        double rj = reporter.MBps("rapidjson/" + in.name);
        if (kit == 0) {
            continue;  // filtered out
        }
        std::printf("%-14s %10.1f %10.1f %10.1f %14.2f %15.2f\n", in.name.c_str(), kit, nl, rj,
                    nl > 0 ? kit / nl : 0.0, rj > 0 ? kit / rj : 0.0);
    }
    return 0;
}
