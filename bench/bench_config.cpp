// Reading trap configurations of 10,000 to 1,000,000 traps, by the megabyte, against a reader that
// is plainly written and one that checks nothing.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/configuration.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <string>

#include "conf_readers.h"
#include "ratios.h"
#include "vortd_conf_generator.h"

namespace wq::bench {
namespace {

constexpr std::size_t small = 10000;
constexpr std::size_t medium = 100000;
constexpr std::size_t large = 1000000;

// A generated file, made when it is first asked for and removed at the end.
class ConfFile {
  public:
    explicit ConfFile(std::size_t traps) {
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder != nullptr ? folder : "/tmp") + "/wqevents.conf.XXXXXX";
        close(mkstemp(path_.data()));
        const std::string text = ConfGenerator::text(traps);
        std::ofstream(path_, std::ios::binary) << text;
        megabytes_ = static_cast<double>(text.size()) / 1e6;
    }
    ~ConfFile() { unlink(path_.c_str()); }
    ConfFile(const ConfFile&) = delete;
    ConfFile& operator=(const ConfFile&) = delete;

    const char* path() const { return path_.c_str(); }
    double megabytes() const { return megabytes_; }

  private:
    std::string path_;
    double megabytes_ = 0;
};

const ConfFile& conf_file(std::size_t traps) {
    static std::map<std::size_t, ConfFile> files;
    return files.try_emplace(traps, traps).first->second;
}

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::size_t count_traps() {
    std::size_t count = 0;
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        for (const trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            ++count;
        }
    }
    return count;
}

// What others do to the machine counts less in processor time; memory comes out of it as well.
double processor_seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Times one read, by the megabyte. Each begins with memory that the system has yet to give.
template <class Read>
void time_read(benchmark::State& state, const ConfFile& file, Read read) {
    malloc_trim(0);
    const double start = processor_seconds();
    read();
    state.SetIterationTime((processor_seconds() - start) / file.megabytes());
}

void read_conf(benchmark::State& state, std::size_t traps) {
    const ConfFile& file = conf_file(traps);
    setVortdConfFile(file.path());
    for (auto _ : state) {
        free_all_info();
        char* message = nullptr;
        time_read(state, file, [&] { require(read_trapspec_file(&message) == 0); });
        require(*message == '\0' && count_traps() == traps);
    }
    free_all_info();
}

template <class Reader>
void read_otherwise(benchmark::State& state, std::size_t traps) {
    const ConfFile& file = conf_file(traps);
    for (auto _ : state) {
        OtherModel model;
        time_read(state, file, [&] { const Reader reader(file.path(), model); });
        require(model.traps() == traps);
    }
}

void read_plainly(benchmark::State& state, std::size_t traps) {
    read_otherwise<PlainReader>(state, traps);
}

void read_in_one_pass(benchmark::State& state, std::size_t traps) {
    read_otherwise<OnePassReader>(state, traps);
}

BENCHMARK_CAPTURE(read_conf, 10000, small)->UseManualTime()->Iterations(10);
BENCHMARK_CAPTURE(read_conf, 100000, medium)->UseManualTime()->Iterations(1);
BENCHMARK_CAPTURE(read_conf, 1000000, large)->UseManualTime()->Iterations(1);
BENCHMARK_CAPTURE(read_plainly, 100000, medium)->UseManualTime()->Iterations(1);
BENCHMARK_CAPTURE(read_in_one_pass, 100000, medium)->UseManualTime()->Iterations(1);

constexpr std::array<Goal, 3> goals = {{
    {"read a MB / plain reader", "read_conf/100000", "read_plainly/100000", 0.40},
    {"read a MB / one pass, no checks", "read_conf/100000", "read_in_one_pass/100000", 2.5},
    {"a MB of 1,000,000 / of 10,000", "read_conf/1000000", "read_conf/10000", 1.25},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    setenv("FERLOD_CONF", "/dev/null", 1);  // alerts are not what is measured
    return wq::bench::run(argc, argv, wq::bench::goals);
}
