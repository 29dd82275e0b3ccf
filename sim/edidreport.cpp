// SPDX-License-Identifier: MIT
#include "sim/edidreport.h"

#include <nlohmann/json.hpp>

#include <cstdarg>
#include <cstdio>
#include <string>

namespace edidvm {
namespace sim {

namespace {

using edid::Kind;
using edid::Mode;
using edid::Sync;

const char* kindName(Kind kind)
{
    switch (kind) {
    case Kind::Established:
        return "established";
    case Kind::Standard:
        return "standard";
    case Kind::Detailed:
        return "detailed";
    case Kind::Cvt:
        return "cvt";
    case Kind::Vic:
        return "vic";
    case Kind::HdmiVic:
        return "hdmiVic";
    case Kind::DisplayId:
        return "displayId";
    }
    return "";
}

const char* syncName(Sync sync)
{
    switch (sync) {
    case Sync::Separate:
        return "separate";
    case Sync::DigitalComposite:
        return "digital composite";
    case Sync::AnalogComposite:
        return "analog composite";
    case Sync::BipolarAnalogComposite:
        return "bipolar analog composite";
    }
    return "";
}

nlohmann::json axis(int active, int front, int sync, int back, int border, bool positive)
{
    return {{"active", active}, {"front", front},   {"sync", sync},
            {"back", back},     {"border", border}, {"positive", positive}};
}

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...)
{
    char text[512];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(text, sizeof text, pattern, args);
    va_end(args);
    return text;
}

} // namespace

std::string edidJsonLine(const std::string& file, const edid::Edid& edid)
{
    nlohmann::json modes = nlohmann::json::array();
    nlohmann::json preferred = nullptr;
    for (const Mode& m : edid.modes) {
        if (m.preferred && preferred.is_null())
            preferred = m.index;
        modes.push_back({{"index", m.index},
                         {"block", m.block},
                         {"kind", kindName(m.kind)},
                         {"source", m.source},
                         {"mode", edid::describe(m)},
                         {"width", m.width},
                         {"height", m.height},
                         {"interlaced", m.interlaced},
                         {"refreshHz", m.refreshHz},
                         {"pixelClockKHz", m.pixelClockKHz},
                         {"preferred", m.preferred},
                         {"reducedBlanking", m.reducedBlanking},
                         {"sync", syncName(m.sync)},
                         {"h", axis(m.hActive, m.hFrontPorch, m.hSync, m.hBackPorch, m.hBorder, m.hSyncPositive)},
                         {"v", axis(m.vActive, m.vFrontPorch, m.vSync, m.vBackPorch, m.vBorder, m.vSyncPositive)}});
    }
    nlohmann::json range = nullptr;
    if (edid.range) {
        range = {{"minVHz", edid.range->minVHz},
                 {"maxVHz", edid.range->maxVHz},
                 {"minHKHz", edid.range->minHKHz},
                 {"maxHKHz", edid.range->maxHKHz},
                 {"maxPixelClockMHz", edid.range->maxPixelClockMHz},
                 {"formula", edid.range->formula},
                 {"secondaryCurve", nullptr}};
        if (const auto& curve = edid.range->secondaryCurve) {
            range["secondaryCurve"] = {
                {"startKHz", curve->startKHz}, {"c", curve->c}, {"m", curve->m}, {"k", curve->k}, {"j", curve->j}};
        }
    }
    const nlohmann::json object = {{"file", file},
                                   {"version", std::to_string(edid.version) + "." + std::to_string(edid.revision)},
                                   {"blocks", edid.blocks},
                                   {"name", edid.name},
                                   {"serial", edid.serialText},
                                   {"strings", edid.strings},
                                   {"range", range},
                                   {"preferred", preferred},
                                   {"modes", modes},
                                   {"warnings", edid.warnings},
                                   {"notes", edid.notes}};
    // The decoder's texts are ASCII; a file name may hold any bytes.
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string edidText(const std::string& file, const edid::Edid& edid)
{
    std::string out =
        format("%s: EDID %d.%d, %d block%s, name '%s', serial '%s'\n", file.c_str(), edid.version, edid.revision,
               edid.blocks, edid.blocks == 1 ? "" : "s", edid.name.c_str(), edid.serialText.c_str());
    for (const std::string& text : edid.strings)
        out += "  string '" + text + "'\n";
    if (edid.range) {
        out += format("  range limits (%s): %d-%d Hz V, %d-%d kHz H, max pixel clock %d MHz\n",
                      edid.range->formula.c_str(), edid.range->minVHz, edid.range->maxVHz, edid.range->minHKHz,
                      edid.range->maxHKHz, edid.range->maxPixelClockMHz);
        if (const auto& curve = edid.range->secondaryCurve) {
            out += format("  secondary GTF curve from %d kHz: C %.1f%%, M %d%%/kHz, K %d, J %.1f%%\n", curve->startKHz,
                          curve->c, curve->m, curve->k, curve->j);
        }
    }
    for (const Mode& m : edid.modes) {
        if (m.preferred) {
            out += "  preferred: " + edid::describe(m) + " (" + m.source + ")\n";
            break;
        }
    }
    for (const std::string& warning : edid.warnings)
        out += "  warning: " + warning + "\n";
    for (const std::string& note : edid.notes)
        out += "  note: " + note + "\n";
    out += format("  %3s %5s  %-18s %-18s %12s  %-16s %-16s %s\n", "#", "block", "source", "mode", "pixel clock",
                  "h front/sync/back", "v front/sync/back", "sync");
    for (const Mode& m : edid.modes) {
        const std::string h =
            std::to_string(m.hFrontPorch) + "/" + std::to_string(m.hSync) + "/" + std::to_string(m.hBackPorch);
        const std::string v =
            std::to_string(m.vFrontPorch) + "/" + std::to_string(m.vSync) + "/" + std::to_string(m.vBackPorch);
        // Composite sync has no vertical polarity; analog composite none at all.
        const char vertical = m.sync == Sync::Separate ? (m.vSyncPositive ? '+' : '-') : ' ';
        const char horizontal =
            m.sync == Sync::Separate || m.sync == Sync::DigitalComposite ? (m.hSyncPositive ? '+' : '-') : ' ';
        std::string borders;
        if (m.hBorder != 0 || m.vBorder != 0)
            borders = " borders " + std::to_string(m.hBorder) + "/" + std::to_string(m.vBorder);
        out += format("  %3d %5d  %-18s %-18s %8.3f MHz  %-16s %-16s %c%c%s%s%s%s\n", m.index, m.block,
                      m.source.c_str(), edid::describe(m).c_str(), m.pixelClockKHz / 1000.0, h.c_str(), v.c_str(),
                      horizontal, vertical, m.preferred ? " preferred" : "", m.reducedBlanking ? " RB" : "",
                      m.sync == Sync::Separate ? "" : (std::string(" ") + syncName(m.sync)).c_str(), borders.c_str());
    }
    return out;
}

} // namespace sim
} // namespace edidvm
