// SPDX-License-Identifier: MIT
// A host that knows the binary contract only from what this file declares:
// no project header is included. Interfaces are objects whose first word
// points at slot 0 of a table of function pointers; records are bytes at
// offsets given here, with real texts and lists where the contract puts
// them. A changed slot order or layout makes this host fail.
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
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Params = std::map<std::string, std::string>;
constexpr int CommandKind = int(0xF0000001u);
constexpr int EventKind = int(0xF0000002u);

// How a message crosses: a command, an event delivered at once, or an event
// queued for later delivery.
enum class Kind { Command, Event, Queued };
std::string kindName(Kind kind)
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

// Records: bytes, and a value written or read at an offset of them.
template <std::size_t N, std::size_t Align = 4>
struct alignas(Align) Raw
{
    unsigned char bytes[N] = {};
};
template <typename R, typename T>
void put(R& record, std::size_t offset, const T& value)
{
    ASSERT_LE(offset + sizeof value, sizeof record);
    std::memcpy(reinterpret_cast<unsigned char*>(&record) + offset, &value, sizeof value);
}
// A record with 32-bit words written at their offsets.
template <typename R>
R with(std::initializer_list<std::pair<std::size_t, std::int32_t>> words)
{
    R record;
    for (auto [offset, value] : words)
        put(record, offset, value);
    return record;
}
template <typename T>
T get(const unsigned char* data, std::size_t size, std::size_t offset)
{
    T value{};
    if (offset + sizeof value <= size)
        std::memcpy(&value, data + offset, sizeof value);
    else
        ADD_FAILURE() << "reading " << sizeof value << " bytes at " << offset << " of " << size;
    return value;
}
template <typename T>
T get(const Bytes& payload, std::size_t offset)
{
    return get<T>(payload.data(), payload.size(), offset);
}
template <typename T, typename R>
T get(const R& record, std::size_t offset)
{
    return get<T>(reinterpret_cast<const unsigned char*>(&record), sizeof record, offset);
}
template <typename T>
Bytes raw(const T& value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), static_cast<const void*>(&value), sizeof value);
    return bytes;
}

// Timings of 28 (thumb) and 56 bytes (detail): word i is 100 * tag + i but
// the refresh rate at 4, the width at 8 and the height at 12 or 28.
template <std::size_t N>
Raw<N> timing(std::uint32_t tag, float refresh, std::int32_t width, std::int32_t height)
{
    Raw<N> t;
    for (std::size_t i = 0; i < N / 4; ++i)
        put(t, 4 * i, 100 * tag + std::uint32_t(i));
    put(t, 4, refresh);
    put(t, 8, width);
    put(t, N == 28 ? 12 : 28, height);
    return t;
}
// A timing chosen for an interface (40 and 68 bytes): the id, the timing at
// 4; a timing to check (44 and 72 bytes): the id, a tag, the timing at 8 and
// the two check parameters after it.
template <std::size_t N>
Raw<N + 12> choice(std::int32_t id, const Raw<N>& timing)
{
    Raw<N + 12> c;
    put(c, 0, id);
    put(c, 4, timing);
    return c;
}
template <std::size_t N>
Raw<N + 16> check(const Raw<N>& timing)
{
    Raw<N + 16> c;
    put(c, 8, timing);
    return c;
}
using Verdict = Raw<88, 8>; // id at 0, over bandwidth at 80; its two lists empty
using Connector = Raw<24>;  // id at 0, key at 12
using Assessment = Raw<8>;  // the code at 4
using Box = Raw<556>;       // the box id at 0, the answer at 280

// The records with texts or lists, those at their offsets, bytes between.
struct InterfaceRecord // 840 bytes: texts at 56, 96, 136, 168 and 376
{
    unsigned char head[56] = {};
    std::string usedByScreen = "screen";
    unsigned char gap96[8] = {};
    std::string text96;
    unsigned char gap136[8] = {};
    std::string text136, text168;
    unsigned char timings[176] = {};
    std::string text376;
    unsigned char tail[432] = {};
};
struct OutputRecord // 120 bytes: the interface id at 0, a text at 8, two empty lists at 72
{
    unsigned char head[8] = {};
    std::string text8;
    unsigned char tail[80] = {};
};
struct ScreenRecord // 544 bytes: the id at 0, texts at 16, 56 and 504, the outputs at 120
{
    unsigned char head[16] = {};
    std::string text16;
    unsigned char gap56[8] = {};
    std::string text56;
    unsigned char gap120[32] = {};
    std::vector<OutputRecord> outputs;
    unsigned char gap504[360] = {};
    std::string text504;
    unsigned char tail[8] = {};
};
struct SubcardRecord // 48 bytes: the slot at 0, the connectors at 24
{
    unsigned char head[24] = {};
    std::vector<Connector> connectors;
};
static_assert(sizeof(InterfaceRecord) == 840 && sizeof(OutputRecord) == 120 && sizeof(ScreenRecord) == 544 &&
                  sizeof(SubcardRecord) == 48,
              "interface, output, screen and subcard records");

// A query envelope: a filter the answerer calls if set, then the query at
// 32, whose lists are at the offsets each answer names. It travels as its
// address.
struct Envelope
{
    std::function<bool(Params&)> filter;
    unsigned char query[72] = {};
};
static_assert(sizeof(std::function<bool(Params&)>) == 32, "a filter is 32 bytes");
template <typename T>
std::vector<T>& listAt(Envelope& envelope, std::size_t offset)
{
    return *reinterpret_cast<std::vector<T>*>(envelope.query + offset);
}

InterfaceRecord interfaceRecord(std::int32_t id, std::int32_t type)
{
    auto r = with<InterfaceRecord>({{0, id},
                                    {12, 1},
                                    {16, id - 5},
                                    {28, type},
                                    {368, 920 + id},
                                    {548, 10 + id},
                                    {556, 20 + id},
                                    {632, 1580 + id}});
    put(r, 200, timing<28>(id, 60.0f, 1900 + id, 1000 + id));
    put(r, 256, timing<56>(id + 10, 60.0f, 1900 + id, 1000 + id));
    return r;
}

// Objects of this host that the library calls: the first word points at
// slot 0 of a table laid out as the platform's, offset to top and the
// class's identity before it. A library built with UBSan's type checks reads
// the identity and must find the interface the contract names. Slots not
// named must never be called.
using Word = std::uintptr_t;
template <typename F>
Word fn(F f)
{
    return reinterpret_cast<Word>(+f);
}
[[noreturn]] void unnamedSlot()
{
    std::abort();
}
struct VTable
{
    VTable(const char* name, std::map<std::size_t, Word> slots)
        : identity(name), words(slots.rbegin()->first + 3, reinterpret_cast<Word>(&unnamedSlot))
    {
        words[0] = 0;
        words[1] = reinterpret_cast<Word>(&identity);
        for (auto [slot, f] : slots)
            words[slot + 2] = f;
    }
    const void* slots() const { return &words[2]; }
    const abi::__class_type_info identity;
    std::vector<Word> words;
};
// Calls slot `slot` of an object of the library's.
template <typename R, typename... A>
R call(void* object, std::size_t slot, A... args)
{
    const Word* table = *static_cast<const Word* const*>(object);
    return reinterpret_cast<R (*)(void*, A...)>(table[slot])(object, args...);
}

// Messages and responses: objects of this host, read by the library.
struct Message
{
    const void* table;
    int kind, number, size;
    Bytes bytes;
    bool hasData;
    std::string sender;
};
const VTable messageTable("N3kpf8IMessageE", {{2, fn([](const Message* m) { return m->kind; })},
                                              {3, fn([](const Message* m) { return m->number; })},
                                              {4, fn([](const Message* m) { return m->size; })},
                                              {5, fn([](const Message* m) -> const void* {
                                                   return m->hasData ? m->bytes.data() : nullptr;
                                               })}});
const VTable responseTable("N3kpf9IResponseE",
                           {{1, fn([](const Message* r) -> const void* { return r->bytes.data(); })},
                            {2, fn([](const Message* r) { return r->size; })}});

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
    std::vector<Raw<44>> judgedThumbChecks;
    std::vector<Raw<40>> writtenThumbs;
    std::vector<std::int32_t> tiesAsked; // subcard, connector key, device parameter
};
Seen seen;
Answers answers;

Bytes copyOf(const void* data, int size)
{
    const auto* begin = static_cast<const unsigned char*>(data);
    return data != nullptr && size > 0 ? Bytes(begin, begin + size) : Bytes();
}
template <int MessageKind>
Message* createMessage(void*, int number, int size, const void* data, const char* sender)
{
    auto* m = new Message{messageTable.slots(), MessageKind, number, size, copyOf(data, size), data != nullptr, sender};
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
Envelope* queryOf(const Message& m)
{
    Envelope* envelope = nullptr;
    if (m.bytes.size() != sizeof envelope)
        return nullptr;
    std::memcpy(&envelope, m.bytes.data(), sizeof envelope);
    Params& params = seen.filters[std::uint32_t(m.number)];
    params.clear();
    if (envelope->filter) {
        EXPECT_TRUE(envelope->filter(params)) << "the filter of " << hex(std::uint32_t(m.number)) << " applies";
    }
    return envelope;
}

// Answers a command as the other components would, into the lists of its
// envelope; the reply is as long as the reference says.
Bytes answer(const Message& m)
{
    const Row* sent = sentRow(std::uint32_t(m.number));
    if (sent == nullptr || sent->kind != Kind::Command) {
        ADD_FAILURE() << "command " << hex(std::uint32_t(m.number)) << " is not in the message reference";
        return {};
    }
    const std::string name = sent->name;
    Envelope* q = queryOf(m);
    Bytes reply;
    if (name == "InterfaceDetail" && q != nullptr) {
        const Params& params = seen.filters[sent->number];
        for (const InterfaceRecord& r : answers.interfaces)
            if (params.empty() || params == Params{{"interfaceId", std::to_string(get<std::int32_t>(r, 0))}})
                listAt<InterfaceRecord>(*q, 16).push_back(r);
    } else if ((name == "ThumbCheck" || name == "DetailCheck") && q != nullptr) {
        seen.judgedThumbChecks = listAt<Raw<44>>(*q, 24);
        listAt<Verdict>(*q, 0) = answers.verdicts;
    } else if (name == "Screens" && q != nullptr) {
        listAt<ScreenRecord>(*q, 16) = answers.screens;
    } else if (name == "Subcards" && q != nullptr) {
        listAt<SubcardRecord>(*q, 8) = answers.subcards;
    } else if (name == "Assess") {
        if (q != nullptr)
            listAt<Assessment>(*q, 24) = answers.assessments;
        reply = raw(answers.assessed);
    } else if (name == "WriteThumb") {
        // The payload is the sender's vector object, valid during the send.
        if (m.bytes.size() == sizeof(std::vector<Raw<40>>))
            seen.writtenThumbs = *reinterpret_cast<const std::vector<Raw<40>>*>(m.bytes.data());
        reply = raw(answers.writeRefused);
    } else if (name == "SelectedInterface" || name == "DeviceParam") {
        reply = raw(name == "DeviceParam" ? answers.deviceParam : answers.selected);
    }
    EXPECT_EQ(int(reply.size()), sent->replyLength) << "the reply to " << name;
    return reply;
}

int sendCommand(void*, Message** message, Message** response, int mode)
{
    const Message& m = **message;
    seen.sent.push_back({Kind::Command, std::uint32_t(m.number), m.size, mode, m.bytes});
    const Bytes reply = answer(m);
    seen.live.insert(*response = new Message{responseTable.slots(), 0, 0, int(reply.size()), reply, true, ""});
    return 0;
}
void release(void*, void** object)
{
    seen.releasedTables.push_back(*object != nullptr ? *static_cast<const void* const*>(*object) : nullptr);
    if (seen.live.erase(*object) > 0)
        delete static_cast<Message*>(*object);
    *object = nullptr;
}
const VTable commandTable("N3kpf18ICommandDispatcherE", {{0, fn(createMessage<CommandKind>)},
                                                         {1, fn(release)},
                                                         {2, fn(sendCommand)},
                                                         {4, fn(subscribe<Kind::Command>)}});
const VTable eventTable("N3kpf16IEventDispatcherE",
                        {{0, fn(createMessage<EventKind>)},
                         {2, fn([](void* self, Message** message) { takeOver<Kind::Queued>(self, message, 0); })},
                         {4, fn(takeOver<Kind::Event>)},
                         {5, fn(subscribe<Kind::Event>)}});
const VTable centerTable("N3kpf14IMessageCenterE",
                         {{0, fn([](void* self, int number, const char* sender, int size, const void* data, int flags) {
                               EXPECT_EQ(flags, 0);
                               return createMessage<0>(self, number, size, data, sender);
                           })}});
// The two configuration services, outside the kpf namespace. A function
// returning a vector by value takes the object as its first argument, as a
// member function does.
const VTable deviceConfigTable("19DeviceConfigManager",
                               {{6, fn([](void*, std::int32_t slot) { return std::int32_t(100 + slot); })}});
const VTable subcardConfigTable("20SubcardConfigManager",
                                {{8, fn([](void*, std::int32_t subcard, std::int32_t key, std::int32_t param) {
                                      seen.tiesAsked = {subcard, key, param};
                                      return answers.tiedConnectors;
                                  })}});

// A service object is one word: its table.
const void* const services[] = {centerTable.slots(), commandTable.slots(), eventTable.slots(),
                                deviceConfigTable.slots(), subcardConfigTable.slots()};
const char* const serviceNames[] = {"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher",
                                    "deviceconfigmanager", "subcardconfigmanager"};
const VTable apiTable("N3kpf8IHostApiE", {{3, fn([](void*, const char* name) -> const void* {
                                               seen.lookups.push_back(name);
                                               for (int i = 0; i < 5; ++i)
                                                   if (std::strcmp(name, serviceNames[i]) == 0)
                                                       return &services[i];
                                               return nullptr;
                                           })}});
const void* const hostApi = apiTable.slots();

// The component: a virtual destructor (slots 0 and 1, the deleting one),
// handleMessage, then the handler base's onInit and processMsg.
enum HandlerSlot { DestroyAndFree = 1, HandleMessage, OnInit, ProcessMsg };
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

// The component's handler, started by the fixture.
void* handler = nullptr;

// The payload travels as the bytes given; none is null data.
const Message* deliver(const std::string& name, const Bytes& payload = {})
{
    const Row& r = row(name);
    const int kind = r.kind == Kind::Command ? CommandKind : EventKind;
    const Message message{messageTable.slots(), kind,  int(r.number), int(payload.size()), payload,
                          !payload.empty(),     "host"};
    return call<const Message*>(handler, HandleMessage, &message);
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
const Raw<28> sevenThumb = get<Raw<28>>(seven, 200);

// The library freshly loaded, its component started with interface 7
// listed and made current; what that sends is kept aside.
class ContractTest : public testing::Test
{
protected:
    void SetUp() override
    {
        seen = Seen();
        answers = Answers();
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
        EXPECT_EQ(deliver("SetCurrentInterface", raw(seven)), nullptr);
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
    EXPECT_EQ(lastSent("DetailTiming"), raw(get<Raw<56>>(seven, 256)));
    EXPECT_EQ(lastSent("ThumbTiming"), raw(sevenThumb));

    // The one command, delivered and through processMsg: its reply, the
    // type at byte 28, is made by the message center.
    const Message command{messageTable.slots(), CommandKind, int(row("InterfaceType").number), 0, {}, false, "host"};
    for (const Message* reply :
         {deliver("InterfaceType"), call<const Message*>(handler, ProcessMsg, command.number, &command)}) {
        ASSERT_EQ(seen.live.erase(reply), 1u) << "the reply is not one this host made";
        EXPECT_EQ(std::uint32_t(reply->number), row("InterfaceType").number);
        EXPECT_EQ(reply->bytes, (Bytes{8, 0, 0, 0}));
        EXPECT_EQ(reply->sender, "outputedidviewmodel");
        delete reply;
    }

    // onInit registers again.
    seen.subscriptions.clear();
    EXPECT_EQ(call<int>(handler, OnInit), 0);
    EXPECT_EQ(seen.subscriptions, subscribed);

    // A command's response is released before the message.
    seen.releasedTables.clear();
    deliver("InUseAsked");
    EXPECT_EQ(seen.releasedTables, (std::vector<const void*>{responseTable.slots(), messageTable.slots()}));

    // The deleting destructor; the component's deletor takes null.
    call<void>(handler, DestroyAndFree);
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

// Interface 7 (slot 1, connector 2) feeds screen 5, and its connector is
// tied to itself.
void tieSevenToAScreen()
{
    answers.subcards = {with<SubcardRecord>({{0, 1}})};
    answers.subcards[0].connectors = {with<Connector>({{0, 2}, {12, 42}})};
    answers.tiedConnectors = {2};
    answers.screens = {with<ScreenRecord>({{0, 5}})};
    answers.screens[0].outputs = {with<OutputRecord>({{0, 7}})};
}

// A choice of seven's own resolution affects no screen; 1280x720 does.
const auto sameResolution = choice(0, timing<28>(0, 30.0f, 1907, 1007));
const auto newResolution = choice(0, timing<28>(0, 50.0f, 1280, 720));
const auto sameReference = choice(0, timing<56>(0, 30.0f, 1907, 1007));

// The page's check request: the address of an envelope holding the checks,
// the thumb ones at 24, the detail ones at 48.
void requestChecks(const char* name, std::vector<Raw<44>> thumbs, std::vector<Raw<72>> details)
{
    answers.verdicts = {with<Verdict>({{0, 7}})};
    Envelope request;
    listAt<Raw<44>>(request, 24).swap(thumbs);
    listAt<Raw<72>>(request, 48).swap(details);
    deliver(name, raw(&request));
    listAt<Raw<44>>(request, 24).swap(thumbs);
    listAt<Raw<72>>(request, 48).swap(details);
}

void answerBox(std::int32_t boxId, std::uint8_t result)
{
    Box answer = with<Box>({{0, boxId}});
    put(answer, 280, result);
    deliver("BoxAnswer", raw(answer));
}

const std::string Refreshed = "InterfaceDetail DetailTiming ThumbTiming TimingNotice ";
const std::string Impact = "Screens InterfaceDetail Subcards DeviceParam ";
const std::string ThumbCommitted =
    "InterfaceDetail PreCheck ThumbCheck ShowWaiting WriteThumb HideWaiting CommittedThumb ";

const std::vector<Flow> flows = {
    {"RefreshSendsTheCurrentTimingsAndNotice", Refreshed,
     [] {
         deliver("RefreshTiming");
         EXPECT_EQ(lastSent("TimingNotice"), raw(std::array<std::uint32_t, 4>{927, 1587, 0, 704}))
             << "words 92 and 158, thumb word 4";
     }},
    {"SelectedInterfaceIsAdoptedAndAnnounced",
     "InterfaceDetail SelectedInterface AdoptedInterface ThumbTiming TimingNotice",
     [] {
         answers.selected = 9;
         deliver("SelectedInterfaceTiming");
         EXPECT_EQ(get<std::int32_t>(lastSent("AdoptedInterface"), 0), 9) << "the 4-byte reply names it";
     }},
    {"ThumbCheckRequestIsJudgedAndForwarded",
     "InterfaceDetail InterfaceDetail ThumbCheck InterfaceDetail ThumbCheckResults",
     [] {
         requestChecks("ThumbCheckRequest", {check(timing<28>(0, 60.0f, 1920, 1080))}, {});
         ASSERT_EQ(seen.judgedThumbChecks.size(), 1u);
         const Raw<44>& judged = seen.judgedThumbChecks[0];
         EXPECT_EQ(get<std::int32_t>(judged, 0), 7);
         EXPECT_EQ(get<std::int32_t>(judged, 16), 1920) << "the width at 8 of the timing at 8";
         EXPECT_EQ(get<std::int32_t>(judged, 36), 17) << "word 137 of the interface";
         EXPECT_EQ(get<std::int32_t>(judged, 40), 27) << "word 139 of the interface";
     }},
    {"DetailCheckRequestIsJudgedAndForwarded",
     "InterfaceDetail InterfaceDetail DetailCheck InterfaceDetail DetailCheckResults",
     [] { requestChecks("DetailCheckRequest", {}, {check(get<Raw<56>>(seven, 256))}); }},
    {"ChangedReferenceTimingIsSentOn", "ChangedDetail",
     [] {
         const std::vector<Raw<68>> changed = {choice(9, get<Raw<56>>(seven, 256)),
                                               choice(7, get<Raw<56>>(sameReference, 4))};
         deliver("ChangedReferenceTimings", raw(changed));
         EXPECT_EQ(lastSent("ChangedDetail"), raw(get<Raw<56>>(sameReference, 4)));
     }},
    {"ChangedThumbTimingIsSentOnWithANotice", "TimingNotice ChangedThumb",
     [] {
         const std::vector<Raw<40>> changed = {choice(9, sevenThumb), choice(7, get<Raw<28>>(newResolution, 4))};
         deliver("ChangedThumbTimings", raw(changed));
         EXPECT_EQ(lastSent("ChangedThumb"), raw(get<Raw<28>>(newResolution, 4)));
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
         deliver("ThumbChoice", raw(sameResolution));
         EXPECT_EQ(seen.filters[row("Screens").number], (Params{{"screenType", "2"}}));
         ASSERT_EQ(seen.writtenThumbs.size(), 1u);
         EXPECT_EQ(get<std::int32_t>(seen.writtenThumbs[0], 0), 7);
         EXPECT_EQ(lastSent("CommittedThumb"), raw(get<Raw<28>>(sameResolution, 4)));
     }},
    {"OverBandwidthIsRefusedWithABox", Impact + "InterfaceDetail PreCheck ThumbCheck MessageBox",
     [] {
         answers.verdicts = {with<Verdict>({{0, 7}, {80, 1}})};
         deliver("ThumbChoice", raw(sameResolution));
         EXPECT_EQ(get<std::int32_t>(lastSent("MessageBox"), 0), 14);
     }},
    {"ANewResolutionOnAScreenIsAssessedConfirmedAndWritten", Impact + "Assess Confirmation " + ThumbCommitted,
     [] {
         tieSevenToAScreen();
         deliver("ThumbChoice", raw(newResolution));
         EXPECT_EQ(seen.tiesAsked, (std::vector<std::int32_t>{101, 42, 77})) << "slot 1's subcard, key, 4-byte reply";
         EXPECT_EQ(get<std::int32_t>(lastSent("Confirmation"), 0), 35);
         answerBox(35, 1);
         EXPECT_EQ(lastSent("CommittedThumb"), raw(get<Raw<28>>(newResolution, 4)));
     }},
    {"ARefusedAssessmentIsQueuedAndRefreshes", Impact + "Assess AssessFailed " + Refreshed,
     [] {
         tieSevenToAScreen();
         answers.assessments = {with<Assessment>({{4, 7}})};
         deliver("ThumbChoice", raw(newResolution));
         EXPECT_EQ(get<std::int32_t>(lastSent("AssessFailed"), 0), 7);
     }},
    {"ADeclinedConfirmationRefreshes", Refreshed, [] { answerBox(35, 0); }},
    {"AReferenceAffectingNoScreenIsWrittenAtOnceAndPublished",
     Impact + "InterfaceDetail DetailCheck ShowWaiting WritingReference WriteReference HideWaiting CommittedThumb",
     [] {
         deliver("ReferenceChoice", raw(sameReference));
         EXPECT_EQ(get<std::int32_t>(lastSent("WritingReference"), 0), 1);
         deliver("PublishReference");
         auto published = with<Raw<28>>({{8, 1907}, {12, 1007}});
         put(published, 4, 30.0f);
         EXPECT_EQ(lastSent("CommittedThumb"), raw(published));
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
