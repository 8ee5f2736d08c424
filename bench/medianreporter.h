#pragma once

// The medians of every benchmark of a run, for the summary a program prints
// below Google Benchmark's own table.

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

/// In the time unit of the benchmark.
struct Median
{
    double realTime = 0;
    double cpuTime = 0;
};

/// Keyed "function/args", or the function alone for one without arguments.
using Medians = std::map<std::string, Median>;

class MedianReporter : public benchmark::ConsoleReporter
{
public:
    Medians medians;

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median")
                continue;
            const std::string& args = run.run_name.args;
            const std::string name = run.run_name.function_name + (args.empty() ? "" : "/" + args);
            medians[name] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

/// Runs the benchmarks named on the command line, then `summary`.
inline int runBenchmarks(int argc, char** argv, const std::function<void(Medians&)>& summary)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    summary(reporter.medians);
    return 0;
}
