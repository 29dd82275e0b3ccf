// SPDX-License-Identifier: MIT
#include "sim/runreport.h"

#include "sim/scenario.h"
#include "sim/trace.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace edidvm {
namespace sim {

namespace {
std::string listed(const std::vector<std::string>& files)
{
    std::string names;
    for (const std::string& file : files)
        names += (names.empty() ? "" : ", ") + file;
    return names.empty() ? "" : " (" + names + ")";
}
} // namespace

const char* outcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Passed:
        return "passed";
    case Outcome::Failed:
        return "failed";
    case Outcome::Unchecked:
        return "unchecked";
    case Outcome::Demonstration:
        return "demonstration";
    }
    return "";
}

Outcome outcomeOf(const Tally& tally, bool demonstration)
{
    return tally.failures != 0       ? Outcome::Failed
           : tally.checkedSteps != 0 ? Outcome::Passed
           : demonstration           ? Outcome::Demonstration
                                     : Outcome::Unchecked;
}

void Totals::add(const std::string& file, Outcome outcome, const Tally& played)
{
    ++counts[static_cast<int>(outcome)];
    tally.steps += played.steps;
    tally.checkedSteps += played.checkedSteps;
    tally.messages += played.messages;
    tally.warnings += played.warnings;
    if (outcome == Outcome::Failed)
        failedFiles.push_back(file);
    if (outcome == Outcome::Unchecked)
        uncheckedFiles.push_back(file);
}

std::size_t Totals::notPlayed() const
{
    std::size_t done = refusedFiles.size();
    for (const int counted : counts)
        done += static_cast<std::size_t>(counted);
    return scenarios > done ? scenarios - done : 0;
}

std::string plural(std::size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string summaryText(const Totals& totals)
{
    const Tally& tally = totals.tally;
    std::string text = plural(totals.scenarios, "scenario", "scenarios") + ": " +
                       std::to_string(totals.count(Outcome::Passed)) + " passed, " +
                       std::to_string(totals.count(Outcome::Failed)) + " failed" + listed(totals.failedFiles);
    if (totals.count(Outcome::Unchecked) != 0)
        text += ", " + std::to_string(totals.count(Outcome::Unchecked)) + " unchecked" + listed(totals.uncheckedFiles);
    if (totals.count(Outcome::Demonstration) != 0)
        text += ", " + plural(static_cast<std::size_t>(totals.count(Outcome::Demonstration)), "demonstration",
                              "demonstrations");
    if (!totals.refusedFiles.empty())
        text += ", " + std::to_string(totals.refusedFiles.size()) + " refused" + listed(totals.refusedFiles);
    const std::size_t notPlayed = totals.notPlayed();
    if (notPlayed != 0)
        text += ", " + std::to_string(notPlayed) + " not played";
    return text + "; " + plural(static_cast<std::size_t>(tally.steps), "step", "steps") + " (" +
           std::to_string(tally.checkedSteps) + " checked), " +
           plural(static_cast<std::size_t>(tally.messages), "message", "messages") + " and " +
           plural(static_cast<std::size_t>(tally.warnings), "warning", "warnings") + " compared";
}

void traceResult(Trace& trace, const std::string& file, Outcome outcome, const Tally& tally,
                 const std::string& variation)
{
    if (!trace.json())
        return;
    Fields result = {{"type", "result"},
                     {"file", file},
                     {"outcome", outcomeName(outcome)},
                     {"steps", tally.steps},
                     {"checkedSteps", tally.checkedSteps},
                     {"messages", tally.messages},
                     {"warnings", tally.warnings},
                     {"failures", tally.failures}};
    if (!variation.empty())
        result["variation"] = variation;
    trace.record(result);
}

void traceSummary(Trace& trace, const Totals& totals, int status)
{
    if (!trace.json()) {
        trace.heading(summaryText(totals), Fields());
        return;
    }
    const Tally& tally = totals.tally;
    trace.record({{"type", "summary"},
                  {"status", status},
                  {"scenarios", totals.scenarios},
                  {"passed", totals.count(Outcome::Passed)},
                  {"failed", totals.count(Outcome::Failed)},
                  {"unchecked", totals.count(Outcome::Unchecked)},
                  {"demonstrations", totals.count(Outcome::Demonstration)},
                  {"refused", totals.refusedFiles.size()},
                  {"steps", tally.steps},
                  {"checkedSteps", tally.checkedSteps},
                  {"messages", tally.messages},
                  {"warnings", tally.warnings},
                  {"failedFiles", totals.failedFiles},
                  {"uncheckedFiles", totals.uncheckedFiles},
                  {"refusedFiles", totals.refusedFiles}});
}

void traceError(Trace& trace, int status, const std::string& message)
{
    if (trace.json())
        trace.record({{"type", "error"}, {"status", status}, {"message", message}});
    else
        std::fprintf(stderr, "edidsim: %s\n", message.c_str());
}

void traceProblems(Trace& trace, const ScenarioError& error)
{
    if (trace.json()) {
        for (const Problem& problem : error.problems())
            trace.record({{"type", "problem"},
                          {"file", problem.file},
                          {"path", problem.path ? Fields(*problem.path) : Fields()},
                          {"message", problem.message}});
        if (error.notShown() != 0)
            trace.record({{"type", "problemsNotShown"},
                          {"file", error.problems().empty() ? std::string() : error.problems().front().file},
                          {"count", error.notShown()}});
        return;
    }
    printProblems(error);
}

void printProblems(const ScenarioError& error)
{
    const std::string problems = error.what();
    std::size_t start = 0;
    while (start < problems.size()) {
        const std::size_t end = std::min(problems.find('\n', start), problems.size());
        std::fprintf(stderr, "edidsim: %s\n", problems.substr(start, end - start).c_str());
        start = end + 1;
    }
}

bool jsonAsked(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0)
            break;
        if (std::strcmp(argv[i], "--json") == 0)
            return true;
    }
    return false;
}

} // namespace sim
} // namespace edidvm
