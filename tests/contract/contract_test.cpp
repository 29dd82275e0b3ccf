// A host that knows the binary contract only from the declarations below:
// no header of the project is included. Interfaces are C-style objects whose
// first word points at a table of function pointers, in slot order; records
// are byte offsets. If the library's slot order or a layout changes, this
// host calls the wrong function or reads the wrong bytes, and fails.

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Params = std::map<std::string, std::string>;
constexpr int CommandKind = int(0xF0000001u);
constexpr int EventKind = int(0xF0000002u);

// Unnamed slots: the library must never call them.
void unexpectedSlot()
{
    std::abort();
}
using Slot = void (*)();

// Laid out as the platform lays out a virtual table: the offset to the top
// of the object and the class's identity come before slot 0, where the
// object's first word points. A library built with the sanitizer's type
// checks reads the identity and must find the interface the contract names.
template <typename Slots>
struct VirtualTable
{
    std::ptrdiff_t offsetToTop;
    const std::type_info* identity;
    Slots slots;
};
const abi::__class_type_info messageType("N3kpf8IMessageE"), responseType("N3kpf9IResponseE"),
    commandType("N3kpf18ICommandDispatcherE"), eventType("N3kpf16IEventDispatcherE"),
    centerType("N3kpf14IMessageCenterE"), apiType("N3kpf8IHostApiE");

Bytes bytesOf(const void* data, std::size_t size)
{
    const auto* begin = static_cast<const unsigned char*>(data);
    return data != nullptr ? Bytes(begin, begin + size) : Bytes();
}

template <typename T>
T at(const Bytes& bytes, std::size_t offset)
{
    T value{};
    if (offset + sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// Messages and responses: objects of this host, read by the library.
struct Message;
struct MessageTable
{
    Slot slot0, slot1;
    int (*kind)(const Message*);
    int (*number)(const Message*);
    int (*size)(const Message*);
    const void* (*data)(const Message*);
};
struct Message
{
    const MessageTable* table;
    int kind, number, size;
    Bytes bytes;
    bool hasData;
    std::string sender;
};
const VirtualTable<MessageTable> messageTable = {
    0,
    &messageType,
    {
        unexpectedSlot,
        unexpectedSlot,
        [](const Message* m) { return m->kind; },
        [](const Message* m) { return m->number; },
        [](const Message* m) { return m->size; },
        [](const Message* m) -> const void* { return m->hasData ? m->bytes.data() : nullptr; },
    }};

struct Response;
struct ResponseTable
{
    Slot slot0;
    const void* (*data)(const Response*);
    int (*size)(const Response*);
};
struct Response
{
    const ResponseTable* table;
    Bytes payload;
};
const VirtualTable<ResponseTable> responseTable = {
    0,
    &responseType,
    {
        unexpectedSlot,
        [](const Response* r) -> const void* { return r->payload.data(); },
        [](const Response* r) { return int(r->payload.size()); },
    }};

// The 840-byte interface record: the fields this host sets or reads, at
// their offsets, and its five texts as real strings.
struct InterfaceRecord
{
    std::int32_t id = 0; // 0
    unsigned char pad0[24] = {};
    std::int32_t type = 0; // 28
    unsigned char pad1[24] = {};
    std::string usedByScreen; // 56
    unsigned char pad2[8] = {};
    std::string auxText18; // 96
    unsigned char pad3[8] = {};
    std::string auxText28;        // 136
    std::string ifText42;         // 168
    unsigned char thumb[28] = {}; // 200: 28-byte thumb timing, param4 at 16, param6 at 24
    unsigned char pad4[28] = {};
    unsigned char detail[56] = {}; // 256: 56-byte detail timing
    unsigned char pad5[56] = {};
    std::uint32_t ifWord92 = 0; // 368
    std::uint32_t pad6 = 0;
    std::string ifText94; // 376
    unsigned char pad7[224] = {};
    std::uint32_t ifWord158 = 0; // 632
    unsigned char pad8[204] = {};
};
static_assert(sizeof(InterfaceRecord) == 840, "the interface record is 840 bytes");

InterfaceRecord interfaceRecord(std::int32_t id, std::int32_t type)
{
    InterfaceRecord r;
    r.id = id;
    r.type = type;
    r.usedByScreen = "screen";
    for (std::size_t i = 0; i < sizeof r.thumb; ++i)
        r.thumb[i] = static_cast<unsigned char>(id + i);
    for (std::size_t i = 0; i < sizeof r.detail; ++i)
        r.detail[i] = static_cast<unsigned char>(100 + id + i);
    r.ifWord92 = 9200u + id;
    r.ifWord158 = 15800u + id;
    return r;
}

// What the library did to this host, in order.
struct Sent
{
    char channel; // 'C' command, 'E' event, 'P' posted event
    std::uint32_t number;
    int size, mode;
    Bytes bytes;
};
std::set<const void*> live;
std::vector<Sent> sent;
std::vector<std::pair<char, std::uint32_t>> subscriptions;
std::vector<std::string> subscribers, lookups;
std::vector<const void*> releasedTables; // the table of each object released
Params lastFilter;
int centerFlags = -1;
std::vector<InterfaceRecord> interfaces; // what the interface list answers

Message* newMessage(int kind, int number, int size, const void* data, const char* sender)
{
    auto* m = new Message{
        &messageTable.slots, kind, number, size, bytesOf(data, std::size_t(std::max(size, 0))), true, sender};
    m->hasData = data != nullptr;
    live.insert(m);
    return m;
}
void takeOver(char channel, Message** message, int mode)
{
    sent.push_back({channel, std::uint32_t((*message)->number), (*message)->size, mode, (*message)->bytes});
    live.erase(*message);
    delete *message;
}

struct CommandDispatcherTable
{
    Message* (*createMessage)(void*, int number, int size, const void* data, const char* sender);
    void (*release)(void*, void** object);
    int (*send)(void*, Message** message, Response** response, int mode);
    Slot slot3;
    int (*subscribe)(void*, int number, const std::string& sender);
};
const VirtualTable<CommandDispatcherTable> commandTable = {
    0,
    &commandType,
    {
        [](void*, int number, int size, const void* data, const char* sender) {
            return newMessage(CommandKind, number, size, data, sender);
        },
        [](void*, void** object) {
            void* released = *object;
            const void* table = released != nullptr ? *static_cast<const void* const*>(released) : nullptr;
            releasedTables.push_back(table);
            if (released != nullptr && live.erase(released) > 0) {
                if (table == &messageTable.slots)
                    delete static_cast<Message*>(released);
                else
                    delete static_cast<Response*>(released);
            }
            *object = nullptr;
        },
        [](void*, Message** message, Response** response, int mode) {
            const Message& m = **message;
            sent.push_back({'C', std::uint32_t(m.number), m.size, mode, m.bytes});
            *response = new Response{&responseTable.slots, {}};
            live.insert(*response);
            if (std::uint32_t(m.number) == 0xFC08100Au) { // the device's selected interface: 9
                const std::int32_t selected = 9;
                (*response)->payload = bytesOf(&selected, 4);
            } else if (std::uint32_t(m.number) == 0xFC050111u && m.size == 8) {
                // The envelope: a filter (a function object), then at 32 the
                // answer, whose interface list is the vector at 48.
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
            return 0;
        },
        unexpectedSlot,
        [](void*, int number, const std::string& sender) {
            subscriptions.push_back({'C', std::uint32_t(number)});
            subscribers.push_back(sender);
            return 0;
        },
    }};

struct EventDispatcherTable
{
    Message* (*createMessage)(void*, int number, int size, const void* data, const char* sender);
    Slot slot1;
    void (*post)(void*, Message** message);
    Slot slot3;
    void (*send)(void*, Message** message, int mode);
    int (*subscribe)(void*, int number, const std::string& sender);
};
const VirtualTable<EventDispatcherTable> eventTable = {
    0,
    &eventType,
    {
        [](void*, int number, int size, const void* data, const char* sender) {
            return newMessage(EventKind, number, size, data, sender);
        },
        unexpectedSlot,
        [](void*, Message** message) { takeOver('P', message, -1); },
        unexpectedSlot,
        [](void*, Message** message, int mode) { takeOver('E', message, mode); },
        [](void*, int number, const std::string& sender) {
            subscriptions.push_back({'E', std::uint32_t(number)});
            subscribers.push_back(sender);
            return 0;
        },
    }};

struct MessageCenterTable
{
    Message* (*createMessage)(void*, int number, const char* sender, int size, const void* data, int flags);
};
const VirtualTable<MessageCenterTable> centerTable = {
    0,
    &centerType,
    {
        [](void*, int number, const char* sender, int size, const void* data, int flags) {
            centerFlags = flags;
            return newMessage(0, number, size, data, sender);
        },
    }};

struct Service
{
    const void* table;
};
Service commandDispatcher{&commandTable.slots}, eventDispatcher{&eventTable.slots}, messageCenter{&centerTable.slots};

struct HostApiTable
{
    Slot slot0, slot1, slot2;
    void* (*findService)(void*, const char* name);
};
void* findService(void*, const char* name)
{
    lookups.push_back(name);
    const std::string key = name;
    return key == "kpf_default_messagecenter" ? &messageCenter
           : key == "commanddispatcher"       ? &commandDispatcher
           : key == "eventdispatcher"         ? &eventDispatcher
                                              : nullptr;
}
const VirtualTable<HostApiTable> apiTable = {
    0, &apiType, {unexpectedSlot, unexpectedSlot, unexpectedSlot, findService}};
Service hostApi{&apiTable.slots};

// The component: a virtual destructor (two slots), then handleMessage.
struct HandlerTable
{
    void (*destroy)(void*);
    void (*destroyAndFree)(void*);
    const Message* (*handleMessage)(void*, const Message*);
};
struct ComponentInfo
{
    std::function<void*()> creator;
    std::function<void(void*)> deletor;
    std::function<void*(void*)> getMessageHandler;
    const char* id;
    const char* description;
};
struct PluginInfo
{
    const char* version;
    ComponentInfo** components;
    const char* name;
    const char* pluginVersion;
    const char* description;
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

// "C FC050111 8 0": channel, number, size and mode of each send.
std::vector<std::string> trace()
{
    std::vector<std::string> steps;
    for (const Sent& s : sent) {
        char text[40];
        std::snprintf(text, sizeof text, "%c %08X %d %d", s.channel, unsigned(s.number), s.size, s.mode);
        steps.push_back(text);
    }
    sent.clear();
    return steps;
}

TEST(ContractTest, AHostOfItsOwnDrivesTheLibraryThroughTheDeclaredSlotsAndLayouts)
{
    void* library = dlopen(EDIDVM_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto pluginit = reinterpret_cast<void (*)(void*)>(dlsym(library, "pluginit"));
    auto pluginfo = reinterpret_cast<const PluginInfo* (*)()>(dlsym(library, "pluginfo"));
    ASSERT_TRUE(pluginit != nullptr && pluginfo != nullptr);
    pluginit(&hostApi);

    const PluginInfo* info = pluginfo();
    EXPECT_STREQ(info->version, "0.1");
    EXPECT_STREQ(info->name, "outputedidviewmodel");
    EXPECT_STREQ(info->pluginVersion, "0.1.0");
    EXPECT_STREQ(info->description, "{\"desc\":\"output edid view model plugin!\",\"end\":0 }");
    ASSERT_NE(info->components[0], nullptr);
    EXPECT_EQ(info->components[1], nullptr);
    ComponentInfo& component = *info->components[0];
    EXPECT_STREQ(component.id, "tivra.lcd.viewmodel.output.edid");
    EXPECT_STREQ(component.description, "{\"end\":0 }\r\n");

    void* object = component.creator();
    ASSERT_NE(object, nullptr);
    void* handler = component.getMessageHandler(object);
    EXPECT_EQ(handler, object);
    EXPECT_EQ(lookups, (std::vector<std::string>{"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher"}));

    EXPECT_EQ(deliver(handler, EventKind, 0xFFFF0000u, 0, nullptr), nullptr);
    const std::vector<std::pair<char, std::uint32_t>> registered = {
        {'E', 0xFC070606u}, {'E', 0xFC000620u}, {'E', 0xFC021009u}, {'E', 0xFC00060Au},
        {'E', 0xFC00060Bu}, {'E', 0xFC000605u}, {'E', 0xFC000606u}, {'E', 0xFC00060Cu},
        {'E', 0xFC00060Du}, {'E', 0xFC000617u}, {'E', 0xFC031007u}, {'C', 0xFC051016u},
        {'E', 0xFC081005u}, {'E', 0xFC081006u}, {'E', 0xFC030204u}, {'E', 0xFC08021Eu}};
    EXPECT_EQ(subscriptions, registered);
    EXPECT_EQ(subscribers, std::vector<std::string>(16, "outputedidviewmodel"));

    // The current interface, sent whole: its two timing blocks come back.
    const InterfaceRecord seven = interfaceRecord(7, 8);
    deliver(handler, EventKind, 0xFC021009u, 840, &seven);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].bytes, bytesOf(seven.detail, 56));
    EXPECT_EQ(sent[1].bytes, bytesOf(seven.thumb, 28));
    EXPECT_EQ(trace(), (std::vector<std::string>{"E FC020607 56 9", "E FC020608 28 9"}));

    // The one command: its reply is built by the message center and read
    // back through this host's own message table.
    const Message* reply = deliver(handler, CommandKind, 0xFC051016u, 0, nullptr);
    ASSERT_EQ(live.count(reply), 1u) << "the reply is not one this host made";
    EXPECT_EQ(std::uint32_t(reply->table->number(reply)), 0xFC051016u);
    ASSERT_EQ(reply->table->size(reply), 4);
    EXPECT_EQ(*static_cast<const std::int32_t*>(reply->table->data(reply)), 8) << "the type at byte 28";
    EXPECT_EQ(reply->sender, "outputedidviewmodel");
    EXPECT_EQ(centerFlags, 0);
    live.erase(reply);
    delete reply;

    // An SDI record, then the in-use question: the list query's filter names
    // interface 7, and the response is released before the message.
    interfaces = {interfaceRecord(7, 8), interfaceRecord(9, 1)};
    const std::int32_t sdi[4] = {1, 2, 3, 4};
    deliver(handler, EventKind, 0xFC031007u, 16, sdi);
    releasedTables.clear();
    deliver(handler, EventKind, 0xFC000617u, 0, nullptr);
    EXPECT_EQ(lastFilter, (Params{{"interfaceId", "7"}}));
    EXPECT_EQ(releasedTables, (std::vector<const void*>{&responseTable.slots, &messageTable.slots}));
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1].bytes, Bytes{1}) << "the interface is used by a screen";
    EXPECT_EQ(trace(), (std::vector<std::string>{"C FC050111 8 0", "E FC02060E 1 9"}));

    // The thumb refresh adopts the interface the device reports selected,
    // read from a 4-byte response: 9, not the first of the list.
    deliver(handler, EventKind, 0xFC00060Bu, 0, nullptr);
    ASSERT_EQ(sent.size(), 5u);
    EXPECT_EQ(at<std::int32_t>(sent[2].bytes, 0), 9);
    Bytes thumb = bytesOf(interfaces[1].thumb, 28);
    std::memcpy(thumb.data() + 24, &interfaces[1].ifWord92, 4);
    EXPECT_EQ(sent[3].bytes, thumb);
    EXPECT_EQ(at<std::uint32_t>(sent[4].bytes, 0), 9209u);
    EXPECT_EQ(at<std::uint32_t>(sent[4].bytes, 4), 15809u);
    EXPECT_EQ(at<std::uint32_t>(sent[4].bytes, 12), at<std::uint32_t>(thumb, 16));
    EXPECT_EQ(trace(), (std::vector<std::string>{"C FC050111 8 0", "C FC08100A 0 0", "C FC001009 4 0",
                                                 "E FC020608 28 9", "E FC030606 16 9"}));

    // Slot 1, the deleting destructor, as the component's own deletor does.
    tableOf(handler).destroyAndFree(handler);
    component.deletor(nullptr);
    EXPECT_TRUE(live.empty()) << "a message or response was not released";
    dlclose(library);
}

} // namespace
