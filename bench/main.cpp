// Runs the benchmarks and prints them as tables of ratios.
//
// A benchmark's name is "group/case". The first case of a group is what its other cases are compared with. Each is
// repeated, and the median counts; what takes long and comes out the same each time runs once. Command-line options are
// those of the benchmark library (--benchmark_filter=...).

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "host/runtime/Log.h"

namespace {

constexpr const char* kDefaults[] = {"--benchmark_repetitions=5", "--benchmark_report_aggregates_only=true",
                                     "--benchmark_min_time=0.3"};
constexpr int kSilent = 8;  // log level

/// "12.3 us" and the like.
std::string inUnit(double nanoseconds) {
    const struct {
        double factor;
        const char* unit;
    } units[] = {{1e9, "s"}, {1e6, "ms"}, {1e3, "us"}};
    char text[32];
    for (const auto& unit : units) {
        if (nanoseconds >= unit.factor) {
            std::snprintf(text, sizeof text, "%.2f %s", nanoseconds / unit.factor, unit.unit);
            return text;
        }
    }
    std::snprintf(text, sizeof text, "%.1f ns", nanoseconds);
    return text;
}

class RatioReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred)
                std::printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
            else if (run.aggregate_name == "median" || run.repetitions == 1)
                report(run);
        }
    }

private:
    void report(const Run& run) {
        const std::string& name = run.run_name.function_name;
        const size_t slash = name.find('/');
        const std::string group = name.substr(0, slash);
        const double time = run.real_accumulated_time / static_cast<double>(run.iterations) * 1e9;
        if (const auto [base, isNew] = mBaselines.emplace(group, time); isNew)
            std::printf("\n%-48s %12s %8s\n", group.c_str(), "median", "ratio");
        std::printf("  %-46s %12s %8.2f", name.substr(slash + 1).c_str(), inUnit(time).c_str(),
                    time / mBaselines[group]);
        for (const auto& [counter, value] : run.counters)
            std::printf("  %s %.6g", counter.c_str(), value.value);
        std::printf("\n");
        std::fflush(stdout);
    }

    std::map<std::string, double> mBaselines;
};

}  // namespace

int main(int argc, char** argv) {
    kov::host::setLogLevel(kSilent);
    std::vector<char*> arguments(argv, argv + argc);
    for (const char* option : kDefaults)
        arguments.insert(arguments.begin() + 1, const_cast<char*>(option));
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
