// Benchmarks in pairs: "row/ours" beside "row/<peer>", printed as ratios.
//
//   BENCHMARK(ours)->Name("strings/ours");
//   BENCHMARK(standard)->Name("strings/std::string");
//   RATIO_MAIN({"strings", "std::string", 1.0})
//
// Repetitions of all benchmarks are interleaved at random and the quickest of each is compared, so that a noisy machine
// disturbs both sides alike. Of threads that wait for each other (UseRealTime) the medians are: their quickest run is
// one in which they happened not to meet. Beside each figure stands how far its runs differ: the distance between their
// quartiles, in per cent of their median. Google Benchmark's own flags work as usual.
#ifndef TMQKCI_BENCH_RATIO_H
#define TMQKCI_BENCH_RATIO_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

struct RatioRow {
    std::string row;
    std::string peer;
    double limit; // ours / peer that is aimed at
};

class RatioReporter : public benchmark::BenchmarkReporter {
public:
    explicit RatioReporter(std::vector<RatioRow> pairs) : rows(std::move(pairs)) {}

    // The loops that are timed are compiled here, optimized, however the benchmark library was built.
    bool ReportContext(const Context& context) override {
        std::printf("%d processors, load average", context.cpu_info.num_cpus);
        for (const double load : context.cpu_info.load_avg) {
            std::printf(" %.2f", load);
        }
        std::printf("\n");
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                Times& times = timesOf[run.run_name.function_name];
                times.byWallClock = run.run_name.time_type == "real_time";
                times.all.push_back(times.byWallClock ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime());
            } else if (run.error_occurred) {
                std::printf("%s: %s\n", run.run_name.function_name.c_str(), run.error_message.c_str());
            }
        }
    }

    void Finalize() override {
        std::printf("%-44s %-24s %5s %12s %7s %12s %7s %7s %7s\n", "row", "beside", "runs", "ours ns", "spread",
                    "peer ns", "spread", "ratio", "limit");
        for (const RatioRow& row : rows) {
            const auto ours = timesOf.find(row.row + "/ours");
            const auto peer = timesOf.find(row.row + "/" + row.peer);
            if (ours == timesOf.end() || peer == timesOf.end()) {
                continue;
            }
            const double oursTime = ours->second.representative();
            const double peerTime = peer->second.representative();
            const double ratio = oursTime / peerTime;
            std::printf("%-44s %-24s %5zu %12.1f %6.1f%% %12.1f %6.1f%% %7.3f %7.2f%s\n", row.row.c_str(),
                        row.peer.c_str(), ours->second.all.size(), oursTime, ours->second.spread(), peerTime,
                        peer->second.spread(), ratio, row.limit, ratio <= row.limit ? "" : "  above");
        }
    }

private:
    struct Times {
        bool byWallClock = false;
        std::vector<double> all;
        double representative() { return quantile(byWallClock ? 0.5 : 0); }
        double spread() { return 100 * (quantile(0.75) - quantile(0.25)) / quantile(0.5); }
        double quantile(double share) {
            const auto wanted = all.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(all.size()));
            std::nth_element(all.begin(), wanted, all.end());
            return *wanted;
        }
    };
    const std::vector<RatioRow> rows;
    std::map<std::string, Times> timesOf;
};

inline int runRatios(int argc, char** argv, std::vector<RatioRow> rows) {
    std::vector<char*> args(argv, argv + argc);
    std::string defaults[] = {"--benchmark_repetitions=15", "--benchmark_enable_random_interleaving=true",
                              "--benchmark_min_time=0.05"};
    // Behind the program's name, so that flags of the caller's come later and win.
    for (std::string& flag : defaults) {
        args.insert(args.begin() + 1, flag.data());
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) {
        return 1;
    }
    RatioReporter reporter(std::move(rows));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}

#define RATIO_MAIN(...)                                                                                                \
    int main(int argc, char** argv) {                                                                                  \
        return runRatios(argc, argv, {__VA_ARGS__});                                                                   \
    }

#endif
