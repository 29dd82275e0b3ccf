// SPDX-License-Identifier: MIT
// The GTF and CVT formulas, for standard timings that no DMT names.
#include "edid/edid_p.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace edidvm::edid::detail {
namespace {

// What the GTF and CVT formulas share: blanking split evenly around the
// horizontal sync, negative horizontal and positive vertical sync.
Mode formulaMode(const char* source, double clockKHz, int hPixels, int hBlank, int hSync, int height, int vFront,
                 int vSync, int vsyncBp)
{
    Mode m{};
    m.kind = Kind::Standard;
    m.source = source;
    m.pixelClockKHz = static_cast<std::uint32_t>(std::lround(clockKHz));
    m.hActive = hPixels;
    m.hFrontPorch = hBlank / 2 - hSync;
    m.hSync = hSync;
    m.hBackPorch = hBlank / 2;
    m.vActive = height;
    m.vFrontPorch = vFront;
    m.vSync = vSync;
    m.vBackPorch = vsyncBp - vSync;
    m.vSyncPositive = true;
    finish(m);
    return m;
}

} // namespace

// The GTF with its default curve (C 40, M 600, K 128, J 20), no margins,
// progressive; the pixel clock is kept to the kHz.
Mode gtf(int width, int height, double rate)
{
    constexpr double kMinVsyncBp = 550.0, kCPrime = 30.0, kMPrime = 300.0;
    constexpr int kCell = 8, kMinPorch = 1, kVsync = 3;
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
    return formulaMode("GTF", hTotal / hPeriod * 1000.0, hPixels, hBlank, hSync, height, kMinPorch, kVsync, vsyncBp);
}

// CVT with normal blanking, progressive, no margins; the pixel clock is a
// multiple of 0.25 MHz. The vertical sync width encodes the aspect ratio.
Mode cvt(int width, int height, double rate, int vSync)
{
    constexpr double kMinVsyncBp = 550.0, kCPrime = 30.0, kMPrime = 300.0;
    constexpr int kCell = 8, kMinVPorch = 3, kMinVBackPorch = 6;
    const int hPixels = width / kCell * kCell;
    const double hPeriodEst = (1.0 / rate - kMinVsyncBp / 1e6) / (height + kMinVPorch) * 1e6;
    int vsyncBp = static_cast<int>(std::floor(kMinVsyncBp / hPeriodEst)) + 1;
    vsyncBp = std::max(vsyncBp, vSync + kMinVBackPorch);
    const double duty = std::max(20.0, kCPrime - kMPrime * hPeriodEst / 1000.0);
    const int hBlank = static_cast<int>(std::floor(hPixels * duty / (100.0 - duty) / (2 * kCell))) * 2 * kCell;
    const int hTotal = hPixels + hBlank;
    const int hSync = static_cast<int>(std::floor(0.08 * hTotal / kCell)) * kCell;
    const double clockMHz = 0.25 * std::floor(hTotal / hPeriodEst / 0.25);
    return formulaMode("CVT", clockMHz * 1000.0, hPixels, hBlank, hSync, height, kMinVPorch, vSync, vsyncBp);
}

} // namespace edidvm::edid::detail
