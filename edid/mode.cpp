// SPDX-License-Identifier: MIT
// What every mode shares, whichever block it comes from.
#include "edid/edid.h"

#include "edid/edid_p.h"

#include <cstdio>
#include <utility>

namespace edidvm::edid {
namespace detail {

// Totals include both borders; a frame of an interlaced timing has one line
// more than its two fields.
void finish(Mode& m)
{
    const double hTotal = m.hActive + m.hFrontPorch + m.hSync + m.hBackPorch + 2 * m.hBorder;
    const double vTotal = m.vActive + m.vFrontPorch + m.vSync + m.vBackPorch + 2 * m.vBorder;
    m.width = m.hActive;
    const double pixelsPerSecond = m.pixelClockKHz * 1000.0;
    if (m.interlaced) {
        m.height = 2 * m.vActive;
        m.refreshHz = pixelsPerSecond / (hTotal * (vTotal + 0.5));
    } else {
        m.height = m.vActive;
        m.refreshHz = pixelsPerSecond / (hTotal * vTotal);
    }
}

Mode fromTable(Kind kind, std::string source, const tables::Timing& t)
{
    Mode m{};
    m.kind = kind;
    m.source = std::move(source);
    m.pixelClockKHz = t.pixelClockKHz;
    m.interlaced = t.interlaced;
    m.hActive = t.width;
    m.vActive = t.interlaced ? t.height / 2 : t.height;
    m.hFrontPorch = t.h.front;
    m.hSync = t.h.sync;
    m.hBackPorch = t.h.back;
    m.hBorder = t.h.border;
    m.hSyncPositive = t.h.positive;
    m.vFrontPorch = t.v.front;
    m.vSync = t.v.sync;
    m.vBackPorch = t.v.back;
    m.vBorder = t.v.border;
    m.vSyncPositive = t.v.positive;
    finish(m);
    if (t.equalFields) {
        const double vTotal = m.vActive + m.vFrontPorch + m.vSync + m.vBackPorch + 2 * m.vBorder;
        const double hTotal = m.hActive + m.hFrontPorch + m.hSync + m.hBackPorch + 2 * m.hBorder;
        m.refreshHz = m.pixelClockKHz * 1000.0 / (hTotal * vTotal);
    }
    return m;
}

Mode fromDmt(Kind kind, const tables::DmtTiming& dmt, const std::string& prefix)
{
    Mode m = fromTable(kind, prefix + "DMT " + hexByte(static_cast<unsigned>(dmt.timing.code)), dmt.timing);
    m.reducedBlanking = dmt.reducedBlanking;
    return m;
}

} // namespace detail

std::string describe(const Mode& mode)
{
    char text[64];
    std::snprintf(text, sizeof text, "%dx%d%s@%.2f", mode.width, mode.height, mode.interlaced ? "i" : "",
                  mode.refreshHz);
    return text;
}

} // namespace edidvm::edid
