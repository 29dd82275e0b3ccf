// SPDX-License-Identifier: MIT
#pragma once

// How a run of scenarios says what it played and compared, and what stopped
// it: on standard error and the trace's last line for people, as records for
// programs (docs/trace.md). edidsim's run command and its page share it, so
// a program reads both alike.

#include "sim/player.h"

#include <string>
#include <vector>

namespace edidvm {
namespace sim {

class ScenarioError;
class Trace;

enum class Outcome { Passed, Failed, Unchecked, Demonstration };

const char* outcomeName(Outcome outcome);
// Unchecked when no step played had "expect" or "warnings".
Outcome outcomeOf(const Tally& tally, bool demonstration);

// What a run played and compared, for its last line.
struct Totals
{
    std::size_t scenarios = 0;    // given
    int counts[4] = {0, 0, 0, 0}; // by Outcome
    Tally tally;
    std::vector<std::string> failedFiles;
    std::vector<std::string> uncheckedFiles;
    std::vector<std::string> refusedFiles;

    void add(const std::string& file, Outcome outcome, const Tally& played);
    int count(Outcome outcome) const { return counts[static_cast<int>(outcome)]; }
    // Given but neither played nor refused: the run stopped before them.
    std::size_t notPlayed() const;
};

// "2 steps", "1 problem"
std::string plural(std::size_t count, const char* one, const char* many);
// "3 scenarios: 1 passed, 1 failed (bug.json), 1 unchecked (todo.json); 9
// steps (6 checked), 14 messages and 1 warning compared", with the files
// refused and those not played when there are any
std::string summaryText(const Totals& totals);

// A scenario's end, in JSON only; the host variation it played on when a
// host profile chose it.
void traceResult(Trace& trace, const std::string& file, Outcome outcome, const Tally& tally,
                 const std::string& variation = "");
// The last line of every run that got to its files, also one stopped early;
// in JSON, with the exit status, the last record of every run.
void traceSummary(Trace& trace, const Totals& totals, int status);
// What stops a run: on standard error, or in JSON a record.
void traceError(Trace& trace, int status, const std::string& message);
// A refused file's problems: one a line on standard error, or a record each
// and one counting those not shown.
void traceProblems(Trace& trace, const ScenarioError& error);
// The same as text on standard error, one a line.
void printProblems(const ScenarioError& error);

// Whether --json is among the options before "--": a bad command line is
// reported as JSON then, though the options could not be read.
bool jsonAsked(int argc, char** argv);

} // namespace sim
} // namespace edidvm
