#include "sim/scenario.h"

#include "host/variation.h"
#include "sim/decode.h"

#include "edid/edid.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

namespace edidvm {
namespace sim {

using nlohmann::json;
using namespace LCD::ProtoModel::Interface;
namespace fs = std::filesystem;

namespace {

constexpr std::int64_t Int32Min = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t Int32Max = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t Word32Max = std::numeric_limits<std::uint32_t>::max();

using Keys = std::vector<std::string>;

const Keys DeviceKeys = {"interfaces", "screens",     "subcards",          "selectedInterface", "deviceParam",
                         "verdicts",   "assessments", "thumbCommitAnswer", "writesApply"};
const Keys StepKeys = {"do", "note", "expect", "warnings"};

std::string joined(const Keys& keys)
{
    std::string text;
    for (const std::string& key : keys)
        text += (text.empty() ? "" : ", ") + key;
    return text;
}

// Keys and names quoted in a problem come from the file: their control
// characters are written as JSON writes them, so each problem stays a line.
std::string oneLine(const std::string& text)
{
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20) {
            line += c;
        } else if (c == '\n' || c == '\r' || c == '\t') {
            line += c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            line += escaped;
        }
    }
    return line;
}

// Thrown after a problem is recorded: reading goes on at the next part that
// does not depend on the one abandoned. Never leaves loadScenario.
struct Abandoned
{
};

// Runs read; a part it abandons has already been recorded.
template <typename Read>
void tryReading(Read read)
{
    try {
        read();
    } catch (const Abandoned&) {
    }
}

// A JSON value and where it sits, as a JSON pointer; its problems are
// recorded with the file's others, so one run reports them all.
class Node
{
public:
    Node(const json& value, std::string path, std::vector<std::string>& problems)
        : m_value(value), m_path(std::move(path)), m_problems(problems)
    {}

    const json& value() const { return m_value; }
    const std::string& path() const { return m_path; }

    void report(const std::string& text) const
    {
        m_problems.push_back(oneLine((m_path.empty() ? "/" : m_path) + ": " + text));
    }
    [[noreturn]] void fail(const std::string& text) const
    {
        report(text);
        throw Abandoned();
    }
    [[noreturn]] void expected(const std::string& what) const { fail("expected " + what + ", got " + shown()); }

    // An object with no other keys than these; each other key is reported.
    void keys(const Keys& allowed, const std::string& whose = "") const
    {
        if (!m_value.is_object())
            expected("an object");
        for (const auto& item : m_value.items()) {
            if (std::find(allowed.begin(), allowed.end(), item.key()) == allowed.end())
                child(item.key())
                    .report("unknown key" + whose + "; expected " +
                            (allowed.empty() ? std::string("none") : "one of " + joined(allowed)));
        }
    }
    bool has(const char* key) const { return m_value.contains(key); }
    Node at(const std::string& key) const { return Node(m_value.at(key), childPath(key), m_problems); }
    Node need(const char* key, const std::string& what) const
    {
        if (!has(key))
            child(key).fail("missing; expected " + what);
        return at(key);
    }
    std::vector<Node> items(const std::string& what) const
    {
        if (!m_value.is_array())
            expected(what);
        std::vector<Node> nodes;
        for (std::size_t i = 0; i < m_value.size(); ++i)
            nodes.emplace_back(m_value[i], m_path + "/" + std::to_string(i), m_problems);
        return nodes;
    }
    std::int64_t integer(std::int64_t min = Int32Min, std::int64_t max = Int32Max) const
    {
        const bool whole = m_value.is_number_integer();
        std::int64_t value = 0;
        if (m_value.is_number_unsigned()) // beyond every range we accept when it does not fit
            value = static_cast<std::int64_t>(std::min<std::uint64_t>(m_value.get<std::uint64_t>(), Word32Max + 1));
        else if (whole)
            value = m_value.get<std::int64_t>();
        if (!whole || value < min || value > max) {
            if (min == 0 && (max == Int32Max || max == Word32Max))
                expected("a non-negative integer");
            if (min == 1 && max == Int32Max)
                expected("a positive integer");
            expected(min == Int32Min && max == Int32Max
                         ? std::string("an integer")
                         : "an integer from " + std::to_string(min) + " to " + std::to_string(max));
        }
        return value;
    }
    std::int32_t int32() const { return static_cast<std::int32_t>(integer()); }
    // The value of key, when present, into target.
    template <typename T>
    void read(const char* key, T& target, std::int64_t min = Int32Min, std::int64_t max = Int32Max) const
    {
        if (has(key))
            target = static_cast<T>(at(key).integer(min, max));
    }
    // The same, where null stands for no value.
    template <typename T>
    void readNullable(const char* key, std::optional<T>& target, std::int64_t min, std::int64_t max) const
    {
        if (has(key))
            target =
                at(key).value().is_null() ? std::nullopt : std::optional<T>(static_cast<T>(at(key).integer(min, max)));
    }
    std::vector<std::int32_t> integers(const std::string& what, std::int64_t min = Int32Min) const
    {
        std::vector<std::int32_t> values;
        for (const Node& item : items(what))
            values.push_back(static_cast<std::int32_t>(item.integer(min, Int32Max)));
        return values;
    }
    // A number a float holds: larger ones would convert undefined.
    float floatNumber(bool positive) const
    {
        const double max = std::numeric_limits<float>::max();
        if (!m_value.is_number() || !(m_value.get<double>() >= 0.0 && m_value.get<double>() <= max) ||
            (positive && m_value.get<double>() == 0.0))
            expected(positive ? "a positive number up to 3.4e38" : "a non-negative number up to 3.4e38");
        return static_cast<float>(m_value.get<double>());
    }
    std::string text() const
    {
        if (!m_value.is_string())
            expected("a string");
        return m_value.get<std::string>();
    }
    bool boolean() const
    {
        if (!m_value.is_boolean())
            expected("true or false");
        return m_value.get<bool>();
    }

private:
    std::string childPath(const std::string& key) const
    {
        std::string escaped;
        for (char c : key)
            escaped += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
        return m_path + "/" + escaped;
    }
    // Where a key is or would be; its value is not read.
    Node child(const std::string& key) const
    {
        static const json absent;
        return Node(absent, childPath(key), m_problems);
    }
    std::string shown() const
    {
        switch (m_value.type()) {
        case json::value_t::string:
            return "a string";
        case json::value_t::array:
            return "an array";
        case json::value_t::object:
            return "an object";
        default:
            return m_value.dump();
        }
    }

    const json& m_value;
    std::string m_path;
    std::vector<std::string>& m_problems;
};

// Width, height and refresh, and the carried words the record has. Only a
// check may carry a zero: the component's refusal of it is what it tests.
template <typename Record>
Record readTiming(const Node& node, const std::vector<Word<Record>>& words, bool zeroAllowed = false)
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

void interfaceWords(const Node& words, s_InterfaceList& entry);

template <typename Record>
void copyResolution(const EdidTiming& from, Record& to)
{
    to.width = from.width;
    to.height = from.height;
    to.refresh = static_cast<float>(from.refresh);
}

class Reader
{
public:
    Reader(fs::path base, std::vector<std::string>& notes) : m_base(std::move(base)), m_notes(notes) {}

    void device(const Node& node, Device& device, bool patch);
    Step step(const Node& node, Device& device);
    void hostBehaviour(const Node& node, HostBehaviour& behaviour) const;

private:
    std::int32_t interfaceRef(const Node& node) const
    {
        const std::int32_t id = node.int32();
        if (m_ids.count(id) == 0) {
            std::string ids;
            for (std::int32_t known : m_ids)
                ids += (ids.empty() ? "" : ", ") + std::to_string(known);
            node.fail("unknown interface " + std::to_string(id) + "; expected one of the device's interfaces (" + ids +
                      ")");
        }
        return id;
    }
    void interface(const Node& node, Device& device, s_InterfaceList& entry, bool partial);
    std::vector<EdidTiming> edid(const Node& node);
    Expectation expectation(const Node& node) const;
    void readAction(const Node& node, Device& device, Step& step);
    const EdidTiming& edidChoice(const Node& node, const Device& device) const;

    fs::path m_base;
    std::vector<std::string>& m_notes;
    std::set<std::int32_t> m_ids;
};

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
        chosen = first([](const EdidTiming& timing) { return timing.text.find("(DTD") != std::string::npos; });
    if (chosen == timings.end())
        chosen = first([](const EdidTiming&) { return true; });
    return *chosen;
}

// Every mode is kept, so that the indexes are those of the listing; the ones
// the records cannot carry are marked and named in a note.
std::vector<EdidTiming> Reader::edid(const Node& node)
{
    const std::string written = node.text();
    std::vector<EdidTiming> timings;
    try {
        const edid::Edid decoded = edid::loadEdidFile((m_base / written).lexically_normal().string());
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

void Reader::interface(const Node& node, Device& device, s_InterfaceList& entry, bool partial)
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

void interfaceWords(const Node& words, s_InterfaceList& entry)
{
    words.keys({"ifWord92", "ifWord158", "checkParam0", "checkParam1"});
    tryReading([&] { words.read("ifWord92", entry.ifWord92, 0, Word32Max); });
    tryReading([&] { words.read("ifWord158", entry.ifWord158, 0, Word32Max); });
    tryReading([&] { words.read("checkParam0", entry.checkParam0); });
    tryReading([&] { words.read("checkParam1", entry.checkParam1); });
}

void Reader::device(const Node& node, Device& device, bool patch)
{
    if (!patch) {
        for (const Node& item : node.need("interfaces", "a list of interfaces").items("a list of interfaces")) {
            tryReading([&] {
                s_InterfaceList entry;
                entry.stAuxiliaryInfo.usedByScreen.clear(); // not used by a screen unless the scenario says so
                const Node id = item.need("id", "an interface id");
                entry.interfaceId = id.int32();
                if (!m_ids.insert(entry.interfaceId).second)
                    id.fail("interface " + std::to_string(entry.interfaceId) + " is defined twice");
                interface(item, device, entry, false);
                device.interfaces.push_back(entry);
            });
        }
    } else if (node.has("interfaces")) {
        for (const Node& item : node.at("interfaces").items("a list of interface changes")) {
            tryReading([&] {
                const std::int32_t id = interfaceRef(item.need("id", "an interface id"));
                for (s_InterfaceList& entry : device.interfaces) {
                    if (entry.interfaceId == id)
                        interface(item, device, entry, true);
                }
            });
        }
    }

    if (node.has("screens")) {
        device.screens.clear();
        for (const Node& item : node.at("screens").items("a list of screens"))
            tryReading([&] {
                item.keys({"id", "index", "type", "outputs"});
                Screen screen;
                screen.info.screenId = static_cast<std::uint32_t>(item.need("id", "a screen id").integer(0, Word32Max));
                screen.info.screenIndex = static_cast<std::uint32_t>(device.screens.size());
                item.read("index", screen.info.screenIndex, 0, Word32Max);
                item.read("type", screen.type);
                for (const Node& output :
                     item.need("outputs", "a list of interface ids").items("a list of interface ids"))
                    screen.info.stOutputDetailArry.emplace_back().interfaceId = interfaceRef(output);
                device.screens.push_back(screen);
            });
    }
    if (node.has("subcards")) {
        device.subcards.clear();
        for (const Node& item : node.at("subcards").items("a list of subcards"))
            tryReading([&] {
                item.keys({"slot", "subcard", "connectors"});
                Subcard subcard;
                subcard.info.slotId = item.need("slot", "a slot id").int32();
                subcard.value = subcard.info.slotId;
                item.read("subcard", subcard.value);
                for (const Node& connector :
                     item.need("connectors", "a list of connectors").items("a list of connectors")) {
                    connector.keys({"connector", "key", "tied"});
                    LCD::ProtoModel::Subcard::s_SubcardConnector record;
                    record.connectorId = connector.need("connector", "a connector number").int32();
                    record.connectorKey = connector.need("key", "the connector's key").int32();
                    if (connector.has("tied"))
                        subcard.tied[record.connectorKey] =
                            connector.at("tied").integers("a list of connector numbers");
                    subcard.info.stConnectorArry.push_back(record);
                }
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
        for (const Node& item : node.at("verdicts").items("a list of verdicts"))
            tryReading([&] {
                item.keys(
                    {"interface", "bandwidthLimit", "bandwidthNeeded", "overBandwidth", "maxFrameRate", "frameRates"});
                s_TimigCheckResult verdict;
                verdict.interfaceId = interfaceRef(item.need("interface", "an interface id"));
                item.read("bandwidthLimit", verdict.bandwidthLimit, 0);
                item.read("bandwidthNeeded", verdict.bandwidthNeeded, 0);
                if (item.has("overBandwidth"))
                    verdict.overBandwidth = item.at("overBandwidth").boolean() ? 1 : 0;
                item.read("maxFrameRate", verdict.maxFrameRate, 0);
                if (item.has("frameRates"))
                    verdict.frameRates =
                        item.at("frameRates").integers("a list of frame rates in hundredths of a Hz", 0);
                device.verdicts.push_back(verdict);
            });
    }
    if (node.has("assessments")) {
        device.assessments.clear();
        for (const Node& item : node.at("assessments").items("a list of assessment answers"))
            tryReading([&] {
                item.keys({"answer", "codes"});
                Assessment assessment;
                item.readNullable("answer", assessment.answer, 0, 255);
                if (item.has("codes")) {
                    for (std::int32_t code : item.at("codes").integers("a list of assessment codes"))
                        assessment.results.push_back({0, code});
                }
                device.assessments.push_back(assessment);
            });
    }
}

const EdidTiming& Reader::edidChoice(const Node& node, const Device& device) const
{
    node.keys({"interface", "index"});
    const std::int32_t id = interfaceRef(node.need("interface", "an interface id"));
    const auto found = device.edid.find(id);
    if (found == device.edid.end())
        node.at("interface").fail("interface " + std::to_string(id) + " has no EDID file");
    const Node index = node.need("index", "the index of a mode in the EDID's listing");
    const EdidTiming& chosen =
        found->second.at(static_cast<std::size_t>(index.integer(0, std::int64_t(found->second.size()) - 1)));
    if (!chosen.refused.empty())
        index.fail("mode " + std::to_string(index.integer()) + " " + chosen.text +
                   " cannot be chosen: " + chosen.refused);
    return chosen;
}

// The fields the simulator traces for a configuration service's call.
Fields callShape(const std::string& call)
{
    if (call == "subcardOfSlot")
        return {{"slot", 0}, {"answer", 0}};
    return {{"subcard", 0}, {"key", 0}, {"deviceParam", 0}, {"answer", Fields::array()}};
}

// Keys the message's trace never shows can never match: refused, at every
// depth. A null shape takes anything; a list's shape is its elements'.
void fitShape(const Node& node, const Fields& shape, const std::string& name)
{
    if (shape.is_object()) {
        if (!node.value().is_object())
            node.expected("an object (as the trace shows " + name + ")");
        Keys allowed;
        for (const auto& item : shape.items())
            allowed.push_back(item.key());
        node.keys(allowed, " of " + name);
        for (const auto& item : shape.items()) {
            if (node.has(item.key().c_str()))
                tryReading([&] { fitShape(node.at(item.key()), item.value(), name); });
        }
    } else if (shape.is_array()) {
        if (!node.value().is_array())
            node.expected("a list (as the trace shows " + name + ")");
        if (!shape.empty()) {
            for (const Node& item : node.items("a list"))
                tryReading([&] { fitShape(item, shape.front(), name); });
        }
    } else if (!shape.is_null() && (node.value().is_object() || node.value().is_array())) {
        node.expected("a single value (as the trace shows " + name + ")");
    }
}

Expectation Reader::expectation(const Node& node) const
{
    Expectation expectation;
    const bool object = node.value().is_object();
    if (object) {
        if (node.has("number") == node.has("name"))
            node.fail("expected either \"number\" or \"name\"");
        for (const auto& item : node.value().items()) {
            if (item.key() != "number" && item.key() != "name")
                expectation.fields[item.key()] = item.value();
        }
    } else if (!node.value().is_string()) {
        node.expected("a message name or number, or an object with \"number\" or \"name\" and fields");
    }
    const Node ident = object ? node.at(node.has("number") ? "number" : "name") : node;
    const std::string text = ident.text();
    // The message's own keys, and "number" or "name", which named it.
    const auto checkFields = [&](Fields shape, const std::string& name) {
        if (!object)
            return;
        shape[node.has("number") ? "number" : "name"] = nullptr;
        fitShape(node, shape, name);
    };
    if (text == "subcardOfSlot" || text == "relatedConnectors") {
        expectation.call = text;
        checkFields(callShape(text), text);
        return expectation;
    }
    const MessageInfo* info = nullptr;
    if (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) {
        char* end = nullptr;
        const unsigned long number = std::strtoul(text.c_str() + 2, &end, 16);
        if (end != nullptr && *end == '\0' && text.size() > 2 && number <= Word32Max)
            info = findMessage(static_cast<std::uint32_t>(number));
    } else {
        info = findMessage(text);
    }
    if (info == nullptr)
        ident.fail("unknown message \"" + text +
                   "\"; expected a name or number of the message table (edidsim --messages-markdown), "
                   "subcardOfSlot or relatedConnectors");
    expectation.number = info->number;
    checkFields(expectableFields(*info), info->name);
    return expectation;
}

void Reader::hostBehaviour(const Node& node, HostBehaviour& behaviour) const
{
    node.keys({"variation", "deliver", "during", "times"});
    if (node.has("variation")) {
        const Node name = node.at("variation");
        behaviour.variation = name.text();
        if (!host::variationNamed(behaviour.variation)) {
            Keys names;
            for (host::Variation known : host::allVariations())
                names.push_back(host::variationName(known));
            name.fail("unknown host variation \"" + behaviour.variation + "\"; expected one of " + joined(names));
        }
    }
    const auto messageNumber = [this](const Node& item) {
        const Expectation named = expectation(item);
        if (named.number == 0)
            item.fail("expected a message, not a service call");
        return named.number;
    };
    if (node.has("deliver")) {
        for (const Node& item : node.at("deliver").items("a list of messages to deliver")) {
            HostDelivery delivery;
            if (item.value().is_object()) {
                item.keys({"number", "interface", "size"});
                delivery.number = messageNumber(item.need("number", "a message name or number"));
                if (item.has("interface"))
                    delivery.interfaceId = interfaceRef(item.at("interface"));
                if (item.has("size"))
                    delivery.size = item.at("size").int32();
            } else {
                delivery.number = messageNumber(item);
            }
            behaviour.deliver.push_back(delivery);
        }
    }
    if (node.has("during")) {
        for (const Node& item : node.at("during").items("a list of messages the component sends"))
            behaviour.during.push_back(messageNumber(item));
    }
    node.read("times", behaviour.times, -1, Int32Max);
}

struct StepKind
{
    const char* name;
    Action action;
    std::uint32_t number;
    Keys keys;
};

const std::vector<StepKind> StepKinds = {
    {"current", Action::Current, 0xFC021009u, {"interface"}},
    {"refresh", Action::Refresh, 0xFC00060Au, {}},
    {"askSelected", Action::AskSelected, 0xFC00060Bu, {}},
    {"thumbCheck", Action::ThumbCheck, 0xFC000605u, {"checks"}},
    {"detailCheck", Action::DetailCheck, 0xFC000606u, {"checks"}},
    {"chooseThumb", Action::ChooseThumb, 0xFC00060Cu, {"timing", "edid"}},
    {"chooseReference", Action::ChooseReference, 0xFC00060Du, {"timing", "edid"}},
    {"publishReference", Action::PublishReference, 0xFC070606u, {}},
    {"answer", Action::Answer, 0xFC000620u, {"accept", "box"}},
    {"changedThumb", Action::ChangedThumb, 0xFC081006u, {"timings"}},
    {"changedReference", Action::ChangedReference, 0xFC081005u, {"timings"}},
    {"sdi", Action::Sdi, 0xFC031007u, {"interface"}},
    {"inUse", Action::InUse, 0xFC000617u, {"trigger"}},
    {"interfaceType", Action::InterfaceType, 0xFC051016u, {}},
    {"pump", Action::Pump, 0, {}},
    {"device", Action::ChangeDevice, 0, DeviceKeys},
};

Step Reader::step(const Node& node, Device& device)
{
    if (!node.value().is_object())
        node.expected("a step object");
    const Node what = node.need("do", "what the step does");
    const std::string name = what.text();
    const auto kind = std::find_if(StepKinds.begin(), StepKinds.end(),
                                   [&name](const StepKind& candidate) { return name == candidate.name; });
    if (kind == StepKinds.end()) {
        Keys names;
        for (const StepKind& candidate : StepKinds)
            names.push_back(candidate.name);
        what.fail("unknown step \"" + name + "\"; expected one of " + joined(names));
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
        for (const Node& item : node.at("expect").items("a list of expected messages"))
            tryReading([&] { step.expect->push_back(expectation(item)); });
    }
    if (node.has("warnings")) {
        step.warnings.emplace();
        for (const Node& item : node.at("warnings").items("a list of warning texts"))
            tryReading([&] { step.warnings->push_back(item.text()); });
    }
    return step;
}

void Reader::readAction(const Node& node, Device& device, Step& step)
{
    switch (step.action) {
    case Action::Current:
    case Action::Sdi:
        step.interfaceId = interfaceRef(node.need("interface", "an interface id"));
        break;
    case Action::ThumbCheck:
    case Action::DetailCheck:
        for (const Node& item : node.need("checks", "a list of checks").items("a list of checks"))
            tryReading([&] {
                item.keys({"timing", "tag"});
                std::int32_t tag = 0;
                item.read("tag", tag);
                const Node timing = item.need("timing", "a timing");
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
        step.accept = node.need("accept", "true or false").boolean();
        if (node.has("box"))
            step.box = node.at("box").int32();
        break;
    case Action::ChangedThumb:
    case Action::ChangedReference:
        for (const Node& item : node.need("timings", "a list of timings").items("a list of timings"))
            tryReading([&] {
                item.keys({"interface", "timing", "tailParam0"});
                const std::int32_t id = interfaceRef(item.need("interface", "an interface id"));
                const Node timing = item.need("timing", "a timing");
                std::uint32_t tail = 0;
                item.read("tailParam0", tail, 0, Word32Max);
                if (step.action == Action::ChangedThumb)
                    step.thumbTimings.push_back({id, readTiming(timing, ThumbWords), tail, 0});
                else
                    step.referenceTimings.push_back({id, readTiming(timing, DetailWords), tail, 0});
            });
        break;
    case Action::InUse:
        if (node.has("trigger")) {
            const Expectation trigger = expectation(node.at("trigger"));
            if (trigger.number != 0xFC000617u && trigger.number != 0xFC030204u && trigger.number != 0xFC08021Eu)
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

} // namespace

Scenario loadScenario(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ScenarioError(file + ": cannot be read");
    std::stringstream text;
    text << in.rdbuf();

    json root;
    try {
        root = json::parse(text.str());
    } catch (const json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 2, column 5: ...", or
        // out_of_range.406 for a number beyond a double (1e400), which names no line.
        const std::string what = error.what();
        const std::size_t start = what.find("] ");
        throw ScenarioError(file + ": " + (start == std::string::npos ? what : what.substr(start + 2)));
    }

    Scenario scenario;
    scenario.file = file;
    std::vector<std::string> problems;
    tryReading([&] {
        Reader reader(fs::path(file).parent_path(), scenario.notes);
        const Node top(root, "", problems);
        top.keys({"name", "description", "host", "device", "steps"});
        if (top.has("name"))
            tryReading([&] { scenario.name = top.at("name").text(); });
        if (top.has("description"))
            tryReading([&] { scenario.description = top.at("description").text(); });
        tryReading([&] {
            const Node device = top.need("device", "the device's state");
            device.keys(DeviceKeys);
            reader.device(device, scenario.device, false);
        });
        if (top.has("host"))
            tryReading([&] { reader.hostBehaviour(top.at("host"), scenario.host); });

        Device current = scenario.device;
        for (const Node& item : top.need("steps", "a list of steps").items("a list of steps"))
            tryReading([&] { scenario.steps.push_back(reader.step(item, current)); });
    });
    if (!problems.empty()) {
        std::string text;
        for (const std::string& problem : problems)
            text += (text.empty() ? "" : "\n") + file + ": " + problem;
        throw ScenarioError(text);
    }
    return scenario;
}

} // namespace sim
} // namespace edidvm
