// SPDX-License-Identifier: MIT
#pragma once

// A step's expected messages or warnings against those that came: which
// match, which are missing, unexpected or differing, and the report of it
// in the trace.

#include "sim/trace.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

// One line of a comparison as diff shows it: ' ' both sides, '-' only
// expected (missing), '+' only came (unexpected), '!' the same message with
// other fields; -1 stands for no side.
struct Line
{
    char mark;
    int expected;
    int came;
};

// The longest run of matches in order is kept, so one missing or extra item
// is reported once. Between two matches, a missing and an unexpected item of
// the same kind (sameKind) pair up as differing, in order.
std::vector<Line> compare(std::size_t expected, std::size_t came,
                          const std::function<bool(std::size_t, std::size_t)>& same,
                          const std::function<bool(std::size_t, std::size_t)>& sameKind);

// How an item of one side shows: its line of text, and its fields for
// programs ("index" is added).
struct Shown
{
    std::string text;
    Fields record = Fields::object();
};
using Show = std::function<Shown(int)>;

// Prints the comparison of what a step expected (messages or warnings) with
// what came, when they differ, as diff would: matched lines near a
// difference for context, then each difference marked.
void report(Trace& trace, std::size_t index, const char* what, const std::vector<Line>& lines, const Show& expected,
            const Show& came);

} // namespace sim
} // namespace edidvm
