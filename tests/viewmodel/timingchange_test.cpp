// The timing-change flow end to end, each road as its exact trace.

#include "viewmodel/timingchangefixture.h"

#include <gmock/gmock.h>

namespace edidvm {
namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_P(TimingChangeTest, TwoAffectedScreensAreAssessedConfirmedThenDeclinedOrCommittedTheLatestChoice)
{
    // Three choices before the answer, each sent for interface 7: worked out,
    // assessed and written for interface 3; the latest is the one committed.
    // The device parameter is a 4-byte reply, or else -1.
    const std::tuple<std::optional<Bytes>, std::int32_t, float> params[] = {
        {std::nullopt, -1, 30.0f}, {bytesOf<std::int32_t>(9), 9, 40.0f}, {Bytes{9, 0}, -1, 50.0f}};
    for (const auto& [reply, param, refresh] : params) {
        SCOPED_TRACE(param);
        reset();
        deviceParamReply = reply;
        choose(thumbTiming(1280, 720, refresh, 7));
        EXPECT_EQ(trace(sent()), join({Impact, Asked}));
        EXPECT_EQ(bytesOfAll(assessedTimings), assessedBytes({101, 103}, refresh, 1280, 720));
        const auto call = host.subcardConfig().calls().back();
        EXPECT_EQ(std::make_tuple(call.subcard, call.connectorKey, call.deviceParam), std::make_tuple(21, 77, param));
    }
    EXPECT_EQ(payloadOf(Confirmation), boxBytes(35, 2, confirmationText("screen 1 screen 3")));
    // Declined, then accepted: the choice is kept; the write's answer byte
    // chooses between the committed timing and a refresh.
    const s_InterfaceThumbTiming stamped = thumbTiming(1280, 720, 50.0f);
    for (const auto& [result, reply, expected] :
         {std::make_tuple(0, std::optional<Bytes>(), Refresh),
          std::make_tuple(1, std::optional<Bytes>(), join({ThumbWrite, Committed})),
          std::make_tuple(1, std::optional<Bytes>(Bytes{0}), join({ThumbWrite, Committed})),
          std::make_tuple(1, std::optional<Bytes>(Bytes{1, 1}), join({ThumbWrite, Committed})),
          std::make_tuple(255, std::optional<Bytes>(Bytes{1}), join({ThumbWrite, Refresh}))}) {
        SCOPED_TRACE(std::to_string(result) + (reply ? ", written with a reply" : ", written without one"));
        reset();
        writeAnswer = reply;
        answer(35, static_cast<std::uint8_t>(result));
        EXPECT_EQ(trace(sent()), expected);
        EXPECT_EQ(bytesOfAll(thumbWritten), result != 0 ? bytesOf(stamped) : Bytes{});
        EXPECT_EQ(payloadOf(result == 1 ? 0xFC020611u : 0xFC020608u),
                  bytesOf(result == 1 ? stamped.stThumbTiming : interfaces[0].stThumbTiming));
    }
    EXPECT_EQ(payloadOf(0xFC000626u), thumbCheckBytes(stamped));
}

TEST_P(TimingChangeTest, PreCheckRejectsOnlyOnTheCurrentInterfaceResultsWithoutTheWaitingIndicator)
{
    // A reference timing is judged on bandwidth alone, with no checks sent.
    const std::tuple<const char*, bool, float, s_TimigCheckResultArry, bool> cases[] = {
        {"over bandwidth", false, 50.0f, {verdict(3, 10, 6000, 1)}, false},
        {"needed above limit", false, 50.0f, {verdict(3, 1001, 6000)}, false},
        {"needed equal to limit", false, 50.0f, {verdict(3, 1000, 6000)}, true},
        {"5994 allows 59.0", false, 59.0f, {verdict(3, 10, 5994)}, true},
        {"6000 allows 60.0", false, 60.0f, {verdict(3, 10, 6000)}, true},
        {"5994 rejects 59.5", false, 59.5f, {verdict(3, 10, 5994)}, false},
        {"5994 rejects 59.94", false, 59.94f, {verdict(3, 10, 5994)}, false},
        {"another interface over", false, 50.0f, {verdict(5, 2000, 0, 1), verdict(3, 10, 6000)}, true},
        {"every result must pass", false, 50.0f, {verdict(3, 10, 6000), verdict(3, 10, 4999)}, false},
        {"no results", false, 50.0f, {}, true},
        {"reference over bandwidth", true, 50.0f, {verdict(3, 10, 6000, 1)}, false},
        {"reference needed above limit", true, 50.0f, {verdict(3, 1001, 6000)}, false},
        {"reference needed equal to limit, no frame rate", true, 50.0f, {verdict(3, 1000, 0)}, true},
        {"reference, another interface over", true, 50.0f, {verdict(5, 2000, 0, 1)}, true},
    };
    for (const auto& [name, reference, refresh, results, passes] : cases) {
        SCOPED_TRACE(name);
        reset();
        checkResults = results;
        reference ? choose(referenceTiming(1920, 1080, refresh)) : choose(thumbTiming(1920, 1080, refresh));
        const Trace written = reference ? ReferenceWrite : join({ThumbWrite, Committed});
        EXPECT_EQ(trace(sent()), join({Impact, passes ? written : reference ? ReferenceRejected : ThumbRejected}));
        EXPECT_EQ(thumbWritten.size() + referenceWritten.size(), passes ? 1u : 0u);
        EXPECT_EQ(thumbChecksSeen.size(), reference ? 0u : 1u);
        if (!passes) {
            EXPECT_EQ(payloadOf(0xFC0C0C12u), boxBytes(14, 4, BandwidthText));
        }
    }
}

TEST_P(TimingChangeTest, AFailedAssessmentQueuesItsCodeRefreshesThePageAndStopsTheRound)
{
    const std::vector<s_AssessResult> codes = {{1, 0}, {1, 7}, {1, 9}};
    // second answer; assessed; code queued (0: none); warned; passes
    const std::tuple<const char*, std::vector<Assessment>, std::size_t, std::int32_t, bool, bool> cases[] = {
        {"second not carried out", {{}, {Bytes{0}, {}}}, 2, 0, true, false},
        {"second unanswered", {{}, {std::nullopt, {}}}, 2, 0, true, false},
        {"second answered in 2 bytes", {{}, {Bytes{1, 1}, {}}}, 2, 0, true, false},
        {"second with codes 0, 7, 9", {{}, {Bytes{1}, codes}}, 2, 7, false, false},
        {"first with code -3", {{Bytes{1}, {{0, -3}}}}, 1, -3, false, false},
        {"any non-zero byte, only the code judged", {{Bytes{2}, {{5, 0}}}, {}}, 2, 0, false, true},
    };
    for (const auto& [name, answers, assessed, code, warned, passes] : cases)
        for (const bool reference : {false, true}) {
            SCOPED_TRACE(std::string(name) + (reference ? ", reference" : ", thumb"));
            reset();
            assessments = answers;
            reference ? choose(referenceTiming(1280, 720, 50.0f)) : choose(thumbTiming(1280, 720, 50.0f));
            Trace expected = join({Impact, Trace(assessed, "C FC05021F 8")});
            if (code != 0)
                expected.push_back("Q FC02022D 4");
            EXPECT_EQ(trace(sent()), join({expected, passes ? Trace{"E FC030605 556"} : Refresh}));
            EXPECT_EQ(warnings(), warned ? Trace{AssessFailed} : Trace{});
            // The failure code reaches the page only through the queue.
            EXPECT_EQ(host.pump(), code != 0 ? 1 : 0);
            if (code != 0) {
                EXPECT_EQ(payloadOf(0xFC02022Du), bytesOf(code));
            }
        }
}

TEST_P(TimingChangeTest, ReferenceChoiceIsCommittedAtOnceOrAfterBox36AndPublishedForItsInterface)
{
    // The stored choice is published whatever the payload, only for its
    // interface: its resolution and refresh, if any.
    const unsigned char junk[68] = {9};
    const auto published = [&](std::int32_t width, std::int32_t height, float refresh) {
        reset();
        host.event(0xFC070606u, junk, sizeof junk);
        EXPECT_EQ(trace(sent()), refresh != 0.0f ? Committed : Trace{});
        if (refresh != 0.0f) {
            EXPECT_EQ(sent()[0].bytes, bytesOf(s_ThumbTimingInfo{0, refresh, width, height, 0, 0, 0}));
        }
    };
    published(0, 0, 0.0f); // nothing chosen yet

    // Same resolution as the interface's: no impact.
    const s_InterfacePresetTiming unchanged = referenceTiming(1920, 1080, 50.0f, 7);
    s_InterfacePresetTiming stamped = unchanged;
    stamped.interfaceId = 3;
    choose(unchanged);
    EXPECT_THAT(warnings(), ElementsAre(NoTarget));
    EXPECT_EQ(trace(sent()), join({Impact, ReferenceWrite}));
    EXPECT_EQ(payloadOf(0xFC0C0C27u), bytesOf<std::int32_t>(1));
    EXPECT_EQ(bytesOfAll(referenceWritten), bytesOf(stamped));
    published(1920, 1080, 50.0f);

    // Judged by its detail timing's resolution and refresh.
    const s_InterfacePresetTiming chosen = referenceTiming(1280, 720, 25.0f);
    reset();
    choose(chosen);
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
    EXPECT_EQ(bytesOfAll(assessedTimings), assessedBytes({101, 103}, 25.0f, 1280, 720));
    EXPECT_EQ(payloadOf(Confirmation), boxBytes(36, 2, confirmationText("screen 1 screen 3")));
    reset();
    answer(36, 0);
    EXPECT_EQ(trace(sent()), Refresh);
    reset();
    answer(36, 1);
    EXPECT_EQ(trace(sent()), ReferenceWrite);
    EXPECT_EQ(bytesOfAll(referenceWritten), bytesOf(chosen));
    // A thumb choice leaves the stored reference choice alone.
    choose(thumbTiming(1024, 768, 50.0f));
    published(1280, 720, 25.0f);
    setCurrent(interfaces[1]);
    published(0, 0, 0.0f);
}

TEST_P(TimingChangeTest, AffectedScreensAreThoseFedThroughTiedConnectorsInUseNamedInListOrder)
{
    std::vector<s_ScreenDetailInfo> many;
    std::vector<std::uint32_t> manyIds;
    std::string manyNames;
    for (std::uint32_t index = 0; index < 30; ++index) {
        many.push_back(screen(200 + index, index, {3}));
        manyIds.push_back(200 + index);
        manyNames += (index > 0 ? " screen " : "screen ") + std::to_string(index + 1);
    }
    // Connectors tied, interface out of use (0: none), screens, those affected, their names: list order,
    // fed twice, unlisted interfaces and empty screens skipped, interfaces out of use, nothing tied, too many.
    using Case = std::tuple<std::vector<int>, std::int32_t, std::vector<s_ScreenDetailInfo>, std::vector<std::uint32_t>,
                            std::string>;
    const Case cases[] = {
        {{2, 1}, 0, {screen(40, 4, {5}), screen(41, 0, {3})}, {40, 41}, "screen 5 screen 1"},
        {{1, 2}, 0, {screen(50, 2, {6, 5, 3})}, {50, 50}, "screen 3 screen 3"},
        {{2}, 0, {screen(60, 3, {99, 5}), screen(61, 0, {})}, {60}, "screen 4"},
        {{2, 1}, 5, {screen(80, 0, {5}), screen(81, 1, {3})}, {81}, "screen 2"},
        {{1}, 3, {screen(81, 1, {3})}, {}, ""},
        {{}, 0, {screen(81, 1, {3})}, {}, ""},
        {{1}, 0, many, manyIds, manyNames},
    };
    for (const auto& [tied, unused, list, affected, names] : cases) {
        SCOPED_TRACE(::testing::PrintToString(tied) + " " + std::to_string(unused) + " " + names);
        baseline();
        screens = list;
        related = tied;
        for (s_InterfaceList& entry : interfaces)
            if (entry.interfaceId == unused)
                entry.stAuxiliaryInfo.usedByScreen.clear();
        choose(thumbTiming(1280, 720, 30.0f));
        EXPECT_THAT(warnings(), IsEmpty());
        if (affected.empty()) {
            EXPECT_EQ(trace(sent()), join({Impact, ThumbWrite, Committed}));
            continue;
        }
        EXPECT_EQ(trace(sent()), join({Impact, Trace(affected.size(), "C FC05021F 8"), {"E FC030605 556"}}));
        EXPECT_EQ(assessedTimings.size(), affected.size()) << "one screen at a time";
        EXPECT_EQ(bytesOfAll(assessedTimings), assessedBytes(affected, 30.0f, 1280, 720));
        // A text too long for the field is cut to 255 bytes and its NUL.
        EXPECT_EQ(payloadOf(Confirmation), boxBytes(35, 2, confirmationText(names).substr(0, 255)));
    }
}

TEST_P(TimingChangeTest, WhatCannotBeWorkedOutMeansNoImpactAndAnImmediateCommit)
{
    const char noSubcard[] = "Not find the subcard: slotId: 2";
    const auto sameResolution = [&] {
        std::tie(interfaces[0].stThumbTiming.width, interfaces[0].stThumbTiming.height) = std::tuple(1280, 720);
    };
    // arrangement, warning (null: none), configuration services asked (D: device, S: subcard)
    const std::tuple<const char*, std::function<void()>, const char*, std::string> cases[] = {
        {"resolution unchanged", sameResolution, NoTarget, ""},
        {"no device service", [&] { host.api().removeService("deviceconfigmanager"); }, MissingService, ""},
        {"no subcard service", [&] { host.api().removeService("subcardconfigmanager"); }, MissingService, ""},
        {"no subcard in the slot", [&] { subcards.resize(1); }, noSubcard, "D"},
        {"subcard query unanswered", [&] { host.commands().removeResponder(0xFC0D1000u); }, noSubcard, "D"},
        {"no connector with the number in the first subcard", [&] { subcards[1].stConnectorArry.resize(1); }, nullptr,
         "D"},
        {"screen query unanswered", [&] { host.commands().removeResponder(0xFC050200u); }, nullptr, "DS"},
        {"no screens", [&] { screens.clear(); }, nullptr, "DS"},
    };
    const s_InterfaceThumbTiming chosen = thumbTiming(1280, 720, 50.0f);
    for (const auto& [name, arrange, warning, asked] : cases) {
        SCOPED_TRACE(name);
        baseline();
        arrange();
        reset();
        host.api().clearLookups();
        const std::size_t deviceCalls = host.deviceConfig().calls().size();
        const std::size_t subcardCalls = host.subcardConfig().calls().size();
        choose(chosen);
        EXPECT_EQ(warnings(), warning ? Trace{warning} : Trace{});
        // The impact's queries go first even when the resolution stays.
        EXPECT_EQ(trace(sent()), join({warning == MissingService ? Trace{} : Impact, ThumbWrite, Committed}));
        EXPECT_EQ(bytesOfAll(thumbChecksSeen), thumbCheckBytes(chosen));
        EXPECT_EQ(bytesOfAll(thumbWritten), bytesOf(chosen));
        EXPECT_THAT(screenFiltersSeen, Each(Parameters{{"screenType", "2"}}));
        EXPECT_THAT(interfaceFiltersSeen, Each(IsEmpty()));
        EXPECT_THAT(subcardRequestsSeen, Each(1));
        // Looked up by name on every choice, never kept.
        EXPECT_THAT(host.api().lookups(), ElementsAre("subcardconfigmanager", "deviceconfigmanager"));
        EXPECT_EQ(host.deviceConfig().calls().size() - deviceCalls, asked.find('D') != std::string::npos ? 1u : 0u);
        EXPECT_EQ(host.subcardConfig().calls().size() - subcardCalls, asked.find('S') != std::string::npos ? 1u : 0u);
    }

    // The target is the first entry with the id and another resolution.
    baseline();
    interfaces.insert(interfaces.begin(), makeInterface(3, 1));
    std::tie(interfaces[0].slotId, interfaces[0].stThumbTiming.width, interfaces[0].stThumbTiming.height) =
        std::tuple(1, 1280, 720);
    choose(thumbTiming(1280, 720, 50.0f));
    EXPECT_EQ(host.deviceConfig().calls().back(), 2);
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
    // Another height alone is another resolution.
    baseline();
    choose(thumbTiming(1920, 720, 50.0f));
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
}

TEST_P(TimingChangeTest, InUseFlagAnswersForTheCurrentInterfaceWhateverThePayload)
{
    const unsigned char junk[840] = {1, 2, 3};
    for (std::uint32_t number : {0xFC000617u, 0xFC030204u, 0xFC08021Eu}) {
        SCOPED_TRACE(::testing::Message() << std::hex << number);
        baseline();
        // The flag sent, if any, after the one query.
        const auto ask = [&](const void* data, int size) {
            reset();
            host.event(number, data, size);
            EXPECT_EQ(trace(sent()).at(0), "C FC050111 8");
            return sent().size() == 2 && sent()[1].number == 0xFC02060Eu ? sent()[1].bytes : Bytes{};
        };
        for (const auto& [data, size] :
             {std::pair<const void*, int>{nullptr, 0}, {junk, 3}, {junk, 840}, {nullptr, 24}})
            EXPECT_EQ(ask(data, size), Bytes{1});
        EXPECT_THAT(interfaceFiltersSeen, ElementsAre(Parameters{{"interfaceId", "3"}}));
        interfaces[0].stAuxiliaryInfo.usedByScreen.clear();
        EXPECT_EQ(ask(nullptr, 0), Bytes{0});
        // Only the first answered entry counts; none, no flag at all.
        interfaces.push_back(makeInterface(3));
        EXPECT_EQ(ask(nullptr, 0), Bytes{0});
        setCurrent(makeInterface(8));
        EXPECT_EQ(ask(nullptr, 0), Bytes{});
        EXPECT_EQ(sent().size(), 1u);
    }
}

TEST_P(TimingChangeTest, ChangedTimingsOfTheCurrentInterfaceAreForwarded)
{
    // Only the first entry for the current interface counts.
    std::vector<s_InterfacePresetTiming> references = {
        referenceTiming(640, 480, 24.0f, 7), referenceTiming(1280, 720, 50.5f), referenceTiming(800, 600, 30.0f)};
    const std::vector<s_InterfaceThumbTiming> thumbs = {
        {8, {1, 24.0f, 640, 480, 2, 3, 4}, 5, 6},
        {3, {11, 25.0f, 1280, 720, 44, 55, 66}, 77, 88},
        {3, {12, 30.0f, 800, 600, 45, 56, 67}, 78, 89},
    };
    host.event(0xFC081005u, &references, sizeof references);
    host.event(0xFC081006u, &thumbs, sizeof thumbs);
    EXPECT_THAT(warnings(),
                ElementsAre("Receive change interface timimg info: 3 ,width:  1280 ,height: 720 ,refresh: 50.5"));
    const auto messages = sent();
    ASSERT_EQ(trace(messages), Trace({"E FC030601 56", "E FC030606 16", "E FC030602 28"}));
    EXPECT_EQ(messages[0].bytes, bytesOf(references[1].stTimingDetail));
    EXPECT_EQ(messages[1].bytes, bytesOf(Model::s_InterfaceTimingNotice{66, 77, 0, 44}));
    EXPECT_EQ(messages[2].bytes, bytesOf(thumbs[1].stThumbTiming));

    // Lists without the current interface change nothing.
    setCurrent(makeInterface(-2));
    reset();
    const std::vector<s_InterfacePresetTiming> none;
    host.event(0xFC081005u, &none, sizeof none);
    host.event(0xFC081006u, &thumbs, sizeof thumbs);
    EXPECT_EQ(warnings(), Trace(2, "could not find interfaceId(-2)'s timing info."));
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_P(TimingChangeTest, AnswersToOtherBoxesAndAnUnlistedCurrentInterfaceChangeNothing)
{
    // With both choices waiting, an answer to another box does nothing
    // (misshapen payloads are the interface suite's).
    choose(thumbTiming(1280, 720, 50.0f));
    choose(referenceTiming(1280, 720, 50.0f));
    reset();
    for (const auto& [boxId, result] : {std::pair<int, int>{14, 1}, {0, 1}, {37, 0}})
        answer(boxId, static_cast<std::uint8_t>(result));
    EXPECT_EQ(warnings(), Trace(3, "Msg type is not correct"));
    EXPECT_THAT(sent(), IsEmpty());

    // A commit whose current interface has left the device's list.
    interfaces.erase(interfaces.begin());
    reset();
    answer(35, 1);
    answer(36, 1);
    EXPECT_EQ(warnings(), Trace(2, "Not find input source. interfaceid: 3"));
    EXPECT_EQ(trace(sent()), Trace(2, "C FC050111 8"));
}

// The same behaviour whether the host copies payloads or lends them. (The
// screen impact reads its own envelopes, so a host that answers elsewhere
// changes the outcome: the variation suite covers that.)
INSTANTIATE_TEST_SUITE_P(Hosts, TimingChangeTest,
                         ::testing::Values(host::Variation::Default, host::Variation::LentPayloads), variationTestName);

} // namespace
} // namespace test
} // namespace edidvm
