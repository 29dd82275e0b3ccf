// The built library through its entry points, and virtual-table slots called
// by raw position, independently of the interface declarations.

#include "framework/wire.h"
#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>

using edidvm::host::Bytes;
using edidvm::host::Channel;
using edidvm::host::Host;
using edidvm::host::HostApi;
using edidvm::host::SentKind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::vector<std::string> ServiceLookups = {"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher"};

template <typename Result, typename... Args>
Result callSlot(const void* object, int slot, Args... args)
{
    using Function = Result (*)(const void*, Args...);
    void* const* table = *static_cast<void* const* const*>(object);
    return reinterpret_cast<Function>(table[slot])(object, args...);
}

TEST(Plugin, DescriptionAndComponentTable)
{
    Host host;
    ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
    ASSERT_TRUE(host.readDescription()) << host.error();
    const kpf::PluginInfo* info = host.pluginInfo();
    ASSERT_NE(info->components[0], nullptr);
    EXPECT_EQ(info->components[1], nullptr);
    EXPECT_EQ((std::vector<std::string>{info->version, info->name, info->pluginVersion, info->description,
                                        info->components[0]->id, info->components[0]->description}),
              (std::vector<std::string>{"0.1", "outputedidviewmodel", "0.1.0",
                                        "{\"desc\":\"output edid view model plugin!\",\"end\":0 }",
                                        "tivra.lcd.viewmodel.output.edid", "{\"end\":0 }\r\n"}));

    // pluginfo gives the same record every time, before and after pluginit.
    void* library = dlopen(EDIDVM_PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    const auto pluginfo = reinterpret_cast<const kpf::PluginInfo* (*)()>(dlsym(library, "pluginfo"));
    EXPECT_EQ(pluginfo(), info);
    host.callPluginit(&host.api());
    EXPECT_EQ(pluginfo(), info);
    dlclose(library);
}

TEST(Plugin, WhatReachesNoHandler)
{
    Host host;
    ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
    kpf::IMessageHandler* component = host.components().at(0);
    host.start(component);
    // Reserved numbers and unknown kinds, whatever the payload.
    char payload[840] = {};
    for (int kind : {kpf::MessageKindCommand, kpf::MessageKindEvent, 0, -1})
        for (std::uint32_t number : {0xFFFF0001u, 0xFFFF0002u, 0xFFFFFFFEu, 0xFFFFFFFFu, 0u})
            for (const auto& [data, size] : {std::pair<const void*, int>{payload, 840}, {nullptr, 840}, {payload, -1}})
                EXPECT_FALSE(host.deliver(component, kind, number, size, data));
    for (std::uint32_t number : {0xFC051016u, 0xFC021009u})
        EXPECT_FALSE(host.deliver(component, 0, number, 0, nullptr)) << "kind 0 is neither command nor event";
    EXPECT_THAT(host.recorder().messages(), IsEmpty());
    EXPECT_EQ(host.store().liveCount(), 0u);
}

// The library's API holder lives as long as the library: each case reopens it.
TEST(Plugin, PluginitBeforeAfterAndTwice)
{
    // pluginit before / with null before / again after the first component;
    // the lookups each API then saw.
    const std::tuple<bool, bool, bool, std::vector<std::string>, std::vector<std::string>> cases[] = {
        {false, false, false, {}, {}},
        {true, false, false, ServiceLookups, {}},
        {true, false, true, ServiceLookups, ServiceLookups},
        {false, true, false, {}, {}},
    };
    for (const auto& [before, nullBefore, twice, first, second] : cases) {
        Host host;
        HostApi secondApi;
        ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
        if (before || nullBefore)
            host.callPluginit(nullBefore ? nullptr : &host.api());
        EXPECT_THAT(host.api().lookups(), IsEmpty()) << "pluginit itself looks nothing up";
        ASSERT_TRUE(host.readDescription()) << host.error();
        ASSERT_NE(host.createComponent(0), nullptr);
        if (twice) {
            host.callPluginit(&secondApi);
            ASSERT_NE(host.createComponent(0), nullptr);
        }
        EXPECT_EQ(host.api().lookups(), first) << "the first component keeps the first API";
        EXPECT_EQ(secondApi.lookups(), second) << "a second pointer replaces the first";
    }
}

TEST(Slots, HostObjectsAnswerAtTheirPositions)
{
    Host host;
    kpf::IHostApi* api = &host.api();
    // API: 3 findService.
    void* commands = callSlot<void*>(api, 3, "commanddispatcher");
    void* events = callSlot<void*>(api, 3, "eventdispatcher");
    void* center = callSlot<void*>(api, 3, "kpf_default_messagecenter");
    EXPECT_EQ(commands, static_cast<kpf::ICommandDispatcher*>(&host.commands()));
    EXPECT_EQ(events, static_cast<kpf::IEventDispatcher*>(&host.events()));
    EXPECT_EQ(center, static_cast<kpf::IMessageCenter*>(&host.messageCenter()));
    EXPECT_EQ(callSlot<void*>(api, 3, "no such service"), nullptr);

    // Configuration services: 6 subcardOfSlot, 8 relatedConnectors.
    host.deviceConfig().setAnswer([](std::int32_t slot) { return slot * 10; });
    host.subcardConfig().setAnswer([](std::int32_t subcard, std::int32_t key, std::int32_t param) {
        return std::vector<int>{subcard, key, param};
    });
    EXPECT_EQ(callSlot<std::int32_t>(callSlot<void*>(api, 3, "deviceconfigmanager"), 6, 4), 40);
    EXPECT_EQ(callSlot<std::vector<int>>(callSlot<void*>(api, 3, "subcardconfigmanager"), 8, 1, 2, -1),
              (std::vector<int>{1, 2, -1}));

    // Command dispatcher: 0 createMessage, 1 release, 2 send, 4 subscribe.
    host.commands().setResponder(0xFC000004u, [](const kpf::IMessage&) { return Bytes{7, 0, 0, 0}; });
    const int payload = 42;
    void* message = callSlot<void*>(commands, 0, static_cast<int>(0xFC000004u), 4, &payload, "slots");
    // Message: 2 kind, 3 number, 4 size, 5 data.
    EXPECT_EQ(callSlot<int>(message, 2), static_cast<int>(0xF0000001u));
    EXPECT_EQ(callSlot<int>(message, 3), static_cast<int>(0xFC000004u));
    EXPECT_EQ(callSlot<int>(message, 4), 4);
    EXPECT_EQ(std::memcmp(callSlot<const void*>(message, 5), &payload, 4), 0);
    void* response = nullptr;
    EXPECT_EQ(callSlot<int>(commands, 2, &message, &response, 0), 0);
    ASSERT_NE(response, nullptr);
    // Response: 1 data, 2 size.
    EXPECT_EQ(callSlot<int>(response, 2), 4);
    EXPECT_EQ(*static_cast<const unsigned char*>(callSlot<const void*>(response, 1)), 7);
    callSlot<void>(commands, 1, &response);
    callSlot<void>(commands, 1, &message);
    EXPECT_EQ(response, nullptr);
    EXPECT_EQ(message, nullptr);
    const std::string sender = "slots";
    callSlot<int>(commands, 4, 11, &sender);

    // Event dispatcher: 0 createMessage, 2 post, 4 send, 5 subscribe.
    void* queued = callSlot<void*>(events, 0, 21, 0, nullptr, "slots");
    EXPECT_EQ(callSlot<int>(queued, 2), static_cast<int>(0xF0000002u));
    callSlot<void>(events, 2, &queued);
    void* sent = callSlot<void*>(events, 0, 22, 0, nullptr, "slots");
    callSlot<void>(events, 4, &sent, 9);
    callSlot<int>(events, 5, 12, &sender);

    // Message center: 0 createMessage, sender before the payload.
    void* reply = callSlot<void*>(center, 0, 31, "slots", 4, &payload, 0);
    EXPECT_EQ(callSlot<int>(reply, 3), 31);
    EXPECT_EQ(callSlot<int>(reply, 4), 4);
    callSlot<void>(commands, 1, &reply);

    const auto recorded = host.recorder().messages();
    ASSERT_EQ(recorded.size(), 3u);
    EXPECT_EQ(std::make_tuple(recorded[0].number, recorded[1].number, recorded[1].kind, recorded[2].number,
                              recorded[2].kind, recorded[2].mode),
              std::make_tuple(0xFC000004u, 21u, SentKind::QueuedEvent, 22u, SentKind::Event, 9));
    const auto calls = host.subscriptions().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(std::make_tuple(calls[0].number, calls[0].channel, calls[1].number, calls[1].channel, calls[1].sender),
              std::make_tuple(11u, Channel::Command, 12u, Channel::Event, std::string("slots")));
    EXPECT_EQ(host.pump(), 1);
    EXPECT_EQ(host.store().liveCount(), 0u);
}

TEST(Slots, TheComponentTableAndTheLibrarysHandlerAnswerAtTheirPositions)
{
    Host host;
    ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
    kpf::ComponentInfo* info = host.componentInfos().at(0);
    void* component = info->creator();
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(info->getMessageHandler(component), component);
    void* other = info->creator();
    EXPECT_NE(other, component);
    info->deletor(other);
    info->deletor(nullptr);
    auto* handler = static_cast<kpf::IMessageHandler*>(component);
    kpf::IMessage* start = host.events().createMessage(static_cast<int>(0xFFFF0000u), 0, nullptr, "slots");
    kpf::IMessage* command = host.commands().createMessage(static_cast<int>(0xFC051016u), 0, nullptr, "slots");
    // 2 handleMessage: the start message registers the component's numbers.
    {
        edidvm::host::Subscriptions::StartScope scope(handler);
        EXPECT_EQ(callSlot<const void*>(component, 2, start), nullptr);
    }
    EXPECT_EQ(host.subscriptions().calls().size(), 16u);
    // 3 onInit: registers again.
    EXPECT_EQ(callSlot<int>(component, 3), 0);
    EXPECT_EQ(host.subscriptions().calls().size(), 32u);
    // 4 processMsg: routes the interface-type command to its reply.
    const void* reply = callSlot<const void*>(component, 4, static_cast<int>(0xFC051016u), command);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(callSlot<int>(reply, 3), static_cast<int>(0xFC051016u));
    EXPECT_EQ(callSlot<int>(reply, 4), 4);
    for (const void* message : {static_cast<const void*>(start), static_cast<const void*>(command), reply}) {
        void* releasing = const_cast<void*>(message);
        host.commands().release(&releasing);
    }
    host.subscriptions().forget(handler);
    // 1: the deleting destructor.
    callSlot<void>(component, 1);
    EXPECT_EQ(host.store().liveCount(), 0u);
}

} // namespace
