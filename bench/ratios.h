// Costs as ratios of two benchmarks of one run: what a machine does to one of them it does to the
// other too.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace wq::bench {

struct Goal {
    const char* title;
    const char* cost;   // name of a benchmark
    const char* floor;  // name of the one that it is compared with
    double goal;        // most that the ratio should be
};

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    explicit RatioReporter(std::span<const Goal> goals) : goals_(goals) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
            }
        }
    }

    void Finalize() override {
        std::printf("\n%-34s %12s %12s %8s %8s\n", "cost over cost (medians)", "ns", "ns", "ratio",
                    "goal");
        for (const Goal& goal : goals_) {
            const double cost = median(goal.cost);
            const double floor = median(goal.floor);
            if (cost <= 0 || floor <= 0) {
                continue;
            }
            std::printf("%-34s %12.1f %12.1f %8.3f %8.3f%s\n", goal.title, cost, floor,
                        cost / floor, goal.goal, cost / floor <= goal.goal ? "" : "  missed");
        }
    }

  private:
    double median(const std::string& name) {
        std::vector<double>& times = times_[name];
        if (times.empty()) {
            return 0;
        }
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }

    std::span<const Goal> goals_;
    std::map<std::string, std::vector<double>> times_;
};

// Runs all benchmarks of the program, interleaved and repeated unless the arguments say otherwise.
inline int run(int argc, char** argv, std::span<const Goal> goals) {
    std::string repetitions = "--benchmark_repetitions=7";
    std::string interleaving = "--benchmark_enable_random_interleaving=true";
    std::string minimum = "--benchmark_min_time=0.1";
    std::vector<char*> arguments = {argv[0], repetitions.data(), interleaving.data(),
                                    minimum.data()};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    RatioReporter reporter(goals);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}

}  // namespace wq::bench
