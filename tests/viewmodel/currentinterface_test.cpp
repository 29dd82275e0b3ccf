#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace edidvm {
namespace test {
namespace {

constexpr std::uint32_t SetCurrent = 0xFC021009u;
constexpr std::uint32_t InterfaceType = 0xFC051016u;
const char Reentered[] = "handler re-entered on a thread that holds the view model's lock; ignored";

std::int32_t replyWord(const std::optional<Bytes>& reply)
{
    std::int32_t value = -12345;
    EXPECT_TRUE(reply.has_value());
    if (reply && reply->size() == sizeof value)
        std::memcpy(&value, reply->data(), sizeof value);
    else
        ADD_FAILURE() << "reply is not 4 bytes";
    return value;
}

using CurrentInterfaceTest = ViewModelTest;

TEST_F(CurrentInterfaceTest, RegistersItsNumbersAndEachAnswersOnlyToItsKind)
{
    struct Row
    {
        host::Channel channel;
        std::uint32_t number;
    };
    const host::Channel E = host::Channel::Event;
    const Row table[] = {{E, 0xFC070606u}, {E, 0xFC000620u}, {E, 0xFC021009u}, {E, 0xFC00060Au},
                         {E, 0xFC00060Bu}, {E, 0xFC000605u}, {E, 0xFC000606u}, {E, 0xFC00060Cu},
                         {E, 0xFC00060Du}, {E, 0xFC000617u}, {E, 0xFC031007u}, {host::Channel::Command, 0xFC051016u},
                         {E, 0xFC081005u}, {E, 0xFC081006u}, {E, 0xFC030204u}, {E, 0xFC08021Eu}};
    const auto calls = host.subscriptions().calls();
    ASSERT_EQ(calls.size(), std::size(table));
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].channel, table[i].channel) << i;
        EXPECT_EQ(calls[i].number, table[i].number) << i;
        EXPECT_EQ(calls[i].sender, "outputedidviewmodel");
        EXPECT_EQ(calls[i].component, component);
    }

    interfaces = {makeInterface(1)};
    const s_InterfaceList record = makeInterface(1);
    for (const Row& row : table) {
        const int wrongKind = row.channel == host::Channel::Event ? kpf::MessageKindCommand : kpf::MessageKindEvent;
        EXPECT_FALSE(host.deliver(component, wrongKind, row.number, sizeof record, &record)) << std::hex << row.number;
    }
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(warnings().empty());
}

TEST_F(CurrentInterfaceTest, SettingTheCurrentInterfacePushesItsTwoTimingBlocks)
{
    s_InterfaceList record = makeInterface(6, 0, 8);
    record.stAuxiliaryInfo.usedByScreen = std::string(300, 'u');
    setCurrent(record);

    const auto messages = sent();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].kind, SentKind::Event);
    EXPECT_EQ(messages[0].number, 0xFC020607u);
    EXPECT_EQ(messages[0].bytes, bytesOf(record.stTimingDetail));
    EXPECT_EQ(messages[1].number, 0xFC020608u);
    EXPECT_EQ(messages[1].bytes, bytesOf(record.stThumbTiming));
    EXPECT_EQ(replyWord(host.command(InterfaceType, nullptr, 0)), 8);
    EXPECT_TRUE(warnings().empty());
}

TEST_F(CurrentInterfaceTest, AnInterfaceRecordOfTheWrongShapeIsRejected)
{
    setCurrent(makeInterface(1, 0, 4));
    host.recorder().clear();

    const s_InterfaceList record = makeInterface(2, 0, 8);
    char oversized[sizeof record + 1] = {};
    std::memcpy(oversized, &record, sizeof record);
    const struct
    {
        const void* data;
        int size;
    } cases[] = {{nullptr, 840}, {&record, 839}, {oversized, 841}, {nullptr, 0}, {&record, -840}};
    for (const auto& c : cases)
        host.event(SetCurrent, c.data, c.size);

    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(warnings(), std::vector<std::string>(std::size(cases), "set current interface info error"));
    EXPECT_EQ(replyWord(host.command(InterfaceType, nullptr, 0)), 4) << "the current interface is unchanged";
}

TEST_F(CurrentInterfaceTest, InterfaceTypeIsAnsweredWhateverTheRequestCarries)
{
    EXPECT_EQ(replyWord(host.command(InterfaceType, nullptr, 0)), 0) << "before any interface is set";
    setCurrent(makeInterface(3, 0, 4));
    char payload[1000] = {};
    EXPECT_EQ(replyWord(host.command(InterfaceType, payload, 3)), 4);
    EXPECT_EQ(replyWord(host.command(InterfaceType, payload, sizeof payload)), 4);
    EXPECT_EQ(replyWord(host.command(InterfaceType, nullptr, 50)), 4);

    // The message center is looked up on every call.
    host.api().clearLookups();
    host.command(InterfaceType, nullptr, 0);
    host.command(InterfaceType, nullptr, 0);
    EXPECT_THAT(host.api().lookups(), ElementsAre("kpf_default_messagecenter", "kpf_default_messagecenter"));

    host.api().removeService("kpf_default_messagecenter");
    EXPECT_FALSE(host.command(InterfaceType, nullptr, 0));
    ASSERT_EQ(warnings().size(), 1u);
    EXPECT_THAT(warnings()[0], HasSubstr("kpf_default_messagecenter"));
}

TEST_F(CurrentInterfaceTest, WarningsCarryCategoryFileLineAndSignature)
{
    host.event(SetCurrent, nullptr, 840);
    const auto logged = capture.messages();
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].type, QtWarningMsg);
    EXPECT_EQ(logged[0].category, "default");
    EXPECT_EQ(logged[0].file, "outputedidviewmodel.cpp");
    EXPECT_GT(logged[0].line, 0);
    EXPECT_EQ(logged[0].function,
              "kpf::IMessage* Model::OutputEDIDViewModel::setCurrentInterfaceInfo(const kpf::IMessage*)");
    EXPECT_EQ(logged[0].text, "set current interface info error");
}

TEST_F(CurrentInterfaceTest, ReentryOnTheLockingThreadIsRefusedOtherThreadsWait)
{
    const s_InterfaceList first = makeInterface(1, 0, 4);
    const s_InterfaceList nested = makeInterface(2, 0, 8);
    // A receiver that answers the detail-timing event at once, on the same
    // thread, with a message whose handler takes the same lock.
    bool answered = false;
    host.events().addListener(
        [&](const kpf::IMessage&) {
            if (!answered) {
                answered = true;
                host.event(SetCurrent, &nested, sizeof nested);
            }
        },
        0xFC020607u);
    setCurrent(first);
    EXPECT_THAT(warnings(), ElementsAre(Reentered));
    EXPECT_THAT(sentNumbers(), ElementsAre(0xFC020607u, 0xFC020608u)) << "the nested delivery did not act";
    EXPECT_EQ(replyWord(host.command(InterfaceType, nullptr, 0)), 4);

    // The same answer from another thread waits for the lock and then acts.
    host.events().clearListeners();
    host.recorder().clear();
    capture.clear();
    std::thread other;
    std::atomic<bool> started{false};
    std::atomic<bool> delivering{false};
    std::size_t sentWhileHeld = 0;
    host.events().addListener(
        [&](const kpf::IMessage&) {
            if (started.exchange(true))
                return;
            other = std::thread([&] {
                delivering = true;
                host.event(SetCurrent, &nested, sizeof nested);
            });
            // Give the other thread its chance: it must still be waiting.
            while (!delivering)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            sentWhileHeld = sent().size();
        },
        0xFC020607u);
    setCurrent(first);
    other.join();
    EXPECT_EQ(sentWhileHeld, 1u) << "only the first handler's first event while it holds the lock";
    EXPECT_TRUE(warnings().empty());
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages[2].bytes, bytesOf(nested.stTimingDetail)) << "the waiting thread acted afterwards";
    EXPECT_EQ(replyWord(host.command(InterfaceType, nullptr, 0)), 8);
}

} // namespace
} // namespace test
} // namespace edidvm
