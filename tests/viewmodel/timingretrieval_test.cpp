#include "viewmodel/viewmodelfixture.h"
#include "viewmodel/viewmodelrecords.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <string>

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t CurrentTimingRequest = 0xFC00060Au;
constexpr std::uint32_t ThumbTimingRequest = 0xFC00060Bu;

// "C FC050111 8": kind, number and size of one sent message.
std::vector<std::string> trace(const std::vector<SentMessage>& messages)
{
    std::vector<std::string> steps;
    for (const SentMessage& message : messages) {
        char text[32];
        std::snprintf(text, sizeof text, "%c %08X %d", message.kind == SentKind::Command ? 'C' : 'E',
                      static_cast<unsigned>(message.number), message.size);
        steps.push_back(text);
    }
    return steps;
}

Bytes noticeOf(const s_InterfaceList& record)
{
    Model::s_InterfaceTimingNotice notice;
    notice.noticeWord0 = record.ifWord92;
    notice.noticeWord1 = record.ifWord158;
    notice.noticeWord2 = 0;
    notice.noticeWord3 = record.stThumbTiming.param4;
    return bytesOf(notice);
}

using TimingRetrievalTest = ViewModelTest;

TEST_F(TimingRetrievalTest, CurrentTimingSendsTheListedRecordOfTheCurrentIdOrElseTheFirstEntry)
{
    struct Case
    {
        std::int32_t current;
        std::int32_t adopted;
    };
    for (const Case& c : {Case{1, 1}, Case{7, 3}}) {
        SCOPED_TRACE("current id " + std::to_string(c.current));
        // The cached copy has no timing: what is sent must come from the list.
        s_InterfaceList cached = makeInterface(c.current);
        cached.stThumbTiming = {};
        cached.stTimingDetail = {};
        cached.ifWord92 = cached.ifWord158 = 0;
        setCurrent(cached);
        interfaces = {makeInterface(3), makeInterface(1)};
        const s_InterfaceList expected = c.adopted == 3 ? interfaces[0] : interfaces[1];
        host.recorder().clear();
        capture.clear();

        pageEvent(CurrentTimingRequest);

        const std::vector<SentMessage> messages = sent();
        ASSERT_THAT(trace(messages), ElementsAre("C FC050111 8", "E FC020607 56", "E FC020608 28", "E FC030606 16"));
        EXPECT_EQ(messages[1].bytes, bytesOf(expected.stTimingDetail));
        EXPECT_EQ(messages[2].bytes, bytesOf(expected.stThumbTiming)) << "param6 goes out as stored";
        EXPECT_EQ(messages[3].bytes, noticeOf(expected));
        for (const SentMessage& message : messages) {
            EXPECT_EQ(message.sender, "outputedidviewmodel");
            EXPECT_EQ(message.mode, message.kind == SentKind::Command ? 0 : 9);
        }
        EXPECT_THAT(warnings(), IsEmpty());

        // The adopted interface is now current: found again in another order.
        interfaces = {interfaces[1], interfaces[0]};
        host.recorder().clear();
        pageEvent(CurrentTimingRequest);
        const std::vector<SentMessage> again = sent();
        ASSERT_EQ(again.size(), 4u);
        EXPECT_EQ(again[2].bytes, bytesOf(expected.stThumbTiming));
    }
}

TEST_F(TimingRetrievalTest, EmptyInterfaceListSendsOnlyTheQueryAndKeepsTheCurrentInterface)
{
    setCurrent(makeInterface(2));
    host.recorder().clear();

    pageEvent(CurrentTimingRequest);
    EXPECT_THAT(trace(sent()), ElementsAre("C FC050111 8"));
    EXPECT_THAT(warnings(), IsEmpty());

    pageEvent(ThumbTimingRequest);
    EXPECT_THAT(trace(sent()), ElementsAre("C FC050111 8", "C FC050111 8"));
    EXPECT_THAT(warnings(), ElementsAre("inferface info error"));

    // Interface 2 is still current, so it is chosen over the first entry.
    interfaces = {makeInterface(1), makeInterface(2)};
    host.recorder().clear();
    pageEvent(CurrentTimingRequest);
    const std::vector<SentMessage> messages = sent();
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages[2].bytes, bytesOf(interfaces[1].stThumbTiming));
}

TEST_F(TimingRetrievalTest, ThumbTimingAdoptsTheSelectedThenAUsableType4ThenTheSmallestConnector)
{
    // Entries as (connector, id, type, status).
    using Entry = std::array<std::int32_t, 4>;
    const std::vector<Entry> mixed = {{2, 10, 4, 0}, {1, 11, 4, 2}, {0, 12, 3, 0}};
    Bytes fiveBytes = bytesOf<std::int32_t>(12);
    fiveBytes.push_back(0);
    struct Case
    {
        const char* name;
        std::vector<Entry> entries;
        std::optional<Bytes> reply;
        std::int32_t adopted;
    };
    const Case cases[] = {
        {"no reply: 12 is not type 4, 11 has status 2", mixed, std::nullopt, 10},
        {"reply names 12", mixed, bytesOf<std::int32_t>(12), 12},
        {"3-byte reply counts as none", mixed, Bytes{12, 0, 0}, 10},
        {"5-byte reply counts as none", mixed, fiveBytes, 10},
        {"reply names no listed interface", mixed, bytesOf<std::int32_t>(99), 10},
        {"usable type 4 taken in connector order", {{3, 10, 4, 0}, {1, 13, 4, 1}, {0, 12, 3, 0}}, std::nullopt, 13},
        {"none usable: smallest connector, signed", {{2, 10, 4, 2}, {-1, 11, 3, 0}, {0, 12, 6, 0}}, std::nullopt, 11},
        {"id -1 matches the unanswered reply", {{0, 5, 4, 0}, {1, -1, 3, 0}}, std::nullopt, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        interfaces.clear();
        for (const Entry& e : c.entries)
            interfaces.push_back(makeInterface(e[1], e[0], e[2], e[3]));
        selectedReply = c.reply;
        const s_InterfaceList expected =
            *std::find_if(interfaces.begin(), interfaces.end(),
                          [&](const s_InterfaceList& entry) { return entry.interfaceId == c.adopted; });
        host.recorder().clear();
        capture.clear();

        pageEvent(ThumbTimingRequest);

        const std::vector<SentMessage> messages = sent();
        ASSERT_THAT(trace(messages),
                    ElementsAre("C FC050111 8", "C FC08100A 0", "C FC001009 4", "E FC020608 28", "E FC030606 16"));
        EXPECT_TRUE(messages[1].nullData);
        EXPECT_EQ(messages[2].bytes, bytesOf<std::int32_t>(c.adopted));
        s_ThumbTimingInfo thumb = expected.stThumbTiming;
        thumb.param6 = expected.ifWord92; // differs from the stored param6
        EXPECT_EQ(messages[3].bytes, bytesOf(thumb));
        EXPECT_EQ(messages[4].bytes, noticeOf(expected));
        EXPECT_THAT(warnings(), IsEmpty());

        // It became current: the current-timing answer now sends its timings.
        host.recorder().clear();
        pageEvent(CurrentTimingRequest);
        const std::vector<SentMessage> after = sent();
        ASSERT_EQ(after.size(), 4u);
        EXPECT_EQ(after[1].bytes, bytesOf(expected.stTimingDetail));
        EXPECT_EQ(after[2].bytes, bytesOf(expected.stThumbTiming));
    }
}

} // namespace
} // namespace test
} // namespace edidvm
