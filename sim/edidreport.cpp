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

const char* kindName(Kind kind)
{
    switch (kind) {
    case Kind::Established:
        return "established";
    case Kind::Standard:
        return "standard";
    case Kind::Detailed:
        return "detailed";
    case Kind::Vic:
        return "vic";
    case Kind::HdmiVic:
        return "hdmiVic";
    case Kind::DisplayId:
        return "displayId";
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
                 {"formula", edid.range->formula}};
    }
    const nlohmann::json object = {{"file", file},
                                   {"version", std::to_string(edid.version) + "." + std::to_string(edid.revision)},
                                   {"blocks", edid.blocks},
                                   {"name", edid.name},
                                   {"serial", edid.serialText},
                                   {"range", range},
                                   {"preferred", preferred},
                                   {"modes", modes},
                                   {"warnings", edid.warnings},
                                   {"notes", edid.notes}};
    // A name or a serial text holds whatever bytes the EDID has, a file name
    // whatever the file system allows: shown replaced, never thrown on.
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string edidText(const std::string& file, const edid::Edid& edid)
{
    std::string out =
        format("%s: EDID %d.%d, %d block%s, name '%s', serial '%s'\n", file.c_str(), edid.version, edid.revision,
               edid.blocks, edid.blocks == 1 ? "" : "s", edid.name.c_str(), edid.serialText.c_str());
    if (edid.range) {
        out += format("  range limits (%s): %d-%d Hz V, %d-%d kHz H, max pixel clock %d MHz\n",
                      edid.range->formula.c_str(), edid.range->minVHz, edid.range->maxVHz, edid.range->minHKHz,
                      edid.range->maxHKHz, edid.range->maxPixelClockMHz);
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
        out += format("  %3d %5d  %-18s %-18s %8.3f MHz  %-16s %-16s %c%c%s%s\n", m.index, m.block, m.source.c_str(),
                      edid::describe(m).c_str(), m.pixelClockKHz / 1000.0, h.c_str(), v.c_str(),
                      m.hSyncPositive ? '+' : '-', m.vSyncPositive ? '+' : '-', m.preferred ? " preferred" : "",
                      m.reducedBlanking ? " RB" : "");
    }
    return out;
}

} // namespace sim
} // namespace edidvm
