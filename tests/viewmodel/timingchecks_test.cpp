#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <limits>
#include <string>
#include <tuple>

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t ThumbRequest = 0xFC000605u;
constexpr std::uint32_t DetailRequest = 0xFC000606u;
constexpr std::uint32_t ThumbResults = 0xFC020603u;
constexpr std::uint32_t DetailResults = 0xFC020604u;
const char ThumbFrameWarning[] = "check array not find cur frame";
const char DetailFrameWarning[] = "not find frame in check array";

// "C FC050111 8": kind, number and size of each sent message.
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

template <typename Check>
Bytes bytesOfAll(const std::vector<Check>& checks)
{
    Bytes all;
    for (const Check& check : checks) {
        const Bytes one = bytesOf(check);
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

// The page's interfaceId and checkParams (55, 999, 998) must be replaced.
s_ThumbTimigCheck thumbCheck(std::int32_t width, std::int32_t height, float refresh, std::int32_t tag = 0)
{
    return {55, tag, {7, refresh, width, height, 8, 9, 10}, 999, 998};
}

s_DetailTimigCheck detailCheck(std::int32_t tag, std::int32_t width = 1920)
{
    s_DetailTimigCheck check{55, tag, {}, 999, 998};
    check.stTimingDetail.width = width;
    check.stTimingDetail.height = 1080 + tag;
    check.stTimingDetail.param13 = std::uint32_t(tag * 3);
    return check;
}

s_TimigCheckResult result(std::int32_t interfaceId, std::uint32_t mark, std::vector<std::int32_t> frameRates)
{
    return {interfaceId, mark, 0.0f, 0.0f, 0, 0, {}, std::move(frameRates)};
}

// "if1 #3 r6000": tells results apart and shows them unchanged.
std::vector<std::string> describe(const s_TimigCheckResultArry& results)
{
    std::vector<std::string> texts;
    for (const s_TimigCheckResult& r : results) {
        texts.push_back("if" + std::to_string(r.interfaceId) + " #" + std::to_string(r.resWord1));
        for (std::int32_t rate : r.frameRates)
            texts.back() += " r" + std::to_string(rate);
    }
    return texts;
}

class TimingCheckTest : public ViewModelTest
{
protected:
    void SetUp() override
    {
        ViewModelTest::SetUp();
        if (HasFatalFailure())
            return;
        interfaces = {makeInterface(1, 0, 4), makeInterface(2, 1, 4)}; // both at 60 Hz
        setCurrent(interfaces[0]);
        checkResults = {result(1, 1, {6000})};
        reset();
    }

    void reset()
    {
        host.recorder().clear();
        capture.clear();
        resultEvents.clear();
        thumbChecksSeen.clear();
        detailChecksSeen.clear();
    }

    void request(bool thumb)
    {
        if (thumb)
            requestThumbCheck({thumbCheck(1920, 1080, 60.0f)});
        else
            requestDetailCheck({detailCheck(0)});
    }

    // The n-th interface fetch from now on leaves the current interface out.
    void dropCurrentFromFetch(int n)
    {
        host.commands().setResponder(0xFC050111u, [this, n, count = 0](const kpf::IMessage& command) mutable {
            if (auto* query = host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command)) {
                query->info.stInterfaceListArry = interfaces;
                if (++count == n)
                    query->info.stInterfaceListArry.erase(query->info.stInterfaceListArry.begin());
            }
            return std::optional<Bytes>();
        });
    }
};

TEST_F(TimingCheckTest, UnreadableOrEmptyRequestsStopWithOneWarningAndSendNothing)
{
    QueryInfo<s_TimigCheckQuery> envelope;
    envelope.info.stThumbCheckArry = {thumbCheck(1920, 1080, 60.0f)};
    envelope.info.stDetailCheckArry = {detailCheck(0)};
    QueryInfo<s_TimigCheckQuery>* address = &envelope;
    unsigned char nine[9] = {};
    std::memcpy(nine, &address, sizeof address);
    QueryInfo<s_TimigCheckQuery>* nullEnvelope = nullptr;
    QueryInfo<s_TimigCheckQuery> empty;
    QueryInfo<s_TimigCheckQuery>* emptyAddress = &empty;

    const std::tuple<const char*, const void*, int, const char*, const char*> cases[] = {
        {"7 bytes", nine, 7, "msg data is null.", "msg data is null."},
        {"9 bytes", nine, 9, "msg data is null.", "msg data is null."},
        {"null data of 8 bytes", nullptr, 8, "msg data is null.", "msg data is null."},
        {"null envelope address", &nullEnvelope, 8, "msg data is null.", "msg data is null."},
        {"empty lists", &emptyAddress, 8, "stThumbCheckArry is empty.", "stDetailCheckArry is empty."},
    };
    for (const auto& [name, data, size, thumbWarning, detailWarning] : cases) {
        for (std::uint32_t number : {ThumbRequest, DetailRequest}) {
            SCOPED_TRACE(std::string(name) + (number == ThumbRequest ? ", thumb" : ", detail"));
            reset();
            host.event(number, data, size);
            EXPECT_THAT(warnings(), ElementsAre(number == ThumbRequest ? thumbWarning : detailWarning));
            EXPECT_THAT(trace(sent()), IsEmpty());
        }
    }
}

TEST_F(TimingCheckTest, OnlyTheFirstThumbCheckIsTestedForAZeroTimingIn32Bits)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::tuple<const char*, std::vector<s_ThumbTimigCheck>, bool> cases[] = {
        {"first height 0", {thumbCheck(1920, 0, 60.0f), thumbCheck(1920, 1080, 60.0f)}, true},
        {"refresh 0.5 truncates to 0", {thumbCheck(1920, 1080, 0.5f)}, true},
        {"refresh -0.5 truncates to 0", {thumbCheck(1920, 1080, -0.5f)}, true},
        {"NaN refresh", {thumbCheck(1920, 1080, nan)}, true},
        {"infinite refresh", {thumbCheck(1920, 1080, inf)}, true},
        {"negative infinite refresh", {thumbCheck(1920, 1080, -inf)}, true},
        {"refresh beyond int", {thumbCheck(1920, 1080, 3.0e9f)}, true},
        {"product wraps to 0", {thumbCheck(65536, 65536, 1.0f)}, true},
        {"second width 0", {thumbCheck(1920, 1080, 60.0f), thumbCheck(0, 1080, 60.0f, 1)}, false},
        {"refresh 1.5", {thumbCheck(1920, 1080, 1.5f)}, false},
        {"negative product", {thumbCheck(-1920, 1080, 60.0f)}, false},
    };
    for (const auto& [name, checks, rejected] : cases) {
        SCOPED_TRACE(name);
        reset();
        requestThumbCheck(checks);
        if (rejected) {
            EXPECT_THAT(warnings(), ElementsAre("timing is 0."));
            EXPECT_THAT(trace(sent()), IsEmpty());
        } else {
            EXPECT_THAT(warnings(), IsEmpty());
            ASSERT_EQ(thumbChecksSeen.size(), checks.size());
            for (std::size_t i = 0; i < checks.size(); ++i)
                EXPECT_EQ(bytesOf(thumbChecksSeen[i].stThumbTiming), bytesOf(checks[i].stThumbTiming));
        }
    }

    // Detail checks have no such rule.
    reset();
    s_DetailTimigCheck zero = detailCheck(2, 0);
    zero.stTimingDetail.height = 0;
    zero.stTimingDetail.refresh = 0.0f;
    requestDetailCheck({zero});
    EXPECT_THAT(warnings(), IsEmpty());
    ASSERT_EQ(detailChecksSeen.size(), 1u);
    EXPECT_EQ(bytesOf(detailChecksSeen[0].stTimingDetail), bytesOf(zero.stTimingDetail));
}

TEST_F(TimingCheckTest, RequestsForAnUnlistedCurrentInterfaceWarnWithItsId)
{
    for (std::int32_t id : {7, -1}) {
        const std::string shown = " interfaceid: " + std::to_string(id);
        setCurrent(makeInterface(id));
        for (bool thumb : {true, false}) {
            SCOPED_TRACE(shown + (thumb ? ", thumb" : ", detail"));
            reset();
            request(thumb);
            EXPECT_THAT(warnings(),
                        ElementsAre((thumb ? "Not find interface source." : "Not find input source.") + shown));
            EXPECT_THAT(trace(sent()), ElementsAre("C FC050111 8"));
        }
    }
}

TEST_F(TimingCheckTest, ForwardedChecksCarryTheListedCurrentInterfaceAndLeaveThePageListAlone)
{
    // The fresh list's values win over the cached record's.
    setCurrent(makeInterface(2));
    interfaces[1].checkParam0 = 500;
    interfaces[1].checkParam1 = -600;
    reset();

    QueryInfo<s_TimigCheckQuery> page;
    page.info.stThumbCheckArry = {thumbCheck(1920, 1080, 60.0f, 0), thumbCheck(1280, 720, 50.0f, 3),
                                  thumbCheck(0, 0, 0.0f, 5)};
    page.info.stDetailCheckArry = {detailCheck(4), detailCheck(13, 3840)};
    const s_TimigCheckQuery before = page.info;
    QueryInfo<s_TimigCheckQuery>* address = &page;
    const auto stamped = [](auto checks) {
        for (auto& check : checks) {
            check.interfaceId = 2;
            check.checkParam0 = 500;
            check.checkParam1 = -600;
        }
        return bytesOfAll(checks);
    };

    host.event(ThumbRequest, &address, sizeof address);
    EXPECT_EQ(bytesOfAll(thumbChecksSeen), stamped(before.stThumbCheckArry));
    EXPECT_THAT(detailChecksSeen, IsEmpty());

    host.event(DetailRequest, &address, sizeof address);
    EXPECT_EQ(bytesOfAll(detailChecksSeen), stamped(before.stDetailCheckArry));
    EXPECT_THAT(thumbChecksSeen, IsEmpty());

    EXPECT_EQ(bytesOfAll(page.info.stThumbCheckArry), bytesOfAll(before.stThumbCheckArry));
    EXPECT_EQ(bytesOfAll(page.info.stDetailCheckArry), bytesOfAll(before.stDetailCheckArry));
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(TimingCheckTest, RequestTraceEndsWithAResultEventOnlyWhenTheServiceGaveResults)
{
    for (bool thumb : {true, false}) {
        SCOPED_TRACE(thumb ? "thumb" : "detail");
        // Fetch, the SDI hook's fetch, the check, the response's fetch.
        const std::vector<std::string> query = {"C FC050111 8", "C FC050111 8", thumb ? "C FC051000 8" : "C FC051001 8",
                                                "C FC050111 8"};
        std::vector<std::string> answered = query;
        answered.push_back(thumb ? "E FC020603 24" : "E FC020604 24");

        checkResults = {result(1, 1, {6000})};
        reset();
        request(thumb);
        EXPECT_EQ(trace(sent()), answered);
        ASSERT_EQ(resultEvents.size(), 1u);
        EXPECT_EQ(resultEvents[0].first, thumb ? ThumbResults : DetailResults);
        EXPECT_THAT(describe(resultEvents[0].second), ElementsAre("if1 #1 r6000"));
        EXPECT_THAT(warnings(), IsEmpty());

        // No results: the response neither fetches nor reports.
        checkResults.clear();
        reset();
        request(thumb);
        EXPECT_EQ(trace(sent()), std::vector<std::string>(query.begin(), query.end() - 1));
        EXPECT_THAT(warnings(), IsEmpty());
    }
}

TEST_F(TimingCheckTest, ThumbResultsGoOutWholeDetailResultsOnlyForTheCurrentInterfaceOfType4Or8)
{
    const s_TimigCheckResultArry mixed = {result(1, 1, {6000}), result(2, 2, {5000}), result(1, 3, {6000})};
    for (std::int32_t type : {4, 8, 6, 0}) {
        SCOPED_TRACE("type " + std::to_string(type));
        // The type is read from the fresh list, not from the cached record.
        interfaces[0].stAuxiliaryInfo.interfaceType = type;
        const bool forwarded = type == 4 || type == 8;

        checkResults = mixed;
        reset();
        request(true);
        ASSERT_EQ(resultEvents.size(), 1u);
        EXPECT_THAT(describe(resultEvents[0].second), ElementsAre("if1 #1 r6000", "if2 #2 r5000", "if1 #3 r6000"));
        // Interface 2's result lacks 60 Hz, and the thumb answer judges all.
        EXPECT_THAT(warnings(), ElementsAre(ThumbFrameWarning));

        reset();
        request(false);
        ASSERT_EQ(resultEvents.size(), forwarded ? 1u : 0u);
        if (forwarded) {
            EXPECT_THAT(describe(resultEvents[0].second), ElementsAre("if1 #1 r6000", "if1 #3 r6000"));
        }
        EXPECT_THAT(warnings(), IsEmpty());

        // Nothing left for the current interface.
        checkResults = {result(2, 2, {5000})};
        reset();
        request(false);
        ASSERT_EQ(resultEvents.size(), forwarded ? 1u : 0u);
        if (forwarded) {
            EXPECT_THAT(resultEvents[0].second, IsEmpty());
        }
        EXPECT_THAT(warnings(), IsEmpty());
    }
}

TEST_F(TimingCheckTest, FrameRateMatchIsExactInSinglePrecision)
{
    const std::tuple<float, std::vector<std::int32_t>, bool> cases[] = {
        {59.94f, {5994}, true}, {60.0f, {6000}, true},         {60.0f, {5994, 6000}, true},
        {60.0f, {5994}, false}, {59.94f, {5993, 5995}, false}, {23.976f, {2397, 2398}, false},
        {60.0f, {}, false},     {59.94f, {}, false},
    };
    for (const auto& [refresh, rates, holds] : cases) {
        SCOPED_TRACE(::testing::Message() << refresh << " against " << ::testing::PrintToString(rates));
        interfaces[0].stThumbTiming.refresh = refresh;
        checkResults = {result(1, 1, rates)};
        for (bool thumb : {true, false}) {
            reset();
            request(thumb);
            EXPECT_EQ(resultEvents.size(), 1u);
            if (holds)
                EXPECT_THAT(warnings(), IsEmpty());
            else
                EXPECT_THAT(warnings(), ElementsAre(thumb ? ThumbFrameWarning : DetailFrameWarning));
        }
    }
}

TEST_F(TimingCheckTest, FrameWarningComesOnceAfterTheEventAndNeedsTheCurrentInterface)
{
    std::vector<std::size_t> warningsAtEvent;
    const auto listener = [&](const kpf::IMessage&) { warningsAtEvent.push_back(warnings().size()); };
    host.events().addListener(listener, ThumbResults);
    host.events().addListener(listener, DetailResults);

    checkResults = {result(1, 1, {}), result(1, 2, {5000})};
    request(true);
    request(false);
    EXPECT_THAT(warnings(), ElementsAre(ThumbFrameWarning, DetailFrameWarning));
    EXPECT_THAT(warningsAtEvent, ElementsAre(0u, 1u));

    // Not forwarded for type 6, but still judged.
    interfaces[0].stAuxiliaryInfo.interfaceType = 6;
    reset();
    request(false);
    EXPECT_THAT(resultEvents, IsEmpty());
    EXPECT_THAT(warnings(), ElementsAre(DetailFrameWarning));

    // The response's own fetch (the third) no longer lists interface 1.
    interfaces[0].stAuxiliaryInfo.interfaceType = 4;
    for (bool thumb : {true, false}) {
        SCOPED_TRACE(thumb ? "thumb" : "detail");
        dropCurrentFromFetch(3);
        reset();
        request(thumb);
        EXPECT_EQ(resultEvents.size(), thumb ? 1u : 0u);
        EXPECT_THAT(warnings(), IsEmpty());
    }
}

} // namespace
} // namespace test
} // namespace edidvm
