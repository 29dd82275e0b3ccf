#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <string>

// A timing change followed end to end: the page's choice, the screens it
// would change, their assessment, the confirmation and its answer, the
// bandwidth pre-check and the write.

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Trace = std::vector<std::string>;

constexpr std::uint32_t ThumbChoice = 0xFC00060Cu;
constexpr std::uint32_t ReferenceChoice = 0xFC00060Du;
constexpr std::uint32_t BoxAnswer = 0xFC000620u;
constexpr std::uint32_t Confirmation = 0xFC030605u;
constexpr std::uint32_t AssessFailed = 0xFC02022Du;

const Trace Impact = {"C FC050200 8", "C FC050111 8", "C FC0D1000 8", "C FC000004 0"};
const Trace ThumbWrite = {"C FC050111 8",  "E FC000626 44", "C FC051000 8",
                          "E FC0C0C0F 11", "C FC051008 24", "E FC0C0C10 0"};
const Trace Committed = {"E FC020611 28"};
const Trace ThumbRejected = {"C FC050111 8", "E FC000626 44", "C FC051000 8", "E FC0C0C12 556"};
const Trace ReferenceWrite = {"C FC050111 8", "C FC051001 8",  "E FC0C0C0F 11",
                              "E FC0C0C27 4", "E FC051009 24", "E FC0C0C10 0"};
const Trace ReferenceRejected = {"C FC050111 8", "C FC051001 8", "E FC0C0C12 556"};
const Trace Refresh = {"C FC050111 8", "E FC020607 56", "E FC020608 28", "E FC030606 16"};
const Trace Asked = {"C FC05021F 8", "C FC05021F 8", "E FC030605 556"};

const char ScreensOneAndThree[] =
    "This action will change the resolutions of the following screens: screen 1 screen 3, Do you want to continue?";
const char BandwidthText[] = "Bandwidth limit exceeded. Please adjust the frame rate or advanced parameters and retry.";
const char NoTarget[] = "Not find the interface: id: 3";

Trace join(std::initializer_list<Trace> parts)
{
    Trace all;
    for (const Trace& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// "C FC050111 8": kind (Q for a queued event), number and size.
Trace trace(const std::vector<SentMessage>& messages)
{
    Trace steps;
    for (const SentMessage& message : messages) {
        const char kind = message.kind == SentKind::Command ? 'C' : message.kind == SentKind::Event ? 'E' : 'Q';
        char text[32];
        std::snprintf(text, sizeof text, "%c %08X %d", kind, static_cast<unsigned>(message.number), message.size);
        steps.push_back(text);
    }
    return steps;
}

template <typename Record>
Bytes bytesOfAll(const std::vector<Record>& records)
{
    Bytes all;
    for (const Record& record : records) {
        const Bytes one = bytesOf(record);
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

s_InterfaceThumbTiming thumbTiming(std::int32_t width, std::int32_t height, float refresh, std::int32_t id = 3)
{
    return {id, {11, refresh, width, height, 14, 15, 16}, 17, 18};
}

s_InterfacePresetTiming referenceTiming(std::int32_t width, std::int32_t height, float refresh, std::int32_t id = 3)
{
    s_InterfacePresetTiming timing{id, {}, 34, 35};
    timing.stTimingDetail = {21, refresh, width, 24, 25, 26, 27, height, 29, 30, 31, 32, 33, 20};
    return timing;
}

s_ScreenDetailInfo screen(std::uint32_t screenId, std::uint32_t index, std::vector<std::int32_t> fedBy)
{
    s_ScreenDetailInfo record;
    record.screenId = screenId;
    record.screenIndex = index;
    for (std::int32_t interfaceId : fedBy) {
        s_OutputDetail output;
        output.interfaceId = interfaceId;
        record.stOutputDetailArry.push_back(output);
    }
    return record;
}

// The one-element list the device is asked to assess for a screen.
Bytes assessedBytes(std::uint32_t screenId, float refresh, std::int32_t width, std::int32_t height)
{
    s_ScreenThumbTiming timing;
    timing.screenId = screenId;
    timing.stThumbTiming = {0, refresh, width, height, 0, 0, 0};
    return bytesOf(timing);
}

Bytes boxBytes(std::int32_t boxId, std::int32_t boxType, const std::string& text)
{
    Model::s_MessageBoxRequest box;
    box.boxId = boxId;
    box.boxType = boxType;
    std::memcpy(box.text, text.c_str(), text.size() + 1);
    return bytesOf(box);
}

s_TimigCheckResult verdict(std::int32_t id, std::int32_t needed, std::int32_t maxFrameRate, std::int32_t over = 0)
{
    s_TimigCheckResult result;
    result.interfaceId = id;
    result.bandwidthLimit = 1000;
    result.bandwidthNeeded = needed;
    result.maxFrameRate = maxFrameRate;
    result.overBandwidth = over;
    return result;
}

class TimingChangeTest : public ViewModelTest
{
protected:
    // Interface 3 (current; slot 2, connector 1) is tied to connector 2 of
    // its subcard. Screen 101 is fed through connector 2, screen 103
    // through interface 3 itself, screen 102 through the untied connector 5.
    void SetUp() override
    {
        ViewModelTest::SetUp();
        if (HasFatalFailure())
            return;
        interfaces = {makeInterface(3, 1), makeInterface(5, 2), makeInterface(6, 5)};
        for (s_InterfaceList& entry : interfaces)
            entry.slotId = 2;
        setCurrent(interfaces[0]);
        // The commit must take these from the fresh list, not the cached record.
        interfaces[0].checkParam0 = 500;
        interfaces[0].checkParam1 = -600;

        s_SubcardInfo other;
        other.slotId = 1;
        other.stConnectorArry = {{1, {}, 99, {}}};
        s_SubcardInfo own;
        own.slotId = 2;
        own.stConnectorArry = {{4, {}, 98, {}}, {1, {}, 77, {}}};
        subcards = {other, own};
        host.deviceConfig().setAnswer([](std::int32_t slot) { return slot * 10 + 1; });
        host.subcardConfig().setAnswer([](std::int32_t subcard, std::int32_t key, std::int32_t) {
            return subcard == 21 && key == 77 ? std::vector<int>{2, 1} : std::vector<int>{};
        });
        screens = {screen(101, 0, {5}), screen(102, 1, {6}), screen(103, 2, {3})};
        reset();
    }

    void reset()
    {
        host.recorder().clear();
        capture.clear();
        assessedTimings.clear();
        thumbWritten.clear();
        referenceWritten.clear();
        interfaceFiltersSeen.clear();
        screenFiltersSeen.clear();
        subcardRequestsSeen.clear();
    }

    void choose(const s_InterfaceThumbTiming& timing) { host.event(ThumbChoice, &timing, sizeof timing); }
    void choose(const s_InterfacePresetTiming& timing) { host.event(ReferenceChoice, &timing, sizeof timing); }

    void answer(std::int32_t boxId, std::uint8_t result)
    {
        Model::s_MessageBoxRequest box;
        box.boxId = boxId;
        box.result = result;
        host.event(BoxAnswer, &box, sizeof box);
    }

    // The payload of the n-th message with this number.
    Bytes payloadOf(std::uint32_t number, std::size_t occurrence = 0)
    {
        for (const SentMessage& message : sent()) {
            if (message.number == number && occurrence-- == 0)
                return message.bytes;
        }
        ADD_FAILURE() << std::hex << number << " not sent";
        return {};
    }

    Bytes thumbCheckBytes(const s_InterfaceThumbTiming& chosen)
    {
        return bytesOf(s_ThumbTimigCheck{3, 3, chosen.stThumbTiming, 500, -600});
    }
};

TEST_F(TimingChangeTest, UnchangedResolutionIsCommittedAtOnceAndTheAnswerByteChoosesTheLastStep)
{
    const s_InterfaceThumbTiming chosen = thumbTiming(1920, 1080, 50.0f);
    const std::tuple<const char*, std::optional<Bytes>, bool> cases[] = {
        {"no answer", std::nullopt, true},
        {"answer 0", Bytes{0}, true},
        {"answer 1", Bytes{1}, false},
        {"answer 255", Bytes{255}, false},
        {"answer of 2 bytes", Bytes{1, 1}, true},
    };
    for (const auto& [name, reply, committed] : cases) {
        SCOPED_TRACE(name);
        reset();
        writeAnswer = reply;
        choose(chosen);
        EXPECT_THAT(warnings(), ElementsAre(NoTarget));
        EXPECT_EQ(trace(sent()), join({Impact, ThumbWrite, committed ? Committed : Refresh}));
        EXPECT_EQ(payloadOf(0xFC000626u), thumbCheckBytes(chosen));
        ASSERT_EQ(thumbChecksSeen.size(), 1u);
        EXPECT_EQ(bytesOf(thumbChecksSeen[0]), thumbCheckBytes(chosen));
        const char loading[] = "Loading...";
        EXPECT_EQ(payloadOf(0xFC0C0C0Fu), Bytes(loading, loading + sizeof loading));
        ASSERT_EQ(thumbWritten.size(), 1u);
        ASSERT_EQ(thumbWritten[0].size(), 1u);
        EXPECT_EQ(bytesOf(thumbWritten[0][0]), bytesOf(chosen));
        if (committed) {
            EXPECT_EQ(payloadOf(0xFC020611u), bytesOf(chosen.stThumbTiming));
        } else {
            EXPECT_EQ(payloadOf(0xFC020607u), bytesOf(interfaces[0].stTimingDetail));
            EXPECT_EQ(payloadOf(0xFC020608u), bytesOf(interfaces[0].stThumbTiming));
        }
        for (const SentMessage& message : sent())
            EXPECT_EQ(message.sender, "outputedidviewmodel") << std::hex << message.number;
        // The impact asks for the screens of type 2, every interface and the subcards.
        EXPECT_THAT(screenFiltersSeen, ElementsAre(Parameters{{"screenType", "2"}}));
        EXPECT_EQ(interfaceFiltersSeen, std::vector<Parameters>(committed ? 2 : 3));
        EXPECT_THAT(subcardRequestsSeen, ElementsAre(1));
    }
    EXPECT_THAT(host.deviceConfig().calls(), IsEmpty()) << "no target, so no subcard is looked up";
}

TEST_F(TimingChangeTest, TwoAffectedScreensAreAssessedOneByOneAndNamedInTheConfirmation)
{
    for (const std::optional<Bytes>& param : {std::optional<Bytes>(), std::optional<Bytes>(Bytes{9, 0, 0, 0})}) {
        SCOPED_TRACE(param ? "device parameter 9" : "device parameter unanswered");
        reset();
        deviceParamReply = param;
        choose(thumbTiming(1280, 720, 50.0f));
        EXPECT_THAT(warnings(), IsEmpty());
        EXPECT_EQ(trace(sent()), join({Impact, Asked}));
        ASSERT_EQ(assessedTimings.size(), 2u);
        ASSERT_EQ(assessedTimings[0].size(), 1u);
        ASSERT_EQ(assessedTimings[1].size(), 1u);
        EXPECT_EQ(bytesOf(assessedTimings[0][0]), assessedBytes(101, 50.0f, 1280, 720));
        EXPECT_EQ(bytesOf(assessedTimings[1][0]), assessedBytes(103, 50.0f, 1280, 720));
        EXPECT_EQ(payloadOf(Confirmation), boxBytes(35, 2, ScreensOneAndThree));
        const auto box = recordFrom<Model::s_MessageBoxRequest>(sent().back());
        EXPECT_EQ(box.result, 0);
        EXPECT_EQ(box.flag1, 1);
        EXPECT_EQ(box.duration, 2000);
        const auto calls = host.subcardConfig().calls();
        ASSERT_FALSE(calls.empty());
        EXPECT_EQ(calls.back().subcard, 21);
        EXPECT_EQ(calls.back().connectorKey, 77);
        EXPECT_EQ(calls.back().deviceParam, param ? 9 : -1);
        EXPECT_THAT(thumbWritten, IsEmpty()) << "nothing is written before the answer";
    }
    EXPECT_THAT(host.deviceConfig().calls(), ElementsAre(2, 2));
}

TEST_F(TimingChangeTest, AcceptedConfirmationCommitsTheStoredThumbTiming)
{
    const s_InterfaceThumbTiming chosen = thumbTiming(1280, 720, 50.0f);
    choose(chosen);
    ASSERT_EQ(trace(sent()), join({Impact, Asked}));
    for (std::uint8_t accepted : {1, 2, 255}) {
        SCOPED_TRACE("result " + std::to_string(accepted));
        reset();
        answer(35, accepted);
        EXPECT_EQ(trace(sent()), join({ThumbWrite, Committed}));
        EXPECT_EQ(payloadOf(0xFC000626u), thumbCheckBytes(chosen));
        ASSERT_EQ(thumbWritten.size(), 1u);
        EXPECT_EQ(bytesOfAll(thumbWritten[0]), bytesOf(chosen));
        EXPECT_EQ(payloadOf(0xFC020611u), bytesOf(chosen.stThumbTiming));
        EXPECT_THAT(assessedTimings, IsEmpty()) << "the answer does not assess again";
        EXPECT_THAT(warnings(), IsEmpty());
    }
}

TEST_F(TimingChangeTest, DeclinedConfirmationRefreshesThePageAndKeepsTheChoice)
{
    const s_InterfaceThumbTiming chosen = thumbTiming(1280, 720, 50.0f);
    choose(chosen);
    reset();
    answer(35, 0);
    EXPECT_EQ(trace(sent()), Refresh);
    EXPECT_EQ(payloadOf(0xFC020607u), bytesOf(interfaces[0].stTimingDetail));
    EXPECT_EQ(payloadOf(0xFC020608u), bytesOf(interfaces[0].stThumbTiming));
    EXPECT_THAT(thumbWritten, IsEmpty());
    EXPECT_THAT(warnings(), IsEmpty());

    // Declined is not forgotten: a later acceptance still has the choice.
    reset();
    answer(35, 1);
    EXPECT_EQ(trace(sent()), join({ThumbWrite, Committed}));
    ASSERT_EQ(thumbWritten.size(), 1u);
    EXPECT_EQ(bytesOfAll(thumbWritten[0]), bytesOf(chosen));
}

TEST_F(TimingChangeTest, ScreenNamesFollowTheListAndAScreenFedTwiceIsNamedTwice)
{
    struct Case
    {
        const char* name;
        std::vector<s_ScreenDetailInfo> list;
        std::vector<std::uint32_t> assessed;
        std::string names;
    };
    std::vector<Case> cases = {
        {"list order",
         {screen(40, 4, {5}), screen(41, 0, {3}), screen(42, 1, {5, 6})},
         {40, 41, 42},
         "screen 5 screen 1 screen 2"},
        {"two tied outputs", {screen(50, 2, {6, 5, 3})}, {50, 50}, "screen 3 screen 3"},
        {"one screen", {screen(60, 9, {3})}, {60}, "screen 10"},
        {"more than the field holds", {}, {}, ""},
    };
    for (std::uint32_t index = 0; index < 30; ++index) {
        cases.back().list.push_back(screen(200 + index, index, {3}));
        cases.back().assessed.push_back(200 + index);
        cases.back().names += (index > 0 ? " screen " : "screen ") + std::to_string(index + 1);
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reset();
        screens = c.list;
        choose(thumbTiming(1280, 720, 30.0f));
        ASSERT_EQ(assessedTimings.size(), c.assessed.size());
        for (std::size_t i = 0; i < c.assessed.size(); ++i)
            EXPECT_EQ(bytesOfAll(assessedTimings[i]), assessedBytes(c.assessed[i], 30.0f, 1280, 720)) << i;
        const std::string text = "This action will change the resolutions of the following screens: " + c.names +
                                 ", Do you want to continue?";
        // A text too long for the field is cut to 255 bytes and its NUL.
        EXPECT_EQ(payloadOf(Confirmation), boxBytes(35, 2, text.substr(0, 255)));
        EXPECT_EQ(sent().back().number, Confirmation);
    }
}

TEST_F(TimingChangeTest, ThumbPreCheckRejectsOnlyOnTheCurrentInterfaceResults)
{
    const std::tuple<const char*, float, s_TimigCheckResultArry, bool> cases[] = {
        {"over bandwidth", 50.0f, {verdict(3, 10, 6000, 1)}, false},
        {"needed above limit", 50.0f, {verdict(3, 1001, 6000)}, false},
        {"needed equal to limit", 50.0f, {verdict(3, 1000, 6000)}, true},
        {"5994 allows 59.0", 59.0f, {verdict(3, 10, 5994)}, true},
        {"5994 rejects 59.5", 59.5f, {verdict(3, 10, 5994)}, false},
        {"5994 rejects 59.94", 59.94f, {verdict(3, 10, 5994)}, false},
        {"6000 allows 60.0", 60.0f, {verdict(3, 10, 6000)}, true},
        {"-50 truncates to 0", 0.0f, {verdict(3, 10, -50)}, true},
        {"another interface over", 50.0f, {verdict(5, 2000, 0, 1), verdict(3, 10, 6000)}, true},
        {"every result must pass", 50.0f, {verdict(3, 10, 6000), verdict(3, 10, 4999)}, false},
        {"no results", 50.0f, {}, true},
    };
    for (const auto& [name, refresh, results, passes] : cases) {
        SCOPED_TRACE(name);
        reset();
        checkResults = results;
        const s_InterfaceThumbTiming chosen = thumbTiming(1920, 1080, refresh);
        choose(chosen);
        EXPECT_THAT(warnings(), ElementsAre(NoTarget));
        EXPECT_EQ(payloadOf(0xFC000626u), thumbCheckBytes(chosen));
        if (passes) {
            EXPECT_EQ(trace(sent()), join({Impact, ThumbWrite, Committed}));
            EXPECT_EQ(thumbWritten.size(), 1u);
        } else {
            EXPECT_EQ(trace(sent()), join({Impact, ThumbRejected}));
            EXPECT_EQ(payloadOf(0xFC0C0C12u), boxBytes(14, 4, BandwidthText));
            EXPECT_THAT(thumbWritten, IsEmpty());
        }
    }
}

TEST_F(TimingChangeTest, AFailedAssessmentRefreshesThePageWithoutConfirmation)
{
    struct Case
    {
        const char* name;
        std::vector<Assessment> answers;
        std::size_t assessed;
        std::vector<std::string> warned;
        std::optional<std::int32_t> code;
    };
    const char failed[] = "Fail to assess interface timing.";
    const Case cases[] = {
        {"second not carried out", {{}, {Bytes{0}, {}}}, 2, {failed}, std::nullopt},
        {"second unanswered", {{}, {std::nullopt, {}}}, 2, {failed}, std::nullopt},
        {"second with codes 0, 7, 9", {{}, {Bytes{1}, {{1, 0}, {1, 7}, {1, 9}}}}, 2, {}, 7},
        {"first with code -3", {{Bytes{1}, {{0, -3}}}}, 1, {}, -3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reset();
        assessments = c.answers;
        std::vector<Bytes> delivered;
        host.events().clearListeners();
        host.events().addListener(
            [&delivered](const kpf::IMessage& event) {
                const auto* data = static_cast<const std::uint8_t*>(event.data());
                delivered.push_back(data != nullptr ? Bytes(data, data + event.size()) : Bytes());
            },
            AssessFailed);
        choose(thumbTiming(1280, 720, 50.0f));
        Trace expected = join({Impact, Trace(c.assessed, "C FC05021F 8")});
        if (c.code)
            expected.push_back("Q FC02022D 4");
        expected = join({expected, Refresh});
        EXPECT_EQ(trace(sent()), expected);
        EXPECT_EQ(assessedTimings.size(), c.assessed);
        EXPECT_EQ(warnings(), c.warned);
        EXPECT_THAT(thumbWritten, IsEmpty());

        // The failure code reaches the page only through the queue.
        EXPECT_THAT(delivered, IsEmpty());
        EXPECT_EQ(host.pump(), c.code ? 1 : 0);
        if (c.code) {
            ASSERT_EQ(delivered.size(), 1u);
            EXPECT_EQ(delivered[0], bytesOf(*c.code));
        }
    }
    host.events().clearListeners(); // it refers to this test's locals
}

TEST_F(TimingChangeTest, ReferenceChoiceWithoutImpactIsWrittenUnderTheWaitingIndicator)
{
    // Same resolution as the interface's, only the refresh differs.
    const s_InterfacePresetTiming chosen = referenceTiming(1920, 1080, 50.0f, 7);
    thumbChecksSeen = {s_ThumbTimigCheck{}};
    detailChecksSeen = {s_DetailTimigCheck{}};
    checkResults = {verdict(3, 10, 100)}; // no frame-rate test for a reference timing
    choose(chosen);
    EXPECT_THAT(warnings(), ElementsAre(NoTarget));
    EXPECT_EQ(trace(sent()), join({Impact, ReferenceWrite}));
    EXPECT_THAT(thumbChecksSeen, IsEmpty());
    EXPECT_THAT(detailChecksSeen, IsEmpty());
    EXPECT_EQ(payloadOf(0xFC0C0C27u), bytesOf(std::int32_t(1)));
    s_InterfacePresetTiming stamped = chosen;
    stamped.interfaceId = 3;
    ASSERT_EQ(referenceWritten.size(), 1u);
    EXPECT_EQ(bytesOfAll(referenceWritten[0]), bytesOf(stamped));
    EXPECT_THAT(thumbWritten, IsEmpty());
}

TEST_F(TimingChangeTest, ReferenceChoiceAffectingScreensAsksWithBox36AndAssessesTheDetailTiming)
{
    const s_InterfacePresetTiming chosen = referenceTiming(1280, 720, 25.0f);
    choose(chosen);
    EXPECT_THAT(warnings(), IsEmpty());
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
    ASSERT_EQ(assessedTimings.size(), 2u);
    EXPECT_EQ(bytesOfAll(assessedTimings[0]), assessedBytes(101, 25.0f, 1280, 720));
    EXPECT_EQ(bytesOfAll(assessedTimings[1]), assessedBytes(103, 25.0f, 1280, 720));
    EXPECT_EQ(payloadOf(Confirmation), boxBytes(36, 2, ScreensOneAndThree));

    reset();
    answer(36, 0);
    EXPECT_EQ(trace(sent()), Refresh);
    EXPECT_THAT(referenceWritten, IsEmpty());

    reset();
    answer(36, 1);
    EXPECT_EQ(trace(sent()), ReferenceWrite);
    ASSERT_EQ(referenceWritten.size(), 1u);
    EXPECT_EQ(bytesOfAll(referenceWritten[0]), bytesOf(chosen));
    EXPECT_THAT(thumbWritten, IsEmpty());
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(TimingChangeTest, ReferencePreCheckLooksAtBandwidthOnly)
{
    const std::tuple<const char*, s_TimigCheckResultArry, bool> cases[] = {
        {"over bandwidth", {verdict(3, 10, 6000, 1)}, false},
        {"needed above limit", {verdict(3, 1001, 6000)}, false},
        {"needed equal to limit, no frame rate", {verdict(3, 1000, 0)}, true},
        {"another interface over", {verdict(5, 2000, 0, 1)}, true},
        {"second result over", {verdict(3, 10, 0), verdict(3, 10, 0, 2)}, false},
    };
    for (const auto& [name, results, passes] : cases) {
        SCOPED_TRACE(name);
        reset();
        checkResults = results;
        choose(referenceTiming(1920, 1080, 60.0f));
        EXPECT_EQ(trace(sent()), join({Impact, passes ? ReferenceWrite : ReferenceRejected}));
        EXPECT_EQ(referenceWritten.size(), passes ? 1u : 0u);
        if (!passes) {
            EXPECT_EQ(payloadOf(0xFC0C0C12u), boxBytes(14, 4, BandwidthText));
        }
    }
}

TEST_F(TimingChangeTest, ASecondChoiceBeforeTheAnswerIsTheOneCommitted)
{
    const s_InterfaceThumbTiming first = thumbTiming(1280, 720, 50.0f);
    const s_InterfaceThumbTiming second = thumbTiming(1024, 768, 30.0f);
    const s_InterfacePresetTiming reference = referenceTiming(800, 600, 75.0f);
    choose(first);
    choose(second);
    choose(reference);
    EXPECT_EQ(trace(sent()), join({Impact, Asked, Impact, Asked, Impact, Asked}));
    ASSERT_EQ(assessedTimings.size(), 6u);
    EXPECT_EQ(bytesOfAll(assessedTimings[2]), assessedBytes(101, 30.0f, 1024, 768));
    EXPECT_EQ(payloadOf(Confirmation, 2), boxBytes(36, 2, ScreensOneAndThree));

    // The answer to the first box commits the latest choice of its form.
    reset();
    answer(35, 1);
    EXPECT_EQ(trace(sent()), join({ThumbWrite, Committed}));
    EXPECT_EQ(payloadOf(0xFC000626u), thumbCheckBytes(second));
    ASSERT_EQ(thumbWritten.size(), 1u);
    EXPECT_EQ(bytesOfAll(thumbWritten[0]), bytesOf(second));
    EXPECT_EQ(payloadOf(0xFC020611u), bytesOf(second.stThumbTiming));
    EXPECT_THAT(referenceWritten, IsEmpty());

    reset();
    answer(36, 1);
    EXPECT_EQ(trace(sent()), ReferenceWrite);
    ASSERT_EQ(referenceWritten.size(), 1u);
    EXPECT_EQ(bytesOfAll(referenceWritten[0]), bytesOf(reference));
    EXPECT_THAT(thumbWritten, IsEmpty());
}

TEST_F(TimingChangeTest, TheChoiceIsStampedWithTheCurrentInterfaceWhateverThePageSent)
{
    // Sent for interface 7: the impact is worked out, assessed and written
    // for interface 3, the current one.
    const s_InterfaceThumbTiming chosen = thumbTiming(1280, 720, 50.0f, 7);
    choose(chosen);
    EXPECT_THAT(warnings(), IsEmpty());
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
    answer(35, 1);
    s_InterfaceThumbTiming stamped = chosen;
    stamped.interfaceId = 3;
    ASSERT_EQ(thumbWritten.size(), 1u);
    EXPECT_EQ(bytesOfAll(thumbWritten[0]), bytesOf(stamped));
    EXPECT_EQ(payloadOf(0xFC000626u), thumbCheckBytes(stamped));
    EXPECT_EQ(payloadOf(0xFC020611u), bytesOf(stamped.stThumbTiming));

    reset();
    const s_InterfacePresetTiming reference = referenceTiming(1280, 720, 50.0f, -1);
    choose(reference);
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
    answer(36, 1);
    s_InterfacePresetTiming stampedReference = reference;
    stampedReference.interfaceId = 3;
    ASSERT_EQ(referenceWritten.size(), 1u);
    EXPECT_EQ(bytesOfAll(referenceWritten[0]), bytesOf(stampedReference));
}

TEST_F(TimingChangeTest, BadInputAndAnUnlistedCurrentInterfaceChangeNothing)
{
    const s_InterfaceThumbTiming thumb = thumbTiming(1280, 720, 50.0f);
    const s_InterfacePresetTiming reference = referenceTiming(1280, 720, 50.0f);
    char buffer[sizeof(Model::s_MessageBoxRequest) + 1] = {};
    std::memcpy(buffer, &reference, sizeof reference);
    const std::tuple<std::uint32_t, const void*, int> choices[] = {
        {ThumbChoice, buffer, 39},     {ThumbChoice, buffer, 41},      {ThumbChoice, nullptr, 40},
        {ThumbChoice, buffer, 0},      {ReferenceChoice, buffer, 40},  {ReferenceChoice, buffer, 67},
        {ReferenceChoice, buffer, 69}, {ReferenceChoice, nullptr, 68},
    };
    for (const auto& [number, data, size] : choices)
        host.event(number, data, size);
    EXPECT_EQ(warnings(), Trace(std::size(choices), "req does not matches."));
    EXPECT_THAT(trace(sent()), IsEmpty());

    // Nothing was stored.
    reset();
    answer(35, 1);
    answer(36, 1);
    EXPECT_THAT(warnings(), ElementsAre("m_interfaceTimingArry is empty", "m_interfaceRefTimingArry is empty"));
    EXPECT_THAT(trace(sent()), IsEmpty());

    // With both choices waiting, a misshapen or unknown answer does nothing.
    choose(thumb);
    choose(reference);
    reset();
    Model::s_MessageBoxRequest accepted;
    accepted.boxId = 35;
    accepted.result = 1;
    std::memcpy(buffer, &accepted, sizeof accepted);
    for (const auto& [data, size] : {std::pair<const void*, int>{buffer, 555}, {buffer, 557}, {nullptr, 556}})
        host.event(BoxAnswer, data, size);
    EXPECT_EQ(warnings(), Trace(3, "Msg does not matches."));
    EXPECT_THAT(trace(sent()), IsEmpty());
    reset();
    for (const auto& [boxId, result] : {std::pair<int, int>{14, 0}, {14, 1}, {0, 1}, {37, 0}})
        answer(boxId, static_cast<std::uint8_t>(result));
    EXPECT_EQ(warnings(), Trace(4, "Msg type is not correct"));
    EXPECT_THAT(trace(sent()), IsEmpty());

    // A commit whose current interface has left the device's list.
    interfaces.erase(interfaces.begin());
    reset();
    answer(35, 1);
    answer(36, 1);
    EXPECT_EQ(warnings(), Trace(2, "Not find input source. interfaceid: 3"));
    EXPECT_EQ(trace(sent()), Trace(2, "C FC050111 8"));
    reset();
    choose(thumb);
    EXPECT_THAT(warnings(), ElementsAre(NoTarget, "Not find input source. interfaceid: 3"));
    EXPECT_EQ(trace(sent()), join({Impact, {"C FC050111 8"}}));
    EXPECT_THAT(thumbWritten, IsEmpty());
    EXPECT_THAT(referenceWritten, IsEmpty());
}

TEST_F(TimingChangeTest, AMissingConfigurationServiceMeansNoImpactAndAnImmediateCommit)
{
    const std::pair<std::string, void*> services[] = {
        {"deviceconfigmanager", static_cast<DeviceConfigManager*>(&host.deviceConfig())},
        {"subcardconfigmanager", static_cast<SubcardConfigManager*>(&host.subcardConfig())},
    };
    for (const auto& [name, service] : services) {
        SCOPED_TRACE(name);
        host.api().removeService(name);
        reset();
        choose(thumbTiming(1280, 720, 50.0f));
        EXPECT_EQ(trace(sent()), join({ThumbWrite, Committed}));
        EXPECT_EQ(thumbWritten.size(), 1u);
        host.recorder().clear();
        choose(referenceTiming(1280, 720, 50.0f));
        EXPECT_EQ(trace(sent()), ReferenceWrite);
        EXPECT_EQ(referenceWritten.size(), 1u);
        EXPECT_EQ(warnings(), Trace(2, "Not find the pSubcardCfgMgr or pDeviceCfgMgr"));
        host.api().setService(name, service);
    }
    EXPECT_THAT(host.deviceConfig().calls(), IsEmpty());
    EXPECT_THAT(host.subcardConfig().calls(), IsEmpty());

    // Looked up on every choice: back in place, the screens are asked for.
    reset();
    choose(thumbTiming(1280, 720, 50.0f));
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
}

} // namespace
} // namespace test
} // namespace edidvm
