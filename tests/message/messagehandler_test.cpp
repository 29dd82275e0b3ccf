#include "message/testcomponent.h"

#include "common/warningcapture.h"
#include "framework/api.h"
#include "framework/wire.h"
#include "host/host.h"
#include "protomodel/queryinfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

using edidvm::host::Bytes;
using edidvm::host::Channel;
using edidvm::host::CommandDispatcher;
using edidvm::host::Host;
using edidvm::host::SentKind;
using edidvm::test::TestComponent;
using edidvm::test::WarningCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

constexpr std::uint32_t EventA = 0xFC00060Au;
constexpr std::uint32_t EventB = 0xFC00060Bu;
constexpr std::uint32_t CommandA = 0xFC051016u;

Bytes word(std::int32_t value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

class MessageHandlerTest : public ::testing::Test
{
protected:
    void SetUp() override { kpf::api::get().hostApi = &host.api(); }
    void TearDown() override { kpf::api::get().hostApi = nullptr; }

    std::unique_ptr<TestComponent> started(std::vector<TestComponent::Registration> table)
    {
        auto component = std::make_unique<TestComponent>(std::move(table));
        host.start(component.get());
        return component;
    }

    Host host;
};

TEST_F(MessageHandlerTest, ConstructionFindsTheThreeServicesOnceInOrder)
{
    TestComponent component;
    EXPECT_THAT(host.api().lookups(), ElementsAre("kpf_default_messagecenter", "commanddispatcher", "eventdispatcher"));
    EXPECT_EQ(component.messageCenter(), static_cast<kpf::IMessageCenter*>(&host.messageCenter()));
    EXPECT_EQ(component.commandDispatcher(), static_cast<kpf::ICommandDispatcher*>(&host.commands()));
    EXPECT_EQ(component.eventDispatcher(), static_cast<kpf::IEventDispatcher*>(&host.events()));

    host.api().clearLookups();
    kpf::api::get().hostApi = nullptr;
    TestComponent orphan;
    EXPECT_TRUE(host.api().lookups().empty());
    EXPECT_EQ(orphan.messageCenter(), nullptr);
    EXPECT_EQ(orphan.commandDispatcher(), nullptr);
    EXPECT_EQ(orphan.eventDispatcher(), nullptr);
}

TEST_F(MessageHandlerTest, ReservedNumbersAreFilteredAndStartRunsOnInitForAnyKind)
{
    const std::uint32_t ignored[] = {0xFFFF0001u, 0xFFFF0002u, 0xFFFFFFFEu, 0xFFFFFFFFu};
    std::vector<TestComponent::Registration> table;
    for (std::uint32_t number : ignored) {
        table.push_back({true, number, 1});
        table.push_back({false, number, 2});
    }
    // Next to the reserved ones, but ordinary numbers.
    table.push_back({false, 0xFFFF0003u, 3});
    table.push_back({false, 0xFFFFFFFDu, 4});
    auto component = started(table);
    ASSERT_EQ(component->initCalls, 1);

    for (std::uint32_t number : ignored) {
        for (int kind : {kpf::MessageKindCommand, kpf::MessageKindEvent}) {
            EXPECT_FALSE(host.deliver(component.get(), kind, number, 0, nullptr)) << std::hex << number;
        }
    }
    EXPECT_TRUE(component->hits().empty());

    for (int kind : {kpf::MessageKindCommand, kpf::MessageKindEvent, 0, 0x1234}) {
        const int before = component->initCalls;
        EXPECT_FALSE(host.deliver(component.get(), kind, 0xFFFF0000u, 0, nullptr));
        EXPECT_EQ(component->initCalls, before + 1) << "kind " << kind;
    }

    host.deliver(component.get(), kpf::MessageKindEvent, 0xFFFF0003u, 0, nullptr);
    host.deliver(component.get(), kpf::MessageKindEvent, 0xFFFFFFFDu, 0, nullptr);
    const auto hits = component->hits();
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[0].tag, 3);
    EXPECT_EQ(hits[1].tag, 4);
}

TEST_F(MessageHandlerTest, KindChoosesTheTableBeforeTheNumber)
{
    auto component = started({{false, EventA, 1}, {true, CommandA, 2}});

    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindCommand, EventA, 0, nullptr));
    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindEvent, CommandA, 0, nullptr));
    for (int kind : {0, kpf::wireInt(0xF0000003u), -1})
        EXPECT_FALSE(host.deliver(component.get(), kind, EventA, 0, nullptr));
    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindEvent, EventB, 0, nullptr));
    EXPECT_EQ(component->handleMessage(nullptr), nullptr);
    EXPECT_TRUE(component->hits().empty());

    EXPECT_FALSE(host.deliver(component.get(), kpf::MessageKindEvent, EventA, 0, nullptr));
    EXPECT_EQ(host.deliver(component.get(), kpf::MessageKindCommand, CommandA, 0, nullptr), word(2));
    const auto hits = component->hits();
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[0].tag, 1);
    EXPECT_EQ(hits[0].kind, kpf::MessageKindEvent);
    EXPECT_EQ(hits[1].tag, 2);
    EXPECT_EQ(hits[1].kind, kpf::MessageKindCommand);
    EXPECT_EQ(host.store().liveCount(), 0u);
}

TEST_F(MessageHandlerTest, DuplicateRegistrationKeepsTheFirstHandlerYetSubscribesTwice)
{
    auto component = started({{false, EventA, 1}, {false, EventA, 2}, {true, CommandA, 3}, {true, CommandA, 4}});

    const auto calls = host.subscriptions().calls();
    ASSERT_EQ(calls.size(), 4u);
    for (const auto& call : calls) {
        EXPECT_EQ(call.sender, "testcomponent");
        EXPECT_EQ(call.component, component.get());
    }
    EXPECT_EQ(calls[0].channel, Channel::Event);
    EXPECT_EQ(calls[1].number, EventA);
    EXPECT_EQ(calls[2].channel, Channel::Command);
    EXPECT_EQ(calls[3].number, CommandA);

    // Routed through the host: subscribed twice, delivered once.
    host.event(EventA, nullptr, 0);
    EXPECT_EQ(host.command(CommandA, nullptr, 0), word(3));
    const auto hits = component->hits();
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[0].tag, 1);
    EXPECT_EQ(hits[1].tag, 3);

    // A second start registers again: first handlers stay, numbers are
    // subscribed once more.
    host.start(component.get());
    EXPECT_EQ(host.subscriptions().calls().size(), 8u);
    host.event(EventA, nullptr, 0);
    EXPECT_EQ(component->hits().back().tag, 1);
    EXPECT_EQ(component->hits().size(), 3u);
}

TEST_F(MessageHandlerTest, SendCommandCopiesAReplyOnlyWhenItsSizeMatches)
{
    struct Case
    {
        const char* name;
        bool responder;
        std::optional<Bytes> reply;
        int replySize;
        bool copied;
    };
    const Bytes four = {1, 2, 3, 4};
    const Case cases[] = {
        {"exact size", true, four, 4, true},
        {"one byte short", true, Bytes{1, 2, 3}, 4, false},
        {"one byte long", true, Bytes{1, 2, 3, 4, 5}, 4, false},
        {"reply size 0 copies nothing", true, four, 0, false},
        {"empty reply, size 0", true, Bytes{}, 0, false},
        {"no reply", true, std::nullopt, 4, false},
        {"nobody answers", false, std::nullopt, 4, false},
    };
    auto component = started({});

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        host.recorder().clear();
        host.commands().clearReleases();
        if (c.responder)
            host.commands().setResponder(0xFC08100Au, [&](const kpf::IMessage&) { return c.reply; });
        else
            host.commands().removeResponder(0xFC08100Au);

        unsigned char buffer[8];
        std::memset(buffer, 0xAB, sizeof buffer);
        const std::int32_t payload = 0x01020304;
        const int result =
            component->sendCommand(kpf::wireInt(0xFC08100Au), sizeof payload, &payload, c.replySize, buffer);
        EXPECT_EQ(result, c.responder ? 0 : -1);
        for (std::size_t i = 0; i < sizeof buffer; ++i) {
            const bool inReply = c.copied && i < four.size();
            EXPECT_EQ(buffer[i], inReply ? four[i] : 0xAB) << "byte " << i;
        }

        const auto sent = host.recorder().messages();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0].kind, SentKind::Command);
        EXPECT_EQ(sent[0].number, 0xFC08100Au);
        EXPECT_EQ(sent[0].sender, "testcomponent");
        EXPECT_EQ(sent[0].mode, 0);
        EXPECT_EQ(sent[0].bytes, word(payload));

        // The response first, even when there is none, then the message.
        const auto response = c.reply ? CommandDispatcher::Release::Response : CommandDispatcher::Release::Null;
        EXPECT_THAT(host.commands().releases(), ElementsAre(response, CommandDispatcher::Release::Message));
        EXPECT_EQ(host.store().liveCount(), 0u);
    }
}

TEST_F(MessageHandlerTest, AQueryEnvelopeTravelsByAddressAndComesBackFilled)
{
    using LCD::GlobalMessageHander::QueryInfo;
    using LCD::ProtoModel::Interface::s_InterfaceDetailInfo;
    using LCD::ProtoModel::Interface::s_InterfaceList;
    auto component = started({});

    std::map<std::string, std::string> seenParameters;
    host.commands().setResponder(0xFC050111u, [&](const kpf::IMessage& command) -> std::optional<Bytes> {
        auto* envelope = edidvm::host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command);
        if (envelope == nullptr)
            return std::nullopt;
        seenParameters = {{"stale", "x"}};
        if (envelope->filter)
            envelope->filter(seenParameters);
        envelope->info.stInterfaceListArry.resize(2);
        envelope->info.stInterfaceListArry[1].interfaceId = 7;
        envelope->info.stInterfaceListArry[1].stAuxiliaryInfo.usedByScreen = "screen 1";
        return std::nullopt;
    });

    QueryInfo<s_InterfaceDetailInfo> query;
    query.filter = [](std::map<std::string, std::string>& parameters) {
        parameters.clear();
        parameters["interfaceId"] = "-3";
        return true;
    };
    QueryInfo<s_InterfaceDetailInfo>* address = &query;
    component->sendCommand(kpf::wireInt(0xFC050111u), sizeof address, &address, 0, nullptr);

    ASSERT_EQ(query.info.stInterfaceListArry.size(), 2u);
    EXPECT_EQ(query.info.stInterfaceListArry[1].interfaceId, 7);
    EXPECT_EQ(query.info.stInterfaceListArry[1].stAuxiliaryInfo.usedByScreen, "screen 1");
    EXPECT_EQ(query.info.stInterfaceListArry[0].stAuxiliaryInfo.usedByScreen, "N/A");
    EXPECT_EQ(seenParameters, (std::map<std::string, std::string>{{"interfaceId", "-3"}}));
    EXPECT_EQ(host.recorder().messages().at(0).size, 8);
}

TEST_F(MessageHandlerTest, EventsAreSentAtOnceOrQueuedWithTheirPayloadCopied)
{
    auto receiver = started({{false, EventA, 1}, {false, EventB, 2}});
    TestComponent sender;
    std::vector<std::uint32_t> heard;
    host.events().addListener([&](const kpf::IMessage& event) { heard.push_back(kpf::wireWord(event.number())); });

    char text[] = "abc";
    sender.postEvent(kpf::wireInt(EventB), sizeof text, text);
    sender.sendEvent(kpf::wireInt(EventA), sizeof text, text);
    text[0] = 'X';
    EXPECT_THAT(heard, ElementsAre(EventA));
    ASSERT_EQ(receiver->hits().size(), 1u);
    EXPECT_EQ(host.events().queued(), 1u);

    EXPECT_EQ(host.pump(), 1);
    EXPECT_THAT(heard, ElementsAre(EventA, EventB));
    EXPECT_EQ(receiver->hits().at(1).tag, 2);

    const auto sent = host.recorder().messages();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].kind, SentKind::QueuedEvent);
    EXPECT_EQ(sent[0].number, EventB);
    EXPECT_EQ(sent[1].kind, SentKind::Event);
    EXPECT_EQ(sent[1].mode, 9);
    for (const auto& message : sent) {
        EXPECT_EQ(message.sender, "testcomponent");
        EXPECT_EQ(message.bytes, (Bytes{'a', 'b', 'c', 0}));
    }

    sender.sendEvent(kpf::wireInt(EventA), 0, nullptr);
    EXPECT_TRUE(host.recorder().messages().back().nullData);
    EXPECT_EQ(host.store().liveCount(), 0u);
}

TEST_F(MessageHandlerTest, AMissingServiceSkipsTheSendWithOneWarningNamingIt)
{
    host.api().removeService("commanddispatcher");
    host.api().removeService("eventdispatcher");
    TestComponent component({{false, EventA, 1}, {true, CommandA, 2}});
    WarningCapture capture;

    host.start(&component);
    unsigned char reply[4] = {9, 9, 9, 9};
    EXPECT_EQ(component.sendCommand(kpf::wireInt(CommandA), 0, nullptr, 4, reply), -1);
    component.sendEvent(kpf::wireInt(EventA), 0, nullptr);
    component.postEvent(kpf::wireInt(EventB), 0, nullptr);

    const auto logged = capture.messages();
    ASSERT_EQ(logged.size(), 5u);
    const char* services[] = {"eventdispatcher", "commanddispatcher", "commanddispatcher", "eventdispatcher",
                              "eventdispatcher"};
    for (std::size_t i = 0; i < logged.size(); ++i) {
        EXPECT_EQ(logged[i].type, QtWarningMsg);
        EXPECT_EQ(logged[i].category, "default");
        EXPECT_THAT(logged[i].text, HasSubstr(services[i]));
        EXPECT_THAT(logged[i].function, HasSubstr("LCD::Message::MessageHandler::"));
        EXPECT_GT(logged[i].line, 0);
    }
    EXPECT_THAT(logged[0].text, HasSubstr("0xFC00060A"));
    EXPECT_THAT(reply, ElementsAre(9, 9, 9, 9));
    EXPECT_TRUE(host.subscriptions().calls().empty());
    EXPECT_TRUE(host.recorder().messages().empty());

    // The tables were filled all the same: direct deliveries still route.
    host.deliver(&component, kpf::MessageKindEvent, EventA, 0, nullptr);
    EXPECT_EQ(component.hits().size(), 1u);
}

TEST_F(MessageHandlerTest, RoutingStaysSoundWhileHandlersAreBeingRegistered)
{
    // One thread registers while another routes: the lookup must never see
    // a table in the middle of a rehash. Also keeps a thread in every run.
    constexpr int Count = 2000;
    auto component = started({});
    std::atomic<bool> done{false};
    std::thread registrar([&] {
        for (int i = 0; i < Count; ++i)
            component->registerEvent(i + 1, component->handlerFor(i + 1));
        done = true;
    });
    while (!done) {
        for (int i = Count; i >= 1; i -= 97)
            host.deliver(component.get(), kpf::MessageKindEvent, static_cast<std::uint32_t>(i), 0, nullptr);
    }
    registrar.join();

    const std::size_t before = component->hits().size();
    for (int i = 1; i <= Count; ++i)
        host.deliver(component.get(), kpf::MessageKindEvent, static_cast<std::uint32_t>(i), 0, nullptr);
    const auto hits = component->hits();
    ASSERT_EQ(hits.size(), before + Count);
    for (std::size_t i = before; i < hits.size(); ++i)
        EXPECT_EQ(hits[i].tag, static_cast<int>(hits[i].number));
}

} // namespace
