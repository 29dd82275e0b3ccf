// SPDX-License-Identifier: MIT
#include "sim/player.h"

#include "host/variation.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "sim/expectationdiff.h"
#include "viewmodel/viewmodelrecords.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <thread>

namespace msg = LCD::MessageId;

namespace edidvm {
namespace sim {

using namespace LCD::ProtoModel::Interface;
using LCD::GlobalMessageHander::QueryInfo;

namespace {
constexpr std::uint32_t Confirmation = msg::Confirmation;

const char* kindOf(host::SentKind kind)
{
    switch (kind) {
    case host::SentKind::Command:
        return "command";
    case host::SentKind::Event:
        return "event";
    case host::SentKind::QueuedEvent:
        return "queued";
    }
    return "";
}

bool matches(const Expectation& expected, const Entry& came)
{
    const bool same =
        expected.call.empty() ? came.number == expected.number : came.number == 0 && came.name == expected.call;
    return same && fieldsMatch(came.fields, expected.fields);
}

Shown expectationShown(const Expectation& expected)
{
    const bool call = !expected.call.empty();
    const std::string name = call ? expected.call : findMessage(expected.number)->name;
    return {entryText(call ? 0 : expected.number, name, expected.fields),
            {{"number", call ? Fields() : Fields(hexNumber(expected.number))},
             {"name", name},
             {"fields", expected.fields}}};
}

Shown entryShown(const Entry& entry)
{
    return {entryText(entry.number, entry.name, entry.fields),
            {{"kind", entry.kind},
             {"number", entry.number != 0 ? Fields(hexNumber(entry.number)) : Fields()},
             {"name", entry.name},
             {"length", entry.length >= 0 ? Fields(entry.length) : Fields()},
             {"fields", entry.fields}}};
}
} // namespace

std::string unknownDefault(const std::string& key)
{
    static const std::map<std::string, std::string> defaults = {
        {"screens", "no screens"},
        {"subcards", "no subcards"},
        {"selectedInterface", "no reply to 0xFC08100A"},
        {"deviceParam", "no reply to 0xFC000004"},
        {"verdicts", "no verdicts"},
        {"assessments", "every assessment answered 1, with no codes"},
        {"thumbCommitAnswer", "thumb writes answered 0 (written)"},
        {"writesApply", "writes applied"},
    };
    const auto found = defaults.find(key);
    return found != defaults.end() ? found->second : "its default";
}

bool fieldsMatch(const Fields& actual, const Fields& expected)
{
    if (expected.is_object()) {
        if (!actual.is_object())
            return false;
        for (const auto& item : expected.items()) {
            if (!actual.contains(item.key()) || !fieldsMatch(actual[item.key()], item.value()))
                return false;
        }
        return true;
    }
    if (expected.is_array()) {
        if (!actual.is_array() || actual.size() != expected.size())
            return false;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            if (!fieldsMatch(actual[i], expected[i]))
                return false;
        }
        return true;
    }
    return actual == expected;
}

Player::Player(host::Host& host, const Scenario& scenario, Trace& trace)
    : m_host(host), m_scenario(scenario), m_trace(trace), m_device(host, trace), m_thread(std::this_thread::get_id())
{}

void Player::applyHostBehaviour()
{
    const HostBehaviour& behaviour = m_scenario.host;
    const host::Variation variation = host::variationNamed(behaviour.variation).value_or(host::Variation::Default);
    m_host.setVariation(variation);
    std::vector<HostDelivery> wanted = behaviour.deliver;
    const auto& interfaces = m_scenario.device.interfaces;
    if (wanted.empty() && variation == host::Variation::NestedDeliveries)
        wanted.push_back({msg::RefreshTiming, std::nullopt, std::nullopt}); // the page asks for the timing again
    if (wanted.empty() && variation == host::Variation::MovingCurrent && !interfaces.empty())
        wanted.push_back(
            {msg::SetCurrentInterface, interfaces.at(interfaces.size() > 1 ? 1 : 0).interfaceId, std::nullopt});

    host::Interjection interjection;
    for (const HostDelivery& item : wanted) {
        const MessageInfo* info = findMessage(item.number);
        host::Delivery delivery;
        delivery.number = item.number;
        delivery.kind =
            info != nullptr && info->kind == Kind::Command ? kpf::MessageKindCommand : kpf::MessageKindEvent;
        int size = 0;
        if (item.interfaceId) {
            const auto found =
                std::find_if(interfaces.begin(), interfaces.end(),
                             [&item](const s_InterfaceList& entry) { return entry.interfaceId == *item.interfaceId; });
            if (found != interfaces.end()) {
                delivery.record = std::make_shared<const s_InterfaceList>(*found);
                size = static_cast<int>(sizeof(s_InterfaceList));
            }
        }
        delivery.size = item.size.value_or(size);
        interjection.deliveries.push_back(std::move(delivery));
    }
    interjection.during = behaviour.during;
    interjection.times = behaviour.times;
    interjection.observer = [this](const host::Delivery& delivery) {
        const MessageInfo* info = findMessage(delivery.number);
        const int size = delivery.size.value_or(0);
        const char* name = info != nullptr ? info->name : "unknown";
        m_trace.entry({Direction::In, "nested", delivery.number, name, size,
                       info != nullptr ? decodePayload(*info, delivery.record.get(), size) : Fields::object()});
    };
    m_host.setInterjection(std::move(interjection));
    if (variation != host::Variation::Default)
        m_trace.note("host variation: " + behaviour.variation);
}

int Player::run()
{
    start();
    int failed = 0;
    for (std::size_t index = 0; index < m_scenario.steps.size(); ++index) {
        if (!playStep(index))
            ++failed;
    }
    return failed + finish();
}

void Player::start()
{
    m_device.setState(m_scenario.device);
    // Runs while the sender's payload is alive: vector objects and
    // envelopes are decoded in place. Only what the played components send
    // on the playing thread is traced: another plug-in loaded beside them
    // (edidsim --also) sends on threads of its own.
    m_host.recorder().setHook([this](const host::SentMessage& sent, const void* data) {
        if (std::this_thread::get_id() != m_thread || m_otherSenders.count(sent.sender) != 0)
            return;
        const MessageInfo* info = findMessage(sent.number);
        Entry entry{Direction::Out, kindOf(sent.kind), sent.number, info != nullptr ? info->name : "unknown",
                    sent.size};
        if (info != nullptr)
            entry.fields = decodePayload(*info, data, sent.size);
        if (sent.number == Confirmation && sent.size == sizeof m_lastBox && data != nullptr) {
            std::memcpy(&m_lastBox, data, sizeof m_lastBox);
            m_boxShown = true;
        }
        m_trace.entry(entry);
        for (const Observer& observer : m_observers)
            observer(sent, data);
    });

    traceDescription();
    m_trace.heading("scenario " + m_scenario.file + (m_scenario.name.empty() ? "" : ": " + m_scenario.name),
                    {{"type", "scenario"},
                     {"file", m_scenario.file},
                     {"name", m_scenario.name},
                     {"demonstration", m_scenario.demonstration}});
    for (const std::string& note : m_scenario.notes)
        m_trace.note(note);
    for (const std::string& key : m_scenario.device.unknown)
        m_trace.note("the device's \"" + key + "\" is unknown to the file: the simulator plays its default, " +
                     unknownDefault(key));
    applyHostBehaviour();

    m_trace.entry({Direction::In, "event", 0xFFFF0000u, "Start", 0, Fields::object()});
    const std::vector<kpf::IMessageHandler*> components = m_host.components();
    for (kpf::IMessageHandler* component : components)
        m_host.start(component);
    // The names the other libraries' components subscribed under.
    const std::size_t own = m_host.componentInfos().size();
    for (const host::SubscribeCall& call : m_host.subscriptions().calls()) {
        const auto found = std::find(components.begin(), components.end(), call.component);
        if (found != components.end() && static_cast<std::size_t>(found - components.begin()) >= own)
            m_otherSenders.insert(call.sender);
    }
    m_trace.note("registered " + std::to_string(m_host.subscriptions().calls().size()) + " message numbers");
    m_trace.takeOutputs();
    m_trace.takeWarnings();
    m_host.recorder().clear();
}

bool Player::playStep(std::size_t index)
{
    const Step& step = m_scenario.steps.at(index);
    m_trace.heading("step " + std::to_string(index) + " " + step.name + (step.note.empty() ? "" : ": " + step.note),
                    {{"type", "step"}, {"step", index}, {"do", step.name}, {"note", step.note}});
    play(step);
    m_host.recorder().clear();
    ++m_tally.steps;
    const bool met = check(index, step);
    if (!met)
        ++m_tally.failures;
    return met;
}

void Player::act(const Step& step, const std::string& heading)
{
    m_trace.heading(heading, {{"type", "page"}, {"do", step.name}, {"text", heading}});
    play(step);
    m_host.recorder().clear();
    m_trace.takeOutputs();
    m_trace.takeWarnings();
}

int Player::finish()
{
    m_host.recorder().setHook(nullptr);
    // A host that answered elsewhere owns those lists: the component must
    // have left them as they were.
    const std::string changed = m_host.keptEnvelopesChanged();
    if (changed.empty())
        return 0;
    m_trace.failure("host: " + changed, {{"type", "failure"}, {"what", "host"}, {"text", changed}}, "    ");
    ++m_tally.failures;
    return 1;
}

void Player::traceDescription()
{
    const auto text = [](const char* value) { return std::string(value != nullptr ? value : "(null)"); };
    const kpf::PluginInfo* info = m_host.pluginInfo();
    const std::string file = std::filesystem::path(m_host.path()).filename().string();
    if (info == nullptr) {
        m_trace.heading("plug-in " + file, {{"type", "plugin"}, {"file", file}});
        return;
    }
    std::string ids;
    Fields components = Fields::array();
    for (const kpf::ComponentInfo* component : m_host.componentInfos()) {
        ids += (ids.empty() ? "" : ", ") + text(component->id);
        components.push_back({{"id", text(component->id)}, {"description", text(component->description)}});
    }
    m_trace.heading("plug-in " + file + ": " + text(info->name) + " " + text(info->pluginVersion) +
                        ", description version " + text(info->version) + ", component " + ids,
                    {{"type", "plugin"},
                     {"file", file},
                     {"name", text(info->name)},
                     {"pluginVersion", text(info->pluginVersion)},
                     {"version", text(info->version)},
                     {"description", text(info->description)},
                     {"components", components}});
}

void Player::deliver(std::uint32_t number, const void* data, int size)
{
    const MessageInfo* info = findMessage(number);
    m_trace.entry({Direction::In, "event", number, info != nullptr ? info->name : "unknown", size,
                   info != nullptr ? decodePayload(*info, data, size) : Fields::object()});
    m_host.event(number, data, size);
}

void Player::playRaw(const Step& step)
{
    const void* data = step.bytes.empty() ? nullptr : step.bytes.data();
    const int size = static_cast<int>(step.bytes.size());
    if (!step.rawCommand) {
        deliver(step.number, data, size);
        return;
    }
    const MessageInfo* info = findMessage(step.number);
    const char* name = info != nullptr ? info->name : "unknown";
    m_trace.entry({Direction::In, "command", step.number, name, size,
                   info != nullptr ? decodePayload(*info, data, size) : Fields::object()});
    const std::optional<host::Bytes> reply = m_host.command(step.number, data, size);
    std::string hex;
    for (unsigned char byte : reply.value_or(host::Bytes())) {
        static const char digits[] = "0123456789abcdef";
        hex += digits[byte >> 4];
        hex += digits[byte & 15];
    }
    m_trace.entry({Direction::Out, "reply", step.number, name, reply ? static_cast<int>(reply->size()) : -1,
                   reply ? Fields{{"bytes", hex}} : Fields{{"bytes", nullptr}}});
}

void Player::askInterfaceType(std::uint32_t number)
{
    const char* name = findMessage(number)->name;
    m_trace.entry({Direction::In, "command", number, name, 0, Fields::object()});
    const std::optional<host::Bytes> reply = m_host.command(number, nullptr, 0);
    Fields fields = {{"type", nullptr}};
    if (reply && reply->size() == sizeof(std::int32_t)) {
        std::int32_t type = 0;
        std::memcpy(&type, reply->data(), sizeof type);
        fields["type"] = type;
    }
    m_trace.entry({Direction::Out, "reply", number, name, reply ? static_cast<int>(reply->size()) : -1, fields});
}

void Player::play(const Step& step)
{
    switch (step.action) {
    case Action::Current:
        for (const s_InterfaceList& entry : m_device.state().interfaces) {
            if (entry.interfaceId == step.interfaceId) {
                const s_InterfaceList record = entry;
                deliver(step.number, &record, sizeof record);
                break;
            }
        }
        break;
    case Action::Refresh:
    case Action::AskSelected:
    case Action::PublishReference:
    case Action::InUse:
        deliver(step.number, nullptr, 0);
        break;
    case Action::ThumbCheck:
    case Action::DetailCheck: {
        // The page's request lives on its stack during the delivery.
        QueryInfo<s_TimigCheckQuery> request;
        request.info.stThumbCheckArry = step.thumbChecks;
        request.info.stDetailCheckArry = step.detailChecks;
        QueryInfo<s_TimigCheckQuery>* address = &request;
        deliver(step.number, &address, sizeof address);
        break;
    }
    case Action::ChooseThumb:
        deliver(step.number, &step.thumbChoice, sizeof step.thumbChoice);
        break;
    case Action::ChooseReference:
        deliver(step.number, &step.referenceChoice, sizeof step.referenceChoice);
        break;
    case Action::Answer: {
        // The page sends the request back with the user's answer in it.
        Model::s_MessageBoxRequest answer = m_lastBox;
        if (step.box)
            answer.boxId = *step.box;
        else if (!m_boxShown)
            m_trace.note("no confirmation has been raised: answering box " + std::to_string(answer.boxId));
        answer.result = step.accept ? 1 : 0;
        deliver(step.number, &answer, sizeof answer);
        break;
    }
    case Action::ChangedThumb: {
        const std::vector<s_InterfaceThumbTiming> timings = step.thumbTimings;
        deliver(step.number, &timings, sizeof timings);
        break;
    }
    case Action::ChangedReference: {
        const std::vector<s_InterfacePresetTiming> timings = step.referenceTimings;
        deliver(step.number, &timings, sizeof timings);
        break;
    }
    case Action::Sdi: {
        Model::s_SDIInterfaceInfo sdi;
        sdi.interfaceId = step.interfaceId;
        deliver(step.number, &sdi, sizeof sdi);
        break;
    }
    case Action::InterfaceType:
        askInterfaceType(step.number);
        break;
    case Action::Pump:
        m_trace.note("delivered " + std::to_string(m_host.pump()) + " queued event(s)");
        break;
    case Action::ChangeDevice:
        m_device.setState(*step.device);
        m_trace.note("the device's state changes");
        break;
    case Action::Raw:
        playRaw(step);
        break;
    }
}

bool Player::check(std::size_t index, const Step& step)
{
    m_lastOutcome = {m_trace.takeOutputs(), m_trace.takeWarnings(), step.expect || step.warnings, true, {}};
    const std::vector<Entry>& came = m_lastOutcome.came;
    const std::vector<Warning>& logged = m_lastOutcome.logged;
    if (!m_lastOutcome.checked)
        return true;
    // What differs, each side as the trace's difference lines show it.
    const auto note = [this](const std::vector<Line>& lines, const std::function<std::string(int)>& expectedText,
                             const std::function<std::string(int)>& cameText) {
        for (const Line& line : lines) {
            if (line.mark == '-')
                m_lastOutcome.differences.push_back({Difference::Change::Missing, expectedText(line.expected), {}});
            else if (line.mark == '+')
                m_lastOutcome.differences.push_back({Difference::Change::Unexpected, {}, cameText(line.came)});
            else if (line.mark == '!')
                m_lastOutcome.differences.push_back(
                    {Difference::Change::Differing, expectedText(line.expected), cameText(line.came)});
        }
    };

    ++m_tally.checkedSteps;
    bool met = true;
    if (step.expect) {
        const std::vector<Expectation>& expected = *step.expect;
        m_tally.messages += static_cast<int>(expected.size());
        const auto same = [&](std::size_t i, std::size_t j) { return matches(expected[i], came[j]); };
        const auto sameKind = [&](std::size_t i, std::size_t j) {
            return expected[i].call.empty() ? came[j].number == expected[i].number : came[j].name == expected[i].call;
        };
        const std::vector<Line> lines = compare(expected.size(), came.size(), same, sameKind);
        met = std::all_of(lines.begin(), lines.end(), [](const Line& line) { return line.mark == ' '; });
        const auto expectedShown = [&](int i) { return expectationShown(expected[static_cast<std::size_t>(i)]); };
        const auto cameShown = [&](int j) { return entryShown(came[static_cast<std::size_t>(j)]); };
        report(m_trace, index, "messages", lines, expectedShown, cameShown);
        note(
            lines, [&](int i) { return expectedShown(i).text; }, [&](int j) { return cameShown(j).text; });
    }
    // With expected messages, a warning nobody expected is a mismatch too.
    const std::vector<std::string> warnings = step.warnings.value_or(std::vector<std::string>());
    m_tally.warnings += static_cast<int>(warnings.size());
    const auto same = [&](std::size_t i, std::size_t j) { return warnings[i] == logged[j].text; };
    const auto never = [](std::size_t, std::size_t) { return false; };
    const std::vector<Line> lines = compare(warnings.size(), logged.size(), same, never);
    if (!std::all_of(lines.begin(), lines.end(), [](const Line& line) { return line.mark == ' '; }))
        met = false;
    const auto expectedWarning = [&](int i) {
        const std::string& text = warnings[static_cast<std::size_t>(i)];
        return Shown{"\"" + text + "\"", {{"text", text}}};
    };
    const auto loggedWarning = [&](int j) {
        const Warning& warning = logged[static_cast<std::size_t>(j)];
        return Shown{"\"" + warning.text + "\"", {{"text", warning.text}, {"function", warning.function}}};
    };
    report(m_trace, index, "warnings", lines, expectedWarning, loggedWarning);
    note(
        lines, [&](int i) { return "warning " + expectedWarning(i).text; },
        [&](int j) { return "warning " + loggedWarning(j).text; });
    m_lastOutcome.met = met;
    return met;
}

} // namespace sim
} // namespace edidvm
