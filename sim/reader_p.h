// SPDX-License-Identifier: MIT
#pragma once

// The scenario reader's parts, shared by the files that read a scenario's
// device, steps, expectations and host behaviour. Not for use elsewhere.

#include "sim/decode.h"
#include "sim/jsonnode.h"
#include "sim/scenario.h"

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

// The keys of a device's state, in the file and in a "device" step.
const Keys& deviceKeys();

// Width, height and refresh, and the carried words the record has. Only a
// check may carry a zero: the component's refusal of it is what it tests.
template <typename Record>
Record readTiming(const JsonNode& node, const std::vector<Word<Record>>& words, bool zeroAllowed = false)
{
    Keys allowed = {"width", "height", "refresh"};
    for (const auto& word : words)
        allowed.push_back(word.name);
    node.keys(allowed);
    Record timing;
    const std::int64_t least = zeroAllowed ? 0 : 1;
    tryReading([&] {
        timing.width = static_cast<std::int32_t>(node.need("width", "a width in pixels").integer(least, Int32Max));
    });
    tryReading([&] {
        timing.height = static_cast<std::int32_t>(node.need("height", "a height in lines").integer(least, Int32Max));
    });
    tryReading([&] { timing.refresh = node.need("refresh", "a frame rate in Hz").floatNumber(!zeroAllowed); });
    for (const auto& word : words) {
        if (node.has(word.name))
            tryReading(
                [&] { timing.*word.field = static_cast<std::uint32_t>(node.at(word.name).integer(0, Word32Max)); });
    }
    return timing;
}

template <typename Record>
void copyResolution(const EdidTiming& from, Record& to)
{
    to.width = from.width;
    to.height = from.height;
    to.refresh = static_cast<float>(from.refresh);
}

// The mode an interface takes from its EDID file; timings holds at least one
// that the records carry.
const EdidTiming& importedTiming(const std::vector<EdidTiming>& timings);

// Warnings for screens no choice can reach through their own output: it sits
// on an interface whose slot has no subcard, or whose connector that subcard
// does not list, so a choice on that interface never finds a screen.
std::vector<std::string> unreachableScreens(const Device& device);

class Reader
{
public:
    // base: the scenario's folder, which EDID files are named from; notes
    // must outlive the reader.
    Reader(std::filesystem::path base, std::vector<std::string>& notes) : m_base(std::move(base)), m_notes(notes) {}

    void device(const JsonNode& node, Device& device, bool patch);
    Step step(const JsonNode& node, Device& device);
    void hostBehaviour(const JsonNode& node, HostBehaviour& behaviour) const;
    // The device's "unknown": keys of its state, none of them given.
    void unknownKeys(const JsonNode& device, Device& state) const;

private:
    // One of the interfaces the device defines.
    std::int32_t interfaceRef(const JsonNode& node) const;
    void interface(const JsonNode& node, Device& device, LCD::ProtoModel::Interface::s_InterfaceList& entry,
                   bool partial);
    std::vector<EdidTiming> edid(const JsonNode& node);
    Expectation expectation(const JsonNode& node) const;
    void readAction(const JsonNode& node, Device& device, Step& step);
    const EdidTiming& edidChoice(const JsonNode& node, const Device& device) const;
    void raw(const JsonNode& node, Step& step) const;

    std::filesystem::path m_base;
    std::vector<std::string>& m_notes;
    std::set<std::int32_t> m_ids;
    // What of the device's interfaces was not read (an id of the wrong type,
    // or no list): an id unknown to m_ids may be one of those.
    std::vector<std::string> m_unreadIds;
};

} // namespace sim
} // namespace edidvm
