// SPDX-License-Identifier: MIT
// Which of an EDID file's modes an interface takes, and which a step may
// choose: the records carry only some of them.

#include "sim/reader_p.h"

#include "edid/edid.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

namespace {
// Why the records cannot carry a mode; empty when they can. They hold a
// progressive frame rate in a float and a size in 32 bits.
std::string unimportable(const edid::Mode& mode)
{
    if (mode.interlaced)
        return "interlaced, and the records carry progressive frame rates only";
    if (mode.width <= 0 || mode.height <= 0)
        return "no active area";
    if (!(mode.refreshHz > 0.0 && mode.refreshHz <= std::numeric_limits<float>::max()))
        return "its refresh does not fit the records' float";
    return {};
}
} // namespace

// The preferred mode if the records carry it, else the first detailed
// timing they carry, else the first mode they carry.
const EdidTiming& importedTiming(const std::vector<EdidTiming>& timings)
{
    const auto first = [&](auto wanted) {
        return std::find_if(timings.begin(), timings.end(),
                            [&](const EdidTiming& timing) { return timing.refused.empty() && wanted(timing); });
    };
    auto chosen = first([](const EdidTiming& timing) { return timing.preferred; });
    if (chosen == timings.end())
        chosen = first([](const EdidTiming& timing) { return timing.text.find("DTD ") != std::string::npos; });
    if (chosen == timings.end())
        chosen = first([](const EdidTiming&) { return true; });
    return *chosen;
}

// Every mode is kept, so that the indexes are those of the listing; the ones
// the records cannot carry are marked and named in a note. Read as
// `edidsim decode` reads it: damage is a warning and the intact modes come,
// unless the scenario asks for strict reading ({"file", "strict": true}).
std::vector<EdidTiming> Reader::edid(const JsonNode& node)
{
    bool strict = false;
    std::string written;
    if (node.value().is_object()) {
        node.keys({"file", "strict"});
        written = node.need("file", "an EDID file").text();
        if (node.has("strict"))
            strict = node.at("strict").boolean();
    } else if (node.value().is_string()) {
        written = node.text();
    } else {
        node.expected("an EDID file, or {\"file\", \"strict\"}");
    }
    std::vector<EdidTiming> timings;
    try {
        const edid::Edid decoded = edid::loadEdidFile((m_base / written).lexically_normal().string(),
                                                      strict ? edid::Checks::Strict : edid::Checks::Lenient);
        for (const std::string& warning : decoded.warnings)
            m_notes.push_back(written + ": warning: " + warning);
        for (const std::string& note : decoded.notes)
            m_notes.push_back(written + ": " + note);
        for (const edid::Mode& mode : decoded.modes)
            timings.push_back({mode.width, mode.height, mode.refreshHz, mode.preferred,
                               edid::describe(mode) + " (" + mode.source + (mode.preferred ? ", preferred)" : ")"),
                               unimportable(mode)});
    } catch (const std::exception& error) {
        node.fail(error.what());
    }
    if (std::all_of(timings.begin(), timings.end(), [](const EdidTiming& timing) { return !timing.refused.empty(); }))
        node.fail(written + " holds no mode the records can carry (" + std::to_string(timings.size()) + " modes)");
    // Listed with their indexes, which is how a step chooses one.
    std::string list;
    for (std::size_t i = 0; i < timings.size(); ++i)
        list += (i == 0 ? " " : ", ") + std::to_string(i) + " " + timings[i].text;
    m_notes.push_back(written + ": modes" + list);
    for (std::size_t i = 0; i < timings.size(); ++i) {
        if (!timings[i].refused.empty())
            m_notes.push_back(written + ": mode " + std::to_string(i) + " " + timings[i].text +
                              " not imported: " + timings[i].refused);
    }
    m_notes.push_back(written + ": imported " + importedTiming(timings).text);
    return timings;
}

const EdidTiming& Reader::edidChoice(const JsonNode& node, const Device& device) const
{
    node.keys({"interface", "index"});
    const std::int32_t id = interfaceRef(node.need("interface", "an interface id"));
    const auto found = device.edid.find(id);
    if (found == device.edid.end())
        node.at("interface").fail("interface " + std::to_string(id) + " has no EDID file");
    const JsonNode index = node.need("index", "the index of a mode in the EDID's listing");
    const EdidTiming& chosen =
        found->second.at(static_cast<std::size_t>(index.integer(0, std::int64_t(found->second.size()) - 1)));
    if (!chosen.refused.empty())
        index.fail("mode " + std::to_string(index.integer()) + " " + chosen.text +
                   " cannot be chosen: " + chosen.refused);
    return chosen;
}

} // namespace sim
} // namespace edidvm
