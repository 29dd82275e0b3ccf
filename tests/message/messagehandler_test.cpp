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
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <thread>

using edidvm::host::Bytes;
using edidvm::host::Channel;
using edidvm::host::CommandDispatcher;
using edidvm::host::SentKind;
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
    // Command or event, number, and a tag naming the handler in hits and replies.
    using Registration = std::tuple<bool, std::uint32_t, int>;

    explicit TestComponent(std::vector<Registration> table = {}) : m_table(std::move(table)) { m_name = "test"; }

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
            return {}; // registered, but empty
        return [this, tag, probe = CopyProbe()](const kpf::IMessage* message) -> const kpf::IMessage* {
            hits.push_back({tag, kpf::wireWord(message->number()), message->kind()});
            if (message->kind() != kpf::MessageKindCommand)
                return nullptr;
            return m_messageCenter->createMessage(message->number(), m_name.c_str(), sizeof tag, &tag, 0);
        };
    }

    std::vector<int> tags() const
    {
        std::vector<int> all;
        for (const auto& hit : hits)
            all.push_back(hit[0]);
        return all;
    }

    using MessageHandler::postEvent;
    using MessageHandler::sendCommand;
    using MessageHandler::sendEvent;

    std::atomic<int> initCalls{0};
    std::function<void()> afterEach;               // runs after each registration
    std::vector<std::array<std::int64_t, 3>> hits; // tag, number, kind

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

    std::unique_ptr<TestComponent> started(std::vector<TestComponent::Registration> table)
    {
        auto component = std::make_unique<TestComponent>(std::move(table));
        host.start(component.get());
        return component;
    }

    edidvm::host::Host host;
};

TEST_F(MessageHandlerTest, ReservedNumbersAreFilteredStartRunsOnInitForAnyKindAndKindChoosesTheTable)
{
    const std::uint32_t reserved[] = {0xFFFF0001u, 0xFFFF0002u, 0xFFFFFFFEu, 0xFFFFFFFFu};
    std::vector<TestComponent::Registration> table = {{false, EventA, 1}, {true, CommandA, 2}};
    for (std::uint32_t number : reserved) {
        table.push_back({true, number, 9});
        table.push_back({false, number, 9});
    }
    table.push_back({false, EventB, -1});
    // Next to the reserved ones, but ordinary numbers.
    table.push_back({false, 0xFFFF0003u, 3});
    table.push_back({false, 0xFFFFFFFDu, 4});
    auto component = started(table);
    ASSERT_EQ(component->initCalls, 1);

    for (std::uint32_t number : reserved)
        for (int kind : {kpf::MessageKindCommand, kpf::MessageKindEvent})
            EXPECT_FALSE(host.deliver(component.get(), kind, number, 0, nullptr)) << std::hex << number;
    for (int kind : {kpf::MessageKindCommand, kpf::MessageKindEvent, 0, 0x1234})
        EXPECT_FALSE(host.deliver(component.get(), kind, 0xFFFF0000u, 0, nullptr));
    EXPECT_EQ(component->initCalls, 5);
    // The kind chooses the table before the number is looked up.
    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindCommand, EventA, 0, nullptr));
    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindEvent, CommandA, 0, nullptr));
    for (int kind : {0, kpf::wireInt(0xF0000003u), -1})
        EXPECT_FALSE(host.deliver(component.get(), kind, EventA, 0, nullptr));
    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindEvent, EventB, 0, nullptr));
    EXPECT_EQ(component->handleMessage(nullptr), nullptr);
    EXPECT_EQ(component->processMsg(kpf::wireInt(EventA), nullptr), nullptr) << "the host may call it directly";
    EXPECT_THAT(component->tags(), IsEmpty());

    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindEvent, EventA, 0, nullptr));
    EXPECT_EQ(host.deliver(component.get(), kpf::MessageKindCommand, CommandA, 0, nullptr), (Bytes{2, 0, 0, 0}));
    host.deliver(component.get(), kpf::MessageKindEvent, 0xFFFF0003u, 0, nullptr);
    host.deliver(component.get(), kpf::MessageKindEvent, 0xFFFFFFFDu, 0, nullptr);
    EXPECT_THAT(component->tags(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(component->hits[1][2], kpf::MessageKindCommand);
}

TEST_F(MessageHandlerTest, DuplicateRegistrationKeepsTheFirstHandlerYetSubscribesTwice)
{
    auto component = started({{false, EventA, 1}, {false, EventA, 2}, {true, CommandA, 3}, {true, CommandA, 4}});
    const auto calls = host.subscriptions().calls();
    ASSERT_EQ(calls.size(), 4u);
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(std::make_tuple(calls[i].channel, calls[i].number, calls[i].sender, calls[i].component),
                  std::make_tuple(i < 2 ? Channel::Event : Channel::Command, i < 2 ? EventA : CommandA,
                                  std::string("test"), static_cast<kpf::IMessageHandler*>(component.get())));
    }
    // Routed through the host: subscribed twice, delivered once.
    host.event(EventA, nullptr, 0);
    EXPECT_EQ(host.command(CommandA, nullptr, 0), (Bytes{3, 0, 0, 0}));
    // A second start: first handlers stay, numbers are subscribed once more.
    host.start(component.get());
    EXPECT_EQ(host.subscriptions().calls().size(), 8u);
    host.event(EventA, nullptr, 0);
    EXPECT_THAT(component->tags(), ElementsAre(1, 3, 1));
}

TEST_F(MessageHandlerTest, SendCommandCopiesAReplyOnlyWhenItsSizeMatchesAndReleasesTheResponseFirst)
{
    const Bytes four = {1, 2, 3, 4};
    const std::tuple<const char*, bool, std::optional<Bytes>, int, bool> cases[] = {
        {"exact size", true, four, 4, true},
        {"one byte short", true, Bytes{1, 2, 3}, 4, false},
        {"one byte long", true, Bytes{1, 2, 3, 4, 5}, 4, false},
        {"reply size 0 copies nothing", true, four, 0, false},
        {"no reply", true, std::nullopt, 4, false},
        {"nobody answers", false, std::nullopt, 4, false},
    };
    auto component = started({});
    for (const auto& [name, answered, reply, replySize, copied] : cases) {
        SCOPED_TRACE(name);
        host.recorder().clear();
        host.commands().clearReleases();
        host.commands().removeResponder(0xFC08100Au);
        if (answered)
            host.commands().setResponder(0xFC08100Au, [reply = reply](const kpf::IMessage&) { return reply; });
        unsigned char buffer[8];
        std::memset(buffer, 0xAB, sizeof buffer);
        const std::int32_t payload = 0x01020304;
        EXPECT_EQ(component->sendCommand(kpf::wireInt(0xFC08100Au), sizeof payload, &payload, replySize, buffer),
                  answered ? 0 : -1);
        for (std::size_t i = 0; i < sizeof buffer; ++i)
            EXPECT_EQ(buffer[i], copied && i < four.size() ? four[i] : 0xAB) << "byte " << i;
        const auto sent = host.recorder().messages();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(std::make_tuple(sent[0].kind, sent[0].number, sent[0].sender, sent[0].mode, sent[0].bytes),
                  std::make_tuple(SentKind::Command, 0xFC08100Au, std::string("test"), 0, Bytes{4, 3, 2, 1}));
        // The response first, even when there is none, then the message.
        EXPECT_THAT(host.commands().releases(),
                    ElementsAre(reply ? CommandDispatcher::Release::Response : CommandDispatcher::Release::Null,
                                CommandDispatcher::Release::Message));
    }
    // A caller that wants no copy gives no buffer.
    host.commands().setResponder(0xFC08100Au, [&four](const kpf::IMessage&) { return std::optional<Bytes>(four); });
    EXPECT_EQ(component->sendCommand(kpf::wireInt(0xFC08100Au), 0, nullptr, 4, nullptr), 0);
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
    EXPECT_THAT(host.subscriptions().calls(), IsEmpty());
    EXPECT_THAT(host.recorder().messages(), IsEmpty());
    // The tables were filled all the same: direct deliveries still route.
    host.deliver(&component, kpf::MessageKindEvent, EventA, 0, nullptr);
    EXPECT_THAT(component.tags(), ElementsAre(1));
}

// Many numbers, so that several share a first slot and probes wrap around;
// every one is routed while the table is still being filled, and numbers
// between them never are.
TEST_F(MessageHandlerTest, EveryNumberRoutesFromItsRegistrationOnAndNoOtherDoes)
{
    std::vector<TestComponent::Registration> table;
    for (int tag = 0; tag < 48; ++tag)
        table.push_back({tag % 5 == 0, 0xFC000000u + 7u * std::uint32_t(tag), tag});
    auto component = std::make_unique<TestComponent>(table);
    std::size_t registered = 0;
    component->afterEach = [&] {
        ++registered;
        component->hits.clear();
        for (const auto& [command, number, tag] : table)
            for (std::uint32_t probe : {number, number + 3u})
                host.deliver(component.get(), command ? kpf::MessageKindCommand : kpf::MessageKindEvent, probe, 0,
                             nullptr);
        std::vector<int> expected(registered);
        std::iota(expected.begin(), expected.end(), 0);
        ASSERT_EQ(component->tags(), expected) << "after " << registered << " registrations";
    };
    host.start(component.get());
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
        auto component = std::make_unique<TestComponent>(table);
        std::thread other([&] { host.start(component.get()); });
        host.start(component.get());
        other.join();
        ASSERT_EQ(component->initCalls.load(), 2);
        for (const auto& [command, number, tag] : table)
            host.deliver(component.get(), command ? kpf::MessageKindCommand : kpf::MessageKindEvent, number, 0,
                         nullptr);
        std::vector<int> expected(table.size());
        std::iota(expected.begin(), expected.end(), 0);
        ASSERT_EQ(component->tags(), expected) << "round " << round;
        host.subscriptions().forget(component.get());
    }
    CopyProbe::slow = false;
    EXPECT_FALSE(CopyProbe::overlapped) << "two threads inserted at once";
}

} // namespace
