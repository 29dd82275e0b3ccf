// Calls the library's handler and our host's objects through raw virtual-table
// positions, independently of the interface declarations, so that a slot
// moved in a header shows up here.

#include "host/host.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using edidvm::host::Bytes;
using edidvm::host::Host;

namespace {

template <typename Result, typename... Args>
Result callSlot(const void* object, int slot, Args... args)
{
    using Function = Result (*)(const void*, Args...);
    void* const* table = *static_cast<void* const* const*>(object);
    return reinterpret_cast<Function>(table[slot])(object, args...);
}

constexpr int Command = static_cast<int>(0xF0000001u);
constexpr int Event = static_cast<int>(0xF0000002u);

TEST(Slots, HostObjectsAnswerAtTheirPositions)
{
    Host host;
    kpf::IHostApi* api = &host.api();
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
    void* device = callSlot<void*>(api, 3, "deviceconfigmanager");
    void* subcard = callSlot<void*>(api, 3, "subcardconfigmanager");
    EXPECT_EQ(callSlot<std::int32_t>(device, 6, 4), 40);
    EXPECT_EQ(callSlot<std::vector<int>>(subcard, 8, 1, 2, -1), (std::vector<int>{1, 2, -1}));

    // Command dispatcher: 0 createMessage, 1 release, 2 send, 4 subscribe.
    host.commands().setResponder(0xFC000004u, [](const kpf::IMessage&) { return Bytes{7, 0, 0, 0}; });
    const int payload = 42;
    void* message = callSlot<void*>(commands, 0, static_cast<int>(0xFC000004u), 4, &payload, "slots");
    // Message: 2 kind, 3 number, 4 size, 5 data.
    EXPECT_EQ(callSlot<int>(message, 2), Command);
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
    EXPECT_EQ(callSlot<int>(queued, 2), Event);
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
    EXPECT_EQ(recorded[0].number, 0xFC000004u);
    EXPECT_EQ(recorded[1].number, 21u);
    EXPECT_EQ(recorded[2].number, 22u);
    EXPECT_EQ(recorded[2].mode, 9);
    const auto calls = host.subscriptions().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].number, 11u);
    EXPECT_EQ(calls[1].number, 12u);
    EXPECT_EQ(calls[1].sender, "slots");
    EXPECT_EQ(host.pump(), 1);
    EXPECT_EQ(host.store().liveCount(), 0u);
}

TEST(Slots, TheLibrarysHandlerAnswersAtItsPositions)
{
    Host host;
    ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
    kpf::ComponentInfo* info = host.componentInfos().at(0);
    void* component = info->creator();
    ASSERT_NE(component, nullptr);

    auto* handler = static_cast<kpf::IMessageHandler*>(component);
    kpf::IMessage* start = host.events().createMessage(static_cast<int>(0xFFFF0000u), 0, nullptr, "slots");
    kpf::IMessage* command = host.commands().createMessage(static_cast<int>(0xFC051016u), 0, nullptr, "slots");
    // 2 handleMessage: the start message registers the component's numbers.
    {
        edidvm::host::Subscriptions::StartScope scope(handler);
        EXPECT_EQ(callSlot<const void*>(component, 2, start), nullptr);
    }
    const std::size_t registered = host.subscriptions().calls().size();
    EXPECT_EQ(registered, 16u);
    // 3 onInit: registers again.
    EXPECT_EQ(callSlot<int>(component, 3), 0);
    EXPECT_EQ(host.subscriptions().calls().size(), 2 * registered);
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
