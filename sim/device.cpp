// SPDX-License-Identifier: MIT
#include "sim/device.h"

#include "framework/wire.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "sim/decode.h"

#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace msg = LCD::MessageId;

namespace edidvm {
namespace sim {

using namespace LCD::ProtoModel::Interface;
using host::Bytes;
using LCD::GlobalMessageHander::QueryInfo;
using LCD::ProtoModel::Screen::s_ScreenDetail;
using LCD::ProtoModel::Screen::s_TimingAssessQuery;
using LCD::ProtoModel::Subcard::s_SubcardQuery;
using Parameters = std::map<std::string, std::string>;

namespace {
template <typename T>
Bytes bytesOf(T value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

template <typename T>
Fields orNull(const std::optional<T>& value)
{
    return value ? Fields(*value) : Fields();
}

// The parameters the asker's filter puts in; none without a filter.
template <typename T>
Parameters parametersOf(const QueryInfo<T>& query)
{
    Parameters params;
    if (query.filter)
        query.filter(params);
    return params;
}

// What a query's answerer replies (bytes, or none) and shows in the trace.
struct Answer
{
    std::optional<Bytes> bytes;
    Fields shown;
};

// A responder for a query whose payload is an envelope's address: fill
// fills the envelope in place during the command. The interface query may
// be answered in an envelope the host keeps, where the host answers elsewhere.
template <typename T, typename Fill>
host::Responder answerQuery(host::Host& host, std::recursive_mutex& mutex, std::uint32_t number,
                            std::function<void(std::uint32_t, int, Fields)> traced, Fill fill)
{
    return [&host, &mutex, number, traced, fill](const kpf::IMessage& command) -> std::optional<Bytes> {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        auto* query = host.answerEnvelope<QueryInfo<T>>(command, number == msg::InterfaceDetail);
        if (query == nullptr) {
            traced(number, -1, {{"envelope", nullptr}});
            return std::nullopt;
        }
        Answer answer = fill(*query);
        traced(number, answer.bytes ? static_cast<int>(answer.bytes->size()) : -1, std::move(answer.shown));
        return answer.bytes;
    };
}

// The list a vector-object payload points at, read during the send.
template <typename T>
const std::vector<T>* vectorIn(const kpf::IMessage& message)
{
    const void* data = message.size() == static_cast<int>(sizeof(std::vector<T>)) ? message.data() : nullptr;
    return static_cast<const std::vector<T>*>(data);
}

template <typename T>
bool sameBytes(const T& a, const T& b)
{
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

s_InterfaceList* findById(std::vector<s_InterfaceList>& interfaces, std::int32_t id)
{
    for (s_InterfaceList& entry : interfaces) {
        if (entry.interfaceId == id)
            return &entry;
    }
    return nullptr;
}

// Where a write lands in the interface's record, and how the trace names it.
void store(s_InterfaceList& entry, const s_InterfaceThumbTiming& choice)
{
    entry.stThumbTiming = choice.stThumbTiming;
}

void store(s_InterfaceList& entry, const s_InterfacePresetTiming& choice)
{
    entry.stTimingDetail = choice.stTimingDetail;
}

std::string describe(const s_InterfaceThumbTiming& choice)
{
    const auto& t = choice.stThumbTiming;
    return "thumb timing " + timingText(t.width, t.height, t.refresh);
}

std::string describe(const s_InterfacePresetTiming& choice)
{
    const auto& t = choice.stTimingDetail;
    return "reference timing " + timingText(t.width, t.height, t.refresh);
}

// A filter key absent from the parameters lets every entry through.
bool passes(const Parameters& params, const char* key, std::int32_t value)
{
    const auto wanted = params.find(key);
    return wanted == params.end() || wanted->second == std::to_string(value);
}
} // namespace

SimulatedDevice::SimulatedDevice(host::Host& host, Trace& trace)
    : m_host(host), m_trace(trace), m_thread(std::this_thread::get_id())
{
    installQueries();
    installServices();
}

void SimulatedDevice::setState(const Device& state)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    Device next = state;
    for (s_InterfaceList& entry : next.interfaces) {
        s_InterfaceList* declared = findById(m_declared.interfaces, entry.interfaceId);
        s_InterfaceList* reported = findById(m_state.interfaces, entry.interfaceId);
        if (declared == nullptr || reported == nullptr)
            continue;
        if (sameBytes(declared->stThumbTiming, entry.stThumbTiming))
            entry.stThumbTiming = reported->stThumbTiming;
        if (sameBytes(declared->stTimingDetail, entry.stTimingDetail))
            entry.stTimingDetail = reported->stTimingDetail;
    }
    m_declared = state;
    m_state = std::move(next);
    m_assessments = 0;
}

template <typename Choice>
void SimulatedDevice::applyWrite(const std::vector<Choice>& written, bool taken, const std::string& refusal)
{
    if (!taken) {
        m_trace.note("device: the write is not applied (" + refusal + ")");
        return;
    }
    for (const Choice& choice : written) {
        s_InterfaceList* entry = findById(m_state.interfaces, choice.interfaceId);
        if (entry == nullptr) {
            m_trace.note("device: no interface " + std::to_string(choice.interfaceId) + " to write");
            continue;
        }
        store(*entry, choice);
        m_trace.note("device: interface " + std::to_string(choice.interfaceId) + " now has " + describe(choice));
    }
}

bool SimulatedDevice::traced() const
{
    return std::this_thread::get_id() == m_thread;
}

void SimulatedDevice::reply(std::uint32_t number, int length, Fields fields)
{
    if (!traced())
        return;
    const MessageInfo* info = findMessage(number);
    m_trace.entry({Direction::In, "reply", number, info != nullptr ? info->name : "", length, std::move(fields)});
}

void SimulatedDevice::installQueries()
{
    host::CommandDispatcher& commands = m_host.commands();
    const auto traced = [this](std::uint32_t number, int length, Fields fields) {
        reply(number, length, std::move(fields));
    };

    commands.setResponder(msg::InterfaceDetail, answerQuery<s_InterfaceDetailInfo>(
                                                    m_host, m_mutex, msg::InterfaceDetail, traced, [this](auto& query) {
                                                        const Parameters params = parametersOf(query);
                                                        Fields ids = Fields::array();
                                                        for (const s_InterfaceList& entry : m_state.interfaces) {
                                                            if (passes(params, "interfaceId", entry.interfaceId)) {
                                                                query.info.stInterfaceListArry.push_back(entry);
                                                                ids.push_back(entry.interfaceId);
                                                            }
                                                        }
                                                        return Answer{std::nullopt, {{"interfaces", ids}}};
                                                    }));
    commands.setResponder(msg::Screens,
                          answerQuery<s_ScreenDetail>(m_host, m_mutex, msg::Screens, traced, [this](auto& query) {
                              const Parameters params = parametersOf(query);
                              Fields ids = Fields::array();
                              for (const Screen& screen : m_state.screens) {
                                  if (passes(params, "screenType", screen.type)) {
                                      query.info.stScreenDetailInfoArry.push_back(screen.info);
                                      ids.push_back(screen.info.screenId);
                                  }
                              }
                              return Answer{std::nullopt, {{"screens", ids}}};
                          }));
    commands.setResponder(msg::Subcards,
                          answerQuery<s_SubcardQuery>(m_host, m_mutex, msg::Subcards, traced, [this](auto& query) {
                              Fields slots = Fields::array();
                              for (const Subcard& subcard : m_state.subcards) {
                                  query.info.stSubcardInfoArry.push_back(subcard.info);
                                  slots.push_back(subcard.info.slotId);
                              }
                              return Answer{std::nullopt, {{"slots", slots}}};
                          }));
    // Every verdict the scenario holds, whatever the checks: the service
    // judges the interfaces as they stand.
    for (std::uint32_t number : {msg::ThumbCheck, msg::DetailCheck}) {
        commands.setResponder(number,
                              answerQuery<s_TimigCheckQuery>(m_host, m_mutex, number, traced, [this](auto& query) {
                                  query.info.stCheckResultArry = m_state.verdicts;
                                  return Answer{std::nullopt, {{"verdicts", listOf(m_state.verdicts)}}};
                              }));
    }
    // One answer per assessment, in order; the last one repeats.
    commands.setResponder(
        msg::Assess, answerQuery<s_TimingAssessQuery>(m_host, m_mutex, msg::Assess, traced, [this](auto& query) {
            Assessment answer;
            if (!m_state.assessments.empty())
                answer = m_state.assessments[std::min(m_assessments, m_state.assessments.size() - 1)];
            ++m_assessments;
            query.info.stAssessResultArry = answer.results;
            Fields codes = Fields::array();
            for (const auto& result : answer.results)
                codes.push_back(result.code);
            return Answer{answer.answer ? std::optional<Bytes>(bytesOf(*answer.answer)) : std::nullopt,
                          {{"answer", orNull(answer.answer)}, {"codes", codes}}};
        }));

    // Plain replies, or none when the scenario gives no value.
    const auto answerWith = [this](std::uint32_t number, const char* field, auto value) {
        std::lock_guard<std::recursive_mutex> lock(m_mutex);
        reply(number, value ? int(sizeof *value) : -1, {{field, orNull(value)}});
        return value ? std::optional<Bytes>(bytesOf(*value)) : std::nullopt;
    };
    commands.setResponder(msg::SelectedInterface, [this, answerWith](const kpf::IMessage&) {
        return answerWith(msg::SelectedInterface, "interface", m_state.selectedInterface);
    });
    commands.setResponder(msg::DeviceParam, [this, answerWith](const kpf::IMessage&) {
        return answerWith(msg::DeviceParam, "deviceParam", m_state.deviceParam);
    });
    // Answer 0 means written; a non-zero answer or none leaves the device
    // as it was.
    commands.setResponder(msg::WriteThumb, [this, answerWith](const kpf::IMessage& command) {
        std::lock_guard<std::recursive_mutex> lock(m_mutex);
        std::optional<Bytes> answer = answerWith(msg::WriteThumb, "answer", m_state.thumbCommitAnswer);
        if (const auto* written = vectorIn<s_InterfaceThumbTiming>(command)) {
            const std::optional<std::uint8_t> byte = m_state.thumbCommitAnswer;
            const bool taken = byte && *byte == 0 && m_state.writesApply;
            applyWrite(*written, taken,
                       !byte        ? "no answer"
                       : *byte != 0 ? "answer " + std::to_string(*byte)
                                    : "writesApply is false");
        }
        return answer;
    });
    // A reference write has no answer: only the scenario can refuse it.
    m_host.events().addListener(
        [this](const kpf::IMessage& event) {
            std::lock_guard<std::recursive_mutex> lock(m_mutex);
            if (const auto* written = vectorIn<s_InterfacePresetTiming>(event))
                applyWrite(*written, m_state.writesApply, "writesApply is false");
        },
        msg::WriteReference);
}

void SimulatedDevice::installServices()
{
    m_host.deviceConfig().setAnswer([this](std::int32_t slot) {
        std::lock_guard<std::recursive_mutex> lock(m_mutex);
        std::int32_t value = slot;
        for (const Subcard& subcard : m_state.subcards) {
            if (subcard.info.slotId == slot)
                value = subcard.value;
        }
        if (traced())
            m_trace.entry({Direction::Out, "call", 0, "subcardOfSlot", -1, {{"slot", slot}, {"answer", value}}});
        return value;
    });
    m_host.subcardConfig().setAnswer([this](std::int32_t subcardValue, std::int32_t key, std::int32_t deviceParam) {
        std::lock_guard<std::recursive_mutex> lock(m_mutex);
        std::vector<int> tied;
        for (const Subcard& subcard : m_state.subcards) {
            const auto found = subcard.tied.find(key);
            if (subcard.value == subcardValue && found != subcard.tied.end())
                tied = found->second;
        }
        if (!traced())
            return tied;
        m_trace.entry({Direction::Out,
                       "call",
                       0,
                       "relatedConnectors",
                       -1,
                       {{"subcard", subcardValue}, {"key", key}, {"deviceParam", deviceParam}, {"answer", tied}}});
        return tied;
    });
}

} // namespace sim
} // namespace edidvm
