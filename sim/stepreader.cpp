// SPDX-License-Identifier: MIT
// A scenario's steps: the table of what a step may do, the message it
// delivers and the keys it takes, and the reading of each.

#include "protomodel/messageids.h"
#include "sim/reader_p.h"

#include <algorithm>
#include <cstdlib>
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
    {"raw", Action::Raw, 0, {"number", "kind", "bytes"}},
};

// Raw bytes are at most this long: every record of the table fits.
constexpr std::size_t RawBytesMax = 65536;

// Payloads of these lengths carry addresses into the sender's memory, which
// bytes in a file cannot: their steps give the records instead.
struct AddressPayload
{
    std::uint32_t number;
    std::size_t size;
    const char* step;
};
const AddressPayload AddressPayloads[] = {
    {msg::SetCurrentInterface, 840, "current"},
    {msg::ThumbCheckRequest, 8, "thumbCheck"},
    {msg::DetailCheckRequest, 8, "detailCheck"},
    {msg::ChangedThumbTimings, 24, "changedThumb"},
    {msg::ChangedReferenceTimings, 24, "changedReference"},
};

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}
} // namespace

void Reader::raw(const JsonNode& node, Step& step) const
{
    tryReading([&] {
        const JsonNode number = node.need("number", "a message number, \"0xFC00060C\", or a name of the table");
        const std::string text = number.text();
        const MessageInfo* info = findMessage(text);
        char* end = nullptr;
        const unsigned long value = std::strtoul(text.c_str() + std::min<std::size_t>(2, text.size()), &end, 16);
        if (info != nullptr)
            step.number = info->number;
        else if ((text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) && text.size() > 2 && text.size() <= 10 &&
                 end != nullptr && *end == '\0' && value != 0)
            step.number = static_cast<std::uint32_t>(value);
        else
            number.fail("expected a message number, \"0xFC00060C\", or a name of the table, got \"" + text + "\"");
    });
    if (node.has("kind"))
        tryReading([&] {
            const std::string kind = node.at("kind").text();
            if (kind != "event" && kind != "command")
                node.at("kind").fail("expected \"event\" or \"command\"" + didYouMean(kind, {"event", "command"}));
            step.rawCommand = kind == "command";
        });
    tryReading([&] {
        const JsonNode bytes = node.need("bytes", "the payload in hex");
        const std::string text = bytes.text();
        if (text.size() % 2 != 0 || text.size() / 2 > RawBytesMax)
            bytes.fail("expected an even number of hex digits, at most " + std::to_string(RawBytesMax) + " bytes");
        for (std::size_t i = 0; i < text.size(); i += 2) {
            const int high = hexDigit(text[i]), low = hexDigit(text[i + 1]);
            if (high < 0 || low < 0)
                bytes.fail("expected hex digits, got \"" + text.substr(i, 2) + "\" at byte " + std::to_string(i / 2));
            step.bytes.push_back(static_cast<unsigned char>(high * 16 + low));
        }
    });
    for (const AddressPayload& payload : AddressPayloads) {
        if (step.number == payload.number && step.bytes.size() == payload.size && !step.rawCommand)
            node.at("bytes").fail("a payload of " + std::to_string(payload.size) + " bytes of " +
                                  hexNumber(payload.number) + " carries addresses, which bytes cannot; use a \"" +
                                  payload.step + "\" step");
    }
}

void Reader::unknownKeys(const JsonNode& device, Device& state) const
{
    Keys known = deviceKeys();
    known.erase(std::find(known.begin(), known.end(), "interfaces"));
    for (const JsonNode& item : device.at("unknown").items("a list of the device's keys"))
        tryReading([&] {
            const std::string key = item.text();
            if (std::find(known.begin(), known.end(), key) == known.end())
                item.fail("unknown key of the device \"" + key + "\"" + didYouMean(key, known) + "; expected one of " +
                          joined(known));
            if (device.has(key.c_str()))
                item.fail("\"" + key + "\" is given, so it is not unknown");
            if (std::find(state.unknown.begin(), state.unknown.end(), key) != state.unknown.end())
                item.fail("\"" + key + "\" is named twice");
            state.unknown.push_back(key);
        });
}

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
    case Action::Raw:
        raw(node, step);
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
