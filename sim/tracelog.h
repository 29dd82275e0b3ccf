// SPDX-License-Identifier: MIT
#pragma once

// The component logs through Qt; while a TraceLog lives, its warnings go in
// line into the trace, where the steps' expectations look for them.

namespace edidvm {
namespace sim {

class Trace;

class TraceLog
{
public:
    // One at a time: a second, nested one leaves the first in place.
    explicit TraceLog(Trace& trace);
    ~TraceLog();
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

private:
    bool m_installed = false;
};

// Colour is for people: never in JSON, into a pipe or a file, or with NO_COLOR set.
bool colourWanted(bool json);

} // namespace sim
} // namespace edidvm
