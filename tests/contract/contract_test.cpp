// A host that knows the binary contract only from the declarations below: no
// project header is included. Interfaces are C-style objects whose first word
// points at a table of function pointers in slot order; records are byte
// offsets. A changed slot order or layout makes this host fail.

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
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
#define VTABLE(Slots, name, mangled, ...)                                                                              \
    const abi::__class_type_info name##Identity("N3kpf" mangled "E");                                                  \
    const VirtualTable<Slots> name = {0, &name##Identity, {__VA_ARGS__}}

Bytes bytesOf(const void* data, std::size_t size)
{
    const auto* begin = static_cast<const unsigned char*>(data);
    return data != nullptr ? Bytes(begin, begin + size) : Bytes();
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

// The 840-byte interface record: the fields this host sets or reads at their
// offsets, and its five texts as real strings.
struct InterfaceRecord
{
    std::int32_t id = 0, pad0[6] = {}, type = 0, pad1[6] = {}; // 0, 28
    std::string usedByScreen;                                  // 56
    std::uint64_t pad2 = 0;
    std::string auxText18; // 96
    std::uint64_t pad3 = 0;
    std::string auxText28, ifText42;                                             // 136, 168
    unsigned char thumb[28] = {}, pad4[28] = {}, detail[56] = {}, pad5[64] = {}; // 200, 256
    std::string ifText94;                                                        // 376
    unsigned char pad6[432] = {};
};
static_assert(sizeof(InterfaceRecord) == 840, "the interface record is 840 bytes");

InterfaceRecord interfaceRecord(std::int32_t id, std::int32_t type)
{
    InterfaceRecord r;
    r.id = id;
    r.type = type;
    r.usedByScreen = "screen";
    for (std::size_t i = 0; i < sizeof r.detail; ++i) {
        r.detail[i] = static_cast<unsigned char>(100 + id + i);
        r.thumb[i % sizeof r.thumb] = static_cast<unsigned char>(id + i);
    }
    return r;
}

// What the library did to this host, in order.
std::set<const void*> live;
std::vector<std::string> steps; // "C FC050111 8 0": channel, number, size, mode
std::vector<Bytes> sentBytes;
std::vector<std::pair<char, std::uint32_t>> subscriptions;
std::vector<std::string> lookups;
std::vector<const void*> releasedTables; // the table of each object released
Params lastFilter;
std::vector<InterfaceRecord> interfaces; // what the interface list answers

template <int Kind>
Message* createMessage(void*, int number, int size, const void* data, const char* sender)
{
    auto* m = new Message{&messageTable.slots, Kind, number, size, {}, data != nullptr, sender};
    m->bytes = bytesOf(data, std::size_t(size > 0 ? size : 0));
    live.insert(m);
    return m;
}
void record(char channel, const Message& m, int mode)
{
    char step[40];
    std::snprintf(step, sizeof step, "%c %08X %d %d", channel, unsigned(m.number), m.size, mode);
    steps.push_back(step);
    sentBytes.push_back(m.bytes);
}
template <char Channel>
void takeOver(void*, Message** message, int mode)
{
    record(Channel, **message, mode);
    live.erase(*message);
    delete *message;
}
template <char Channel>
int subscribe(void*, int number, const std::string& sender)
{
    subscriptions.push_back({Channel, std::uint32_t(number)});
    EXPECT_EQ(sender, "outputedidviewmodel");
    return 0;
}

// The interface list query: an envelope whose first word is a filter (a
// function object) and whose answer's interface list is the vector at 48.
void answerListQuery(const Message& m)
{
    unsigned char* envelope = nullptr;
    std::memcpy(&envelope, m.bytes.data(), sizeof envelope);
    const auto& filter = *reinterpret_cast<const std::function<bool(Params&)>*>(envelope);
    Params& params = lastFilter = {};
    if (filter)
        filter(params);
    auto& list = *reinterpret_cast<std::vector<InterfaceRecord>*>(envelope + 48);
    for (const InterfaceRecord& r : interfaces)
        if (params.empty() || params["interfaceId"] == std::to_string(r.id))
            list.push_back(r);
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
        record('C', **message, mode);
        live.insert(*response = new Message{&responseTable.slots, 0, 0, 0, {}, true, ""});
        if (std::uint32_t((*message)->number) == 0xFC050111u && (*message)->size == 8)
            answerListQuery(**message);
        return 0;
    },
    UNNAMED, subscribe<'C'>);

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
    [](void* self, Message** message) { takeOver<'P'>(self, message, -1); }, UNNAMED, takeOver<'E'>, subscribe<'E'>);

struct MessageCenterTable
{
    Message* (*createMessage)(void*, int number, const char* sender, int size, const void* data, int flags);
};
VTABLE(MessageCenterTable, centerTable, "14IMessageCenter",
       [](void* self, int number, const char* sender, int size, const void* data, int flags) {
           EXPECT_EQ(flags, 0);
           return createMessage<0>(self, number, size, data, sender);
       });

// A service object is one word: its table.
const void* commandDispatcher = &commandTable.slots;
const void* eventDispatcher = &eventTable.slots;
const void* messageCenter = &centerTable.slots;
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

TEST(ContractTest, AHostOfItsOwnDrivesTheLibraryThroughTheDeclaredSlotsAndLayouts)
{
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

    EXPECT_EQ(deliver(handler, EventKind, 0xFFFF0000u, 0, nullptr), nullptr); // start
    const std::vector<std::pair<char, std::uint32_t>> registered = {
        {'E', 0xFC070606u}, {'E', 0xFC000620u}, {'E', 0xFC021009u}, {'E', 0xFC00060Au},
        {'E', 0xFC00060Bu}, {'E', 0xFC000605u}, {'E', 0xFC000606u}, {'E', 0xFC00060Cu},
        {'E', 0xFC00060Du}, {'E', 0xFC000617u}, {'E', 0xFC031007u}, {'C', 0xFC051016u},
        {'E', 0xFC081005u}, {'E', 0xFC081006u}, {'E', 0xFC030204u}, {'E', 0xFC08021Eu}};
    EXPECT_EQ(subscriptions, registered);

    // The current interface, sent whole: its two timing blocks come back.
    const InterfaceRecord seven = interfaceRecord(7, 8);
    deliver(handler, EventKind, 0xFC021009u, 840, &seven);
    EXPECT_EQ(std::exchange(steps, {}), (std::vector<std::string>{"E FC020607 56 9", "E FC020608 28 9"}));
    EXPECT_EQ(std::exchange(sentBytes, {}), (std::vector<Bytes>{bytesOf(seven.detail, 56), bytesOf(seven.thumb, 28)}));

    // The one command: its reply is made by the message center.
    const Message* reply = deliver(handler, CommandKind, 0xFC051016u, 0, nullptr);
    ASSERT_EQ(live.erase(reply), 1u) << "the reply is not one this host made";
    EXPECT_EQ(std::uint32_t(reply->number), 0xFC051016u);
    EXPECT_EQ(reply->bytes, (Bytes{8, 0, 0, 0})) << "the type at byte 28";
    EXPECT_EQ(reply->sender, "outputedidviewmodel");
    delete reply;

    // onInit registers again; processMsg routes a number as handleMessage does.
    subscriptions.clear();
    EXPECT_EQ(tableOf(handler).onInit(handler), 0);
    EXPECT_EQ(subscriptions, registered);
    const Message command{&messageTable.slots, CommandKind, int(0xFC051016u), 0, {}, false, "host"};
    reply = tableOf(handler).processMsg(handler, int(0xFC051016u), &command);
    ASSERT_EQ(live.erase(reply), 1u);
    EXPECT_EQ(reply->bytes, (Bytes{8, 0, 0, 0}));
    delete reply;

    // The in-use question: the list query's filter names interface 7, and
    // the response is released before the message.
    interfaces = {interfaceRecord(7, 8), interfaceRecord(9, 1)};
    releasedTables.clear();
    deliver(handler, EventKind, 0xFC000617u, 0, nullptr);
    EXPECT_EQ(lastFilter, (Params{{"interfaceId", "7"}}));
    EXPECT_EQ(releasedTables, (std::vector<const void*>{&responseTable.slots, &messageTable.slots}));
    EXPECT_EQ(steps, (std::vector<std::string>{"C FC050111 8 0", "E FC02060E 1 9"}));
    EXPECT_EQ(sentBytes.back(), Bytes{1}) << "the interface is used by a screen";

    // Slot 1, the deleting destructor, as the component's own deletor does.
    tableOf(handler).destroyAndFree(handler);
    component.deletor(nullptr);
    EXPECT_TRUE(live.empty()) << "a message or response was not released";
    dlclose(library);
}

} // namespace
