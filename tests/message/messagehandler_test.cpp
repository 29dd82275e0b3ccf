// SPDX-License-Identifier: MIT
// The handler base, through a test-only component that records its handlers' calls.

#include "common/warningcapture.h"
#include "framework/api.h"
#include "framework/idispatchers.h"
#include "framework/wire.h"
#include "host/host.h"
#include "message/messagehandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <numeric>
#include <thread>

using edidvm::host::Bytes;
using edidvm::host::Channel;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr std::uint32_t EventA = 0xFC00060Au;
constexpr std::uint32_t EventB = 0xFC00060Bu;
constexpr std::uint32_t CommandA = 0xFC051016u;

// Handlers are copied only while the base holds its table lock: two copies
// at once are two threads inside it. Slow copies make an overlap likely.
struct CopyProbe
{
    static inline std::atomic<bool> slow{false}, overlapped{false};
    static inline std::atomic<int> inside{0};
    CopyProbe() = default;
    CopyProbe(CopyProbe&&) noexcept {}
    CopyProbe(const CopyProbe&)
    {
        if (inside.fetch_add(1) != 0)
            overlapped = true;
        if (slow)
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        inside.fetch_sub(1);
    }
};

class TestComponent : public LCD::Message::MessageHandler
{
public:
    struct Registration
    {
        bool command; // else an event
        std::uint32_t number;
        int tag; // names the handler in hits and replies; negative: an empty handler
    };

    explicit TestComponent(std::vector<Registration> table) : m_table(std::move(table)) { m_name = "test"; }

    int onInit() override
    {
        ++initCalls;
        for (const auto& [command, number, tag] : m_table) {
            (this->*(command ? &TestComponent::registerCommand : &TestComponent::registerEvent))(kpf::wireInt(number),
                                                                                                 handlerFor(tag));
            if (afterEach)
                afterEach();
        }
        return 0;
    }

    // A lambda capturing this, as components bind; commands get the tag back.
    LCD::Message::MessageHandlerFunc handlerFor(int tag)
    {
        if (tag < 0)
            return {};
        return [this, tag, probe = CopyProbe()](const kpf::IMessage* message) -> const kpf::IMessage* {
            tags.push_back(tag);
            if (message->kind() != kpf::MessageKindCommand)
                return nullptr;
            return m_messageCenter->createMessage(message->number(), m_name.c_str(), sizeof tag, &tag, 0);
        };
    }

    using MessageHandler::postEvent;
    using MessageHandler::registerCommand;
    using MessageHandler::registerEvent;
    using MessageHandler::sendCommand;
    using MessageHandler::sendEvent;

    std::atomic<int> initCalls{0};
    std::function<void()> afterEach; // runs after each registration
    std::vector<int> tags;

private:
    std::vector<Registration> m_table;
};

class MessageHandlerTest : public ::testing::Test
{
protected:
    void SetUp() override { kpf::api::get().hostApi = &host.api(); }
    void TearDown() override
    {
        kpf::api::get().hostApi = nullptr;
        EXPECT_EQ(host.store().liveCount(), 0u);
    }

    // Every number of the table, as the kind it was registered with.
    void deliverAll(TestComponent& component, const std::vector<TestComponent::Registration>& table,
                    std::uint32_t offset = 0)
    {
        for (const auto& [command, number, tag] : table)
            host.deliver(&component, command ? kpf::MessageKindCommand : kpf::MessageKindEvent, number + offset, 0,
                         nullptr);
    }

    static std::vector<int> upTo(std::size_t count)
    {
        std::vector<int> tags(count);
        std::iota(tags.begin(), tags.end(), 0);
        return tags;
    }

    edidvm::host::Host host;
};

// Every registration subscribes, duplicates and reserved numbers too, and
// the first handler of a number stays. Reserved numbers never reach a
// handler, registered or not; the kind chooses the table before the number
// is looked up. 0xFFFF0003 and 0xFFFFFFFD, next to the reserved ones, are
// ordinary. The start message runs onInit whatever its kind; a null message
// is ignored.
TEST_F(MessageHandlerTest, AMessageReachesOnlyTheFirstNonEmptyHandlerOfItsKindAndNumber)
{
    std::vector<TestComponent::Registration> table = {
        {false, EventA, 1},  {true, CommandA, 2},     {false, EventA, 5},     {true, CommandA, 6},
        {false, EventB, -1}, {false, 0xFFFF0003u, 3}, {false, 0xFFFFFFFDu, 4}};
    struct Unrouted
    {
        const char* name;
        int kind;
        std::uint32_t number;
    };
    std::vector<Unrouted> unrouted = {{"command kind, event number", kpf::MessageKindCommand, EventA},
                                      {"event kind, command number", kpf::MessageKindEvent, CommandA},
                                      {"kind 0", 0, EventA},
                                      {"unknown kind", kpf::wireInt(0xF0000003u), EventA},
                                      {"kind -1", -1, EventA},
                                      {"empty handler", kpf::MessageKindEvent, EventB}};
    table.push_back({false, 0xFFFF0000u, 9});
    for (std::uint32_t reserved : {0xFFFF0001u, 0xFFFF0002u, 0xFFFFFFFEu, 0xFFFFFFFFu})
        for (bool command : {true, false}) {
            table.push_back({command, reserved, 9});
            unrouted.push_back({"reserved", command ? kpf::MessageKindCommand : kpf::MessageKindEvent, reserved});
        }
    TestComponent component(table);
    host.start(&component);
    const auto calls = host.subscriptions().calls();
    ASSERT_EQ(calls.size(), table.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(calls[i].channel, table[i].command ? Channel::Command : Channel::Event);
        EXPECT_EQ(calls[i].number, table[i].number);
        EXPECT_EQ(calls[i].sender, "test");
        EXPECT_EQ(calls[i].component, &component);
    }
    for (const Unrouted& message : unrouted)
        EXPECT_FALSE(host.deliver(&component, message.kind, message.number, 0, nullptr))
            << message.name << " " << std::hex << message.number;
    for (int kind : {kpf::MessageKindCommand, kpf::MessageKindEvent, 0, 0x1234})
        EXPECT_FALSE(host.deliver(&component, kind, 0xFFFF0000u, 0, nullptr));
    EXPECT_EQ(component.initCalls, 5);
    EXPECT_EQ(component.handleMessage(nullptr), nullptr);
    EXPECT_EQ(component.processMsg(kpf::wireInt(EventA), nullptr), nullptr) << "the host may call it directly";
    EXPECT_THAT(component.tags, IsEmpty());
    EXPECT_FALSE(host.deliver(&component, kpf::MessageKindEvent, EventA, 0, nullptr));
    EXPECT_EQ(host.deliver(&component, kpf::MessageKindCommand, CommandA, 0, nullptr), (Bytes{2, 0, 0, 0}));
    host.deliver(&component, kpf::MessageKindEvent, 0xFFFF0003u, 0, nullptr);
    host.deliver(&component, kpf::MessageKindEvent, 0xFFFFFFFDu, 0, nullptr);
    EXPECT_THAT(component.tags, ElementsAre(1, 2, 3, 4));
}

TEST_F(MessageHandlerTest, AMissingServiceSkipsTheSendWithOneWarningNamingIt)
{
    host.api().removeService("commanddispatcher");
    host.api().removeService("eventdispatcher");
    TestComponent component({{false, EventA, 1}, {true, CommandA, 2}});
    edidvm::test::WarningCapture capture;
    host.start(&component);
    unsigned char reply[4] = {9, 9, 9, 9};
    EXPECT_EQ(component.sendCommand(kpf::wireInt(CommandA), 0, nullptr, 4, reply), -1);
    component.sendEvent(kpf::wireInt(EventA), 0, nullptr);
    component.postEvent(kpf::wireInt(EventB), 0, nullptr);

    // Registration, sendCommand, sendEvent, postEvent: one warning each.
    EXPECT_THAT(capture.texts(), ElementsAre("service eventdispatcher is missing, not subscribed: 0xFC00060A",
                                             "service commanddispatcher is missing, not subscribed: 0xFC051016",
                                             "service commanddispatcher is missing, command not sent: 0xFC051016",
                                             "service eventdispatcher is missing, event not sent: 0xFC00060A",
                                             "service eventdispatcher is missing, event not sent: 0xFC00060B"));
    EXPECT_THAT(capture.messages().at(0).function, HasSubstr("LCD::Message::MessageHandler::registerEvent"));
    EXPECT_THAT(reply, ElementsAre(9, 9, 9, 9));
    // Nothing subscribed: either registration returns -1.
    EXPECT_EQ(component.registerCommand(kpf::wireInt(CommandA), {}), -1);
    EXPECT_EQ(component.registerEvent(kpf::wireInt(EventB), {}), -1);
    EXPECT_THAT(host.subscriptions().calls(), IsEmpty());
    EXPECT_THAT(host.recorder().messages(), IsEmpty());
    // The tables were filled all the same: direct deliveries still route.
    host.deliver(&component, kpf::MessageKindEvent, EventA, 0, nullptr);
    EXPECT_THAT(component.tags, ElementsAre(1));
}

// Many numbers, so that several share a first slot and probes wrap around;
// every one is routed while the table is still being filled, and numbers
// between them never are.
TEST_F(MessageHandlerTest, ExactlyTheRegisteredNumbersRouteFromTheirRegistrationOn)
{
    std::vector<TestComponent::Registration> table;
    for (int tag = 0; tag < 48; ++tag)
        table.push_back({tag % 5 == 0, 0xFC000000u + 7u * std::uint32_t(tag), tag});
    TestComponent component(table);
    std::size_t registered = 0;
    component.afterEach = [&] {
        component.tags.clear();
        deliverAll(component, table);
        deliverAll(component, table, 3);
        ASSERT_EQ(component.tags, upTo(++registered)) << "after " << registered << " registrations";
    };
    host.start(&component);
    EXPECT_EQ(registered, table.size());
}

// Two start messages at once register the same table twice: every number
// keeps exactly one handler.
TEST_F(MessageHandlerTest, TwoStartsRacedLeaveOneHandlerPerNumber)
{
    std::vector<TestComponent::Registration> table;
    for (int tag = 0; tag < 16; ++tag)
        table.push_back({tag % 2 == 0, 0xFC100000u + std::uint32_t(tag), tag});
    CopyProbe::slow = true;
    for (int round = 0; round < 10; ++round) {
        TestComponent component(table);
        std::thread other([&] { host.start(&component); });
        host.start(&component);
        other.join();
        ASSERT_EQ(component.initCalls.load(), 2);
        deliverAll(component, table);
        ASSERT_EQ(component.tags, upTo(table.size())) << "round " << round;
        host.subscriptions().forget(&component);
    }
    CopyProbe::slow = false;
    EXPECT_FALSE(CopyProbe::overlapped) << "two threads inserted at once";
}

} // namespace
