// SPDX-License-Identifier: MIT
#include "sim/messages.h"

#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "sim/decode.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>

namespace msg = LCD::MessageId;

namespace edidvm {
namespace sim {

using namespace LCD::ProtoModel::Interface;
using LCD::GlobalMessageHander::QueryInfo;
using LCD::ProtoModel::Screen::s_ScreenDetail;
using LCD::ProtoModel::Screen::s_TimingAssessQuery;
using LCD::ProtoModel::Subcard::s_SubcardQuery;

namespace {

template <typename T>
const T& as(const void* data)
{
    return *static_cast<const T*>(data);
}

// A record read in place.
template <typename T>
Fields record(const void* data)
{
    return fieldsOf(as<T>(data));
}

// One value under a name.
template <typename T>
Fields value(const char* name, const void* data)
{
    T value{};
    std::memcpy(&value, data, sizeof value);
    return {{name, value}};
}

// What the envelope whose address the payload carries shows; its filter,
// when it has one, is asked for its parameters as the answerer would.
template <typename T, typename Show>
Fields inEnvelope(const void* data, Show show)
{
    const QueryInfo<T>* query = nullptr;
    std::memcpy(&query, data, sizeof query);
    if (query == nullptr)
        return {{"envelope", nullptr}};
    Fields fields = show(query->info);
    if (query->filter) {
        std::map<std::string, std::string> params;
        query->filter(params);
        fields["filter"] = params;
    }
    return fields;
}

// Only the filter.
template <typename T>
Fields inEnvelope(const void* data)
{
    return inEnvelope<T>(data, [](const T&) { return Fields::object(); });
}

Fields thumbChecks(const void* data)
{
    return inEnvelope<s_TimigCheckQuery>(data, [](const s_TimigCheckQuery& info) {
        return Fields{{"checks", listOf(info.stThumbCheckArry)}};
    });
}

Fields detailChecks(const void* data)
{
    return inEnvelope<s_TimigCheckQuery>(data, [](const s_TimigCheckQuery& info) {
        return Fields{{"checks", listOf(info.stDetailCheckArry)}};
    });
}

Fields subcardQuery(const void* data)
{
    return inEnvelope<s_SubcardQuery>(data, [](const s_SubcardQuery& info) {
        return Fields{{"request", info.request}};
    });
}

Fields assessQuery(const void* data)
{
    return inEnvelope<s_TimingAssessQuery>(data, [](const s_TimingAssessQuery& info) {
        return Fields{{"timings", listOf(info.stScreenThumbTimingArry)}};
    });
}

// Vector objects: the elements are the sender's, read during the send.
Fields verdicts(const void* data)
{
    return {{"verdicts", listOf(as<s_TimigCheckResultArry>(data))}};
}

Fields thumbTimings(const void* data)
{
    return {{"timings", listOf(as<std::vector<s_InterfaceThumbTiming>>(data))}};
}

Fields referenceTimings(const void* data)
{
    return {{"timings", listOf(as<std::vector<s_InterfacePresetTiming>>(data))}};
}

Fields box(const void* data)
{
    return {{"box", boxFields(as<Model::s_MessageBoxRequest>(data), false)}};
}

Fields boxAnswer(const void* data)
{
    return {{"box", boxFields(as<Model::s_MessageBoxRequest>(data), true)}};
}

Fields notice(const void* data)
{
    return {{"notice", fieldsOf(as<Model::s_InterfaceTimingNotice>(data))}};
}

Fields preCheck(const void* data)
{
    return {{"check", fieldsOf(as<s_ThumbTimigCheck>(data))}};
}

Fields sdiInterface(const void* data)
{
    return {{"interface", as<Model::s_SDIInterfaceInfo>(data).interfaceId}};
}

Fields waitingText(const void* data)
{
    return {{"text", static_cast<const char*>(data)}};
}

Fields interfaceId(const void* data)
{
    return value<std::int32_t>("interface", data);
}

Fields code(const void* data)
{
    return value<std::int32_t>("code", data);
}

Fields wordValue(const void* data)
{
    return value<std::int32_t>("value", data);
}

Fields inUse(const void* data)
{
    return {{"inUse", *static_cast<const std::uint8_t*>(data) != 0}};
}

// The shapes of what the decoders above show.
template <typename T>
Fields recordShape()
{
    return everyFieldOf<T>();
}

// An envelope shows its filter, or a null address.
Fields filterShape()
{
    return {{"envelope", nullptr}, {"filter", nullptr}};
}

Fields inEnvelopeShape(const char* key, Fields shape)
{
    Fields fields = filterShape();
    fields[key] = std::move(shape);
    return fields;
}

Fields thumbChecksShape()
{
    return inEnvelopeShape("checks", Fields::array({everyFieldOf<s_ThumbTimigCheck>()}));
}

Fields detailChecksShape()
{
    return inEnvelopeShape("checks", Fields::array({everyFieldOf<s_DetailTimigCheck>()}));
}

Fields subcardQueryShape()
{
    return inEnvelopeShape("request", 0);
}

Fields assessQueryShape()
{
    return inEnvelopeShape("timings", Fields::array({everyFieldOf<LCD::ProtoModel::Screen::s_ScreenThumbTiming>()}));
}

Fields verdictsShape()
{
    return {{"verdicts", Fields::array({everyFieldOf<s_TimigCheckResult>()})}};
}

Fields thumbTimingsShape()
{
    return {{"timings", Fields::array({everyFieldOf<s_InterfaceThumbTiming>()})}};
}

Fields referenceTimingsShape()
{
    return {{"timings", Fields::array({everyFieldOf<s_InterfacePresetTiming>()})}};
}

Fields boxShape()
{
    return {{"box", boxFields(Model::s_MessageBoxRequest(), false)}};
}

Fields boxAnswerShape()
{
    return {{"box", boxFields(Model::s_MessageBoxRequest(), true)}};
}

Fields noticeShape()
{
    return {{"notice", fieldsOf(Model::s_InterfaceTimingNotice())}};
}

Fields preCheckShape()
{
    return {{"check", everyFieldOf<s_ThumbTimigCheck>()}};
}

Fields sdiInterfaceShape()
{
    return {{"interface", 0}};
}

Fields waitingTextShape()
{
    return {{"text", ""}};
}

Fields interfaceIdShape()
{
    return {{"interface", 0}};
}

Fields codeShape()
{
    return {{"code", 0}};
}

Fields wordValueShape()
{
    return {{"value", 0}};
}

Fields inUseShape()
{
    return {{"inUse", false}};
}

// Not decoded from a payload: the simulator traces the reply it received.
Fields typeReplyShape()
{
    // A number, or null when no reply of four bytes came: either may be expected.
    return {{"type", nullptr}};
}

constexpr Kind C = Kind::Command;
constexpr Kind E = Kind::Event;
constexpr Direction In = Direction::In;
constexpr Direction Out = Direction::Out;

const char Envelope[] = "8 (envelope address)";
const char NotRead[] = "not read";
const char VectorObject[] = "24 (vector object)";

const std::vector<MessageInfo> g_table = {
    {0xFFFF0000u, "Start", E, In, -1, NotRead, "", "registers the sixteen numbers below with the dispatchers", nullptr,
     nullptr},
    {msg::SetCurrentInterface, "SetCurrentInterface", E, In, 840, "840", "s_InterfaceList",
     "replaces the current interface; sends its detail and thumb timings", record<s_InterfaceList>,
     recordShape<s_InterfaceList>},
    {msg::SdiInterface, "SdiInterface", E, In, 16, "16", "s_SDIInterfaceInfo", "records the current SDI interface",
     sdiInterface, sdiInterfaceShape},
    {msg::InterfaceType, "InterfaceType", C, In, -1, "any; replies 4", "", "replies with the current interface's type",
     nullptr, typeReplyShape},
    {msg::RefreshTiming, "RefreshTiming", E, In, -1, NotRead, "",
     "re-reads the current interface (or the first) and sends its detail timing, thumb timing and notice", nullptr,
     nullptr},
    {msg::SelectedInterfaceTiming, "SelectedInterfaceTiming", E, In, -1, NotRead, "",
     "adopts the device's selected interface, else the first of type 4 whose status is not 2, else the one "
     "with the smallest connector; announces it and sends its thumb timing and notice",
     nullptr, nullptr},
    {msg::ThumbCheckRequest, "ThumbCheckRequest", E, In, 8, Envelope, "QueryInfo<s_TimigCheckQuery> (stThumbCheckArry)",
     "stamps the checks with the current interface, has them judged, forwards the verdicts", thumbChecks,
     thumbChecksShape},
    {msg::DetailCheckRequest, "DetailCheckRequest", E, In, 8, Envelope,
     "QueryInfo<s_TimigCheckQuery> (stDetailCheckArry)",
     "as the thumb request; forwards the current interface's verdicts for interface types 4 and 8 only", detailChecks,
     detailChecksShape},
    {msg::ThumbChoice, "ThumbChoice", E, In, 40, "40", "s_InterfaceThumbTiming",
     "stores the choice; commits it at once when no screen is affected, else assesses it per screen and asks for "
     "confirmation (box 35)",
     record<s_InterfaceThumbTiming>, recordShape<s_InterfaceThumbTiming>},
    {msg::ReferenceChoice, "ReferenceChoice", E, In, 68, "68", "s_InterfacePresetTiming",
     "as the thumb choice, with box 36 and the reference commit", record<s_InterfacePresetTiming>,
     recordShape<s_InterfacePresetTiming>},
    {msg::PublishReference, "PublishReference", E, In, -1, NotRead, "",
     "sends the stored reference choice of the current interface as a thumb timing", nullptr, nullptr},
    {msg::ChangedReferenceTimings, "ChangedReferenceTimings", E, In, 24, VectorObject,
     "std::vector<s_InterfacePresetTiming>", "takes over the current interface's detail timing; sends it on",
     referenceTimings, referenceTimingsShape},
    {msg::ChangedThumbTimings, "ChangedThumbTimings", E, In, 24, VectorObject, "std::vector<s_InterfaceThumbTiming>",
     "sends the current interface's changed thumb timing on, with a notice", thumbTimings, thumbTimingsShape},
    {msg::InUseAsked, "InUseAsked", E, In, -1, NotRead, "", "tells whether the current interface is used by a screen",
     nullptr, nullptr},
    {msg::InUseAsked2, "InUseAsked2", E, In, -1, NotRead, "", "the same", nullptr, nullptr},
    {msg::InUseAsked3, "InUseAsked3", E, In, -1, NotRead, "", "the same", nullptr, nullptr},
    {msg::BoxAnswer, "BoxAnswer", E, In, 556, "556", "s_MessageBoxRequest",
     "the user's answer to box 35 or 36: declined refreshes the page, accepted commits", boxAnswer, boxAnswerShape},

    {msg::InterfaceDetail, "InterfaceDetail", C, Out, 8, Envelope, "QueryInfo<s_InterfaceDetailInfo>",
     "asks for the interface list; filter \"interfaceId\" when asking whether the interface is in use",
     inEnvelope<s_InterfaceDetailInfo>, filterShape},
    {msg::DetailTiming, "DetailTiming", E, Out, 56, "56", "s_TimingDetailInfo", "the current interface's detail timing",
     record<s_TimingDetailInfo>, recordShape<s_TimingDetailInfo>},
    {msg::ThumbTiming, "ThumbTiming", E, Out, 28, "28", "s_ThumbTimingInfo", "the current interface's thumb timing",
     record<s_ThumbTimingInfo>, recordShape<s_ThumbTimingInfo>},
    {msg::SelectedInterface, "SelectedInterface", C, Out, 0, "0; reply 4", "",
     "asks which interface the device has selected", nullptr, nullptr},
    {msg::AdoptedInterface, "AdoptedInterface", C, Out, 4, "4", "int32 interface id",
     "announces the interface adopted as current", interfaceId, interfaceIdShape},
    {msg::TimingNotice, "TimingNotice", E, Out, 16, "16", "s_InterfaceTimingNotice",
     "carried words of the current interface's timing", notice, noticeShape},
    {msg::ThumbCheck, "ThumbCheck", C, Out, 8, Envelope, "QueryInfo<s_TimigCheckQuery>",
     "has the timing-check service judge thumb checks (also the thumb commit's bandwidth pre-check)", thumbChecks,
     thumbChecksShape},
    {msg::DetailCheck, "DetailCheck", C, Out, 8, Envelope, "QueryInfo<s_TimigCheckQuery>",
     "has the timing-check service judge detail checks (empty for the reference commit's pre-check)", detailChecks,
     detailChecksShape},
    {msg::ThumbCheckResults, "ThumbCheckResults", E, Out, 24, VectorObject, "s_TimigCheckResultArry",
     "every verdict of a thumb check request", verdicts, verdictsShape},
    {msg::DetailCheckResults, "DetailCheckResults", E, Out, 24, VectorObject, "s_TimigCheckResultArry",
     "the current interface's verdicts of a detail check request", verdicts, verdictsShape},
    {msg::ChangedDetail, "ChangedDetail", E, Out, 56, "56", "s_TimingDetailInfo",
     "the current interface's detail timing after a change from the device", record<s_TimingDetailInfo>,
     recordShape<s_TimingDetailInfo>},
    {msg::ChangedThumb, "ChangedThumb", E, Out, 28, "28", "s_ThumbTimingInfo",
     "the current interface's thumb timing after a change from the device", record<s_ThumbTimingInfo>,
     recordShape<s_ThumbTimingInfo>},
    {msg::Confirmation, "Confirmation", E, Out, 556, "556", "s_MessageBoxRequest",
     "asks the user to confirm a change that affects screens (box 35 thumb, 36 reference)", box, boxShape},
    {msg::CommittedThumb, "CommittedThumb", E, Out, 28, "28", "s_ThumbTimingInfo",
     "the committed thumb timing, or the stored reference choice when asked to publish it", record<s_ThumbTimingInfo>,
     recordShape<s_ThumbTimingInfo>},
    {msg::InUse, "InUse", E, Out, 1, "1", "uint8", "1 when the current interface is used by a screen", inUse,
     inUseShape},
    {msg::Screens, "Screens", C, Out, 8, Envelope, "QueryInfo<s_ScreenDetail>",
     "asks for the screens, filter \"screenType\" 2", inEnvelope<s_ScreenDetail>, filterShape},
    {msg::Subcards, "Subcards", C, Out, 8, Envelope, "QueryInfo<s_SubcardQuery>",
     "asks for the subcards and their connectors", subcardQuery, subcardQueryShape},
    {msg::DeviceParam, "DeviceParam", C, Out, 0, "0; reply 4", "",
     "asks for the device parameter the subcard service needs", nullptr, nullptr},
    {msg::Assess, "Assess", C, Out, 8, "8 (envelope address); reply 1", "QueryInfo<s_TimingAssessQuery>",
     "has the device assess the new timing for one screen", assessQuery, assessQueryShape},
    {msg::AssessFailed, "AssessFailed", Kind::QueuedEvent, Out, 4, "4", "int32 code",
     "queued: the first failure code of an assessment", code, codeShape},
    {msg::PreCheck, "PreCheck", E, Out, 44, "44", "s_ThumbTimigCheck", "the check a thumb commit is judged by",
     preCheck, preCheckShape},
    {msg::WriteThumb, "WriteThumb", C, Out, 24, "24 (vector object); reply 1", "std::vector<s_InterfaceThumbTiming>",
     "hands the thumb choice to the device; a non-zero answer refreshes the page", thumbTimings, thumbTimingsShape},
    {msg::WritingReference, "WritingReference", E, Out, 4, "4", "int32 1", "announces the reference commit", wordValue,
     wordValueShape},
    {msg::WriteReference, "WriteReference", E, Out, 24, VectorObject, "std::vector<s_InterfacePresetTiming>",
     "hands the reference choice to the device", referenceTimings, referenceTimingsShape},
    {msg::ShowWaiting, "ShowWaiting", E, Out, -1, "text length + 1", "UTF-8 text", "shows the waiting indicator",
     waitingText, waitingTextShape},
    {msg::HideWaiting, "HideWaiting", E, Out, 0, "0", "", "hides the waiting indicator", nullptr, nullptr},
    {msg::MessageBox, "MessageBox", E, Out, 556, "556", "s_MessageBoxRequest",
     "the bandwidth warning (box 14) when a commit's pre-check fails", box, boxShape},
};

const char* kindText(Kind kind)
{
    switch (kind) {
    case Kind::Command:
        return "command";
    case Kind::Event:
        return "event";
    case Kind::QueuedEvent:
        return "event (queued)";
    }
    return "";
}

} // namespace

const std::vector<MessageInfo>& messageTable()
{
    return g_table;
}

const MessageInfo* findMessage(std::uint32_t number)
{
    for (const MessageInfo& info : g_table) {
        if (info.number == number)
            return &info;
    }
    return nullptr;
}

const MessageInfo* findMessage(const std::string& name)
{
    for (const MessageInfo& info : g_table) {
        if (name == info.name)
            return &info;
    }
    return nullptr;
}

std::string hexNumber(std::uint32_t number)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", number);
    return text;
}

Fields decodePayload(const MessageInfo& info, const void* data, int size)
{
    if (info.decode == nullptr)
        return Fields::object();
    // A text's length is its own; every other payload has one exact length.
    const bool text = info.size < 0;
    if (data == nullptr || (text ? size <= 0 || static_cast<const char*>(data)[size - 1] != '\0' : size != info.size))
        return {{"error", "unexpected length " + std::to_string(size)}};
    return info.decode(data);
}

Fields expectableFields(const MessageInfo& info)
{
    Fields fields = info.shape != nullptr ? info.shape() : Fields::object();
    if (info.decode != nullptr)
        fields["error"] = "";
    return fields;
}

std::string messagesMarkdown()
{
    std::ostringstream out;
    out << "# Messages of the output EDID view model\n\n"
           "Every message number the component handles (in) or sends (out). Generated by\n"
           "`edidsim --messages-markdown` from the table that also names the messages in the\n"
           "simulator's trace; a test fails when this file differs from what the table generates.\n\n"
           "| number | name | kind | dir | length | record | what the component does |\n"
           "| --- | --- | --- | --- | --- | --- | --- |\n";
    for (const MessageInfo& info : g_table) {
        out << "| " << hexNumber(info.number) << " | " << info.name << " | " << kindText(info.kind) << " | "
            << (info.direction == Direction::In ? "in" : "out") << " | " << info.length << " | "
            << (info.record[0] != '\0' ? std::string("`") + info.record + "`" : std::string()) << " | " << info.effect
            << " |\n";
    }
    return out.str();
}

} // namespace sim
} // namespace edidvm
