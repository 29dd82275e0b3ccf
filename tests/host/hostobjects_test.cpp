#include "host/host.h"

#include "framework/wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using edidvm::host::Bytes;
using edidvm::host::CommandDispatcher;
using edidvm::host::Host;
using edidvm::host::SentKind;
using ::testing::ElementsAre;

namespace {

TEST(HostObjects, MessagesCopyTheirPayloadAndKeepANullOneNull)
{
    Host host;
    char buffer[] = {1, 2, 3};
    kpf::IMessage* copied = host.commands().createMessage(5, sizeof buffer, buffer, "a");
    buffer[0] = 9;
    kpf::IMessage* empty = host.events().createMessage(6, 0, buffer, "b");
    kpf::IMessage* null = host.events().createMessage(7, 840, nullptr, "c");

    EXPECT_EQ(copied->kind(), kpf::MessageKindCommand);
    EXPECT_EQ(copied->size(), 3);
    EXPECT_EQ(static_cast<const char*>(copied->data())[0], 1);
    EXPECT_EQ(empty->kind(), kpf::MessageKindEvent);
    EXPECT_EQ(empty->size(), 0);
    EXPECT_NE(empty->data(), nullptr);
    EXPECT_EQ(null->size(), 840);
    EXPECT_EQ(null->data(), nullptr);
    EXPECT_EQ(host.store().liveCount(), 3u);

    for (kpf::IMessage* message : {copied, empty, null}) {
        void* releasing = message;
        host.commands().release(&releasing);
        EXPECT_EQ(releasing, nullptr);
    }
    void* nothing = nullptr;
    host.commands().release(&nothing);
    host.commands().release(nullptr);
    int notOurs = 0;
    void* foreign = &notOurs;
    host.commands().release(&foreign);
    EXPECT_THAT(host.commands().releases(),
                ElementsAre(CommandDispatcher::Release::Message, CommandDispatcher::Release::Message,
                            CommandDispatcher::Release::Message, CommandDispatcher::Release::Null,
                            CommandDispatcher::Release::Null, CommandDispatcher::Release::Foreign));
    EXPECT_EQ(host.store().liveCount(), 0u);
}

TEST(HostObjects, RecorderHookSeesTheLiveDataAtSendTime)
{
    Host host;
    std::vector<int> seen;
    host.recorder().setHook([&](const edidvm::host::SentMessage& sent, const void* data) {
        // A 24-byte container payload: the receiver reads the vector itself.
        if (sent.size == sizeof(std::vector<int>) && data != nullptr)
            seen = *static_cast<const std::vector<int>*>(data);
    });
    {
        std::vector<int> values = {4, 5, 6};
        kpf::IMessage* message = host.events().createMessage(kpf::wireInt(0xFC051009u), sizeof values, &values, "s");
        host.events().post(&message);
        EXPECT_EQ(message, nullptr);
    }
    EXPECT_THAT(seen, ElementsAre(4, 5, 6));
    const auto sent = host.recorder().take();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].kind, SentKind::QueuedEvent);
    EXPECT_EQ(sent[0].size, 24);
    EXPECT_TRUE(host.recorder().messages().empty());
    // Queued events are the dispatcher's until delivered.
    EXPECT_EQ(host.pump(), 1);
    EXPECT_EQ(host.store().liveCount(), 0u);
}

TEST(HostObjects, PumpStopsAnEventLoopAtItsBound)
{
    Host host;
    int delivered = 0;
    // A listener that answers every event with another one would never end.
    host.events().addListener([&](const kpf::IMessage&) {
        ++delivered;
        kpf::IMessage* again = host.events().createMessage(1, 0, nullptr, "loop");
        host.events().post(&again);
    });
    kpf::IMessage* first = host.events().createMessage(1, 0, nullptr, "loop");
    host.events().post(&first);
    EXPECT_EQ(host.events().pump(50), 50);
    EXPECT_EQ(delivered, 50);
    EXPECT_EQ(host.events().queued(), 1u);
}

TEST(HostObjects, SubscriptionsOutsideAStartAreLoggedButNotTied)
{
    Host host;
    EXPECT_EQ(host.events().subscribe(3, "nobody"), -1);
    EXPECT_EQ(host.commands().subscribe(4, "nobody"), -1);
    const auto calls = host.subscriptions().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].component, nullptr);
    EXPECT_EQ(calls[1].sender, "nobody");
    EXPECT_TRUE(host.subscriptions().receivers(edidvm::host::Channel::Event, 3).empty());
    EXPECT_FALSE(host.command(4, nullptr, 0));
}

} // namespace
