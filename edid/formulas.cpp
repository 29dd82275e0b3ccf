// SPDX-License-Identifier: MIT
// The GTF and CVT formulas, for timings an EDID names by size and rate only:
// standard timings that no DMT names, CVT codes, DisplayID's formula timings.
#include "edid/edid_p.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace edidvm::edid::detail {
namespace {

constexpr int kCell = 8;

// The vertical sync width of CVT names the aspect ratio.
int cvtSyncFor(int width, int height)
{
    if (width * 3 == height * 4)
        return 4;
    if (width * 9 == height * 16)
        return 5;
    if (width * 10 == height * 16)
        return 6;
    if (width * 4 == height * 5 || width * 9 == height * 15)
        return 7;
    return 10;
}

Mode formulaMode(const char* source, double clockKHz, int hPixels, int hFront, int hSync, int hBack, int lines,
                 int vFront, int vSync, int vBack, bool hPositive, bool interlaced)
{
    Mode m{};
    m.kind = Kind::Standard;
    m.source = source;
    // Zero, when the clock does not fit: the caller lists no such timing.
    m.pixelClockKHz = clockKHz > 0 && clockKHz < 4e9 ? static_cast<std::uint32_t>(std::lround(clockKHz)) : 0;
    m.hActive = hPixels;
    m.hFrontPorch = hFront;
    m.hSync = hSync;
    m.hBackPorch = hBack;
    m.vActive = lines;
    m.vFrontPorch = vFront;
    m.vSync = vSync;
    m.vBackPorch = vBack;
    m.hSyncPositive = hPositive;
    m.vSyncPositive = !hPositive;
    m.interlaced = interlaced;
    finish(m);
    return m;
}

} // namespace

bool computed(const Mode& m)
{
    return m.pixelClockKHz > 0 && m.hActive > 0 && m.vActive > 0 && std::isfinite(m.refreshHz) && m.refreshHz > 0 &&
           m.hFrontPorch >= 0 && m.hBackPorch >= 0 && m.vFrontPorch >= 0 && m.vBackPorch >= 0;
}

// The GTF with its default curve (C 40, M 600, K 128, J 20), no margins,
// progressive; the pixel clock is kept to the kHz. Blanking is split evenly
// around the horizontal sync; negative horizontal, positive vertical sync.
Mode gtf(int width, int height, double rate)
{
    constexpr double kMinVsyncBp = 550.0, kCPrime = 30.0, kMPrime = 300.0;
    constexpr int kMinPorch = 1, kVsync = 3;
    const int hPixels = static_cast<int>(std::lround(width / double(kCell))) * kCell;
    const double hPeriodEst = (1.0 / rate - kMinVsyncBp / 1e6) / (height + kMinPorch) * 1e6;
    const int vsyncBp = static_cast<int>(std::lround(kMinVsyncBp / hPeriodEst));
    const int vTotal = height + vsyncBp + kMinPorch;
    const double rateEst = 1e6 / hPeriodEst / vTotal;
    const double hPeriod = hPeriodEst / (rate / rateEst);
    const double duty = kCPrime - kMPrime * hPeriod / 1000.0;
    const int hBlank = static_cast<int>(std::lround(hPixels * duty / (100.0 - duty) / (2 * kCell))) * 2 * kCell;
    const int hTotal = hPixels + hBlank;
    const int hSync = static_cast<int>(std::lround(0.08 * hTotal / kCell)) * kCell;
    return formulaMode("GTF", hTotal / hPeriod * 1000.0, hPixels, hBlank / 2 - hSync, hSync, hBlank / 2, height,
                       kMinPorch, kVsync, vsyncBp - kVsync, false, false);
}

// CVT without margins. Interlaced, the rate is the field rate and the
// vertical values are a field's. Standard blanking has a pixel clock in
// steps of 0.25 MHz, negative horizontal and positive vertical sync; reduced
// blanking the other polarities, and its second version a clock in kHz, a
// fixed sync and back porch and the front porch taking the rest.
Mode cvt(int width, int height, double rate, Blanking blanking, bool interlaced)
{
    constexpr double kMinVsyncBp = 550.0, kMinVBlank = 460.0, kCPrime = 30.0, kMPrime = 300.0;
    constexpr int kMinVPorch = 3, kMinVBackPorch = 6;
    const int hPixels = width / kCell * kCell;
    const int lines = interlaced ? height / 2 : height;
    const double interlace = interlaced ? 0.5 : 0.0;
    if (blanking == Blanking::Standard) {
        const int vSync = cvtSyncFor(width, height);
        const double hPeriodEst = (1e6 / rate - kMinVsyncBp) / (lines + kMinVPorch + interlace);
        if (!(hPeriodEst > 0))
            return formulaMode("CVT", 0, hPixels, 0, 0, 0, lines, 0, 0, 0, false, interlaced);
        const int vsyncBp =
            std::max(static_cast<int>(std::floor(kMinVsyncBp / hPeriodEst)) + 1, vSync + kMinVBackPorch);
        const double duty = std::max(20.0, kCPrime - kMPrime * hPeriodEst / 1000.0);
        const int hBlank = static_cast<int>(std::floor(hPixels * duty / (100.0 - duty) / (2 * kCell))) * 2 * kCell;
        const int hTotal = hPixels + hBlank;
        const int hSync = static_cast<int>(std::floor(0.08 * hTotal / kCell)) * kCell;
        const double clockMHz = 0.25 * std::floor(hTotal / hPeriodEst / 0.25);
        return formulaMode("CVT", clockMHz * 1000.0, hPixels, hBlank / 2 - hSync, hSync, hBlank / 2, lines, kMinVPorch,
                           vSync, vsyncBp - vSync, false, interlaced);
    }
    const bool second = blanking == Blanking::ReducedV2;
    const int vSync = second ? 8 : cvtSyncFor(width, height);
    const int hBlank = second ? 80 : 160;
    const double hPeriodEst = (1e6 / rate - kMinVBlank) / lines;
    if (!(hPeriodEst > 0) || lines <= 0)
        return formulaMode("CVT", 0, hPixels, 0, 0, 0, lines, 0, 0, 0, true, interlaced);
    const int minVbi = second ? 1 + vSync + kMinVBackPorch : kMinVPorch + vSync + kMinVBackPorch;
    const int vbi = std::max(static_cast<int>(std::floor(kMinVBlank / hPeriodEst)) + 1, minVbi);
    const double vTotal = lines + vbi + interlace;
    const int hTotal = hPixels + hBlank;
    const double step = second ? 0.001 : 0.25;
    const double clockMHz = step * std::floor(rate * vTotal * hTotal / 1e6 / step);
    Mode m = second ? formulaMode("CVT", clockMHz * 1000.0, hPixels, 8, 32, 40, lines, vbi - vSync - kMinVBackPorch,
                                  vSync, kMinVBackPorch, true, interlaced)
                    : formulaMode("CVT", clockMHz * 1000.0, hPixels, 48, 32, 80, lines, kMinVPorch, vSync,
                                  vbi - kMinVPorch - vSync, true, interlaced);
    m.reducedBlanking = true;
    return m;
}

} // namespace edidvm::edid::detail
