// SPDX-License-Identifier: MIT
#pragma once

// The console output, keeping each benchmark's real time for the ratios a
// program prints at the end: the median when there are repetitions, the
// single run otherwise.

#include <benchmark/benchmark.h>

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
