// Parse speed and tree size of the kit's JSON reader beside the peers that
// are built in (nlohmann::json, RapidJSON, Boost.JSON, JsonCpp, simdjson),
// on the same bytes and in the same run.
//
//   qzekit_json_bench [--data_dir=DIR] [--rounds=N] [--only=PARSER] [--file=NAME]
//                     [--write_manifests=DIR] [--fastest]
//
// Workloads: the four files of the data folder, and 1,000 small manifests
// (made here, a few kilobytes each) parsed one by one, as a load reads them.
//
// Each round visits every (parser, workload) cell in a new random order and
// times, in each cell:
//   single: one pass (one parse of the file, or the 1,000 manifests one by
//           one) right after another parser's work: the shape of a load;
//   loop:   the mean of several passes back to back, where the parser stays
//           warm.
// Every pass builds the peer's own tree and frees it again (simdjson: its
// DOM parser, kept from pass to pass, over text padded beforehand). The
// tables give medians over the rounds, of processor time.

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <random>
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
#if defined(QZEKIT_BENCH_BOOST_JSON)
#include <boost/json.hpp>
#include <boost/version.hpp>
#endif
#if defined(QZEKIT_BENCH_JSONCPP)
#include <json/json.h>
#endif
#if defined(QZEKIT_BENCH_SIMDJSON)
#include <simdjson.h>
#endif

// ---------------------------------------------------------------- counting operator new
//
// Counts the calls to operator new while counting is on; parsing is
// single-threaded here. Bytes are taken from mallinfo2, which sees malloc too.

namespace {
bool g_counting = false;
long long g_allocations = 0;

void* Counted(void* p) {
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    if (g_counting) {
        ++g_allocations;
    }
    return p;
}

void* CountedAlloc(std::size_t size) {
    return Counted(std::malloc(size ? size : 1));
}

// The kit takes its node chunks aligned: those are counted too.
void* CountedAlignedAlloc(std::size_t size, std::align_val_t align) {
    const auto alignment = static_cast<std::size_t>(align);
    return Counted(std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment));
}
}  // namespace

void* operator new(std::size_t size) {
    return CountedAlloc(size);
}
void* operator new[](std::size_t size) {
    return CountedAlloc(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void* operator new(std::size_t size, std::align_val_t align) {
    return CountedAlignedAlloc(size, align);
}
void operator delete(void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}

namespace {

struct Workload {
    std::string name;
    std::vector<std::string> texts;  // one for a file, 1,000 for the manifests
    std::size_t bytes = 0;
#if defined(QZEKIT_BENCH_SIMDJSON)
    std::vector<simdjson::padded_string> padded;
#endif
};

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        std::exit(1);
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// ---------------------------------------------------------------- small manifests

const char* const kWords[] = {"viewer",   "editor", "sync",  "auth",   "report",
                              "calendar", "mail",   "notes", "search", "contacts"};
const char* const kTitles[] = {"Open the panel",     "Übersicht der Termine", "共有フォルダー",
                               "Rapport d’activité", "Quick \\\"notes\\\"",   "Send and receive"};

std::string Guid(std::mt19937& rng) {
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%04X-%04X%08X}", static_cast<unsigned>(rng()),
                  static_cast<unsigned>(rng() & 0xFFFF), static_cast<unsigned>(rng() & 0xFFFF),
                  static_cast<unsigned>(rng() & 0xFFFF), static_cast<unsigned>(rng() & 0xFFFF),
                  static_cast<unsigned>(rng()));
    return text;
}

// A bundle manifest as hosts write them: indented, a few points with a few
// extensions, payloads, constraints and a setting map; some non-ASCII and
// escaped text. Deterministic.
std::string Manifest(std::mt19937& rng, int n) {
    auto pick = [&rng](int count) { return static_cast<int>(rng() % count); };
    std::ostringstream s;
    const std::string bundle = std::string("com.example.") + kWords[pick(10)] + std::to_string(n);
    s << "{\n    \"id\": \"" << bundle << "\",\n    \"version\": \"" << 1 + pick(9) << "."
      << pick(20) << "." << pick(1000) << "\",\n    \"foundationVersion\": \"3." << pick(4)
      << "\",\n    \"library\": \"lib/" << kWords[pick(10)] << ".so\",\n"
      << "    \"extensionPoints\": [\n";
    const int points = 1 + pick(3);
    for (int p = 0; p < points; ++p) {
        s << "        {\n            \"id\": \"" << bundle << ".point" << p
          << "\",\n            \"type\": \"ui\",\n            \"iid\": \"" << Guid(rng)
          << "\",\n            \"extensions\": [\n";
        const int extensions = 2 + pick(5);
        for (int e = 0; e < extensions; ++e) {
            s << "                {\n                    \"id\": \"" << bundle << ".ext" << p << e
              << "\",\n                    \"version\": \"1.0." << e
              << "\",\n                    \"clsid\": \"" << Guid(rng)
              << "\",\n                    \"isSingleton\": " << (pick(2) ? "true" : "false")
              << ",\n                    \"order\": " << pick(100)
              << ",\n                    \"weight\": " << pick(1000) / 100.0
              << ",\n                    \"payloads\": {\"title\": \"" << kTitles[pick(6)]
              << "\", \"icon\": \"res\\/icon" << e << ".png\", \"tooltip\": \"Opens item " << e
              << " of " << kWords[pick(10)] << "\", \"empty\": \"\"},\n"
              << "                    \"constraints\": [{\"key\": \"platform\", \"value\": "
                 "[\"win\", \"mac\", \"linux\"]}, {\"key\": \"role\", \"value\": [\"admin\"]}],\n"
              << "                    \"settingMap\": {\"modalPosition\": \"center\", "
                 "\"modalSize\": \""
              << 400 + 100 * pick(6) << "x" << 300 + 100 * pick(5)
              << "\", \"host\": \"https://apps.example.com\", \"uri\": \"/panel/" << n << "/" << e
              << "\", \"openType\": \"modal\"}\n                }"
              << (e + 1 < extensions ? ",\n" : "\n");
        }
        s << "            ]\n        }" << (p + 1 < points ? ",\n" : "\n");
    }
    s << "    ]\n}\n";
    return s.str();
}

// ---------------------------------------------------------------- parsers

// A parser builds its tree from a text and frees it again; false when it
// refuses the text.
struct Parser {
    std::string name;
    std::string version;
    std::function<bool(const Workload&, std::size_t)> parse;
    // Parses every text of the workload and keeps the trees alive until the
    // returned object goes.
    std::function<std::shared_ptr<void>(const Workload&)> keep;
};

template <typename Tree, typename Make>
std::shared_ptr<void> KeepAll(const Workload& w, Make make) {
    auto trees = std::make_shared<std::vector<Tree>>();
    trees->reserve(w.texts.size());
    for (std::size_t i = 0; i < w.texts.size(); ++i) {
        trees->push_back(make(i));
    }
    return trees;
}

#if defined(QZEKIT_BENCH_SIMDJSON)
simdjson::dom::parser& SimdParser() {
    static simdjson::dom::parser parser;
    return parser;
}
#endif

std::vector<Parser> MakeParsers() {
    std::vector<Parser> parsers;
    parsers.push_back({"kit", "",
                       [](const Workload& w, std::size_t i) {
                           return base::JSONReader::Read(w.texts[i].data(), w.texts[i].size()) !=
                                  nullptr;
                       },
                       [](const Workload& w) {
                           return KeepAll<std::unique_ptr<base::Value>>(w, [&w](std::size_t i) {
                               return base::JSONReader::Read(w.texts[i].data(), w.texts[i].size());
                           });
                       }});
#if defined(QZEKIT_BENCH_NLOHMANN)
    parsers.push_back({"nlohmann",
                       std::to_string(NLOHMANN_JSON_VERSION_MAJOR) + "." +
                           std::to_string(NLOHMANN_JSON_VERSION_MINOR) + "." +
                           std::to_string(NLOHMANN_JSON_VERSION_PATCH),
                       [](const Workload& w, std::size_t i) {
                           nlohmann::json j = nlohmann::json::parse(w.texts[i], nullptr, false);
                           return !j.is_discarded();
                       },
                       [](const Workload& w) {
                           return KeepAll<nlohmann::json>(w, [&w](std::size_t i) {
                               return nlohmann::json::parse(w.texts[i]);
                           });
                       }});
#endif
#if defined(QZEKIT_BENCH_RAPIDJSON)
    parsers.push_back({"rapidjson", RAPIDJSON_VERSION_STRING,
                       [](const Workload& w, std::size_t i) {
                           rapidjson::Document doc;
                           doc.Parse(w.texts[i].data(), w.texts[i].size());
                           return !doc.HasParseError();
                       },
                       [](const Workload& w) {
                           return KeepAll<std::unique_ptr<rapidjson::Document>>(
                               w, [&w](std::size_t i) {
                                   auto doc = std::make_unique<rapidjson::Document>();
                                   doc->Parse(w.texts[i].data(), w.texts[i].size());
                                   return doc;
                               });
                       }});
#endif
#if defined(QZEKIT_BENCH_BOOST_JSON)
    std::string boost_version = BOOST_LIB_VERSION;
    std::replace(boost_version.begin(), boost_version.end(), '_', '.');
    parsers.push_back({"boost.json", boost_version,
                       [](const Workload& w, std::size_t i) {
                           boost::system::error_code ec;
                           boost::json::value v = boost::json::parse(w.texts[i], ec);
                           return !ec;
                       },
                       [](const Workload& w) {
                           return KeepAll<boost::json::value>(
                               w, [&w](std::size_t i) { return boost::json::parse(w.texts[i]); });
                       }});
#endif
#if defined(QZEKIT_BENCH_JSONCPP)
    parsers.push_back({"jsoncpp", JSONCPP_VERSION_STRING,
                       [](const Workload& w, std::size_t i) {
                           // One reader for the run, as a host would keep one.
                           static std::unique_ptr<Json::CharReader> reader(
                               Json::CharReaderBuilder().newCharReader());
                           Json::Value root;
                           const std::string& t = w.texts[i];
                           return reader->parse(t.data(), t.data() + t.size(), &root, nullptr);
                       },
                       [](const Workload& w) {
                           std::unique_ptr<Json::CharReader> reader(
                               Json::CharReaderBuilder().newCharReader());
                           return KeepAll<Json::Value>(w, [&](std::size_t i) {
                               Json::Value root;
                               const std::string& t = w.texts[i];
                               reader->parse(t.data(), t.data() + t.size(), &root, nullptr);
                               return root;
                           });
                       }});
#endif
#if defined(QZEKIT_BENCH_SIMDJSON)
    parsers.push_back({"simdjson",
                       std::to_string(simdjson::SIMDJSON_VERSION_MAJOR) + "." +
                           std::to_string(simdjson::SIMDJSON_VERSION_MINOR) + "." +
                           std::to_string(simdjson::SIMDJSON_VERSION_REVISION),
                       [](const Workload& w, std::size_t i) {
                           return SimdParser().parse(w.padded[i]).error() == simdjson::SUCCESS;
                       },
                       [](const Workload& w) {
                           // A document each, so that all stay alive.
                           return KeepAll<std::unique_ptr<simdjson::dom::document>>(
                               w, [&w](std::size_t i) {
                                   auto doc = std::make_unique<simdjson::dom::document>();
                                   SimdParser().parse_into_document(*doc, w.padded[i]);
                                   return doc;
                               });
                       }});
#endif
    return parsers;
}

// ---------------------------------------------------------------- timing

// Processor time of the process, not wall time: on a shared machine the
// time spent waiting for a core is not the parser's. Page faults count.
double Pass(const Parser& parser, const Workload& w) {
    const std::clock_t start = std::clock();
    for (std::size_t i = 0; i < w.texts.size(); ++i) {
        if (!parser.parse(w, i)) {
            std::fprintf(stderr, "%s refused %s #%zu\n", parser.name.c_str(), w.name.c_str(), i);
            std::exit(1);
        }
    }
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

// With --fastest the tables take the fastest round instead of the median:
// steadier when comparing two builds on a busy machine.
bool g_fastest = false;

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    if (g_fastest) {
        return v.front();
    }
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

const char* Arg(int argc, char** argv, const char* prefix) {
    const std::size_t length = std::strlen(prefix);
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], prefix, length) == 0) {
            return argv[i] + length;
        }
    }
    return nullptr;
}

long long HeapInUse() {
    return static_cast<long long>(mallinfo2().uordblks);
}

void PrintSpeeds(const char* title, const std::vector<Parser>& parsers,
                 const std::vector<Workload>& workloads,
                 const std::vector<std::vector<std::vector<double>>>& times) {
    std::printf("\n%s: median MB/s (1 MB = 10^6 bytes), and kit / peer\n", title);
    std::printf("%-14s", "workload");
    for (const Parser& p : parsers) {
        std::printf(" %10s", p.name.c_str());
    }
    for (std::size_t p = 1; p < parsers.size(); ++p) {
        std::printf(" %10s", ("/" + parsers[p].name).substr(0, 10).c_str());
    }
    std::printf("\n");
    for (std::size_t w = 0; w < workloads.size(); ++w) {
        std::printf("%-14s", workloads[w].name.c_str());
        std::vector<double> speed;
        for (std::size_t p = 0; p < parsers.size(); ++p) {
            speed.push_back(workloads[w].bytes / Median(times[p][w]) / 1e6);
            std::printf(" %10.1f", speed.back());
        }
        for (std::size_t p = 1; p < parsers.size(); ++p) {
            std::printf(" %10.2f", speed[0] / speed[p]);
        }
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const char* dir_arg = Arg(argc, argv, "--data_dir=");
    const std::string dir = dir_arg ? dir_arg : QZEKIT_BENCH_JSON_DIR;
    const char* rounds_arg = Arg(argc, argv, "--rounds=");
    const int rounds = rounds_arg ? std::max(1, std::atoi(rounds_arg)) : 15;
    const char* only = Arg(argc, argv, "--only=");
    g_fastest = Arg(argc, argv, "--fastest") != nullptr;
    const char* only_file = Arg(argc, argv, "--file=");

    std::vector<Workload> workloads;
    for (const char* name : {"twitter", "canada", "citm_catalog", "manifest_like"}) {
        Workload w;
        w.name = name;
        w.texts.push_back(ReadFile(dir + "/" + name + ".json"));
        workloads.push_back(std::move(w));
    }
    {
        Workload w;
        w.name = "manifests";
        std::mt19937 rng(20240601);
        for (int n = 0; n < 1000; ++n) {
            w.texts.push_back(Manifest(rng, n));
        }
        workloads.push_back(std::move(w));
    }
    if (const char* out = Arg(argc, argv, "--write_manifests=")) {
        const Workload& m = workloads.back();
        for (std::size_t i = 0; i < m.texts.size(); ++i) {
            std::ofstream(std::string(out) + "/manifest" + std::to_string(i) + ".json",
                          std::ios::binary)
                << m.texts[i];
        }
    }
    if (only_file) {
        workloads.erase(std::remove_if(workloads.begin(), workloads.end(),
                                       [&](const Workload& w) { return w.name != only_file; }),
                        workloads.end());
    }
    for (Workload& w : workloads) {
        for (const std::string& t : w.texts) {
            w.bytes += t.size();
#if defined(QZEKIT_BENCH_SIMDJSON)
            w.padded.emplace_back(t);
#endif
        }
    }

    std::vector<Parser> parsers = MakeParsers();
    if (only) {
        parsers.erase(std::remove_if(parsers.begin(), parsers.end(),
                                     [&](const Parser& p) { return p.name != only; }),
                      parsers.end());
    }
    std::printf("parsers:");
    for (const Parser& p : parsers) {
        std::printf(" %s%s%s", p.name.c_str(), p.version.empty() ? "" : " ", p.version.c_str());
    }
    std::printf("\nworkloads:");
    for (const Workload& w : workloads) {
        std::printf(" %s (%zu bytes in %zu texts)", w.name.c_str(), w.bytes, w.texts.size());
    }
    std::printf("\n");

    // Sizes first, in a fresh process: the kit's nodes come from free lists
    // that keep what they are given, so its trees are measured before any
    // other parse and all kept until the end.
    std::printf("\nTree size after parsing (heap bytes in use, mallinfo2; operator new calls):\n");
    std::printf("%-14s %10s", "workload", "text");
    for (const Parser& p : parsers) {
        std::printf(" %12s %9s", p.name.c_str(), "calls");
    }
    std::printf("\n");
    std::vector<std::vector<std::pair<long long, long long>>> sizes(parsers.size());
    {
        std::vector<std::shared_ptr<void>> kept;
        for (std::size_t p = 0; p < parsers.size(); ++p) {
            for (const Workload& w : workloads) {
                g_allocations = 0;
                const long long before = HeapInUse();
                g_counting = true;
                kept.push_back(parsers[p].keep(w));
                g_counting = false;
                sizes[p].push_back({HeapInUse() - before, g_allocations});
                if (parsers[p].name != "kit") {
                    kept.pop_back();
                }
            }
        }
    }
    for (std::size_t w = 0; w < workloads.size(); ++w) {
        std::printf("%-14s %10zu", workloads[w].name.c_str(), workloads[w].bytes);
        for (std::size_t p = 0; p < parsers.size(); ++p) {
            std::printf(" %12lld %9lld", sizes[p][w].first, sizes[p][w].second);
        }
        std::printf("\n");
    }

    // times[parser][workload] per round.
    std::vector<std::vector<std::vector<double>>> single(
        parsers.size(), std::vector<std::vector<double>>(workloads.size()));
    auto loop = single;
    std::vector<std::pair<std::size_t, std::size_t>> cells;
    for (std::size_t p = 0; p < parsers.size(); ++p) {
        for (std::size_t w = 0; w < workloads.size(); ++w) {
            cells.push_back({p, w});
            Pass(parsers[p], workloads[w]);  // every parser accepts every text
        }
    }
    std::mt19937 shuffle_rng(7);
    for (int r = 0; r < rounds; ++r) {
        std::shuffle(cells.begin(), cells.end(), shuffle_rng);
        for (const auto& cell : cells) {
            const Parser& parser = parsers[cell.first];
            const Workload& w = workloads[cell.second];
            single[cell.first][cell.second].push_back(Pass(parser, w));
            // Back to back for about 20 ms, at least 3 passes.
            double total = 0;
            int passes = 0;
            while (passes < 3 || total < 0.02) {
                total += Pass(parser, w);
                ++passes;
            }
            loop[cell.first][cell.second].push_back(total / passes);
        }
    }
    std::printf("\n%d rounds, cells in random order each round\n", rounds);
    PrintSpeeds("Single pass after other work", parsers, workloads, single);
    PrintSpeeds("Loop (warm)", parsers, workloads, loop);
    return 0;
}
