#include "sim/messages.h"

#include "protomodel/queryinfo.h"
#include "sim/decode.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>

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
    return {{"type", 0}};
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
    {0xFC021009u, "SetCurrentInterface", E, In, 840, "840", "s_InterfaceList",
     "replaces the current interface; sends its detail and thumb timings", record<s_InterfaceList>,
     recordShape<s_InterfaceList>},
    {0xFC031007u, "SdiInterface", E, In, 16, "16", "s_SDIInterfaceInfo", "records the current SDI interface",
     sdiInterface, sdiInterfaceShape},
    {0xFC051016u, "InterfaceType", C, In, -1, "any; replies 4", "", "replies with the current interface's type",
     nullptr, typeReplyShape},
    {0xFC00060Au, "RefreshTiming", E, In, -1, NotRead, "",
     "re-reads the current interface (or the first) and sends its detail timing, thumb timing and notice", nullptr,
     nullptr},
    {0xFC00060Bu, "SelectedInterfaceTiming", E, In, -1, NotRead, "",
     "adopts the device's selected interface, else the first of type 4 whose status is not 2, else the one "
     "with the smallest connector; announces it and sends its thumb timing and notice",
     nullptr, nullptr},
    {0xFC000605u, "ThumbCheckRequest", E, In, 8, Envelope, "QueryInfo<s_TimigCheckQuery> (stThumbCheckArry)",
     "stamps the checks with the current interface, has them judged, forwards the verdicts", thumbChecks,
     thumbChecksShape},
    {0xFC000606u, "DetailCheckRequest", E, In, 8, Envelope, "QueryInfo<s_TimigCheckQuery> (stDetailCheckArry)",
     "as the thumb request; forwards the current interface's verdicts for interface types 4 and 8 only", detailChecks,
     detailChecksShape},
    {0xFC00060Cu, "ThumbChoice", E, In, 40, "40", "s_InterfaceThumbTiming",
     "stores the choice; commits it at once when no screen is affected, else assesses it per screen and asks for "
     "confirmation (box 35)",
     record<s_InterfaceThumbTiming>, recordShape<s_InterfaceThumbTiming>},
    {0xFC00060Du, "ReferenceChoice", E, In, 68, "68", "s_InterfacePresetTiming",
     "as the thumb choice, with box 36 and the reference commit", record<s_InterfacePresetTiming>,
     recordShape<s_InterfacePresetTiming>},
    {0xFC070606u, "PublishReference", E, In, -1, NotRead, "",
     "sends the stored reference choice of the current interface as a thumb timing", nullptr, nullptr},
    {0xFC081005u, "ChangedReferenceTimings", E, In, 24, VectorObject, "std::vector<s_InterfacePresetTiming>",
     "takes over the current interface's detail timing; sends it on", referenceTimings, referenceTimingsShape},
    {0xFC081006u, "ChangedThumbTimings", E, In, 24, VectorObject, "std::vector<s_InterfaceThumbTiming>",
     "sends the current interface's changed thumb timing on, with a notice", thumbTimings, thumbTimingsShape},
    {0xFC000617u, "InUseAsked", E, In, -1, NotRead, "", "tells whether the current interface is used by a screen",
     nullptr, nullptr},
    {0xFC030204u, "InUseAsked2", E, In, -1, NotRead, "", "the same", nullptr, nullptr},
    {0xFC08021Eu, "InUseAsked3", E, In, -1, NotRead, "", "the same", nullptr, nullptr},
    {0xFC000620u, "BoxAnswer", E, In, 556, "556", "s_MessageBoxRequest",
     "the user's answer to box 35 or 36: declined refreshes the page, accepted commits", boxAnswer, boxAnswerShape},

    {0xFC050111u, "InterfaceDetail", C, Out, 8, Envelope, "QueryInfo<s_InterfaceDetailInfo>",
     "asks for the interface list; filter \"interfaceId\" when asking whether the interface is in use",
     inEnvelope<s_InterfaceDetailInfo>, filterShape},
    {0xFC020607u, "DetailTiming", E, Out, 56, "56", "s_TimingDetailInfo", "the current interface's detail timing",
     record<s_TimingDetailInfo>, recordShape<s_TimingDetailInfo>},
    {0xFC020608u, "ThumbTiming", E, Out, 28, "28", "s_ThumbTimingInfo", "the current interface's thumb timing",
     record<s_ThumbTimingInfo>, recordShape<s_ThumbTimingInfo>},
    {0xFC08100Au, "SelectedInterface", C, Out, 0, "0; reply 4", "", "asks which interface the device has selected",
     nullptr, nullptr},
    {0xFC001009u, "AdoptedInterface", C, Out, 4, "4", "int32 interface id",
     "announces the interface adopted as current", interfaceId, interfaceIdShape},
    {0xFC030606u, "TimingNotice", E, Out, 16, "16", "s_InterfaceTimingNotice",
     "carried words of the current interface's timing", notice, noticeShape},
    {0xFC051000u, "ThumbCheck", C, Out, 8, Envelope, "QueryInfo<s_TimigCheckQuery>",
     "has the timing-check service judge thumb checks (also the thumb commit's bandwidth pre-check)", thumbChecks,
     thumbChecksShape},
    {0xFC051001u, "DetailCheck", C, Out, 8, Envelope, "QueryInfo<s_TimigCheckQuery>",
     "has the timing-check service judge detail checks (empty for the reference commit's pre-check)", detailChecks,
     detailChecksShape},
    {0xFC020603u, "ThumbCheckResults", E, Out, 24, VectorObject, "s_TimigCheckResultArry",
     "every verdict of a thumb check request", verdicts, verdictsShape},
    {0xFC020604u, "DetailCheckResults", E, Out, 24, VectorObject, "s_TimigCheckResultArry",
     "the current interface's verdicts of a detail check request", verdicts, verdictsShape},
    {0xFC030601u, "ChangedDetail", E, Out, 56, "56", "s_TimingDetailInfo",
     "the current interface's detail timing after a change from the device", record<s_TimingDetailInfo>,
     recordShape<s_TimingDetailInfo>},
    {0xFC030602u, "ChangedThumb", E, Out, 28, "28", "s_ThumbTimingInfo",
     "the current interface's thumb timing after a change from the device", record<s_ThumbTimingInfo>,
     recordShape<s_ThumbTimingInfo>},
    {0xFC030605u, "Confirmation", E, Out, 556, "556", "s_MessageBoxRequest",
     "asks the user to confirm a change that affects screens (box 35 thumb, 36 reference)", box, boxShape},
    {0xFC020611u, "CommittedThumb", E, Out, 28, "28", "s_ThumbTimingInfo",
     "the committed thumb timing, or the stored reference choice when asked to publish it", record<s_ThumbTimingInfo>,
     recordShape<s_ThumbTimingInfo>},
    {0xFC02060Eu, "InUse", E, Out, 1, "1", "uint8", "1 when the current interface is used by a screen", inUse,
     inUseShape},
    {0xFC050200u, "Screens", C, Out, 8, Envelope, "QueryInfo<s_ScreenDetail>",
     "asks for the screens, filter \"screenType\" 2", inEnvelope<s_ScreenDetail>, filterShape},
    {0xFC0D1000u, "Subcards", C, Out, 8, Envelope, "QueryInfo<s_SubcardQuery>",
     "asks for the subcards and their connectors", subcardQuery, subcardQueryShape},
    {0xFC000004u, "DeviceParam", C, Out, 0, "0; reply 4", "", "asks for the device parameter the subcard service needs",
     nullptr, nullptr},
    {0xFC05021Fu, "Assess", C, Out, 8, "8 (envelope address); reply 1", "QueryInfo<s_TimingAssessQuery>",
     "has the device assess the new timing for one screen", assessQuery, assessQueryShape},
    {0xFC02022Du, "AssessFailed", Kind::QueuedEvent, Out, 4, "4", "int32 code",
     "queued: the first failure code of an assessment", code, codeShape},
    {0xFC000626u, "PreCheck", E, Out, 44, "44", "s_ThumbTimigCheck", "the check a thumb commit is judged by", preCheck,
     preCheckShape},
    {0xFC051008u, "WriteThumb", C, Out, 24, "24 (vector object); reply 1", "std::vector<s_InterfaceThumbTiming>",
     "hands the thumb choice to the device; a non-zero answer refreshes the page", thumbTimings, thumbTimingsShape},
    {0xFC0C0C27u, "WritingReference", E, Out, 4, "4", "int32 1", "announces the reference commit", wordValue,
     wordValueShape},
    {0xFC051009u, "WriteReference", E, Out, 24, VectorObject, "std::vector<s_InterfacePresetTiming>",
     "hands the reference choice to the device", referenceTimings, referenceTimingsShape},
    {0xFC0C0C0Fu, "ShowWaiting", E, Out, -1, "text length + 1", "UTF-8 text", "shows the waiting indicator",
     waitingText, waitingTextShape},
    {0xFC0C0C10u, "HideWaiting", E, Out, 0, "0", "", "hides the waiting indicator", nullptr, nullptr},
    {0xFC0C0C12u, "MessageBox", E, Out, 556, "556", "s_MessageBoxRequest",
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
