/// Contenders side by side, timed by Google Benchmark in random turns, so that the machine's moods
/// fall on all of them alike.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace insolate::bench {

struct Contender {
    std::string name;
    std::function<void()> run; ///< one round's work
};

struct Timing {
    double median = 0; ///< [seconds]
    double spread = 0; ///< standard deviation over mean
};

/// To be called once, with the program's arguments: takes the --benchmark_ flags from them, which
/// go before these defaults.
inline void prepareRaces(int& count, char** arguments, int rounds) {
    std::vector<std::string> flags = {arguments[0], "--benchmark_enable_random_interleaving=true",
                                      "--benchmark_report_aggregates_only=true",
                                      "--benchmark_repetitions=" + std::to_string(rounds)};
    std::vector<char*> pointers;
    for (std::string& flag : flags) {
        pointers.push_back(flag.data());
    }
    int all = static_cast<int>(pointers.size());
    benchmark::Initialize(&all, pointers.data());
    benchmark::Initialize(&count, arguments);
}

/// One round of each contender to warm up, then the rounds that count.
inline std::vector<Timing> race(const std::vector<Contender>& contenders) {
    class Collector : public benchmark::BenchmarkReporter {
    public:
        std::map<std::string, Timing> timings;
        bool ReportContext(const Context& /*context*/) override { return true; }
        void ReportRuns(const std::vector<Run>& runs) override {
            for (const Run& run : runs) {
                Timing& timing = timings[run.run_name.function_name];
                if (run.aggregate_name == "median") {
                    timing.median = run.GetAdjustedRealTime();
                } else if (run.aggregate_name == "cv") {
                    timing.spread = run.GetAdjustedRealTime();
                }
            }
        }
    };
    benchmark::ClearRegisteredBenchmarks();
    for (const Contender& contender : contenders) {
        contender.run();
        benchmark::RegisterBenchmark(contender.name.c_str(),
                                     [&contender](benchmark::State& state) {
                                         for (auto _ : state) {
                                             contender.run();
                                         }
                                     })
            ->Iterations(1)
            ->UseRealTime()
            ->Unit(benchmark::kSecond);
    }
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector, ".");
    std::vector<Timing> timings;
    for (const Contender& contender : contenders) {
        timings.push_back(collector.timings[contender.name]);
    }
    return timings;
}

} // namespace insolate::bench
