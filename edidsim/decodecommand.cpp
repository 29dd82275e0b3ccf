// SPDX-License-Identifier: MIT
#include "edidsim/commands.h"

#include "edid/edid.h"
#include "sim/exitstatus.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace edidvm::edidsim {

namespace {

using edidvm::edid::Kind;
using edidvm::edid::Mode;

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

nlohmann::json toJson(const std::string& file, const edid::Edid& edid)
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
    return {{"file", file},
            {"version", std::to_string(edid.version) + "." + std::to_string(edid.revision)},
            {"blocks", edid.blocks},
            {"name", edid.name},
            {"serial", edid.serialText},
            {"range", range},
            {"preferred", preferred},
            {"modes", modes},
            {"warnings", edid.warnings},
            {"notes", edid.notes}};
}

void printHuman(const std::string& file, const edid::Edid& edid)
{
    std::printf("%s: EDID %d.%d, %d block%s, name '%s', serial '%s'\n", file.c_str(), edid.version, edid.revision,
                edid.blocks, edid.blocks == 1 ? "" : "s", edid.name.c_str(), edid.serialText.c_str());
    if (edid.range) {
        std::printf("  range limits (%s): %d-%d Hz V, %d-%d kHz H, max pixel clock %d MHz\n",
                    edid.range->formula.c_str(), edid.range->minVHz, edid.range->maxVHz, edid.range->minHKHz,
                    edid.range->maxHKHz, edid.range->maxPixelClockMHz);
    }
    for (const Mode& m : edid.modes) {
        if (m.preferred) {
            std::printf("  preferred: %s (%s)\n", edid::describe(m).c_str(), m.source.c_str());
            break;
        }
    }
    for (const std::string& warning : edid.warnings)
        std::printf("  warning: %s\n", warning.c_str());
    for (const std::string& note : edid.notes)
        std::printf("  note: %s\n", note.c_str());
    std::printf("  %3s %5s  %-18s %-18s %12s  %-16s %-16s %s\n", "#", "block", "source", "mode", "pixel clock",
                "h front/sync/back", "v front/sync/back", "sync");
    for (const Mode& m : edid.modes) {
        const std::string h =
            std::to_string(m.hFrontPorch) + "/" + std::to_string(m.hSync) + "/" + std::to_string(m.hBackPorch);
        const std::string v =
            std::to_string(m.vFrontPorch) + "/" + std::to_string(m.vSync) + "/" + std::to_string(m.vBackPorch);
        std::printf("  %3d %5d  %-18s %-18s %8.3f MHz  %-16s %-16s %c%c%s%s\n", m.index, m.block, m.source.c_str(),
                    edid::describe(m).c_str(), m.pixelClockKHz / 1000.0, h.c_str(), v.c_str(),
                    m.hSyncPositive ? '+' : '-', m.vSyncPositive ? '+' : '-', m.preferred ? " preferred" : "",
                    m.reducedBlanking ? " RB" : "");
    }
}

} // namespace

int decodeCommand(int argc, char** argv)
{
    CLI::App app("Prints every mode the EDID decoder reads from each file (binary, or edid-decode's hex dump).",
                 "edidsim decode");
    std::vector<std::string> files;
    bool json = false;
    bool strict = false;
    app.add_option("file", files, "EDID files: regular files of at most 32 KiB (256 blocks) binary")->required();
    app.add_flag("--json", json, "print one JSON object a file (JSON Lines)");
    app.add_flag("--strict", strict, "refuse a bad checksum or extension count instead of warning");
    app.footer("Exit status: 0 every file decoded, 2 a file refused or a bad command line.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? sim::Passed : sim::BadInput;
    }
    int status = 0;
    for (const std::string& file : files) {
        try {
            const edid::Edid edid = edid::loadEdidFile(file, strict ? edid::Checks::Strict : edid::Checks::Lenient);
            for (const std::string& warning : edid.warnings)
                std::fprintf(stderr, "edidsim: %s: warning: %s\n", file.c_str(), warning.c_str());
            if (json)
                std::printf("%s\n", toJson(file, edid).dump().c_str());
            else
                printHuman(file, edid);
        } catch (const edid::EdidError& error) {
            std::fprintf(stderr, "edidsim: %s\n", error.what());
            status = sim::BadInput;
        }
        std::fflush(stdout);
    }
    return status;
}

} // namespace edidvm::edidsim
