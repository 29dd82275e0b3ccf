// SPDX-License-Identifier: MIT
// A scenario's steps: the table of what a step may do, the message it
// delivers and the keys it takes, and the reading of each.

#include "protomodel/messageids.h"
#include "sim/reader_p.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace msg = LCD::MessageId;

namespace edidvm {
namespace sim {

using namespace LCD::ProtoModel::Interface;

namespace {
const Keys StepKeys = {"do", "note", "expect", "warnings"};

struct StepKind
{
    const char* name;
    Action action;
    std::uint32_t number;
    Keys keys;
};

const std::vector<StepKind> StepKinds = {
    {"current", Action::Current, msg::SetCurrentInterface, {"interface"}},
    {"refresh", Action::Refresh, msg::RefreshTiming, {}},
    {"askSelected", Action::AskSelected, msg::SelectedInterfaceTiming, {}},
    {"thumbCheck", Action::ThumbCheck, msg::ThumbCheckRequest, {"checks"}},
    {"detailCheck", Action::DetailCheck, msg::DetailCheckRequest, {"checks"}},
    {"chooseThumb", Action::ChooseThumb, msg::ThumbChoice, {"timing", "edid"}},
    {"chooseReference", Action::ChooseReference, msg::ReferenceChoice, {"timing", "edid"}},
    {"publishReference", Action::PublishReference, msg::PublishReference, {}},
    {"answer", Action::Answer, msg::BoxAnswer, {"accept", "box"}},
    {"changedThumb", Action::ChangedThumb, msg::ChangedThumbTimings, {"timings"}},
    {"changedReference", Action::ChangedReference, msg::ChangedReferenceTimings, {"timings"}},
    {"sdi", Action::Sdi, msg::SdiInterface, {"interface"}},
    {"inUse", Action::InUse, msg::InUseAsked, {"trigger"}},
    {"interfaceType", Action::InterfaceType, msg::InterfaceType, {}},
    {"pump", Action::Pump, 0, {}},
    {"device", Action::ChangeDevice, 0, deviceKeys()},
};
} // namespace

Step Reader::step(const JsonNode& node, Device& device)
{
    if (!node.value().is_object())
        node.expected("a step object");
    const JsonNode what = node.need("do", "what the step does");
    const std::string name = what.text();
    const auto kind = std::find_if(StepKinds.begin(), StepKinds.end(),
                                   [&name](const StepKind& candidate) { return name == candidate.name; });
    if (kind == StepKinds.end()) {
        Keys names;
        for (const StepKind& candidate : StepKinds)
            names.push_back(candidate.name);
        what.fail("unknown step \"" + name + "\"" + didYouMean(name, names) + "; expected one of " + joined(names));
    }
    Keys allowed = StepKeys;
    allowed.insert(allowed.end(), kind->keys.begin(), kind->keys.end());
    node.keys(allowed);

    Step step;
    step.action = kind->action;
    step.name = name;
    step.number = kind->number;
    if (node.has("note"))
        tryReading([&] { step.note = node.at("note").text(); });

    tryReading([&] { readAction(node, device, step); });
    if (node.has("expect")) {
        step.expect.emplace();
        for (const JsonNode& item : node.at("expect").items("a list of expected messages"))
            tryReading([&] { step.expect->push_back(expectation(item)); });
    }
    if (node.has("warnings")) {
        step.warnings.emplace();
        for (const JsonNode& item : node.at("warnings").items("a list of warning texts"))
            tryReading([&] { step.warnings->push_back(item.text()); });
    }
    return step;
}

void Reader::readAction(const JsonNode& node, Device& device, Step& step)
{
    switch (step.action) {
    case Action::Current:
    case Action::Sdi:
        step.interfaceId = interfaceRef(node.need("interface", "an interface id"));
        break;
    case Action::ThumbCheck:
    case Action::DetailCheck:
        for (const JsonNode& item : node.need("checks", "a list of checks").items("a list of checks"))
            tryReading([&] {
                item.keys({"timing", "tag"});
                std::int32_t tag = 0;
                tryReading([&] { item.read("tag", tag); });
                const JsonNode timing = item.need("timing", "a timing");
                if (step.action == Action::ThumbCheck)
                    step.thumbChecks.push_back({0, tag, readTiming(timing, ThumbWords, true), 0, 0});
                else
                    step.detailChecks.push_back({0, tag, readTiming(timing, DetailWords, true), 0, 0});
            });
        break;
    case Action::ChooseThumb:
    case Action::ChooseReference: {
        if (node.has("timing") == node.has("edid"))
            node.fail("expected either \"timing\" or \"edid\"");
        const bool thumb = step.action == Action::ChooseThumb;
        if (node.has("edid") && thumb)
            copyResolution(edidChoice(node.at("edid"), device), step.thumbChoice.stThumbTiming);
        else if (node.has("edid"))
            copyResolution(edidChoice(node.at("edid"), device), step.referenceChoice.stTimingDetail);
        else if (thumb)
            step.thumbChoice.stThumbTiming = readTiming(node.at("timing"), ThumbWords);
        else
            step.referenceChoice.stTimingDetail = readTiming(node.at("timing"), DetailWords);
        break;
    }
    case Action::Answer:
        tryReading([&] { step.accept = node.need("accept", "true or false (or 1 or 0)").boolean(); });
        if (node.has("box"))
            step.box = node.at("box").int32();
        break;
    case Action::ChangedThumb:
    case Action::ChangedReference:
        for (const JsonNode& item : node.need("timings", "a list of timings").items("a list of timings"))
            tryReading([&] {
                item.keys({"interface", "timing", "tailParam0"});
                std::int32_t id = 0;
                tryReading([&] { id = interfaceRef(item.need("interface", "an interface id")); });
                std::uint32_t tail = 0;
                tryReading([&] { item.read("tailParam0", tail, 0, Word32Max); });
                const JsonNode timing = item.need("timing", "a timing");
                if (step.action == Action::ChangedThumb)
                    step.thumbTimings.push_back({id, readTiming(timing, ThumbWords), tail, 0});
                else
                    step.referenceTimings.push_back({id, readTiming(timing, DetailWords), tail, 0});
            });
        break;
    case Action::InUse:
        if (node.has("trigger")) {
            const Expectation trigger = expectation(node.at("trigger"));
            if (trigger.number != msg::InUseAsked && trigger.number != msg::InUseAsked2 &&
                trigger.number != msg::InUseAsked3)
                node.at("trigger").fail("expected InUseAsked, InUseAsked2 or InUseAsked3");
            step.number = trigger.number;
        }
        break;
    case Action::ChangeDevice: {
        auto changed = std::make_shared<Device>(device);
        this->device(node, *changed, true);
        device = *changed;
        step.device = changed;
        break;
    }
    default:
        break;
    }
}

} // namespace sim
} // namespace edidvm
