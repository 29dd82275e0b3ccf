// SPDX-License-Identifier: MIT
// Timings defined by the standards, looked up by the codes an EDID carries.
#pragma once

#include <cstdint>

namespace edidvm::edid::tables {

struct Axis
{
    int front, sync, back, border;
    bool positive; // sync polarity
};

// Interlaced timings give the vertical values of one field; the frame has
// twice the active lines and one line more than two fields' totals, unless
// its fields are equal.
struct Timing
{
    int code;
    int width, height;
    bool interlaced;
    std::uint32_t pixelClockKHz;
    Axis h, v;
    bool equalFields = false; // interlaced, and both fields have the lines v gives
};

struct DmtTiming
{
    std::uint16_t standardCode; // the two standard-timing bytes naming it; 0 if none
    Timing timing;
    bool reducedBlanking;
};

const DmtTiming* dmt(int id);
const DmtTiming* dmtByStandardCode(std::uint16_t code);
const Timing* vic(int vic);
const Timing* hdmiVic(int vic);

} // namespace edidvm::edid::tables
