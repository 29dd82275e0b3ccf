// SPDX-License-Identifier: MIT
#pragma once

// The console output, keeping each benchmark's real time for the ratios a
// program prints at the end: the median when there are repetitions, the
// single run otherwise.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

class TimesReporter : public benchmark::ConsoleReporter
{
public:
    TimesReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred)
                continue;
            const std::string& name = run.run_name.function_name;
            if (run.run_type == Run::RT_Iteration)
                m_single[name] = run.GetAdjustedRealTime();
            else if (run.aggregate_name == "median")
                m_median[name] = run.GetAdjustedRealTime();
        }
    }

    bool fromMedians() const { return !m_median.empty(); }
    // Keyed by the benchmark's name.
    const std::map<std::string, double>& times() const { return fromMedians() ? m_median : m_single; }

private:
    std::map<std::string, double> m_single;
    std::map<std::string, double> m_median;
};

// Runs the benchmarks the command line selects, then prints the ratios
// (by the clock named) that ratios() names as {label, numerator, denominator} benchmark names; a pair
// with a missing or zero figure is left out.
struct Ratio
{
    std::string label;
    std::string numerator;
    std::string denominator;
};

inline int runWithRatios(int argc, char** argv, const char* clock, const char* unit,
                         const std::function<std::vector<Ratio>(const std::map<std::string, double>&)>& ratios)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    TimesReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto& times = reporter.times();
    for (const Ratio& ratio : ratios(times)) {
        const auto top = times.find(ratio.numerator);
        const auto bottom = times.find(ratio.denominator);
        if (top == times.end() || bottom == times.end() || bottom->second <= 0.0)
            continue;
        std::printf("%s (%s %s): %.2f %s / %.2f %s = %.2fx\n", ratio.label.c_str(),
                    reporter.fromMedians() ? "median" : "single run", clock, top->second, unit, bottom->second, unit,
                    top->second / bottom->second);
    }
    benchmark::Shutdown();
    return 0;
}
