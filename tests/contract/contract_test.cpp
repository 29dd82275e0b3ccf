// SPDX-License-Identifier: MIT
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
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <typeinfo>
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

// A number of the reference: its direction and, for what the component
// sends, the payload length (Text: a NUL-terminated text) and the length of
// the reply it reads.
enum Direction { In, Out };
constexpr int Text = -1;
struct Row
{
    const char* name;
    std::uint32_t number;
    Direction direction;
    Kind kind;
    int length = 0, replyLength = 0;
};
// What the component receives in the order it subscribes, after Start
// (delivered by the host, never subscribed); then what it sends.
const Row reference[] = {
    {"Start", 0xFFFF0000u, In, Kind::Event},
    {"PublishReference", 0xFC070606u, In, Kind::Event},
    {"BoxAnswer", 0xFC000620u, In, Kind::Event},
    {"SetCurrentInterface", 0xFC021009u, In, Kind::Event},
    {"RefreshTiming", 0xFC00060Au, In, Kind::Event},
    {"SelectedInterfaceTiming", 0xFC00060Bu, In, Kind::Event},
    {"ThumbCheckRequest", 0xFC000605u, In, Kind::Event},
    {"DetailCheckRequest", 0xFC000606u, In, Kind::Event},
    {"ThumbChoice", 0xFC00060Cu, In, Kind::Event},
    {"ReferenceChoice", 0xFC00060Du, In, Kind::Event},
    {"InUseAsked", 0xFC000617u, In, Kind::Event},
    {"SdiInterface", 0xFC031007u, In, Kind::Event},
    {"InterfaceType", 0xFC051016u, In, Kind::Command},
    {"ChangedReferenceTimings", 0xFC081005u, In, Kind::Event},
    {"ChangedThumbTimings", 0xFC081006u, In, Kind::Event},
    {"InUseAsked2", 0xFC030204u, In, Kind::Event},
    {"InUseAsked3", 0xFC08021Eu, In, Kind::Event},
    {"InterfaceDetail", 0xFC050111u, Out, Kind::Command, 8},
    {"DetailTiming", 0xFC020607u, Out, Kind::Event, 56},
    {"ThumbTiming", 0xFC020608u, Out, Kind::Event, 28},
    {"SelectedInterface", 0xFC08100Au, Out, Kind::Command, 0, 4},
    {"AdoptedInterface", 0xFC001009u, Out, Kind::Command, 4},
    {"TimingNotice", 0xFC030606u, Out, Kind::Event, 16},
    {"ThumbCheck", 0xFC051000u, Out, Kind::Command, 8},
    {"DetailCheck", 0xFC051001u, Out, Kind::Command, 8},
    {"ThumbCheckResults", 0xFC020603u, Out, Kind::Event, 24},
    {"DetailCheckResults", 0xFC020604u, Out, Kind::Event, 24},
    {"ChangedDetail", 0xFC030601u, Out, Kind::Event, 56},
    {"ChangedThumb", 0xFC030602u, Out, Kind::Event, 28},
    {"Confirmation", 0xFC030605u, Out, Kind::Event, 556},
    {"CommittedThumb", 0xFC020611u, Out, Kind::Event, 28},
    {"InUse", 0xFC02060Eu, Out, Kind::Event, 1},
    {"Screens", 0xFC050200u, Out, Kind::Command, 8},
    {"Subcards", 0xFC0D1000u, Out, Kind::Command, 8},
    {"DeviceParam", 0xFC000004u, Out, Kind::Command, 0, 4},
    {"Assess", 0xFC05021Fu, Out, Kind::Command, 8, 1},
    {"AssessFailed", 0xFC02022Du, Out, Kind::Queued, 4},
    {"PreCheck", 0xFC000626u, Out, Kind::Event, 44},
    {"WriteThumb", 0xFC051008u, Out, Kind::Command, 24, 1},
    {"WritingReference", 0xFC0C0C27u, Out, Kind::Event, 4},
    {"WriteReference", 0xFC051009u, Out, Kind::Event, 24},
    {"ShowWaiting", 0xFC0C0C0Fu, Out, Kind::Event, Text},
    {"HideWaiting", 0xFC0C0C10u, Out, Kind::Event, 0},
    {"MessageBox", 0xFC0C0C12u, Out, Kind::Event, 556},
};

const Row& row(const std::string& name)
{
    for (const Row& r : reference)
        if (name == r.name)
            return r;
    ADD_FAILURE() << name << " is not in this host's table";
    return reference[0];
}

const Row* sentRow(std::uint32_t number)
{
    for (const Row& r : reference)
        if (r.direction == Out && r.number == number)
            return &r;
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

Bytes raw(const void* data, std::size_t size)
{
    const auto* begin = static_cast<const unsigned char*>(data);
    return data != nullptr ? Bytes(begin, begin + size) : Bytes();
}

template <typename T>
Bytes bytes(const T& record)
{
    return raw(&record, sizeof record);
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
struct Detail
{
    std::uint32_t param0 = 0;
    float refresh = 0.0f;
    std::int32_t width = 0, param3[4] = {}, height = 0, param8[6] = {};
};

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
template <typename Timing>
struct Check
{
    std::int32_t id = 0, tag = 0;
    Timing timing;
    std::int32_t checkParam0 = 0, checkParam1 = 0;
};
struct Verdict
{
    std::int32_t id = 0, word1 = 0, words2[2] = {}, bandwidthLimit = 0, bandwidthNeeded = 0;
    std::vector<std::int32_t> list6{}, frameRates{}; // 24, 48
    std::int32_t word18 = 0, maxFrameRate = 0, overBandwidth = 0, word21 = 0;
};
struct OutputRecord
{
    std::int32_t interfaceId = 0, word1 = 0;
    std::string text2{};
    std::uint32_t words10[8] = {};
    std::vector<std::array<std::uint32_t, 4>> list18{};
    std::vector<std::array<std::uint32_t, 6>> list24{};
};
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
struct ConnectorRecord
{
    std::int32_t id = 0, words1[2] = {}, key = 0, words4[2] = {};
};
struct SubcardRecord
{
    std::int32_t slot = 0, words1[4] = {};
    std::vector<ConnectorRecord> connectors;
};
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
// The sizes the contract gives every record.
static_assert(sizeof(Thumb) == 28 && sizeof(Detail) == 56 && sizeof(InterfaceRecord) == 840, "timings, interface");
static_assert(sizeof(Choice<Thumb>) == 40 && sizeof(Choice<Detail>) == 68, "choices are 40 and 68 bytes");
static_assert(sizeof(Check<Thumb>) == 44 && sizeof(Check<Detail>) == 72, "checks are 44 and 72 bytes");
static_assert(sizeof(Verdict) == 88 && sizeof(OutputRecord) == 120 && sizeof(ScreenRecord) == 544, "verdict, screen");
static_assert(sizeof(ConnectorRecord) == 24 && sizeof(SubcardRecord) == 48, "connector, subcard");
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
struct Seen
{
    std::set<const void*> live;
    std::vector<Sent> sent;
    std::vector<std::string> subscriptions; // "event 0xFC070606"
    std::vector<std::string> lookups;
    std::vector<const void*> releasedTables; // the table of each object released
    std::map<std::uint32_t, Params> filters; // what each query's filter put in
    std::vector<Check<Thumb>> judgedThumbChecks;
    std::vector<Choice<Thumb>> writtenThumbs;
    std::vector<std::int32_t> tiesAsked; // subcard, connector key, device parameter
};
Seen seen;
Answers answers;

void resetHost()
{
    seen = Seen();
    answers = Answers();
}

template <int MessageKind>
Message* createMessage(void*, int number, int size, const void* data, const char* sender)
{
    auto* m = new Message{&messageTable.slots, MessageKind, number, size, {}, data != nullptr, sender};
    m->bytes = raw(data, std::size_t(size > 0 ? size : 0));
    seen.live.insert(m);
    return m;
}
template <Kind K>
void takeOver(void*, Message** message, int mode)
{
    seen.sent.push_back({K, std::uint32_t((*message)->number), (*message)->size, mode, (*message)->bytes});
    seen.live.erase(*message);
    delete *message;
}
template <Kind K>
int subscribe(void*, int number, const std::string& sender)
{
    seen.subscriptions.push_back(std::string(kindName(K)) + " " + hex(std::uint32_t(number)));
    EXPECT_EQ(sender, "outputedidviewmodel");
    return 0;
}

// The envelope whose address a query carries, its filter called; null for
// a payload of another length, which the trace then shows.
template <typename T>
T* queryOf(const Message& m)
{
    Envelope<T>* envelope = nullptr;
    if (m.bytes.size() != sizeof envelope)
        return nullptr;
    std::memcpy(&envelope, m.bytes.data(), sizeof envelope);
    Params& params = seen.filters[std::uint32_t(m.number)];
    params.clear();
    if (envelope->filter) {
        EXPECT_TRUE(envelope->filter(params)) << "the filter of " << hex(std::uint32_t(m.number)) << " applies";
    }
    return &envelope->info;
}

// Answers a command as the other components would; the reply is as long as
// the reference says.
Bytes answer(const Message& m)
{
    const Row* sent = sentRow(std::uint32_t(m.number));
    if (sent == nullptr || sent->kind != Kind::Command) {
        ADD_FAILURE() << "command " << hex(std::uint32_t(m.number)) << " is not in the message reference";
        return {};
    }
    const std::string name = sent->name;
    Bytes reply;
    if (name == "InterfaceDetail") {
        if (auto* query = queryOf<ListQuery<InterfaceRecord>>(m)) {
            const Params& params = seen.filters[sent->number];
            for (const InterfaceRecord& r : answers.interfaces)
                if (params.empty() || params == Params{{"interfaceId", std::to_string(r.id)}})
                    query->list.push_back(r);
        }
    } else if (name == "SelectedInterface") {
        reply = bytes(answers.selected);
    } else if (name == "ThumbCheck" || name == "DetailCheck") {
        if (auto* query = queryOf<CheckQuery>(m)) {
            seen.judgedThumbChecks = query->thumbChecks;
            query->verdicts = answers.verdicts;
        }
    } else if (name == "Screens") {
        if (auto* query = queryOf<ListQuery<ScreenRecord>>(m))
            query->list = answers.screens;
    } else if (name == "Subcards") {
        if (auto* query = queryOf<SubcardQuery>(m))
            query->subcards = answers.subcards;
    } else if (name == "DeviceParam") {
        reply = bytes(answers.deviceParam);
    } else if (name == "Assess") {
        if (auto* query = queryOf<AssessQuery>(m))
            query->assessments = answers.assessments;
        reply = bytes(answers.assessed);
    } else if (name == "WriteThumb") {
        // The payload is the sender's vector object, valid during the send.
        if (m.bytes.size() == sizeof(std::vector<Choice<Thumb>>))
            seen.writtenThumbs = *reinterpret_cast<const std::vector<Choice<Thumb>>*>(m.bytes.data());
        reply = bytes(answers.writeRefused);
    }
    EXPECT_EQ(int(reply.size()), sent->replyLength) << "the reply to " << name;
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
        seen.releasedTables.push_back(*object != nullptr ? *static_cast<const void* const*>(*object) : nullptr);
        if (seen.live.erase(*object) > 0)
            delete static_cast<Message*>(*object);
        *object = nullptr;
    },
    [](void*, Message** message, Message** response, int mode) {
        const Message& m = **message;
        seen.sent.push_back({Kind::Command, std::uint32_t(m.number), m.size, mode, m.bytes});
        const Bytes reply = answer(m);
        seen.live.insert(*response = new Message{&responseTable.slots, 0, 0, int(reply.size()), reply, true, ""});
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
                 seen.tiesAsked = {subcard, key, param};
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
    seen.lookups.push_back(name);
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

// The component's handler, started by the fixture.
void* handler = nullptr;

// The payload travels as the bytes given; none is null data.
const Message* deliver(const std::string& name, const Bytes& payload = {})
{
    const Row& r = row(name);
    const int kind = r.kind == Kind::Command ? CommandKind : EventKind;
    const Message message{&messageTable.slots, kind,  int(r.number), int(payload.size()), payload,
                          !payload.empty(),    "host"};
    return tableOf(handler).handleMessage(handler, &message);
}

// One line per message: kind, number, name, length and, for a send, the
// mode the host expects with it.
std::string describe(const Row* r, Kind kind, std::uint32_t number, const std::string& length, int mode)
{
    std::string line = std::string(kindName(kind)) + " " + hex(number) + " " +
                       (r != nullptr ? r->name : "(not in the reference)") + " " + length;
    return kind == Kind::Queued ? line : line + " mode " + std::to_string(mode);
}

std::vector<std::string> namesOf(const std::string& names)
{
    std::istringstream words(names);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

// The names of what the component sent, in order, as the reference gives
// them; a text row matches a payload whose only NUL ends it.
void expectTrace(const std::string& names)
{
    std::vector<std::string> want, got;
    for (const std::string& name : namesOf(names)) {
        const Row& r = row(name);
        const std::string length = r.length == Text ? "text" : std::to_string(r.length);
        want.push_back(describe(&r, r.kind, r.number, length, r.kind == Kind::Command ? 0 : 9));
    }
    for (const Sent& s : seen.sent) {
        const Row* r = sentRow(s.number);
        const bool text = r != nullptr && r->length == Text && s.bytes.size() > 1 &&
                          std::find(s.bytes.begin(), s.bytes.end(), 0) == s.bytes.end() - 1;
        got.push_back(describe(r, s.kind, s.number, text ? "text" : std::to_string(s.size), s.mode));
    }
    EXPECT_EQ(got, want);
}

// The payload of the last message sent with this name.
Bytes lastSent(const std::string& name)
{
    for (auto s = seen.sent.rbegin(); s != seen.sent.rend(); ++s)
        if (s->number == row(name).number)
            return s->bytes;
    ADD_FAILURE() << name << " was not sent";
    return {};
}

const InterfaceRecord seven = interfaceRecord(7, 8);

// The library freshly loaded, its component started with interface 7
// listed and made current; what that sends is kept aside.
class ContractTest : public testing::Test
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
        // A host reads the description before pluginit, checks the version
        // and finds the component by its id.
        const PluginInfo* info = pluginfo();
        pluginit(&hostApi);
        ASSERT_EQ(pluginfo(), info);
        EXPECT_STREQ(info->version, "0.1");
        ASSERT_NE(info->components[0], nullptr);
        EXPECT_EQ(info->components[1], nullptr);
        m_component = info->components[0];
        EXPECT_STREQ(m_component->id, "tivra.lcd.viewmodel.output.edid");
        m_object = m_component->creator();
        handler = m_component->getMessageHandler(m_object);
        ASSERT_NE(handler, nullptr);
        EXPECT_EQ(deliver("Start"), nullptr);
        answers.interfaces = {seven, interfaceRecord(9, 4)};
        EXPECT_EQ(deliver("SetCurrentInterface", bytes(seven)), nullptr);
        m_started = std::move(seen.sent);
        seen.sent.clear();
    }

    void TearDown() override
    {
        if (m_component != nullptr)
            m_component->deletor(m_object);
        EXPECT_TRUE(seen.live.empty()) << "a message or response was not released";
        if (m_library != nullptr)
            dlclose(m_library);
    }

    void* m_library = nullptr;
    ComponentInfo* m_component = nullptr;
    void* m_object = nullptr;
    std::vector<Sent> m_started;
};

TEST_F(ContractTest, AHostOfItsOwnDrivesTheLibraryThroughTheDeclaredSlotsAndLayouts)
{
    EXPECT_EQ(seen.lookups,
              (std::vector<std::string>{"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher"}));
    void* other = m_component->creator(); // each call a new component
    EXPECT_NE(m_component->getMessageHandler(other), handler);
    m_component->deletor(other);

    // Every number the component receives, each on its channel.
    std::vector<std::string> subscribed;
    for (const Row& r : reference)
        if (r.direction == In && std::string(r.name) != "Start")
            subscribed.push_back(std::string(kindName(r.kind)) + " " + hex(r.number));
    EXPECT_EQ(seen.subscriptions, subscribed);

    // The current interface, sent whole: its two timing blocks come back.
    std::swap(seen.sent, m_started);
    expectTrace("DetailTiming ThumbTiming");
    EXPECT_EQ(lastSent("DetailTiming"), bytes(seven.detail));
    EXPECT_EQ(lastSent("ThumbTiming"), bytes(seven.thumb));

    // The one command: its reply is made by the message center.
    const Message* reply = deliver("InterfaceType");
    ASSERT_EQ(seen.live.erase(reply), 1u) << "the reply is not one this host made";
    EXPECT_EQ(std::uint32_t(reply->number), row("InterfaceType").number);
    EXPECT_EQ(reply->bytes, (Bytes{8, 0, 0, 0})) << "the type at byte 28";
    EXPECT_EQ(reply->sender, "outputedidviewmodel");
    delete reply;

    // onInit registers again; processMsg routes a number as handleMessage does.
    seen.subscriptions.clear();
    EXPECT_EQ(tableOf(handler).onInit(handler), 0);
    EXPECT_EQ(seen.subscriptions, subscribed);
    const Message command{&messageTable.slots, CommandKind, int(row("InterfaceType").number), 0, {}, false, "host"};
    reply = tableOf(handler).processMsg(handler, command.number, &command);
    ASSERT_EQ(seen.live.erase(reply), 1u);
    EXPECT_EQ(reply->bytes, (Bytes{8, 0, 0, 0}));
    delete reply;

    // A command's response is released before the message.
    seen.releasedTables.clear();
    deliver("InUseAsked");
    EXPECT_EQ(seen.releasedTables, (std::vector<const void*>{&responseTable.slots, &messageTable.slots}));

    // Slot 1, the deleting destructor; the component's deletor takes null.
    tableOf(handler).destroyAndFree(handler);
    m_object = nullptr;
}

// The reference lists each number with its direction and kind, and an
// outgoing one with its lengths: "0xFC08100A out command 0 reply 4".
TEST(ContractReference, TheMessageReferenceListsExactlyTheNumbersThisHostChecks)
{
    std::ifstream file(EDIDVM_MESSAGES_MD);
    ASSERT_TRUE(file.is_open()) << EDIDVM_MESSAGES_MD;
    // | number | name | kind | dir | length | ...; the length cell reads
    // "8 (envelope address); reply 1", "0; reply 4" or "text length + 1".
    const std::regex line(R"(\| (0x[0-9A-F]{8}) \| \w+ \| (\w+)( \(queued\))? \| (in|out) \| ([^|]*)\|.*)");
    const std::regex reply(R"(repl\D*(\d+))");
    std::multiset<std::string> listed, checked;
    std::smatch cells, replied;
    for (std::string text; std::getline(file, text);) {
        if (!std::regex_match(text, cells, line))
            continue;
        const std::string cell = cells[5];
        std::string lengths = cell.rfind("text length + 1", 0) == 0               ? "text"
                              : std::isdigit(static_cast<unsigned char>(cell[0])) ? std::to_string(std::stoi(cell))
                                                                                  : "?";
        if (std::regex_search(cell, replied, reply))
            lengths += " reply " + replied[1].str();
        const std::string kind = cells[3].matched ? "queued" : cells[2].str();
        listed.insert(cells[1].str() + " " + cells[4].str() + " " + kind + (cells[4] == "in" ? "" : " " + lengths));
    }
    for (const Row& r : reference) {
        std::string lengths = r.length == Text ? "text" : std::to_string(r.length);
        if (r.replyLength > 0)
            lengths += " reply " + std::to_string(r.replyLength);
        checked.insert(hex(r.number) + (r.direction == In ? " in " : " out ") + kindName(r.kind) +
                       (r.direction == In ? "" : " " + lengths));
    }
    std::vector<std::string> unchecked, unlisted;
    std::set_difference(listed.begin(), listed.end(), checked.begin(), checked.end(), std::back_inserter(unchecked));
    std::set_difference(checked.begin(), checked.end(), listed.begin(), listed.end(), std::back_inserter(unlisted));
    EXPECT_EQ(unchecked, std::vector<std::string>()) << "listed in the reference, not checked by this host";
    EXPECT_EQ(unlisted, std::vector<std::string>()) << "checked by this host, not listed in the reference";
}

// One behaviour of the component: what the host answers and delivers, then
// the exact trace of what the component sends and checks of its payloads.
struct Flow
{
    const char* name;
    std::string trace;
    std::function<void()> run;
};
void PrintTo(const Flow& flow, std::ostream* os)
{
    *os << flow.name;
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

// The page's check request: the address of an envelope holding the checks.
void requestChecks(const char* name, std::vector<Check<Thumb>> thumbs, std::vector<Check<Detail>> details)
{
    answers.verdicts = {Verdict{seven.id}};
    Envelope<CheckQuery> request;
    request.info.thumbChecks = std::move(thumbs);
    request.info.detailChecks = std::move(details);
    deliver(name, bytes(&request));
}

void answerBox(std::int32_t boxId, std::uint8_t result)
{
    MessageBoxRecord answer;
    answer.boxId = boxId;
    answer.result = result;
    deliver("BoxAnswer", bytes(answer));
}

const std::string Refreshed = "InterfaceDetail DetailTiming ThumbTiming TimingNotice ";
const std::string Impact = "Screens InterfaceDetail Subcards DeviceParam ";
const std::string ThumbCommitted =
    "InterfaceDetail PreCheck ThumbCheck ShowWaiting WriteThumb HideWaiting CommittedThumb ";

const std::vector<Flow> flows = {
    {"RefreshSendsTheCurrentTimingsAndNotice", Refreshed,
     [] {
         deliver("RefreshTiming");
         EXPECT_EQ(lastSent("TimingNotice"), bytes(std::array<std::uint32_t, 4>{927, 1587, 0, 407}))
             << "words 92 and 158, thumb word 4";
     }},
    {"SelectedInterfaceIsAdoptedAndAnnounced",
     "InterfaceDetail SelectedInterface AdoptedInterface ThumbTiming TimingNotice",
     [] {
         answers.selected = 9;
         deliver("SelectedInterfaceTiming");
         EXPECT_EQ(recordOf<std::int32_t>(lastSent("AdoptedInterface")), 9) << "the 4-byte reply names it";
     }},
    {"ThumbCheckRequestIsJudgedAndForwarded",
     "InterfaceDetail InterfaceDetail ThumbCheck InterfaceDetail ThumbCheckResults",
     [] {
         requestChecks("ThumbCheckRequest", {{0, 0, {0, 60.0f, 1920, 1080, 0, 0, 0}, 0, 0}}, {});
         ASSERT_EQ(seen.judgedThumbChecks.size(), 1u);
         const Check<Thumb>& judged = seen.judgedThumbChecks[0];
         EXPECT_EQ(judged.id, 7);
         EXPECT_EQ(judged.timing.width, 1920);
         EXPECT_EQ(judged.checkParam0, seven.checkParam0) << "word 137 of the interface";
         EXPECT_EQ(judged.checkParam1, seven.checkParam1) << "word 139 of the interface";
     }},
    {"DetailCheckRequestIsJudgedAndForwarded",
     "InterfaceDetail InterfaceDetail DetailCheck InterfaceDetail DetailCheckResults",
     [] {
         requestChecks("DetailCheckRequest", {}, {{0, 0, seven.detail, 0, 0}});
     }},
    {"ChangedReferenceTimingIsSentOn", "ChangedDetail",
     [] {
         const std::vector<Choice<Detail>> changed = {{9, seven.detail, 0, 0}, {seven.id, sameReference.timing, 0, 0}};
         deliver("ChangedReferenceTimings", bytes(changed));
         EXPECT_EQ(lastSent("ChangedDetail"), bytes(sameReference.timing));
     }},
    {"ChangedThumbTimingIsSentOnWithANotice", "TimingNotice ChangedThumb",
     [] {
         const std::vector<Choice<Thumb>> changed = {{9, seven.thumb, 0, 0}, {seven.id, newResolution.timing, 0, 0}};
         deliver("ChangedThumbTimings", bytes(changed));
         EXPECT_EQ(lastSent("ChangedThumb"), bytes(newResolution.timing));
     }},
    {"EachInUseQuestionIsAnswered", "InterfaceDetail InUse InterfaceDetail InUse InterfaceDetail InUse",
     [] {
         for (const char* asked : {"InUseAsked", "InUseAsked2", "InUseAsked3"}) {
             deliver(asked);
             EXPECT_EQ(seen.filters[row("InterfaceDetail").number], (Params{{"interfaceId", "7"}})) << asked;
             EXPECT_EQ(lastSent("InUse"), Bytes{1}) << asked << ": interface 7 is used by a screen";
         }
     }},
    {"UnchangedResolutionIsWrittenAtOnce", Impact + ThumbCommitted,
     [] {
         deliver("ThumbChoice", bytes(sameResolution));
         EXPECT_EQ(seen.filters[row("Screens").number], (Params{{"screenType", "2"}}));
         ASSERT_EQ(seen.writtenThumbs.size(), 1u);
         EXPECT_EQ(seen.writtenThumbs[0].id, 7);
         EXPECT_EQ(lastSent("CommittedThumb"), bytes(sameResolution.timing));
     }},
    {"OverBandwidthIsRefusedWithABox", Impact + "InterfaceDetail PreCheck ThumbCheck MessageBox",
     [] {
         answers.verdicts = {Verdict{seven.id}};
         answers.verdicts[0].overBandwidth = 1;
         deliver("ThumbChoice", bytes(sameResolution));
         EXPECT_EQ(recordOf<MessageBoxRecord>(lastSent("MessageBox")).boxId, 14);
     }},
    {"ANewResolutionOnAScreenIsAssessedConfirmedAndWritten", Impact + "Assess Confirmation " + ThumbCommitted,
     [] {
         tieSevenToAScreen();
         deliver("ThumbChoice", bytes(newResolution));
         EXPECT_EQ(seen.tiesAsked, (std::vector<std::int32_t>{101, 42, 77})) << "slot 1's subcard, key, 4-byte reply";
         EXPECT_EQ(recordOf<MessageBoxRecord>(lastSent("Confirmation")).boxId, 35);
         answerBox(35, 1);
         EXPECT_EQ(lastSent("CommittedThumb"), bytes(newResolution.timing));
     }},
    {"ARefusedAssessmentIsQueuedAndRefreshes", Impact + "Assess AssessFailed " + Refreshed,
     [] {
         tieSevenToAScreen();
         answers.assessments = {{0, 7}};
         deliver("ThumbChoice", bytes(newResolution));
         EXPECT_EQ(recordOf<std::int32_t>(lastSent("AssessFailed")), 7);
     }},
    {"ADeclinedConfirmationRefreshes", Refreshed, [] { answerBox(35, 0); }},
    {"AReferenceAffectingNoScreenIsWrittenAtOnceAndPublished",
     Impact + "InterfaceDetail DetailCheck ShowWaiting WritingReference WriteReference HideWaiting CommittedThumb",
     [] {
         deliver("ReferenceChoice", bytes(sameReference));
         EXPECT_EQ(recordOf<std::int32_t>(lastSent("WritingReference")), 1);
         deliver("PublishReference");
         EXPECT_EQ(lastSent("CommittedThumb"), bytes(Thumb{0, 30.0f, seven.thumb.width, seven.thumb.height, 0, 0, 0}));
     }},
};

TEST(ContractFlows, EveryOutgoingNumberIsSentInAFlow)
{
    std::set<std::string> traced;
    for (const Flow& flow : flows)
        for (const std::string& name : namesOf(flow.trace))
            traced.insert(name);
    for (const Row& r : reference)
        EXPECT_TRUE(r.direction == In || traced.count(r.name) == 1) << r.name << " is sent in no flow";
}

class ContractFlowTest : public ContractTest, public testing::WithParamInterface<Flow>
{
};

TEST_P(ContractFlowTest, SendsTheNumbersTheReferenceGives)
{
    GetParam().run();
    expectTrace(GetParam().trace);
}

INSTANTIATE_TEST_SUITE_P(Flows, ContractFlowTest, testing::ValuesIn(flows),
                         [](const testing::TestParamInfo<Flow>& info) { return std::string(info.param.name); });

} // namespace
