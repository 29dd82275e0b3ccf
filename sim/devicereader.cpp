// SPDX-License-Identifier: MIT
// The device's state: its interfaces, screens and subcards and what it
// answers, in full at the top of a scenario or as a "device" step's changes.

#include "sim/reader_p.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace edidvm {
namespace sim {

using namespace LCD::ProtoModel::Interface;

namespace {
void interfaceWords(const JsonNode& words, s_InterfaceList& entry)
{
    words.keys({"ifWord92", "ifWord158", "checkParam0", "checkParam1"});
    tryReading([&] { words.read("ifWord92", entry.ifWord92, 0, Word32Max); });
    tryReading([&] { words.read("ifWord158", entry.ifWord158, 0, Word32Max); });
    tryReading([&] { words.read("checkParam0", entry.checkParam0); });
    tryReading([&] { words.read("checkParam1", entry.checkParam1); });
}
} // namespace

const Keys& deviceKeys()
{
    static const Keys keys = {"interfaces", "screens",     "subcards",          "selectedInterface", "deviceParam",
                              "verdicts",   "assessments", "thumbCommitAnswer", "writesApply"};
    return keys;
}

std::vector<std::string> unreachableScreens(const Device& device)
{
    std::vector<std::string> warnings;
    for (const Screen& screen : device.screens) {
        for (const auto& output : screen.info.stOutputDetailArry) {
            const auto entry =
                std::find_if(device.interfaces.begin(), device.interfaces.end(),
                             [&](const s_InterfaceList& known) { return known.interfaceId == output.interfaceId; });
            if (entry == device.interfaces.end())
                continue;
            const std::string start = "screen " + std::to_string(screen.info.screenId) + " is fed by interface " +
                                      std::to_string(entry->interfaceId) + ", ";
            const std::string end = ": a choice on interface " + std::to_string(entry->interfaceId) +
                                    " affects no screen and is committed at once";
            const auto subcard = std::find_if(device.subcards.begin(), device.subcards.end(),
                                              [&](const Subcard& known) { return known.info.slotId == entry->slotId; });
            if (subcard == device.subcards.end()) {
                warnings.push_back(start + "whose slot " + std::to_string(entry->slotId) +
                                   " has no \"subcards\" entry" + end);
                continue;
            }
            const auto& connectors = subcard->info.stConnectorArry;
            if (std::none_of(connectors.begin(), connectors.end(),
                             [&](const auto& connector) { return connector.connectorId == entry->connectorId; }))
                warnings.push_back(start + "whose connector " + std::to_string(entry->connectorId) +
                                   " the \"subcards\" entry of slot " + std::to_string(entry->slotId) +
                                   " does not list" + end);
        }
    }
    return warnings;
}

std::int32_t Reader::interfaceRef(const JsonNode& node) const
{
    const std::int32_t id = node.int32();
    if (m_ids.count(id) == 0) {
        std::string ids;
        for (std::int32_t known : m_ids)
            ids += (ids.empty() ? "" : ", ") + std::to_string(known);
        // Naming only the ids read would mislead where an interface's id was not read.
        node.fail("unknown interface " + std::to_string(id) + "; expected one of the device's interfaces (" + ids +
                  ")" + (m_unreadIds.empty() ? "" : ", or one not read at " + joined(m_unreadIds)));
    }
    return id;
}

void Reader::interface(const JsonNode& node, Device& device, s_InterfaceList& entry, bool partial)
{
    node.keys({"id", "slot", "connector", "type", "status", "usedByScreen", "thumb", "detail", "edid", "words"});
    tryReading([&] { node.read("slot", entry.slotId); });
    tryReading([&] { node.read("connector", entry.connectorId); });
    tryReading([&] { node.read("type", entry.stAuxiliaryInfo.interfaceType); });
    tryReading([&] { node.read("status", entry.stAuxiliaryInfo.interfaceStatus); });
    if (node.has("usedByScreen"))
        tryReading([&] { entry.stAuxiliaryInfo.usedByScreen = node.at("usedByScreen").text(); });
    if (node.has("words"))
        tryReading([&] { interfaceWords(node.at("words"), entry); });

    if (node.has("edid")) {
        if (node.has("thumb") || node.has("detail"))
            node.at("edid").fail("expected either an EDID file or thumb and detail timings, not both");
        std::vector<EdidTiming> timings = edid(node.at("edid"));
        const EdidTiming& chosen = importedTiming(timings);
        copyResolution(chosen, entry.stThumbTiming);
        copyResolution(chosen, entry.stTimingDetail);
        device.edid[entry.interfaceId] = std::move(timings);
    } else if (!partial || node.has("thumb") || node.has("detail")) {
        if (!partial)
            node.need("thumb", "a thumb timing or an EDID file");
        if (node.has("thumb"))
            entry.stThumbTiming = readTiming(node.at("thumb"), ThumbWords);
        if (node.has("detail")) {
            entry.stTimingDetail = readTiming(node.at("detail"), DetailWords);
        } else if (!partial) {
            entry.stTimingDetail.width = entry.stThumbTiming.width;
            entry.stTimingDetail.height = entry.stThumbTiming.height;
            entry.stTimingDetail.refresh = entry.stThumbTiming.refresh;
        }
        device.edid.erase(entry.interfaceId);
    }
}

void Reader::device(const JsonNode& node, Device& device, bool patch)
{
    if (!patch) {
        m_unreadIds = {node.path() + "/interfaces"};
        tryReading([&] {
            const std::vector<JsonNode> items =
                node.need("interfaces", "a list of interfaces").items("a list of interfaces");
            m_unreadIds.clear();
            for (const JsonNode& item : items) {
                tryReading([&] {
                    s_InterfaceList entry;
                    entry.stAuxiliaryInfo.usedByScreen.clear(); // not used by a screen unless the scenario says so
                    bool known = false;
                    // A bad id hides none of the interface's other problems.
                    tryReading([&] {
                        const JsonNode id = item.need("id", "an interface id");
                        entry.interfaceId = id.int32();
                        known = true;
                        if (!m_ids.insert(entry.interfaceId).second)
                            id.fail("interface " + std::to_string(entry.interfaceId) + " is defined twice");
                    });
                    if (!known)
                        m_unreadIds.push_back(item.path() + "/id");
                    interface(item, device, entry, false);
                    device.interfaces.push_back(entry);
                });
            }
        });
    } else if (node.has("interfaces")) {
        tryReading([&] {
            for (const JsonNode& item : node.at("interfaces").items("a list of interface changes")) {
                tryReading([&] {
                    std::optional<std::int32_t> id;
                    tryReading([&] { id = interfaceRef(item.need("id", "an interface id")); });
                    // Without a known id the changes are still checked, on a scratch entry.
                    Device scratch;
                    s_InterfaceList unknown;
                    for (s_InterfaceList& entry : device.interfaces) {
                        if (id && entry.interfaceId == *id)
                            interface(item, device, entry, true);
                    }
                    if (!id)
                        interface(item, scratch, unknown, true);
                });
            }
        });
    }

    // Each field on its own: one bad value hides none of the entry's others.
    if (node.has("screens")) {
        device.screens.clear();
        for (const JsonNode& item : node.at("screens").items("a list of screens"))
            tryReading([&] {
                item.keys({"id", "index", "type", "outputs"});
                Screen screen;
                screen.info.screenIndex = static_cast<std::uint32_t>(device.screens.size());
                tryReading([&] {
                    screen.info.screenId =
                        static_cast<std::uint32_t>(item.need("id", "a screen id").integer(0, Word32Max));
                });
                tryReading([&] { item.read("index", screen.info.screenIndex, 0, Word32Max); });
                tryReading([&] { item.read("type", screen.type); });
                tryReading([&] {
                    for (const JsonNode& output :
                         item.need("outputs", "a list of interface ids").items("a list of interface ids"))
                        tryReading(
                            [&] { screen.info.stOutputDetailArry.emplace_back().interfaceId = interfaceRef(output); });
                });
                device.screens.push_back(screen);
            });
    }
    if (node.has("subcards")) {
        device.subcards.clear();
        for (const JsonNode& item : node.at("subcards").items("a list of subcards"))
            tryReading([&] {
                item.keys({"slot", "subcard", "connectors"});
                Subcard subcard;
                tryReading([&] { subcard.info.slotId = item.need("slot", "a slot id").int32(); });
                subcard.value = subcard.info.slotId;
                tryReading([&] { item.read("subcard", subcard.value); });
                tryReading([&] {
                    for (const JsonNode& connector :
                         item.need("connectors", "a list of connectors").items("a list of connectors"))
                        tryReading([&] {
                            connector.keys({"connector", "key", "tied"});
                            LCD::ProtoModel::Subcard::s_SubcardConnector record;
                            tryReading([&] {
                                record.connectorId = connector.need("connector", "a connector number").int32();
                            });
                            tryReading(
                                [&] { record.connectorKey = connector.need("key", "the connector's key").int32(); });
                            if (connector.has("tied"))
                                tryReading([&] {
                                    subcard.tied[record.connectorKey] =
                                        connector.at("tied").integers("a list of connector numbers");
                                });
                            subcard.info.stConnectorArry.push_back(record);
                        });
                });
                device.subcards.push_back(subcard);
            });
    }
    tryReading([&] { node.readNullable("selectedInterface", device.selectedInterface, Int32Min, Int32Max); });
    tryReading([&] { node.readNullable("deviceParam", device.deviceParam, Int32Min, Int32Max); });
    tryReading([&] { node.readNullable("thumbCommitAnswer", device.thumbCommitAnswer, 0, 255); });
    tryReading([&] {
        if (node.has("writesApply"))
            device.writesApply = node.at("writesApply").boolean();
    });
    if (node.has("verdicts")) {
        device.verdicts.clear();
        for (const JsonNode& item : node.at("verdicts").items("a list of verdicts"))
            tryReading([&] {
                item.keys(
                    {"interface", "bandwidthLimit", "bandwidthNeeded", "overBandwidth", "maxFrameRate", "frameRates"});
                s_TimigCheckResult verdict;
                tryReading([&] { verdict.interfaceId = interfaceRef(item.need("interface", "an interface id")); });
                tryReading([&] { item.read("bandwidthLimit", verdict.bandwidthLimit, 0); });
                tryReading([&] { item.read("bandwidthNeeded", verdict.bandwidthNeeded, 0); });
                if (item.has("overBandwidth"))
                    tryReading([&] { verdict.overBandwidth = item.at("overBandwidth").boolean() ? 1 : 0; });
                tryReading([&] { item.read("maxFrameRate", verdict.maxFrameRate, 0); });
                if (item.has("frameRates"))
                    tryReading([&] {
                        verdict.frameRates =
                            item.at("frameRates").integers("a list of frame rates in hundredths of a Hz", 0);
                    });
                device.verdicts.push_back(verdict);
            });
    }
    if (node.has("assessments")) {
        device.assessments.clear();
        for (const JsonNode& item : node.at("assessments").items("a list of assessment answers"))
            tryReading([&] {
                item.keys({"answer", "codes"});
                Assessment assessment;
                tryReading([&] { item.readNullable("answer", assessment.answer, 0, 255); });
                if (item.has("codes"))
                    tryReading([&] {
                        for (std::int32_t code : item.at("codes").integers("a list of assessment codes"))
                            assessment.results.push_back({0, code});
                    });
                device.assessments.push_back(assessment);
            });
    }
}

} // namespace sim
} // namespace edidvm
