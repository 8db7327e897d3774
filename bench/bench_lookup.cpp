// Look-ups in the configuration among 100 to 1,000,000 traps, against one probe of a hash map and
// against following the lists; what the entry of a trap costs; and the search for the format of a
// trap that was received, in a configuration that was read from a file.
#include <benchmark/benchmark.h>
#include <unistd.h>
#include <wqevents/configuration.h>
#include <wqevents/formatter.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "ratios.h"
#include "vortd_conf_generator.h"

namespace wq::bench {
namespace {

constexpr int traps_an_enterprise = 100;

struct Wanted {
    std::string name;
    std::array<uint32_t, 7> oid;
    int specific;
    enterprise_info* enterprise;
};

trap_record* insert(enterprise_info* enterprise, const std::string& name, int specific) {
    return insertMallocTrapRecord(enterprise, name.c_str(), 6, specific, 0, nullptr, 2, 'A',
                                  nullptr, nullptr, nullptr, nullptr, 1, 0, 0, nullptr, 0, nullptr,
                                  nullptr);
}

Wanted wanted(int number) {
    const int enterprise = number / traps_an_enterprise;
    return {"trap_" + std::to_string(number),
            {1, 3, 6, 1, 4, 1, static_cast<uint32_t>(enterprise)},
            number % traps_an_enterprise,
            nullptr};
}

enterprise_info* enterprise_of(const Wanted& trap) {
    enterprise_info* found = nullptr;
    const uint32_t length = static_cast<uint32_t>(trap.oid.size());
    if (find_enterprise(trap.oid.data(), length, &found) != 0) {
        insert_enterprise(trap.oid.data(), length, "enterprise");
        find_enterprise(trap.oid.data(), length, &found);
    }
    return found;
}

// A configuration of `count` traps in memory, and some of them to look up.
struct Model {
    explicit Model(int traps) : count(traps) {
        free_all_info();
        for (int i = 0; i < traps; ++i) {
            Wanted trap = wanted(i);
            trap.enterprise = enterprise_of(trap);
            by_name.emplace(trap.name, insert(trap.enterprise, trap.name, trap.specific));
        }
        std::minstd_rand random(1);
        for (int i = 0; i < 4096; ++i) {
            Wanted trap = wanted(static_cast<int>(random() % static_cast<unsigned>(traps)));
            trap.enterprise = enterprise_of(trap);
            chosen.push_back(trap);
        }
    }

    int count;
    std::unordered_map<std::string, trap_record*> by_name;
    std::vector<Wanted> chosen;
};

// One at a time: they share the library's.
const Model& model_of(int count) {
    static Model* current = nullptr;
    if (current == nullptr || current->count != count) {
        delete current;
        current = new Model(count);
    }
    return *current;
}

template <class Lookup>
void look_up(benchmark::State& state, int count, Lookup lookup) {
    const Model& model = model_of(count);
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lookup(model, model.chosen[i++ % model.chosen.size()]));
    }
}

void probe(benchmark::State& state, int count) {
    look_up(state, count, [](const Model& model, const Wanted& trap) {
        return model.by_name.find(trap.name)->second->specific_trap;
    });
}

void by_name(benchmark::State& state, int count) {
    look_up(state, count,
            [](const Model&, const Wanted& trap) { return nameToExactTrap(trap.name.c_str()); });
}

void by_numbers(benchmark::State& state, int count) {
    look_up(state, count, [](const Model&, const Wanted& trap) {
        return findExactTrapRecord(trap.enterprise, 6, trap.specific, "node");
    });
}

void by_identifier(benchmark::State& state, int count) {
    look_up(state, count, [](const Model&, const Wanted& trap) {
        enterprise_info* found = nullptr;
        find_enterprise(trap.oid.data(), static_cast<uint32_t>(trap.oid.size()), &found);
        return found;
    });
}

void walk(benchmark::State& state, int count) {
    look_up(state, count, [](const Model&, const Wanted& trap) {
        for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            for (const trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
                if (trap.name == r->name) {
                    return r;
                }
            }
        }
        return static_cast<const trap_record*>(nullptr);
    });
}

// Among the others of its enterprise, and out again.
void insert_and_delete(benchmark::State& state, int count) {
    look_up(state, count, [](const Model&, const Wanted& trap) {
        insert(trap.enterprise, "added", trap.specific + traps_an_enterprise);
        return delete_trap_record(trap.enterprise, 6, trap.specific + traps_an_enterprise);
    });
}

// A received trap that something is configured for.
struct Received {
    std::vector<uint32_t> oid;
    std::string name;
    int specific;
};

// A configuration read from a file, and its traps in random order.
class FileModel {
  public:
    explicit FileModel(std::size_t traps) {
        char path[] = "/tmp/wqevents.lookup.XXXXXX";
        close(mkstemp(path));
        std::ofstream(path, std::ios::binary) << ConfGenerator::text(traps);
        setVortdConfFile(path);
        char* message = nullptr;
        if (read_trapspec_file(&message) != 0 || *message != '\0') {
            std::abort();
        }
        unlink(path);
        collect();
        std::shuffle(received_.begin(), received_.end(), std::minstd_rand(1));
        for (const Received& trap : received_) {
            by_name_.emplace(trap.name, nameToExactTrap(trap.name.c_str()));
        }
    }

    const Received& next() { return received_[next_++ % received_.size()]; }
    const trap_record* probe(const Received& trap) const {
        return by_name_.find(trap.name)->second;
    }

  private:
    void collect() {
        for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            const std::vector<uint32_t> oid(e->enterprise_oid, e->enterprise_oid + e->oid_len);
            for (auto* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
                if (r->nodeCnt == 0) {
                    received_.push_back({oid, r->name, r->specific_trap});
                }
            }
        }
    }

    std::vector<Received> received_;
    std::unordered_map<std::string, trap_record*> by_name_;
    std::size_t next_ = 0;
};

template <class Lookup>
void look_up_in_file(benchmark::State& state, Lookup lookup) {
    static FileModel model(100'000);
    for (auto _ : state) {
        benchmark::DoNotOptimize(lookup(model, model.next()));
    }
}

void find_format(benchmark::State& state) {
    look_up_in_file(state, [](const FileModel&, const Received& trap) {
        trap_record* record = nullptr;
        enterprise_info* enterprise = nullptr;
        find_trap_format(trap.oid.data(), static_cast<uint32_t>(trap.oid.size()), 6, trap.specific,
                         &record, &enterprise, "host.example.net");
        return record->specific_trap;
    });
}

void probe_file(benchmark::State& state) {
    look_up_in_file(state, [](const FileModel& model, const Received& trap) {
        return model.probe(trap)->specific_trap;
    });
}

void walk_file(benchmark::State& state) {
    look_up_in_file(state, [](const FileModel&, const Received& trap) {
        const enterprise_info* e = enterprise_list_head.next;
        while (!std::equal(trap.oid.begin(), trap.oid.end(), e->enterprise_oid,
                           e->enterprise_oid + e->oid_len)) {
            e = e->next;
        }
        const trap_record* r = e->trap_rec_list_head.next;
        while (r->generic_trap != 6 || r->specific_trap != trap.specific) {
            r = r->next;
        }
        return r->specific_trap;
    });
}

constexpr std::array<int, 4> sizes = {100, 10'000, 100'000, 1'000'000};

using Benchmark = void (*)(benchmark::State&, int);

void add(const char* name, Benchmark run, int count) {
    benchmark::RegisterBenchmark((std::string(name) + "/" + std::to_string(count)).c_str(), run,
                                 count);
}

constexpr std::array<Goal, 16> goals = {{
    {"by name / hash probe", "by_name/100000", "probe/100000", 5},
    {"by numbers / hash probe", "by_numbers/100000", "probe/100000", 5},
    {"by identifier / hash probe", "by_identifier/100000", "probe/100000", 5},
    {"by name / walk", "by_name/100000", "walk/100000", 0.04},
    {"by numbers / walk", "by_numbers/100000", "walk/100000", 0.04},
    {"by identifier / walk", "by_identifier/100000", "walk/100000", 0.04},
    {"probe 1,000,000 / 10,000", "probe/1000000", "probe/10000", 8},
    {"by name 1,000,000 / 10,000", "by_name/1000000", "by_name/10000", 8},
    {"by numbers 1,000,000 / 10,000", "by_numbers/1000000", "by_numbers/10000", 8},
    {"by identifier 1,000,000 / 10,000", "by_identifier/1000000", "by_identifier/10000", 8},
    {"insertion 1,000,000 / 10,000", "insert_and_delete/1000000", "insert_and_delete/10000", 8},
    {"by name 100,000 / 100", "by_name/100000", "by_name/100", 8},
    {"by numbers 100,000 / 100", "by_numbers/100000", "by_numbers/100", 8},
    {"insertion 100,000 / 100", "insert_and_delete/100000", "insert_and_delete/100", 8},
    {"format of a trap / hash probe", "find_format", "probe_file", 5},
    {"format of a trap / walk", "find_format", "walk_file", 0.04},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    using namespace wq::bench;
    setenv("FERLOD_CONF", "/dev/null", 1);  // alerts are not what is measured
    for (const int count : sizes) {
        add("probe", probe, count);
        add("by_name", by_name, count);
        add("by_numbers", by_numbers, count);
        add("by_identifier", by_identifier, count);
        add("insert_and_delete", insert_and_delete, count);
        if (count <= 100'000) {
            add("walk", walk, count);
        }
    }
    benchmark::RegisterBenchmark("find_format", find_format);
    benchmark::RegisterBenchmark("probe_file", probe_file);
    benchmark::RegisterBenchmark("walk_file", walk_file);
    // One configuration after the other: they do not fit beside each other in the library.
    std::string in_order = "--benchmark_enable_random_interleaving=false";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, in_order.data());
    return run(static_cast<int>(arguments.size()), arguments.data(), goals);
}
