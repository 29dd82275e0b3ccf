// A host that knows the binary contract only from the declarations below: no
// project header is included. Interfaces are C-style objects whose first word
// points at a table of function pointers in slot order; records are byte
// offsets. A changed slot order or layout makes this host fail.
//
// Every message number is written here again, from the message reference
// and not from the library's sources, so that a number mistyped there cannot
// pass by agreeing with itself; a test checks that the reference lists
// exactly these numbers.

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Params = std::map<std::string, std::string>;
constexpr int CommandKind = int(0xF0000001u);
constexpr int EventKind = int(0xF0000002u);

// How a message crosses: a command, an event delivered at once, or an event
// queued for later delivery.
enum class Kind { Command, Event, Queued };

const char* kindName(Kind kind)
{
    return kind == Kind::Command ? "command" : kind == Kind::Event ? "event" : "queued";
}

std::string hex(std::uint32_t number)
{
    char text[11];
    std::snprintf(text, sizeof text, "0x%08X", unsigned(number));
    return text;
}

// What the component receives, in the order it subscribes.
struct Incoming
{
    const char* name;
    std::uint32_t number;
    Kind kind;
};
namespace in {
constexpr Incoming Start{"Start", 0xFFFF0000u, Kind::Event}; // delivered by the host, never subscribed
constexpr Incoming PublishReference{"PublishReference", 0xFC070606u, Kind::Event};
constexpr Incoming BoxAnswer{"BoxAnswer", 0xFC000620u, Kind::Event};
constexpr Incoming SetCurrentInterface{"SetCurrentInterface", 0xFC021009u, Kind::Event};
constexpr Incoming RefreshTiming{"RefreshTiming", 0xFC00060Au, Kind::Event};
constexpr Incoming SelectedInterfaceTiming{"SelectedInterfaceTiming", 0xFC00060Bu, Kind::Event};
constexpr Incoming ThumbCheckRequest{"ThumbCheckRequest", 0xFC000605u, Kind::Event};
constexpr Incoming DetailCheckRequest{"DetailCheckRequest", 0xFC000606u, Kind::Event};
constexpr Incoming ThumbChoice{"ThumbChoice", 0xFC00060Cu, Kind::Event};
constexpr Incoming ReferenceChoice{"ReferenceChoice", 0xFC00060Du, Kind::Event};
constexpr Incoming InUseAsked{"InUseAsked", 0xFC000617u, Kind::Event};
constexpr Incoming SdiInterface{"SdiInterface", 0xFC031007u, Kind::Event};
constexpr Incoming InterfaceType{"InterfaceType", 0xFC051016u, Kind::Command};
constexpr Incoming ChangedReferenceTimings{"ChangedReferenceTimings", 0xFC081005u, Kind::Event};
constexpr Incoming ChangedThumbTimings{"ChangedThumbTimings", 0xFC081006u, Kind::Event};
constexpr Incoming InUseAsked2{"InUseAsked2", 0xFC030204u, Kind::Event};
constexpr Incoming InUseAsked3{"InUseAsked3", 0xFC08021Eu, Kind::Event};
// Every number but Start.
const Incoming* const subscribed[] = {
    &PublishReference,        &BoxAnswer,           &SetCurrentInterface, &RefreshTiming,
    &SelectedInterfaceTiming, &ThumbCheckRequest,   &DetailCheckRequest,  &ThumbChoice,
    &ReferenceChoice,         &InUseAsked,          &SdiInterface,        &InterfaceType,
    &ChangedReferenceTimings, &ChangedThumbTimings, &InUseAsked2,         &InUseAsked3};
} // namespace in

// What the component sends: payload length (a NUL-terminated text where
// TextLength) and, for a command, the length of the reply it reads.
constexpr int TextLength = -1;
struct Outgoing
{
    const char* name;
    std::uint32_t number;
    Kind kind;
    int length;
    int replyLength;
};
namespace out {
constexpr Outgoing InterfaceDetail{"InterfaceDetail", 0xFC050111u, Kind::Command, 8, 0};
constexpr Outgoing DetailTiming{"DetailTiming", 0xFC020607u, Kind::Event, 56, 0};
constexpr Outgoing ThumbTiming{"ThumbTiming", 0xFC020608u, Kind::Event, 28, 0};
constexpr Outgoing SelectedInterface{"SelectedInterface", 0xFC08100Au, Kind::Command, 0, 4};
constexpr Outgoing AdoptedInterface{"AdoptedInterface", 0xFC001009u, Kind::Command, 4, 0};
constexpr Outgoing TimingNotice{"TimingNotice", 0xFC030606u, Kind::Event, 16, 0};
constexpr Outgoing ThumbCheck{"ThumbCheck", 0xFC051000u, Kind::Command, 8, 0};
constexpr Outgoing DetailCheck{"DetailCheck", 0xFC051001u, Kind::Command, 8, 0};
constexpr Outgoing ThumbCheckResults{"ThumbCheckResults", 0xFC020603u, Kind::Event, 24, 0};
constexpr Outgoing DetailCheckResults{"DetailCheckResults", 0xFC020604u, Kind::Event, 24, 0};
constexpr Outgoing ChangedDetail{"ChangedDetail", 0xFC030601u, Kind::Event, 56, 0};
constexpr Outgoing ChangedThumb{"ChangedThumb", 0xFC030602u, Kind::Event, 28, 0};
constexpr Outgoing Confirmation{"Confirmation", 0xFC030605u, Kind::Event, 556, 0};
constexpr Outgoing CommittedThumb{"CommittedThumb", 0xFC020611u, Kind::Event, 28, 0};
constexpr Outgoing InUse{"InUse", 0xFC02060Eu, Kind::Event, 1, 0};
constexpr Outgoing Screens{"Screens", 0xFC050200u, Kind::Command, 8, 0};
constexpr Outgoing Subcards{"Subcards", 0xFC0D1000u, Kind::Command, 8, 0};
constexpr Outgoing DeviceParam{"DeviceParam", 0xFC000004u, Kind::Command, 0, 4};
constexpr Outgoing Assess{"Assess", 0xFC05021Fu, Kind::Command, 8, 1};
constexpr Outgoing AssessFailed{"AssessFailed", 0xFC02022Du, Kind::Queued, 4, 0};
constexpr Outgoing PreCheck{"PreCheck", 0xFC000626u, Kind::Event, 44, 0};
constexpr Outgoing WriteThumb{"WriteThumb", 0xFC051008u, Kind::Command, 24, 1};
constexpr Outgoing WritingReference{"WritingReference", 0xFC0C0C27u, Kind::Event, 4, 0};
constexpr Outgoing WriteReference{"WriteReference", 0xFC051009u, Kind::Event, 24, 0};
constexpr Outgoing ShowWaiting{"ShowWaiting", 0xFC0C0C0Fu, Kind::Event, TextLength, 0};
constexpr Outgoing HideWaiting{"HideWaiting", 0xFC0C0C10u, Kind::Event, 0, 0};
constexpr Outgoing MessageBox{"MessageBox", 0xFC0C0C12u, Kind::Event, 556, 0};
const Outgoing* const all[] = {&InterfaceDetail,
                               &DetailTiming,
                               &ThumbTiming,
                               &SelectedInterface,
                               &AdoptedInterface,
                               &TimingNotice,
                               &ThumbCheck,
                               &DetailCheck,
                               &ThumbCheckResults,
                               &DetailCheckResults,
                               &ChangedDetail,
                               &ChangedThumb,
                               &Confirmation,
                               &CommittedThumb,
                               &InUse,
                               &Screens,
                               &Subcards,
                               &DeviceParam,
                               &Assess,
                               &AssessFailed,
                               &PreCheck,
                               &WriteThumb,
                               &WritingReference,
                               &WriteReference,
                               &ShowWaiting,
                               &HideWaiting,
                               &MessageBox};
} // namespace out

const Outgoing* outgoingRow(std::uint32_t number)
{
    for (const Outgoing* row : out::all)
        if (row->number == number)
            return row;
    return nullptr;
}

// Unnamed slots: the library must never call them.
using Slot = void (*)();
#define UNNAMED +[] { std::abort(); }

// As the platform lays out a virtual table: offset to top and the class's
// identity precede slot 0. A library built with UBSan's type checks reads the
// identity and must find the interface the contract names.
template <typename Slots>
struct VirtualTable
{
    std::ptrdiff_t offsetToTop;
    const std::type_info* identity;
    Slots slots;
};
#define VTABLE_NAMED(Slots, name, mangledName, ...)                                                                    \
    const abi::__class_type_info name##Identity(mangledName);                                                          \
    const VirtualTable<Slots> name = {0, &name##Identity, {__VA_ARGS__}}
#define VTABLE(Slots, name, mangled, ...) VTABLE_NAMED(Slots, name, "N3kpf" mangled "E", __VA_ARGS__)

Bytes bytesOf(const void* data, std::size_t size)
{
    const auto* begin = static_cast<const unsigned char*>(data);
    return data != nullptr ? Bytes(begin, begin + size) : Bytes();
}

template <typename T>
T recordOf(const Bytes& bytes)
{
    T record{};
    if (bytes.size() == sizeof record)
        std::memcpy(&record, bytes.data(), sizeof record);
    else
        ADD_FAILURE() << "a payload of " << bytes.size() << " bytes read as a record of " << sizeof record;
    return record;
}

// Messages and responses: objects of this host, read by the library. A
// response is a message with the response table.
struct Message
{
    const void* table;
    int kind, number, size;
    Bytes bytes;
    bool hasData;
    std::string sender;
};
struct MessageTable
{
    Slot slot0, slot1;
    int (*kind)(const Message*), (*number)(const Message*), (*size)(const Message*);
    const void* (*data)(const Message*);
};
VTABLE(
    MessageTable, messageTable, "8IMessage", UNNAMED, UNNAMED, [](const Message* m) { return m->kind; },
    [](const Message* m) { return m->number; }, [](const Message* m) { return m->size; },
    [](const Message* m) -> const void* { return m->hasData ? m->bytes.data() : nullptr; });
struct ResponseTable
{
    Slot slot0;
    const void* (*data)(const Message*);
    int (*size)(const Message*);
};
VTABLE(
    ResponseTable, responseTable, "9IResponse", UNNAMED,
    [](const Message* r) -> const void* { return r->bytes.data(); }, [](const Message* r) { return r->size; });

// Timings: the short one (28 bytes) and the detailed one (56 bytes).
struct Thumb
{
    std::uint32_t param0 = 0;
    float refresh = 0.0f;
    std::int32_t width = 0, height = 0;
    std::uint32_t param4 = 0, param5 = 0, param6 = 0;
};
static_assert(sizeof(Thumb) == 28, "a thumb timing is 28 bytes");
struct Detail
{
    std::uint32_t param0 = 0;
    float refresh = 0.0f;
    std::int32_t width = 0;
    std::uint32_t param3[4] = {};
    std::int32_t height = 0;
    std::uint32_t param8[6] = {};
};
static_assert(sizeof(Detail) == 56, "a detail timing is 56 bytes");

// The 840-byte interface record: the fields this host sets or reads at their
// offsets, and its five texts as real strings.
struct InterfaceRecord
{
    std::int32_t id = 0, word1 = 0, word2 = 0, slot = 0, connector = 0, word5 = 0; // 0, 12, 16
    std::int32_t auxWord0 = 0, type = 0, auxWords2[6] = {};                        // 28
    std::string usedByScreen;                                                      // 56
    std::uint64_t pad2 = 0;
    std::string auxText18; // 96
    std::uint64_t pad3 = 0;
    std::string auxText28, ifText42; // 136, 168
    Thumb thumb;                     // 200
    unsigned char pad4[28] = {};
    Detail detail; // 256
    unsigned char pad5[56] = {};
    std::uint32_t word92 = 0, word93 = 0; // 368
    std::string ifText94;                 // 376
    std::int32_t words102[35] = {};
    std::int32_t checkParam0 = 0, word138 = 0, checkParam1 = 0; // 548, 556
    std::int32_t words140[18] = {};
    std::uint32_t word158 = 0; // 632
    unsigned char pad6[204] = {};
};
static_assert(sizeof(InterfaceRecord) == 840, "the interface record is 840 bytes");

InterfaceRecord interfaceRecord(std::int32_t id, std::int32_t type)
{
    InterfaceRecord r;
    r.id = id;
    r.type = type;
    r.slot = 1;
    r.connector = id - 5;
    r.usedByScreen = "screen";
    r.thumb = {std::uint32_t(id), 60.0f, 1900 + id, 1000 + id, 400u + id, 500u + id, 600u + id};
    r.detail = {100u + std::uint32_t(id), 60.0f,     1900 + id,
                {103, 104, 105, 106},     1000 + id, {108, 109, 110, 111, 112, 113}};
    r.word92 = 920u + id;
    r.word158 = 1580u + id;
    r.checkParam0 = 10 + id;
    r.checkParam1 = 20 + id;
    return r;
}

// The records the other queries carry, each at the size the contract gives:
// a timing chosen for an interface or a screen (40 and 68 bytes), and a
// timing to check (44 and 72 bytes).
template <typename Timing>
struct Choice
{
    std::int32_t id = 0;
    Timing timing;
    std::uint32_t tail0 = 0, tail1 = 0;
};
static_assert(sizeof(Choice<Thumb>) == 40 && sizeof(Choice<Detail>) == 68, "choices are 40 and 68 bytes");
template <typename Timing>
struct Check
{
    std::int32_t id = 0, tag = 0;
    Timing timing;
    std::int32_t checkParam0 = 0, checkParam1 = 0;
};
static_assert(sizeof(Check<Thumb>) == 44 && sizeof(Check<Detail>) == 72, "checks are 44 and 72 bytes");
struct Verdict
{
    std::int32_t id = 0, word1 = 0;
    float float2 = 0.0f, float3 = 0.0f;
    std::int32_t bandwidthLimit = 0, bandwidthNeeded = 0;
    std::vector<std::int32_t> list6{}, frameRates{}; // 24, 48
    std::int32_t word18 = 0, maxFrameRate = 0, overBandwidth = 0, word21 = 0;
};
static_assert(sizeof(Verdict) == 88, "a verdict is 88 bytes");
struct OutputRecord
{
    std::int32_t interfaceId = 0, word1 = 0;
    std::string text2{};
    std::uint32_t words10[8] = {};
    std::vector<std::array<std::uint32_t, 4>> list18{};
    std::vector<std::array<std::uint32_t, 6>> list24{};
};
static_assert(sizeof(OutputRecord) == 120, "a screen's output is 120 bytes");
struct ScreenRecord
{
    std::uint32_t id = 0, word1 = 0, index = 0, word3 = 0;
    std::string text4;
    std::uint32_t word12 = 0;
    std::string text14;
    std::uint32_t words22[7] = {};
    std::vector<OutputRecord> outputs; // 120
    std::uint32_t words36[89] = {};
    std::string text126;
    std::uint32_t word134 = 0;
};
static_assert(sizeof(ScreenRecord) == 544, "a screen is 544 bytes");
struct ConnectorRecord
{
    std::int32_t id = 0, words1[2] = {}, key = 0, words4[2] = {};
};
static_assert(sizeof(ConnectorRecord) == 24, "a connector is 24 bytes");
struct SubcardRecord
{
    std::int32_t slot = 0, words1[4] = {};
    std::vector<ConnectorRecord> connectors;
};
static_assert(sizeof(SubcardRecord) == 48, "a subcard is 48 bytes");
struct Assessment
{
    std::int32_t word0 = 0, code = 0;
};
struct MessageBoxRecord
{
    std::int32_t boxId = 0, boxType = 0, param1 = -1, param2 = -1;
    unsigned char reserved1[8] = {};
    char text[256] = {};
    std::uint8_t result = 0, flag1 = 1, flag2 = 0, reserved2 = 0; // 280
    std::int32_t duration = 2000;
    char detailText[256] = {};
    std::uint8_t flags[4] = {};
    std::int32_t param3 = -1, param4 = 1;
};
static_assert(sizeof(MessageBoxRecord) == 556, "a message box is 556 bytes");

// A query envelope: a filter the answerer calls if set, then the query's
// data at 32. It travels as its address.
template <typename T>
struct Envelope
{
    std::function<bool(Params&)> filter;
    T info;
};
static_assert(sizeof(std::function<bool(Params&)>) == 32, "a filter is 32 bytes");
template <typename T>
struct ListQuery // interfaces, screens
{
    std::uint32_t words0[4] = {};
    std::vector<T> list;
};
struct CheckQuery
{
    std::vector<Verdict> verdicts;
    std::vector<Check<Thumb>> thumbChecks;
    std::vector<Check<Detail>> detailChecks;
};
struct SubcardQuery
{
    std::int32_t request = 0;
    std::vector<SubcardRecord> subcards;
};
struct AssessQuery
{
    std::vector<Choice<Thumb>> timings;
    std::vector<Assessment> assessments;
};

// What the host answers, set by each test before it drives the component.
struct Answers
{
    std::vector<InterfaceRecord> interfaces;
    std::int32_t selected = -1;
    std::vector<Verdict> verdicts;
    std::vector<ScreenRecord> screens;
    std::vector<SubcardRecord> subcards;
    std::int32_t deviceParam = 77;
    std::uint8_t assessed = 1; // non-zero: the assessment was carried out
    std::vector<Assessment> assessments;
    std::uint8_t writeRefused = 0;
    std::vector<int> tiedConnectors;
};

// What the library did to this host, in order.
struct Sent
{
    Kind kind;
    std::uint32_t number;
    int size, mode;
    Bytes bytes;
};
std::set<const void*> live;
std::vector<Sent> sent;
std::vector<std::string> subscriptions; // "event 0xFC070606"
std::vector<std::string> lookups;
std::vector<const void*> releasedTables; // the table of each object released
std::map<std::uint32_t, Params> filters; // what each query's filter put in
std::vector<Check<Thumb>> judgedThumbChecks;
std::vector<Choice<Thumb>> writtenThumbs;
std::vector<std::int32_t> tiesAsked; // subcard, connector key, device parameter
Answers answers;

void resetHost()
{
    live.clear();
    sent.clear();
    subscriptions.clear();
    lookups.clear();
    releasedTables.clear();
    filters.clear();
    judgedThumbChecks.clear();
    writtenThumbs.clear();
    tiesAsked.clear();
    answers = Answers();
}

template <int MessageKind>
Message* createMessage(void*, int number, int size, const void* data, const char* sender)
{
    auto* m = new Message{&messageTable.slots, MessageKind, number, size, {}, data != nullptr, sender};
    m->bytes = bytesOf(data, std::size_t(size > 0 ? size : 0));
    live.insert(m);
    return m;
}
template <Kind K>
void takeOver(void*, Message** message, int mode)
{
    sent.push_back({K, std::uint32_t((*message)->number), (*message)->size, mode, (*message)->bytes});
    live.erase(*message);
    delete *message;
}
template <Kind K>
int subscribe(void*, int number, const std::string& sender)
{
    subscriptions.push_back(std::string(kindName(K)) + " " + hex(std::uint32_t(number)));
    EXPECT_EQ(sender, "outputedidviewmodel");
    return 0;
}

// The envelope whose address a query carries; null for a payload of
// another length, which the trace then shows.
template <typename T>
Envelope<T>* envelopeOf(const Message& m)
{
    Envelope<T>* envelope = nullptr;
    if (m.bytes.size() == sizeof envelope)
        std::memcpy(&envelope, m.bytes.data(), sizeof envelope);
    return envelope;
}

template <typename T>
void callFilter(const Envelope<T>& envelope, std::uint32_t number)
{
    Params& params = filters[number];
    params.clear();
    if (envelope.filter) {
        EXPECT_TRUE(envelope.filter(params)) << "the filter of " << hex(number) << " applies";
    }
}

// Answers a command as the other components would; the reply is as long as
// the reference says.
Bytes answer(const Message& m)
{
    const std::uint32_t number = std::uint32_t(m.number);
    const Outgoing* row = outgoingRow(number);
    if (row == nullptr || row->kind != Kind::Command) {
        ADD_FAILURE() << "command " << hex(number) << " is not in the message reference";
        return {};
    }
    Bytes reply;
    switch (number) {
    case out::InterfaceDetail.number:
        if (auto* query = envelopeOf<ListQuery<InterfaceRecord>>(m)) {
            callFilter(*query, number);
            const Params& params = filters[number];
            const auto wanted = params.find("interfaceId");
            for (const InterfaceRecord& r : answers.interfaces)
                if (params.empty() || (wanted != params.end() && wanted->second == std::to_string(r.id)))
                    query->info.list.push_back(r);
        }
        break;
    case out::SelectedInterface.number:
        reply = bytesOf(&answers.selected, sizeof answers.selected);
        break;
    case out::ThumbCheck.number:
    case out::DetailCheck.number:
        if (auto* query = envelopeOf<CheckQuery>(m)) {
            judgedThumbChecks = query->info.thumbChecks;
            query->info.verdicts = answers.verdicts;
        }
        break;
    case out::Screens.number:
        if (auto* query = envelopeOf<ListQuery<ScreenRecord>>(m)) {
            callFilter(*query, number);
            query->info.list = answers.screens;
        }
        break;
    case out::Subcards.number:
        if (auto* query = envelopeOf<SubcardQuery>(m))
            query->info.subcards = answers.subcards;
        break;
    case out::DeviceParam.number:
        reply = bytesOf(&answers.deviceParam, sizeof answers.deviceParam);
        break;
    case out::Assess.number:
        if (auto* query = envelopeOf<AssessQuery>(m))
            query->info.assessments = answers.assessments;
        reply = bytesOf(&answers.assessed, sizeof answers.assessed);
        break;
    case out::WriteThumb.number:
        // The payload is the sender's vector object, valid during the send.
        if (m.bytes.size() == sizeof(std::vector<Choice<Thumb>>))
            writtenThumbs = *reinterpret_cast<const std::vector<Choice<Thumb>>*>(m.bytes.data());
        reply = bytesOf(&answers.writeRefused, sizeof answers.writeRefused);
        break;
    default:
        break;
    }
    EXPECT_EQ(int(reply.size()), row->replyLength) << "the reply to " << row->name;
    return reply;
}

struct CommandDispatcherTable
{
    Message* (*createMessage)(void*, int number, int size, const void* data, const char* sender);
    void (*release)(void*, void** object);
    int (*send)(void*, Message** message, Message** response, int mode);
    Slot slot3;
    int (*subscribe)(void*, int number, const std::string& sender);
};
VTABLE(
    CommandDispatcherTable, commandTable, "18ICommandDispatcher", createMessage<CommandKind>,
    [](void*, void** object) {
        releasedTables.push_back(*object != nullptr ? *static_cast<const void* const*>(*object) : nullptr);
        if (live.erase(*object) > 0)
            delete static_cast<Message*>(*object);
        *object = nullptr;
    },
    [](void*, Message** message, Message** response, int mode) {
        const Message& m = **message;
        sent.push_back({Kind::Command, std::uint32_t(m.number), m.size, mode, m.bytes});
        const Bytes reply = answer(m);
        live.insert(*response = new Message{&responseTable.slots, 0, 0, int(reply.size()), reply, true, ""});
        return 0;
    },
    UNNAMED, subscribe<Kind::Command>);

struct EventDispatcherTable
{
    Message* (*createMessage)(void*, int number, int size, const void* data, const char* sender);
    Slot slot1;
    void (*post)(void*, Message** message);
    Slot slot3;
    void (*send)(void*, Message** message, int mode);
    int (*subscribe)(void*, int number, const std::string& sender);
};
VTABLE(
    EventDispatcherTable, eventTable, "16IEventDispatcher", createMessage<EventKind>, UNNAMED,
    [](void* self, Message** message) { takeOver<Kind::Queued>(self, message, 0); }, UNNAMED, takeOver<Kind::Event>,
    subscribe<Kind::Event>);

struct MessageCenterTable
{
    Message* (*createMessage)(void*, int number, const char* sender, int size, const void* data, int flags);
};
VTABLE(MessageCenterTable, centerTable, "14IMessageCenter",
       [](void* self, int number, const char* sender, int size, const void* data, int flags) {
           EXPECT_EQ(flags, 0);
           return createMessage<0>(self, number, size, data, sender);
       });

// The two configuration services, outside the kpf namespace. A function
// returning a vector by value takes the object as its first argument, as a
// member function does.
struct DeviceConfigTable
{
    Slot slot0, slot1, slot2, slot3, slot4, slot5;
    std::int32_t (*subcardOfSlot)(void*, std::int32_t slot);
};
VTABLE_NAMED(DeviceConfigTable, deviceConfigTable, "19DeviceConfigManager", UNNAMED, UNNAMED, UNNAMED, UNNAMED, UNNAMED,
             UNNAMED, [](void*, std::int32_t slot) { return 100 + slot; });
struct SubcardConfigTable
{
    Slot slot0, slot1, slot2, slot3, slot4, slot5, slot6, slot7;
    std::vector<int> (*relatedConnectors)(void*, std::int32_t subcard, std::int32_t key, std::int32_t deviceParam);
};
VTABLE_NAMED(SubcardConfigTable, subcardConfigTable, "20SubcardConfigManager", UNNAMED, UNNAMED, UNNAMED, UNNAMED,
             UNNAMED, UNNAMED, UNNAMED, UNNAMED, [](void*, std::int32_t subcard, std::int32_t key, std::int32_t param) {
                 tiesAsked = {subcard, key, param};
                 return answers.tiedConnectors;
             });

// A service object is one word: its table.
const void* commandDispatcher = &commandTable.slots;
const void* eventDispatcher = &eventTable.slots;
const void* messageCenter = &centerTable.slots;
const void* deviceConfig = &deviceConfigTable.slots;
const void* subcardConfig = &subcardConfigTable.slots;
struct HostApiTable
{
    Slot slot0, slot1, slot2;
    void* (*findService)(void*, const char* name);
};
VTABLE(HostApiTable, apiTable, "8IHostApi", UNNAMED, UNNAMED, UNNAMED, [](void*, const char* name) -> void* {
    lookups.push_back(name);
    const std::string key = name;
    return key == "kpf_default_messagecenter" ? &messageCenter
           : key == "commanddispatcher"       ? &commandDispatcher
           : key == "eventdispatcher"         ? &eventDispatcher
           : key == "deviceconfigmanager"     ? &deviceConfig
           : key == "subcardconfigmanager"    ? &subcardConfig
                                              : nullptr;
});
const void* hostApi = &apiTable.slots;

// The component: a virtual destructor (two slots), handleMessage, then the
// handler base's onInit and processMsg.
struct HandlerTable
{
    Slot destroy;
    void (*destroyAndFree)(void*);
    const Message* (*handleMessage)(void*, const Message*);
    int (*onInit)(void*);
    const Message* (*processMsg)(void*, int number, const Message*);
};
struct ComponentInfo
{
    std::function<void*()> creator;
    std::function<void(void*)> deletor;
    std::function<void*(void*)> getMessageHandler;
    const char* id;
};
struct PluginInfo
{
    const char* version;
    ComponentInfo** components;
};

const HandlerTable& tableOf(void* handler)
{
    return **static_cast<const HandlerTable* const*>(handler);
}

const Message* deliver(void* handler, int kind, std::uint32_t number, int size, const void* data)
{
    const Message message{&messageTable.slots, kind, int(number), size, bytesOf(data, size), data != nullptr, "host"};
    return tableOf(handler).handleMessage(handler, &message);
}

// A record delivered as the payload of an incoming number.
template <typename T>
void deliverRecord(void* handler, const Incoming& row, const T& record)
{
    const Message* reply =
        deliver(handler, row.kind == Kind::Command ? CommandKind : EventKind, row.number, int(sizeof record), &record);
    EXPECT_EQ(reply, nullptr) << row.name << " answers nothing";
}

void deliverEmpty(void* handler, const Incoming& row)
{
    EXPECT_EQ(deliver(handler, EventKind, row.number, 0, nullptr), nullptr) << row.name << " answers nothing";
}

std::string subscription(const Incoming& row)
{
    return std::string(kindName(row.kind)) + " " + hex(row.number);
}

// One line per message: kind, number, name, length and, for a send, the
// mode the host expects with it.
std::string describe(Kind kind, std::uint32_t number, const char* name, const std::string& length, int mode)
{
    std::string line = std::string(kindName(kind)) + " " + hex(number) + " " + name + " " + length;
    if (kind != Kind::Queued)
        line += " mode " + std::to_string(mode);
    return line;
}

std::string describe(const Outgoing& row)
{
    const std::string length = row.length == TextLength ? "text" : std::to_string(row.length);
    return describe(row.kind, row.number, row.name, length, row.kind == Kind::Command ? 0 : 9);
}

std::string describe(const Sent& s)
{
    const Outgoing* row = outgoingRow(s.number);
    // A text row matches a payload whose only NUL ends it.
    const bool text = row != nullptr && row->length == TextLength && s.bytes.size() > 1 &&
                      std::find(s.bytes.begin(), s.bytes.end(), 0) == s.bytes.end() - 1;
    return describe(s.kind, s.number, row != nullptr ? row->name : "(not in the reference)",
                    text ? "text" : std::to_string(s.size), s.mode);
}

void expectTrace(const std::vector<const Outgoing*>& expected)
{
    std::vector<std::string> want, got;
    for (const Outgoing* row : expected)
        want.push_back(describe(*row));
    for (const Sent& s : sent)
        got.push_back(describe(s));
    EXPECT_EQ(got, want);
}

// The payload of the last message sent with the row's number.
Bytes lastSent(const Outgoing& row)
{
    for (auto s = sent.rbegin(); s != sent.rend(); ++s)
        if (s->number == row.number)
            return s->bytes;
    ADD_FAILURE() << row.name << " was not sent";
    return {};
}

TEST(ContractTest, AHostOfItsOwnDrivesTheLibraryThroughTheDeclaredSlotsAndLayouts)
{
    resetHost();
    void* library = dlopen(EDIDVM_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto pluginit = reinterpret_cast<void (*)(const void*)>(dlsym(library, "pluginit"));
    auto pluginfo = reinterpret_cast<const PluginInfo* (*)()>(dlsym(library, "pluginfo"));
    ASSERT_TRUE(pluginit != nullptr && pluginfo != nullptr);
    // A host reads the description before pluginit, checks the version and
    // finds the component by its id.
    const PluginInfo* info = pluginfo();
    pluginit(&hostApi);
    EXPECT_EQ(pluginfo(), info);
    EXPECT_STREQ(info->version, "0.1");
    ASSERT_NE(info->components[0], nullptr);
    EXPECT_EQ(info->components[1], nullptr);
    ComponentInfo& component = *info->components[0];
    EXPECT_STREQ(component.id, "tivra.lcd.viewmodel.output.edid");

    void* handler = component.getMessageHandler(component.creator());
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(lookups, (std::vector<std::string>{"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher"}));
    void* other = component.creator(); // each call a new component
    EXPECT_NE(component.getMessageHandler(other), handler);
    component.deletor(other);

    // Every number the component receives, each on its channel.
    EXPECT_EQ(deliver(handler, EventKind, in::Start.number, 0, nullptr), nullptr);
    std::vector<std::string> registered;
    for (const Incoming* row : in::subscribed)
        registered.push_back(subscription(*row));
    EXPECT_EQ(subscriptions, registered);

    // The current interface, sent whole: its two timing blocks come back.
    const InterfaceRecord seven = interfaceRecord(7, 8);
    deliverRecord(handler, in::SetCurrentInterface, seven);
    expectTrace({&out::DetailTiming, &out::ThumbTiming});
    EXPECT_EQ(sent.at(0).bytes, bytesOf(&seven.detail, 56));
    EXPECT_EQ(sent.at(1).bytes, bytesOf(&seven.thumb, 28));

    // The one command: its reply is made by the message center.
    const Message* reply = deliver(handler, CommandKind, in::InterfaceType.number, 0, nullptr);
    ASSERT_EQ(live.erase(reply), 1u) << "the reply is not one this host made";
    EXPECT_EQ(std::uint32_t(reply->number), in::InterfaceType.number);
    EXPECT_EQ(reply->bytes, (Bytes{8, 0, 0, 0})) << "the type at byte 28";
    EXPECT_EQ(reply->sender, "outputedidviewmodel");
    delete reply;

    // onInit registers again; processMsg routes a number as handleMessage does.
    subscriptions.clear();
    EXPECT_EQ(tableOf(handler).onInit(handler), 0);
    EXPECT_EQ(subscriptions, registered);
    const Message command{&messageTable.slots, CommandKind, int(in::InterfaceType.number), 0, {}, false, "host"};
    reply = tableOf(handler).processMsg(handler, int(in::InterfaceType.number), &command);
    ASSERT_EQ(live.erase(reply), 1u);
    EXPECT_EQ(reply->bytes, (Bytes{8, 0, 0, 0}));
    delete reply;

    // A command's response is released before the message.
    answers.interfaces = {interfaceRecord(7, 8), interfaceRecord(9, 1)};
    sent.clear();
    releasedTables.clear();
    deliverEmpty(handler, in::InUseAsked);
    EXPECT_EQ(releasedTables, (std::vector<const void*>{&responseTable.slots, &messageTable.slots}));
    expectTrace({&out::InterfaceDetail, &out::InUse});

    // Slot 1, the deleting destructor, as the component's own deletor does.
    tableOf(handler).destroyAndFree(handler);
    component.deletor(nullptr);
    EXPECT_TRUE(live.empty()) << "a message or response was not released";
    dlclose(library);
}

// The reference lists each number with its direction and kind, and an
// outgoing one with its lengths: "0xFC08100A out command 0 reply 4".
std::string referenceLine(std::uint32_t number, bool incoming, const std::string& kind, const std::string& lengths)
{
    return hex(number) + (incoming ? " in " : " out ") + kind + (incoming ? "" : " " + lengths);
}

std::string lengthsOf(const Outgoing& row)
{
    std::string lengths = row.length == TextLength ? "text" : std::to_string(row.length);
    if (row.replyLength > 0)
        lengths += " reply " + std::to_string(row.replyLength);
    return lengths;
}

// "8 (envelope address); reply 1", "0; reply 4", "text length + 1".
std::string lengthsOf(const std::string& cell)
{
    std::string lengths = cell.rfind("text length + 1", 0) == 0 ? "text" : "?";
    if (!cell.empty() && std::isdigit(static_cast<unsigned char>(cell[0])))
        lengths = std::to_string(std::stoi(cell));
    const std::size_t reply = cell.find("repl");
    const std::size_t digits = cell.find_first_of("0123456789", reply);
    if (reply != std::string::npos && digits != std::string::npos)
        lengths += " reply " + std::to_string(std::stoi(cell.substr(digits)));
    return lengths;
}

std::vector<std::string> cellsOf(const std::string& line)
{
    std::vector<std::string> cells;
    std::size_t begin = line.find('|');
    while (begin != std::string::npos) {
        const std::size_t end = line.find('|', begin + 1);
        if (end == std::string::npos)
            break;
        std::string cell = line.substr(begin + 1, end - begin - 1);
        cell.erase(0, cell.find_first_not_of(' '));
        cell.erase(cell.find_last_not_of(' ') + 1);
        cells.push_back(cell);
        begin = end;
    }
    return cells;
}

TEST(ContractTest, TheMessageReferenceListsExactlyTheNumbersThisHostChecks)
{
    std::ifstream reference(EDIDVM_MESSAGES_MD);
    ASSERT_TRUE(reference.is_open()) << EDIDVM_MESSAGES_MD;
    const std::map<std::string, std::string> kinds = {
        {"event", "event"}, {"command", "command"}, {"event (queued)", "queued"}};
    std::vector<std::string> listed;
    for (std::string line; std::getline(reference, line);) {
        const std::vector<std::string> cells = cellsOf(line); // number, name, kind, dir, length, ...
        if (cells.size() < 5 || cells[0].rfind("0x", 0) != 0)
            continue;
        const auto kind = kinds.find(cells[2]);
        listed.push_back(referenceLine(std::uint32_t(std::stoul(cells[0], nullptr, 16)), cells[3] == "in",
                                       kind != kinds.end() ? kind->second : cells[2], lengthsOf(cells[4])));
    }

    std::vector<std::string> checked = {referenceLine(in::Start.number, true, kindName(in::Start.kind), "")};
    for (const Incoming* row : in::subscribed)
        checked.push_back(referenceLine(row->number, true, kindName(row->kind), ""));
    for (const Outgoing* row : out::all)
        checked.push_back(referenceLine(row->number, false, kindName(row->kind), lengthsOf(*row)));
    std::sort(listed.begin(), listed.end());
    std::sort(checked.begin(), checked.end());
    std::vector<std::string> unchecked, unlisted;
    std::set_difference(listed.begin(), listed.end(), checked.begin(), checked.end(), std::back_inserter(unchecked));
    std::set_difference(checked.begin(), checked.end(), listed.begin(), listed.end(), std::back_inserter(unlisted));
    EXPECT_EQ(unchecked, std::vector<std::string>()) << "listed in the reference, not checked by this host";
    EXPECT_EQ(unlisted, std::vector<std::string>()) << "checked by this host, not listed in the reference";
}

// One behaviour of the component: what the host delivers and answers, the
// exact trace of what the component sends, and payload checks after it.
struct Flow
{
    const char* name;
    void (*drive)(void* handler);
    std::vector<const Outgoing*> trace;
    void (*check)() = nullptr;
};
void PrintTo(const Flow& flow, std::ostream* os)
{
    *os << flow.name;
}

const InterfaceRecord seven = interfaceRecord(7, 8);

// Interface 7 listed and made current; what that sends is cleared.
void makeSevenCurrent(void* handler)
{
    answers.interfaces = {seven, interfaceRecord(9, 4)};
    deliverRecord(handler, in::SetCurrentInterface, seven);
    sent.clear();
}

// Interface 7 feeds screen 5, and its connector is tied to itself.
void tieSevenToAScreen()
{
    answers.subcards = {SubcardRecord{seven.slot, {}, {ConnectorRecord{seven.connector, {}, 42}}}};
    answers.tiedConnectors = {seven.connector};
    answers.screens.resize(1);
    answers.screens[0].id = 5;
    answers.screens[0].outputs = {OutputRecord{seven.id}};
}

// A choice of seven's own resolution affects no screen; 1280x720 does.
const Choice<Thumb> sameResolution{0, {0, 30.0f, seven.thumb.width, seven.thumb.height, 0, 0, 0}, 0, 0};
const Choice<Thumb> newResolution{0, {0, 50.0f, 1280, 720, 0, 0, 0}, 0, 0};
const Choice<Detail> sameReference{
    0, {0, 30.0f, seven.thumb.width, {1, 2, 3, 4}, seven.thumb.height, {5, 6, 7, 8, 9, 10}}, 0, 0};

MessageBoxRecord answerOf(std::int32_t boxId, std::uint8_t result)
{
    MessageBoxRecord box;
    box.boxId = boxId;
    box.result = result;
    return box;
}

std::int32_t int32Sent(const Outgoing& row)
{
    const Bytes bytes = lastSent(row);
    std::int32_t value = 0;
    EXPECT_EQ(bytes.size(), sizeof value) << row.name;
    if (bytes.size() >= sizeof value)
        std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

template <const Incoming& Row>
void askInUse(void* handler)
{
    makeSevenCurrent(handler);
    deliverEmpty(handler, Row);
}

void checkInUse()
{
    EXPECT_EQ(filters[out::InterfaceDetail.number], (Params{{"interfaceId", "7"}}));
    EXPECT_EQ(lastSent(out::InUse), Bytes{1}) << "interface 7 is used by a screen";
}

const std::vector<const Outgoing*> refreshed = {&out::InterfaceDetail, &out::DetailTiming, &out::ThumbTiming,
                                                &out::TimingNotice};
const std::vector<const Outgoing*> impact = {&out::Screens, &out::InterfaceDetail, &out::Subcards, &out::DeviceParam};
const std::vector<const Outgoing*> thumbCommitted = {&out::InterfaceDetail, &out::PreCheck,   &out::ThumbCheck,
                                                     &out::ShowWaiting,     &out::WriteThumb, &out::HideWaiting,
                                                     &out::CommittedThumb};

std::vector<const Outgoing*> operator+(std::vector<const Outgoing*> first, const std::vector<const Outgoing*>& then)
{
    first.insert(first.end(), then.begin(), then.end());
    return first;
}

const std::vector<Flow> flows = {
    {"RefreshSendsTheCurrentTimingsAndNotice",
     [](void* handler) {
         makeSevenCurrent(handler);
         deliverEmpty(handler, in::RefreshTiming);
     },
     refreshed,
     [] {
         const auto notice = recordOf<std::array<std::uint32_t, 4>>(lastSent(out::TimingNotice));
         EXPECT_EQ(notice, (std::array<std::uint32_t, 4>{927, 1587, 0, 407})) << "words 92 and 158, thumb word 4";
     }},
    {"SelectedInterfaceIsAdoptedAndAnnounced",
     [](void* handler) {
         answers.interfaces = {seven, interfaceRecord(9, 4)};
         answers.selected = 9;
         deliverEmpty(handler, in::SelectedInterfaceTiming);
     },
     {&out::InterfaceDetail, &out::SelectedInterface, &out::AdoptedInterface, &out::ThumbTiming, &out::TimingNotice},
     [] { EXPECT_EQ(int32Sent(out::AdoptedInterface), 9) << "the 4-byte reply names the interface"; }},
    {"ThumbCheckRequestIsJudgedAndForwarded",
     [](void* handler) {
         makeSevenCurrent(handler);
         answers.verdicts = {Verdict{seven.id}};
         Envelope<CheckQuery> request;
         request.info.thumbChecks.resize(1);
         request.info.thumbChecks[0].timing = {0, 60.0f, 1920, 1080, 0, 0, 0};
         deliverRecord(handler, in::ThumbCheckRequest, &request);
     },
     {&out::InterfaceDetail, &out::InterfaceDetail, &out::ThumbCheck, &out::InterfaceDetail, &out::ThumbCheckResults},
     [] {
         ASSERT_EQ(judgedThumbChecks.size(), 1u);
         EXPECT_EQ(judgedThumbChecks[0].id, 7);
         EXPECT_EQ(judgedThumbChecks[0].timing.width, 1920);
         EXPECT_EQ(judgedThumbChecks[0].checkParam0, seven.checkParam0) << "word 137 of the interface";
         EXPECT_EQ(judgedThumbChecks[0].checkParam1, seven.checkParam1) << "word 139 of the interface";
     }},
    {"DetailCheckRequestIsJudgedAndForwarded",
     [](void* handler) {
         makeSevenCurrent(handler);
         answers.verdicts = {Verdict{seven.id}};
         Envelope<CheckQuery> request;
         request.info.detailChecks.resize(1);
         request.info.detailChecks[0].timing = seven.detail;
         deliverRecord(handler, in::DetailCheckRequest, &request);
     },
     {&out::InterfaceDetail, &out::InterfaceDetail, &out::DetailCheck, &out::InterfaceDetail,
      &out::DetailCheckResults}},
    {"ChangedReferenceTimingIsSentOn",
     [](void* handler) {
         makeSevenCurrent(handler);
         const std::vector<Choice<Detail>> changed = {{9, seven.detail, 0, 0}, {seven.id, sameReference.timing, 0, 0}};
         deliverRecord(handler, in::ChangedReferenceTimings, changed);
     },
     {&out::ChangedDetail},
     [] { EXPECT_EQ(lastSent(out::ChangedDetail), bytesOf(&sameReference.timing, 56)); }},
    {"ChangedThumbTimingIsSentOnWithANotice",
     [](void* handler) {
         makeSevenCurrent(handler);
         const std::vector<Choice<Thumb>> changed = {{9, seven.thumb, 0, 0}, {seven.id, newResolution.timing, 0, 0}};
         deliverRecord(handler, in::ChangedThumbTimings, changed);
     },
     {&out::TimingNotice, &out::ChangedThumb},
     [] { EXPECT_EQ(lastSent(out::ChangedThumb), bytesOf(&newResolution.timing, 28)); }},
    {"InUseAsked", askInUse<in::InUseAsked>, {&out::InterfaceDetail, &out::InUse}, checkInUse},
    {"InUseAsked2", askInUse<in::InUseAsked2>, {&out::InterfaceDetail, &out::InUse}, checkInUse},
    {"InUseAsked3", askInUse<in::InUseAsked3>, {&out::InterfaceDetail, &out::InUse}, checkInUse},
    {"UnchangedResolutionIsWrittenAtOnce",
     [](void* handler) {
         makeSevenCurrent(handler);
         deliverRecord(handler, in::ThumbChoice, sameResolution);
     },
     impact + thumbCommitted,
     [] {
         EXPECT_EQ(filters[out::Screens.number], (Params{{"screenType", "2"}}));
         ASSERT_EQ(writtenThumbs.size(), 1u);
         EXPECT_EQ(writtenThumbs[0].id, 7);
         EXPECT_EQ(lastSent(out::CommittedThumb), bytesOf(&sameResolution.timing, 28));
     }},
    {"OverBandwidthIsRefusedWithABox",
     [](void* handler) {
         makeSevenCurrent(handler);
         answers.verdicts = {Verdict{seven.id}};
         answers.verdicts[0].overBandwidth = 1;
         deliverRecord(handler, in::ThumbChoice, sameResolution);
     },
     impact + std::vector<const Outgoing*>{&out::InterfaceDetail, &out::PreCheck, &out::ThumbCheck, &out::MessageBox},
     [] { EXPECT_EQ(recordOf<MessageBoxRecord>(lastSent(out::MessageBox)).boxId, 14); }},
    {"ANewResolutionOnAScreenIsAssessedAndConfirmed",
     [](void* handler) {
         makeSevenCurrent(handler);
         tieSevenToAScreen();
         deliverRecord(handler, in::ThumbChoice, newResolution);
     },
     impact + std::vector<const Outgoing*>{&out::Assess, &out::Confirmation},
     [] {
         EXPECT_EQ(tiesAsked, (std::vector<std::int32_t>{101, 42, 77})) << "slot 1's subcard, key, 4-byte reply";
         EXPECT_EQ(recordOf<MessageBoxRecord>(lastSent(out::Confirmation)).boxId, 35);
     }},
    {"ARefusedAssessmentIsQueuedAndRefreshes",
     [](void* handler) {
         makeSevenCurrent(handler);
         tieSevenToAScreen();
         answers.assessments = {{0, 7}};
         deliverRecord(handler, in::ThumbChoice, newResolution);
     },
     impact + std::vector<const Outgoing*>{&out::Assess, &out::AssessFailed} + refreshed,
     [] { EXPECT_EQ(int32Sent(out::AssessFailed), 7); }},
    {"AnAcceptedConfirmationWritesTheChoice",
     [](void* handler) {
         makeSevenCurrent(handler);
         tieSevenToAScreen();
         deliverRecord(handler, in::ThumbChoice, newResolution);
         sent.clear();
         deliverRecord(handler, in::BoxAnswer, answerOf(35, 1));
     },
     thumbCommitted, [] { EXPECT_EQ(lastSent(out::CommittedThumb), bytesOf(&newResolution.timing, 28)); }},
    {"ADeclinedConfirmationRefreshes",
     [](void* handler) {
         makeSevenCurrent(handler);
         deliverRecord(handler, in::BoxAnswer, answerOf(35, 0));
     },
     refreshed},
    {"AReferenceAffectingNoScreenIsWrittenAtOnce",
     [](void* handler) {
         makeSevenCurrent(handler);
         deliverRecord(handler, in::ReferenceChoice, sameReference);
     },
     impact + std::vector<const Outgoing*>{&out::InterfaceDetail, &out::DetailCheck, &out::ShowWaiting,
                                           &out::WritingReference, &out::WriteReference, &out::HideWaiting},
     [] { EXPECT_EQ(int32Sent(out::WritingReference), 1); }},
    {"TheStoredReferenceIsPublished",
     [](void* handler) {
         makeSevenCurrent(handler);
         deliverRecord(handler, in::ReferenceChoice, sameReference);
         sent.clear();
         deliverEmpty(handler, in::PublishReference);
     },
     {&out::CommittedThumb},
     [] {
         const Thumb published{0, 30.0f, seven.thumb.width, seven.thumb.height, 0, 0, 0};
         EXPECT_EQ(lastSent(out::CommittedThumb), bytesOf(&published, 28));
     }},
};

TEST(ContractTest, EveryOutgoingNumberIsSentInAFlow)
{
    std::set<const Outgoing*> traced;
    for (const Flow& flow : flows)
        traced.insert(flow.trace.begin(), flow.trace.end());
    for (const Outgoing* row : out::all)
        EXPECT_EQ(traced.count(row), 1u) << row->name << " is sent in no flow";
}

// Each flow on a freshly loaded library and started component.
class ContractFlowTest : public testing::TestWithParam<Flow>
{
protected:
    void SetUp() override
    {
        resetHost();
        // Kept mapped after dlclose: Qt, loaded with the library, leaves the
        // per-thread data of a logged warning behind when it is unloaded.
        m_library = dlopen(EDIDVM_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        ASSERT_NE(m_library, nullptr) << dlerror();
        auto pluginit = reinterpret_cast<void (*)(const void*)>(dlsym(m_library, "pluginit"));
        auto pluginfo = reinterpret_cast<const PluginInfo* (*)()>(dlsym(m_library, "pluginfo"));
        ASSERT_TRUE(pluginit != nullptr && pluginfo != nullptr);
        pluginit(&hostApi);
        m_component = pluginfo()->components[0];
        m_object = m_component->creator();
        m_handler = m_component->getMessageHandler(m_object);
        deliver(m_handler, EventKind, in::Start.number, 0, nullptr);
    }

    void TearDown() override
    {
        if (m_component != nullptr)
            m_component->deletor(m_object);
        EXPECT_TRUE(live.empty()) << "a message or response was not released";
        if (m_library != nullptr)
            dlclose(m_library);
    }

    void* m_library = nullptr;
    ComponentInfo* m_component = nullptr;
    void* m_object = nullptr;
    void* m_handler = nullptr;
};

TEST_P(ContractFlowTest, SendsTheNumbersTheReferenceGives)
{
    const Flow& flow = GetParam();
    flow.drive(m_handler);
    expectTrace(flow.trace);
    if (flow.check != nullptr)
        flow.check();
}

INSTANTIATE_TEST_SUITE_P(Flows, ContractFlowTest, testing::ValuesIn(flows),
                         [](const testing::TestParamInfo<Flow>& info) { return std::string(info.param.name); });

} // namespace
