// The tree of names: what a line costs in files of very different sizes, and what a look-up costs
// beside a probe of a hash table.
#include <benchmark/benchmark.h>
#include <unistd.h>
#include <wqevents/names.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "ratios.h"

namespace wq::bench {
namespace {

constexpr uint32_t few = 100;
constexpr uint32_t some = 10'000;
constexpr uint32_t many = 1'000'000;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::vector<uint32_t> shuffled(uint32_t count) {
    std::vector<uint32_t> numbers(count);
    for (uint32_t i = 0; i < count; ++i) {
        numbers[i] = i;
    }
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(7));
    return numbers;
}

// A file that goes away with its object.
class NameFile {
  public:
    explicit NameFile(const std::string& content) {
        const int fd = mkstemp(path_.data());
        require(fd >= 0 &&
                write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
        close(fd);
    }
    ~NameFile() { unlink(path_.c_str()); }
    NameFile(const NameFile&) = delete;
    NameFile& operator=(const NameFile&) = delete;

    const char* path() const { return path_.c_str(); }

  private:
    std::string path_ = "/tmp/wqevents_names.XXXXXX";
};

std::string lines(const std::vector<uint32_t>& order) {
    std::string content;
    for (const uint32_t number : order) {
        const std::string text = std::to_string(number);
        content.append("1.3.6.1.4.1.8072.9.").append(text).append("=\"name of ");
        content.append(text).append("\"\n");
    }
    return content;
}

struct TreeFree {
    void operator()(oidnode* root) const { oidFreeTree(root); }
};
using Tree = std::unique_ptr<oidnode, TreeFree>;

// The time of one entry is that of one iteration, whatever the size of the file; small files are
// read often enough to be measured. Freeing the tree is not counted.
void load(benchmark::State& state, const NameFile& file, uint32_t entries) {
    using Clock = std::chrono::steady_clock;
    const uint32_t rounds = std::max(some / entries, 1U);
    for (auto _ : state) {
        Clock::duration time{};
        for (uint32_t i = 0; i < rounds; ++i) {
            const Clock::time_point start = Clock::now();
            const Tree tree(TreeParseOidFile(nullptr, file.path()));
            time += Clock::now() - start;
            require(tree != nullptr && tree->child != nullptr);
        }
        state.SetIterationTime(std::chrono::duration<double>(time).count() / rounds / entries);
    }
}

void load_ascending(benchmark::State& state, uint32_t count) {
    std::vector<uint32_t> order = shuffled(count);
    std::sort(order.begin(), order.end());
    load(state, NameFile(lines(order)), count);
}

void load_shuffled(benchmark::State& state, uint32_t count) {
    load(state, NameFile(lines(shuffled(count))), count);
}

void load_range(benchmark::State& state, uint32_t count) {
    const std::string last = std::to_string(count);
    load(state, NameFile("1.3.6.1.4.1.8072.9.x(1.." + last + ")=\"name of ${x+1}\"\n"), count);
}

void look_up(benchmark::State& state, uint32_t count) {
    const NameFile file(lines(shuffled(count)));
    const Tree tree(TreeParseOidFile(nullptr, file.path()));
    const std::vector<uint32_t> order = shuffled(count);
    std::array<uint32_t, 9> oid{1, 3, 6, 1, 4, 1, 8072, 9, 0};
    std::size_t i = 0;
    for (auto _ : state) {
        oid.back() = order[i++ % count];
        char* name = TreeLookupOid(tree.get(), oid.data(), static_cast<int>(oid.size()));
        require(name != nullptr);
        benchmark::DoNotOptimize(*name);
    }
}

struct OidHash {
    std::size_t operator()(const std::array<uint32_t, 9>& oid) const {
        uint64_t hash = 0;
        for (const uint32_t number : oid) {
            hash = (hash ^ number) * 0x9E3779B97F4A7C15U;
        }
        return hash ^ hash >> 32;
    }
};

// The same names in a table of whole identifiers, which knows neither order nor siblings.
void probe(benchmark::State& state, uint32_t count) {
    std::unordered_map<std::array<uint32_t, 9>, std::string, OidHash> table;
    const std::vector<uint32_t> order = shuffled(count);
    std::array<uint32_t, 9> oid{1, 3, 6, 1, 4, 1, 8072, 9, 0};
    for (const uint32_t number : order) {
        oid.back() = number;
        table.emplace(oid, "name of " + std::to_string(number));
    }
    std::size_t i = 0;
    for (auto _ : state) {
        oid.back() = order[i++ % count];
        const auto found = table.find(oid);
        require(found != table.end());
        benchmark::DoNotOptimize(*found->second.data());
    }
}

void as_entries(benchmark::internal::Benchmark* bench) {
    bench->UseManualTime()->Iterations(1);
}

BENCHMARK_CAPTURE(load_ascending, few, few)->Apply(as_entries);
BENCHMARK_CAPTURE(load_ascending, some, some)->Apply(as_entries);
BENCHMARK_CAPTURE(load_ascending, many, many)->Apply(as_entries);
BENCHMARK_CAPTURE(load_shuffled, few, few)->Apply(as_entries);
BENCHMARK_CAPTURE(load_shuffled, some, some)->Apply(as_entries);
BENCHMARK_CAPTURE(load_shuffled, many, many)->Apply(as_entries);
BENCHMARK_CAPTURE(load_range, few, few)->Apply(as_entries);
BENCHMARK_CAPTURE(load_range, many, many)->Apply(as_entries);
BENCHMARK_CAPTURE(look_up, few, few);
BENCHMARK_CAPTURE(look_up, some, some);
BENCHMARK_CAPTURE(look_up, many, many);
BENCHMARK_CAPTURE(probe, few, few);
BENCHMARK_CAPTURE(probe, some, some);
BENCHMARK_CAPTURE(probe, many, many);

constexpr std::array<Goal, 8> goals = {{
    {"line, 10,000 / 100 lines", "load_ascending/some", "load_ascending/few", 1.5},
    {"line, 1,000,000 / 10,000 lines", "load_ascending/many", "load_ascending/some", 1.5},
    {"any order, 10,000 / 100 lines", "load_shuffled/some", "load_shuffled/few", 3.0},
    {"any order, 1,000,000 / 10,000", "load_shuffled/many", "load_shuffled/some", 4.0},
    {"range, 1,000,000 / 100 numbers", "load_range/many", "load_range/few", 1.5},
    {"look-up / probe, 100 names", "look_up/few", "probe/few", 5.0},
    {"look-up / probe, 10,000 names", "look_up/some", "probe/some", 5.0},
    {"look-up / probe, 1,000,000 names", "look_up/many", "probe/many", 5.0},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    return wq::bench::run(argc, argv, wq::bench::goals);
}
