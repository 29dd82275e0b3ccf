// Current interface, timing retrieval and timing checks, through the real library.

#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t SetCurrent = 0xFC021009u;
constexpr std::uint32_t CurrentTiming = 0xFC00060Au;
constexpr std::uint32_t ThumbTiming = 0xFC00060Bu;
const char ThumbFrameWarning[] = "check array not find cur frame";
const char DetailFrameWarning[] = "not find frame in check array";

Bytes noticeOf(const s_InterfaceList& record)
{
    return bytesOf(Model::s_InterfaceTimingNotice{record.ifWord92, record.ifWord158, 0, record.stThumbTiming.param4});
}

// The page's interfaceId and checkParams (55, 999, 998) must be replaced.
s_ThumbTimigCheck thumbCheck(std::int32_t width, std::int32_t height, float refresh, std::int32_t tag = 0)
{
    return {55, tag, {7, refresh, width, height, 8, 9, 10}, 999, 998};
}

s_DetailTimigCheck detailCheck(std::int32_t tag)
{
    s_DetailTimigCheck check{55, tag, {}, 999, 998};
    check.stTimingDetail.height = 1080 + tag;
    return check;
}

s_TimigCheckResult result(std::int32_t interfaceId, std::uint32_t mark, std::vector<std::int32_t> frameRates)
{
    return {interfaceId, mark, 0.0f, 0.0f, 0, 0, {}, std::move(frameRates)};
}

class InterfaceTest : public ViewModelTest
{
protected:
    std::int32_t typeReply(const void* data = nullptr, int size = 0)
    {
        const std::optional<Bytes> reply = host.command(0xFC051016u, data, size);
        std::int32_t value = -12345;
        if (reply && reply->size() == sizeof value)
            std::memcpy(&value, reply->data(), sizeof value);
        return value;
    }

    void request(bool thumb)
    {
        if (thumb)
            requestChecks({thumbCheck(1920, 1080, 60.0f)});
        else
            requestChecks({}, {detailCheck(0)});
    }

    // One text per result event, "if1#1 if2#2": tells results apart.
    Trace resultsSent()
    {
        Trace texts;
        for (const auto& event : resultEvents) {
            texts.emplace_back();
            for (const s_TimigCheckResult& r : event.second)
                texts.back() += (texts.back().empty() ? "if" : " if") + std::to_string(r.interfaceId) + "#" +
                                std::to_string(r.resWord1);
        }
        return texts;
    }
};

TEST_P(InterfaceTest, CurrentInterfaceIsSetFromAWholeRecordAndItsTypeAnsweredWhateverTheCommandCarries)
{
    EXPECT_EQ(typeReply(), 0) << "before any interface is set";
    s_InterfaceList record = makeInterface(6, 0, 8);
    record.stAuxiliaryInfo.usedByScreen = std::string(300, 'u');
    setCurrent(record);
    ASSERT_EQ(trace(sent()), Trace({"E FC020607 56", "E FC020608 28"}));
    EXPECT_EQ(sent()[0].bytes, bytesOf(record.stTimingDetail));
    EXPECT_EQ(sent()[1].bytes, bytesOf(record.stThumbTiming));
    char payload[1000] = {};
    for (const auto& [data, size] : {std::pair<const void*, int>{payload, 3}, {payload, 1000}, {nullptr, 50}})
        EXPECT_EQ(typeReply(data, size), 8) << size;

    // The message center is looked up on every reply (the unit suite takes it away).
    host.api().clearLookups();
    typeReply();
    typeReply();
    EXPECT_THAT(host.api().lookups(), ElementsAre("kpf_default_messagecenter", "kpf_default_messagecenter"));
}

// Re-entry on the locking thread is the variation suite's; here another
// thread waits for the lock, then acts.
TEST_P(InterfaceTest, AnotherThreadWaitsForTheLockThenActs)
{
    const s_InterfaceList nested = makeInterface(2, 0, 8);
    std::thread other;
    std::atomic<bool> started{false};
    std::size_t sentWhileHeld = 0;
    host.events().addListener(
        [&](const kpf::IMessage&) {
            if (started.exchange(true))
                return;
            other = std::thread([&] { host.event(SetCurrent, &nested, sizeof nested); });
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            sentWhileHeld = sent().size();
        },
        0xFC020607u);
    setCurrent(makeInterface(1, 0, 4));
    other.join();
    EXPECT_EQ(sentWhileHeld, 1u) << "only the first handler's first event while it holds the lock";
    EXPECT_THAT(warnings(), IsEmpty());
    ASSERT_EQ(sent().size(), 4u);
    EXPECT_EQ(sent()[2].bytes, bytesOf(nested.stTimingDetail)) << "the waiting thread acted afterwards";
    EXPECT_EQ(typeReply(), 8);
}

// The current-timing request adopts the listed current interface, else the
// first entry; the thumb-timing request the selected one, else a usable type
// 4 in connector order, else the smallest connector.
TEST_P(InterfaceTest, TimingRequestsAdoptAnInterfaceFromTheListAndSendItsTimings)
{
    using Entry = std::array<std::int32_t, 4>; // connector, id, type, status
    const std::vector<Entry> plain = {{0, 3, 0, 0}, {0, 1, 0, 0}};
    const std::vector<Entry> mixed = {{2, 10, 4, 0}, {1, 11, 4, 2}, {0, 12, 3, 0}};
    const std::tuple<const char*, std::uint32_t, std::int32_t, std::vector<Entry>, std::optional<Bytes>, std::int32_t>
        cases[] = {
            {"current listed", CurrentTiming, 1, plain, {}, 1},
            {"current unlisted", CurrentTiming, 7, plain, {}, 3},
            {"no reply: 12 is not type 4, 11 has status 2", ThumbTiming, 1, mixed, {}, 10},
            {"reply names 12", ThumbTiming, 1, mixed, bytesOf<std::int32_t>(12), 12},
            {"3-byte reply counts as none", ThumbTiming, 1, mixed, Bytes{12, 0, 0}, 10},
            {"5-byte reply counts as none", ThumbTiming, 1, mixed, Bytes{12, 0, 0, 0, 0}, 10},
            {"reply names no listed interface", ThumbTiming, 1, mixed, bytesOf<std::int32_t>(99), 10},
            {"usable type 4 in connector order", ThumbTiming, 1, {{3, 10, 4, 0}, {1, 13, 4, 1}, {0, 12, 3, 0}}, {}, 13},
            {"none usable: smallest connector", ThumbTiming, 1, {{2, 10, 4, 2}, {-1, 11, 3, 0}, {0, 12, 6, 0}}, {}, 11},
            {"id -1 matches the unanswered reply", ThumbTiming, 1, {{0, 5, 4, 0}, {1, -1, 3, 0}}, {}, -1},
        };
    for (const auto& [name, number, current, entries, reply, adopted] : cases) {
        SCOPED_TRACE(name);
        // The cached copy has no timing: what is sent comes from the list.
        s_InterfaceList cached = makeInterface(current);
        cached.stThumbTiming = {};
        cached.stTimingDetail = {};
        setCurrent(cached);
        interfaces.clear();
        for (const Entry& e : entries)
            interfaces.push_back(makeInterface(e[1], e[0], e[2], e[3]));
        selectedReply = reply;
        const s_InterfaceList expected = makeInterface(adopted);
        s_ThumbTimingInfo thumb = expected.stThumbTiming;
        reset();
        pageEvent(number);
        const auto messages = sent();
        if (number == CurrentTiming) {
            ASSERT_EQ(trace(messages), Trace({"C FC050111 8", "E FC020607 56", "E FC020608 28", "E FC030606 16"}));
            EXPECT_EQ(messages[1].bytes, bytesOf(expected.stTimingDetail));
        } else {
            ASSERT_EQ(trace(messages),
                      Trace({"C FC050111 8", "C FC08100A 0", "C FC001009 4", "E FC020608 28", "E FC030606 16"}));
            EXPECT_TRUE(messages[1].nullData);
            EXPECT_EQ(messages[2].bytes, bytesOf(adopted));
            thumb.param6 = expected.ifWord92; // only here the seventh word differs from the stored one
        }
        EXPECT_EQ(messages.end()[-2].bytes, bytesOf(thumb));
        EXPECT_EQ(messages.back().bytes, noticeOf(expected));
        for (const SentMessage& message : messages)
            EXPECT_EQ(std::make_pair(message.sender, message.mode),
                      std::make_pair(std::string("outputedidviewmodel"), message.kind == SentKind::Command ? 0 : 9));
        EXPECT_THAT(warnings(), IsEmpty());
        // Adopted, so found again in another order.
        std::reverse(interfaces.begin(), interfaces.end());
        reset();
        pageEvent(CurrentTiming);
        EXPECT_EQ(payloadOf(0xFC020608u), bytesOf(expected.stThumbTiming));
    }
}

// Every handler that reads its payload wants the exact size and data: one
// byte short or too many, or no data, is refused with the handler's warning.
TEST_P(InterfaceTest, MalformedPayloadsAreRefusedWithTheirHandlersWarning)
{
    // The check requests carry a usable envelope's address, the rest zeros.
    QueryInfo<s_TimigCheckQuery> envelope;
    envelope.info.stThumbCheckArry = {thumbCheck(1920, 1080, 60.0f)};
    envelope.info.stDetailCheckArry = {detailCheck(0)};
    QueryInfo<s_TimigCheckQuery>* addresses[] = {&envelope, nullptr};
    const unsigned char zeros[1000] = {};
    interfaces = {makeInterface(0)};
    const std::tuple<std::uint32_t, const void*, int, const char*> handlers[] = {
        {SetCurrent, zeros, 840, "set current interface info error"},
        {0xFC000605u, addresses, 8, "msg data is null."},
        {0xFC000606u, addresses, 8, "msg data is null."},
        {0xFC00060Cu, zeros, 40, "req does not matches."},
        {0xFC00060Du, zeros, 68, "req does not matches."},
        {0xFC081005u, zeros, 24, "resp does not matches."},
        {0xFC081006u, zeros, 24, "resp does not matches."},
        {0xFC000620u, zeros, 556, "Msg does not matches."},
    };
    for (const auto& [number, data, size, warning] : handlers) {
        SCOPED_TRACE(::testing::Message() << std::hex << number);
        reset();
        for (const auto& [bytes, length] :
             {std::pair<const void*, int>{data, size - 1}, {data, size + 1}, {nullptr, size}})
            host.event(number, bytes, length);
        EXPECT_EQ(warnings(), Trace(3, warning));
        EXPECT_THAT(sent(), IsEmpty());
    }
    // Nor a null envelope address.
    reset();
    host.event(0xFC000605u, addresses + 1, 8);
    host.event(0xFC000606u, addresses + 1, 8);
    EXPECT_EQ(warnings(), Trace(2, "msg data is null."));
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_EQ(typeReply(), 0) << "no interface was set";
    // Category, file, line and function, in every build type.
    host.event(SetCurrent, nullptr, 0);
    const LoggedMessage logged = capture.messages().at(2);
    EXPECT_EQ(std::make_tuple(logged.type, logged.category, logged.file),
              std::make_tuple(QtWarningMsg, std::string("default"), std::string("outputedidviewmodel.cpp")));
    EXPECT_GT(logged.line, 0);
    EXPECT_THAT(logged.function, HasSubstr("Model::OutputEDIDViewModel::setCurrentInterfaceInfo(const kpf::IMessage"));
}

TEST_P(InterfaceTest, AThumbCheckWhoseFirstTimingIsZeroStopsWithOneWarning)
{
    interfaces = {makeInterface(0)};
    // Only the first thumb check is tested: product in 32 bits, refresh truncated.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::tuple<const char*, std::vector<s_ThumbTimigCheck>, bool> cases[] = {
        {"first height 0", {thumbCheck(1920, 0, 60.0f), thumbCheck(1920, 1080, 60.0f)}, true},
        {"refresh 0.5", {thumbCheck(1920, 1080, 0.5f)}, true},
        {"NaN refresh", {thumbCheck(1920, 1080, nan)}, true},
        {"refresh beyond int", {thumbCheck(1920, 1080, 3.0e9f)}, true},
        {"refresh 2^31, odd product", {thumbCheck(1, 1, 2147483648.0f)}, true},
        {"refresh below int", {thumbCheck(1920, 1080, -3.0e9f)}, true},
        {"product wraps to 0", {thumbCheck(65536, 65536, 1.0f)}, true},
        {"second width 0", {thumbCheck(1920, 1080, 60.0f), thumbCheck(0, 1080, 60.0f, 1)}, false},
        {"refresh 1.5", {thumbCheck(1920, 1080, 1.5f)}, false},
        {"negative product", {thumbCheck(-1920, 1080, 60.0f)}, false},
        {"refresh -2^31, odd product", {thumbCheck(1, 1, -2147483648.0f)}, false},
    };
    for (const auto& [name, checks, rejected] : cases) {
        SCOPED_TRACE(name);
        reset();
        requestChecks(checks);
        EXPECT_EQ(warnings(), rejected ? Trace{"timing is 0."} : Trace{});
        EXPECT_EQ(thumbChecksSeen.size(), rejected ? 0u : checks.size());
    }
}

TEST_P(InterfaceTest, ChecksAreStampedFromTheFreshListAndTheTraceEndsWithResultsOnlyWhenThereAreAny)
{
    interfaces = {makeInterface(1, 0, 4), makeInterface(2, 1, 4)};
    setCurrent(makeInterface(-1));
    reset();
    request(true);
    request(false);
    EXPECT_THAT(warnings(),
                ElementsAre("Not find interface source. interfaceid: -1", "Not find input source. interfaceid: -1"));
    EXPECT_EQ(trace(sent()), Trace(2, "C FC050111 8"));

    // Stamped from the fresh list, not the cached record.
    setCurrent(makeInterface(2));
    interfaces[1].checkParam0 = 500;
    interfaces[1].checkParam1 = -600;
    QueryInfo<s_TimigCheckQuery> page;
    page.info.stThumbCheckArry = {thumbCheck(1920, 1080, 60.0f, 0), thumbCheck(1280, 720, 50.0f, 3),
                                  thumbCheck(0, 0, 0.0f, 5)};
    page.info.stDetailCheckArry = {detailCheck(4), detailCheck(13)};
    QueryInfo<s_TimigCheckQuery>* address = &page;
    const auto stamped = [](auto checks) {
        for (auto& check : checks)
            std::tie(check.interfaceId, check.checkParam0, check.checkParam1) = std::make_tuple(2, 500, -600);
        return bytesOfAll(checks);
    };
    for (bool thumb : {true, false}) {
        SCOPED_TRACE(thumb ? "thumb" : "detail");
        checkResults = {result(2, 1, {6000})};
        reset();
        host.event(thumb ? 0xFC000605u : 0xFC000606u, &address, sizeof address);
        // Fetch, the SDI hook's fetch, the check, the response's fetch.
        const Trace query = {"C FC050111 8", "C FC050111 8", thumb ? "C FC051000 8" : "C FC051001 8", "C FC050111 8"};
        EXPECT_EQ(trace(sent()), join({query, {thumb ? "E FC020603 24" : "E FC020604 24"}}));
        EXPECT_EQ(bytesOfAll(thumbChecksSeen), thumb ? stamped(page.info.stThumbCheckArry) : Bytes{});
        EXPECT_EQ(bytesOfAll(detailChecksSeen), thumb ? Bytes{} : stamped(page.info.stDetailCheckArry));
        EXPECT_THAT(warnings(), IsEmpty());
        // No results: the response neither fetches nor reports.
        checkResults.clear();
        reset();
        request(thumb);
        EXPECT_EQ(trace(sent()), Trace(query.begin(), query.end() - 1));
    }
}

TEST_P(InterfaceTest, ResultsGoOutWholeOrForTheCurrentInterfaceOfType4Or8JudgedInSinglePrecisionAfterTheEvent)
{
    interfaces = {makeInterface(1, 0, 4), makeInterface(2, 1, 4)}; // both at 60 Hz
    setCurrent(interfaces[0]);
    for (std::int32_t type : {4, 8, 6, 0}) {
        SCOPED_TRACE(type);
        // The type is read from the fresh list, not from the cached record.
        interfaces[0].stAuxiliaryInfo.interfaceType = type;
        const bool forwarded = type == 4 || type == 8;
        checkResults = {result(1, 1, {6000}), result(2, 2, {5000}), result(1, 3, {5000})};
        reset();
        request(true);
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace({"if1#1 if2#2 if1#3", "if1#1 if1#3"}) : Trace{"if1#1 if2#2 if1#3"});
        // Judged whether forwarded or not.
        EXPECT_THAT(warnings(), ElementsAre(ThumbFrameWarning, DetailFrameWarning));
        // Nothing left for the current interface: an empty list, if any.
        checkResults = {result(2, 2, {5000})};
        reset();
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace{""} : Trace{});
        EXPECT_THAT(warnings(), IsEmpty());
    }

    interfaces[0].stAuxiliaryInfo.interfaceType = 4;
    const std::tuple<float, std::vector<std::int32_t>, bool> cases[] = {
        {59.94f, {5994}, true},        {60.0f, {5994, 6000}, true}, {60.0f, {5994}, false},
        {59.94f, {5993, 5995}, false}, {60.0f, {}, false},
    };
    std::vector<std::size_t> warningsAtEvent;
    const auto listener = [&](const kpf::IMessage&) { warningsAtEvent.push_back(warnings().size()); };
    host.events().addListener(listener, 0xFC020603u);
    host.events().addListener(listener, 0xFC020604u);
    for (const auto& [refresh, rates, holds] : cases) {
        SCOPED_TRACE(::testing::Message() << refresh << " against " << ::testing::PrintToString(rates));
        interfaces[0].stThumbTiming.refresh = refresh;
        checkResults = {result(1, 1, rates)};
        reset();
        warningsAtEvent.clear();
        request(true);
        request(false);
        EXPECT_EQ(warnings(), holds ? Trace{} : Trace({ThumbFrameWarning, DetailFrameWarning}));
        EXPECT_THAT(warningsAtEvent, ElementsAre(0u, holds ? 0u : 1u)) << "each warning after its event";
    }

    // The response's own (third) fetch lacks interface 1: no frame to compare.
    for (bool thumb : {true, false}) {
        SCOPED_TRACE(thumb ? "thumb" : "detail");
        host.commands().setResponder(0xFC050111u, [this, count = 0](const kpf::IMessage& command) mutable {
            if (auto* query = host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command))
                if (++count != 3)
                    query->info.stInterfaceListArry = interfaces;
            return std::optional<Bytes>();
        });
        reset();
        request(thumb);
        EXPECT_EQ(resultEvents.size(), thumb ? 1u : 0u);
        EXPECT_THAT(warnings(), IsEmpty());
    }
}

// The same behaviour whether the host copies payloads or lends them, whether
// it answers the interface query in the asker's envelope or its own, and
// whether data() stays readable after its first call.
INSTANTIATE_TEST_SUITE_P(Hosts, InterfaceTest,
                         ::testing::Values(host::Variation::Default, host::Variation::LentPayloads,
                                           host::Variation::AnswerElsewhere, host::Variation::UnstableData),
                         variationTestName);

} // namespace
} // namespace test
} // namespace edidvm
