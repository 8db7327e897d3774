// Names of object identifiers: finding them against bare appending, among few names and among many,
// and loading files of 100 to 1,000,000 lines.
#include <benchmark/benchmark.h>
#include <wqplatform.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "EMS/events/internal/text_sink.h"
#include "ratios.h"

namespace wq::bench {
namespace {

using Oid = std::vector<uint32_t>;
using Name = std::array<char, 2048>;

constexpr uint32_t enterprise = 99999;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A file of the intermediate format with so many lines: tables of ten columns.
class MibFile {
  public:
    explicit MibFile(uint32_t lines) {
        std::FILE* file = fdopen(mkstemp(path_.data()), "w");
        require(file != nullptr);
        std::fprintf(file, "version 1\nacme enterprises %u\n", enterprise);
        for (uint32_t line = 2; line < lines; ++line) {
            const uint32_t table = line / 11;
            if (line % 11 == 0 || line == 2) {
                std::fprintf(file, "acmeTable%u acme %u\n", table, table);
            } else {
                std::fprintf(file, "acmeColumn%u acmeTable%u %u\n", line, table, line % 11);
            }
        }
        require(std::fclose(file) == 0);
    }
    ~MibFile() { std::remove(path_.c_str()); }
    MibFile(const MibFile&) = delete;
    MibFile& operator=(const MibFile&) = delete;

    void load() const {
        setenv("WQMIBFILE", path_.c_str(), 1);
        require(WQmib_load_mib() == 0);
    }

  private:
    std::string path_ = "/tmp/wqevents.mib.XXXXXX";
};

const MibFile& file_of(uint32_t lines) {
    static std::map<uint32_t, MibFile> files;
    return files.try_emplace(lines, lines).first->second;
}

// Identifiers of bindings: columns of a table, each with an index of its own.
std::vector<Oid> bindings(uint32_t count, uint32_t tables) {
    std::vector<Oid> all;
    uint32_t random = 1;
    for (uint32_t i = 0; i < count; ++i) {
        random = random * 1664525 + 1013904223;
        const uint32_t table = 1 + (random >> 8) % tables;
        all.push_back({1, 3, 6, 1, 4, 1, enterprise, table, 1 + i % 10, i});
    }
    return all;
}

void find(benchmark::State& state, const std::vector<Oid>& oids) {
    Name name;
    std::size_t i = 0;
    for (auto _ : state) {
        const Oid& oid = oids[i];
        i = i + 1 < oids.size() ? i + 1 : 0;
        sprint__objid(name.data(), oid.data(), static_cast<int>(oid.size()));
        benchmark::DoNotOptimize(name);
    }
}

// A storm of the same few traps.
void find_recent(benchmark::State& state) {
    file_of(10000).load();
    find(state, bindings(5, 8));
}

// Never the same identifier again for so long that it is forgotten.
void find_new(benchmark::State& state, uint32_t lines) {
    file_of(lines).load();
    find(state, bindings(10000, lines / 11 - 1));
}

// The same characters from one place to another, part by part.
void append(benchmark::State& state) {
    const std::string_view parts[] = {".iso",          ".org",         ".dod",  ".internet",
                                      ".private",      ".enterprises", ".acme", ".acmeTable7",
                                      ".acmeColumn79", ".17"};
    Name name;
    for (auto _ : state) {
        TextSink sink(name.data(), name.size());
        for (const std::string_view part : parts) {
            sink.append(part);
        }
        benchmark::DoNotOptimize(name);
    }
}

void load(benchmark::State& state, uint32_t lines) {
    const MibFile& file = file_of(lines);
    for (auto _ : state) {
        file.load();
    }
    state.SetItemsProcessed(state.iterations() * lines);
}

BENCHMARK(find_recent);
BENCHMARK_CAPTURE(find_new, among_100, 100);
BENCHMARK_CAPTURE(find_new, among_10000, 10000);
BENCHMARK_CAPTURE(find_new, among_1000000, 1000000);
BENCHMARK(append);
BENCHMARK_CAPTURE(load, 100_lines, 100);
BENCHMARK_CAPTURE(load, 10000_lines, 10000);
BENCHMARK_CAPTURE(load, 1000000_lines, 1000000);

constexpr Goal goals[] = {
    {"a recent name / appending", "find_recent", "append", 1.5},
    {"a new name / appending", "find_new/among_10000", "append", 15.0},
    {"among 1,000,000 / among 100", "find_new/among_1000000", "find_new/among_100", 12.0},
    {"loading 10,000 lines / 100", "load/10000_lines", "load/100_lines", 100.0},
    {"loading 1,000,000 lines / 10,000", "load/1000000_lines", "load/10000_lines", 400.0},
};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    return wq::bench::run(argc, argv, wq::bench::goals);
}
