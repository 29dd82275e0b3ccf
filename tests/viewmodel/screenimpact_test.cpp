#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <functional>
#include <string>
#include <tuple>

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr std::uint32_t ThumbChoice = 0xFC00060Cu;
constexpr std::uint32_t ReferenceChoice = 0xFC00060Du;
constexpr std::uint32_t AssessFailed = 0xFC02022Du;
constexpr std::uint32_t Confirmation = 0xFC030605u;
constexpr std::uint32_t PublishReference = 0xFC070606u;
constexpr std::uint32_t ChangedReferences = 0xFC081005u;
constexpr std::uint32_t ChangedThumbs = 0xFC081006u;
const char SubcardService[] = "subcardconfigmanager";
const char DeviceService[] = "deviceconfigmanager";
const char MissingService[] = "Not find the pSubcardCfgMgr or pDeviceCfgMgr";
const char Sender[] = "outputedidviewmodel";

// The four impact queries, in the order they must leave.
const std::vector<std::string> ImpactQueries = {"C FC050200 8", "C FC050111 8", "C FC0D1000 8", "C FC000004 0"};

// "C FC050111 8": kind (Q for a queued event), number and size.
std::vector<std::string> trace(const std::vector<SentMessage>& messages)
{
    std::vector<std::string> steps;
    for (const SentMessage& message : messages) {
        const char kind = message.kind == SentKind::Command ? 'C' : message.kind == SentKind::Event ? 'E' : 'Q';
        char text[32];
        std::snprintf(text, sizeof text, "%c %08X %d", kind, static_cast<unsigned>(message.number), message.size);
        steps.push_back(text);
    }
    return steps;
}

s_InterfaceList onSlot(std::int32_t id, std::int32_t slot, std::int32_t connector)
{
    s_InterfaceList record = makeInterface(id, connector);
    record.slotId = slot;
    return record;
}

s_ScreenDetailInfo screen(std::uint32_t screenId, std::uint32_t index, const std::vector<std::int32_t>& feeding)
{
    s_ScreenDetailInfo record;
    record.screenId = screenId;
    record.screenIndex = index;
    for (std::int32_t interfaceId : feeding) {
        s_OutputDetail output;
        output.interfaceId = interfaceId;
        record.stOutputDetailArry.push_back(output);
    }
    return record;
}

s_SubcardConnector connector(std::int32_t connectorId, std::int32_t key)
{
    s_SubcardConnector record;
    record.connectorId = connectorId;
    record.connectorKey = key;
    record.conWords1 = {connectorId + 500, 501};
    return record;
}

s_SubcardInfo subcard(std::int32_t slot, std::vector<s_SubcardConnector> connectors)
{
    s_SubcardInfo record;
    record.slotId = slot;
    record.stConnectorArry = std::move(connectors);
    return record;
}

Bytes word(std::int32_t value)
{
    return bytesOf(value);
}

// subcard value, connector key, deviceParam
using RelatedCall = std::tuple<std::int32_t, std::int32_t, std::int32_t>;

class ScreenImpactTest : public ViewModelTest
{
protected:
    void SetUp() override
    {
        ViewModelTest::SetUp();
        if (HasFatalFailure())
            return;
        // Slot 2 identifies itself to the subcard service as 1002.
        host.deviceConfig().setAnswer([](std::int32_t slot) { return 1000 + slot; });
        host.subcardConfig().setAnswer([this](std::int32_t, std::int32_t, std::int32_t) { return related; });
        baseline();
        setCurrent(interfaces[0]);
        reset();
    }

    // Interface 3 (slot 2, connector 1, 1920x1080) is the one to change.
    // Interface 4 on connector 2 feeds screen 101; interface 5 on connector 5
    // feeds screen 102. Connector 1 is tied to 1 and 2. The later subcard of
    // slot 2 and the second connector 1 are decoys: only the first counts.
    void baseline()
    {
        interfaces = {onSlot(3, 2, 1), onSlot(4, 2, 2), onSlot(5, 2, 5)};
        screens = {screen(101, 0, {4}), screen(102, 1, {5})};
        subcards = {subcard(1, {connector(1, 11)}), subcard(2, {connector(0, 20), connector(1, 21), connector(1, 22)}),
                    subcard(2, {connector(1, 31)})};
        related = {1, 2};
        assessments.clear();
        deviceParamReply.reset();
    }

    void reset()
    {
        host.recorder().clear();
        capture.clear();
        host.api().clearLookups();
        assessedTimings.clear();
        interfaceFiltersSeen.clear();
        screenFiltersSeen.clear();
        subcardRequestsSeen.clear();
        deviceCallsBefore = host.deviceConfig().calls().size();
        subcardCallsBefore = host.subcardConfig().calls().size();
    }

    // The page's own id, tail and spare words must not reach the impact.
    void chooseThumb(std::int32_t width, std::int32_t height, float refresh = 50.0f)
    {
        s_InterfaceThumbTiming choice{77, {11, refresh, width, height, 44, 55, 66}, 88, 99};
        host.event(ThumbChoice, &choice, sizeof choice);
    }

    void chooseReference(std::int32_t width, std::int32_t height, float refresh)
    {
        s_InterfacePresetTiming choice;
        choice.interfaceId = 77;
        choice.stTimingDetail = {9, refresh, width, 33, 44, 55, 66, height, 88, 99, 100, 101, 102, 103};
        choice.tailParam0 = 5;
        choice.tailParam1 = 6;
        host.event(ReferenceChoice, &choice, sizeof choice);
    }

    std::vector<std::int32_t> deviceCalls()
    {
        const auto all = host.deviceConfig().calls();
        return {all.begin() + static_cast<std::ptrdiff_t>(deviceCallsBefore), all.end()};
    }

    std::vector<RelatedCall> subcardCalls()
    {
        const auto all = host.subcardConfig().calls();
        std::vector<RelatedCall> calls;
        for (std::size_t i = subcardCallsBefore; i < all.size(); ++i)
            calls.emplace_back(all[i].subcard, all[i].connectorKey, all[i].deviceParam);
        return calls;
    }

    // The screen of each assessment; each must carry exactly one timing.
    std::vector<std::uint32_t> assessedScreens()
    {
        std::vector<std::uint32_t> ids;
        for (const s_ScreenThumbTimingArry& list : assessedTimings) {
            EXPECT_EQ(list.size(), 1u);
            if (!list.empty())
                ids.push_back(list.front().screenId);
        }
        return ids;
    }

    // No impact: the commit starts right after the queries with its fetch of
    // the interfaces, and nothing is assessed or confirmed.
    void expectCommittedAtOnce(bool commitFindsInterface = true)
    {
        const auto steps = trace(sent());
        ASSERT_GE(steps.size(), 5u);
        EXPECT_EQ(std::vector<std::string>(steps.begin(), steps.begin() + 4), ImpactQueries);
        EXPECT_EQ(steps[4], "C FC050111 8");
        if (commitFindsInterface) {
            ASSERT_GE(steps.size(), 6u);
            EXPECT_EQ(steps[5], "E FC000626 44");
        }
        EXPECT_THAT(assessedTimings, IsEmpty());
        for (std::uint32_t number : sentNumbers())
            EXPECT_NE(number, Confirmation);
    }

    // Impact found and every assessment passed: nothing but the queries, one
    // assessment per affected screen and the confirmation box.
    void expectConfirmedAfterAssessing(const std::vector<std::uint32_t>& affected)
    {
        std::vector<std::string> expected = ImpactQueries;
        expected.insert(expected.end(), affected.size(), "C FC05021F 8");
        expected.push_back("E FC030605 556");
        EXPECT_THAT(trace(sent()), ElementsAreArray(expected));
        EXPECT_THAT(assessedScreens(), ElementsAreArray(affected));
    }

    std::vector<int> related;
    std::size_t deviceCallsBefore = 0;
    std::size_t subcardCallsBefore = 0;
};

TEST_F(ScreenImpactTest, AffectedScreensAreThoseFedThroughTiedConnectorsInUse)
{
    // Interfaces 3, 4, 5 and 6 sit on connectors 1, 2, 5 and 2 (6 on slot 7).
    struct Case
    {
        const char* name;
        std::vector<int> tied;
        std::vector<s_ScreenDetailInfo> screens;
        std::vector<std::uint32_t> affected;
    };
    const Case cases[] = {
        {"only the screen on a tied connector", {1, 2}, {screen(101, 0, {4}), screen(102, 1, {5})}, {101}},
        {"no tied connectors", {}, {screen(101, 0, {4}), screen(102, 1, {5})}, {}},
        {"tied connectors in any order", {9, 2, 7}, {screen(101, 0, {4})}, {101}},
        {"fed twice through tied connectors: listed twice", {1, 2}, {screen(103, 2, {4, 3})}, {103, 103}},
        {"the changed interface's connector not tied", {2}, {screen(103, 2, {3})}, {}},
        {"the changed interface's connector tied", {1}, {screen(103, 2, {3})}, {103}},
        {"unlisted interfaces skipped, not their screen", {2}, {screen(104, 3, {99, 4}), screen(105, 4, {98})}, {104}},
        {"screens in answer order",
         {1, 2},
         {screen(106, 0, {4}), screen(102, 1, {5}), screen(101, 2, {3})},
         {106, 101}},
        {"connectors compared by number alone", {2}, {screen(108, 5, {6})}, {108}},
        {"a screen without outputs", {1, 2}, {screen(109, 0, {})}, {}},
    };
    for (const bool inUse : {true, false}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(c.name) + (inUse ? "" : ", nothing in use"));
            baseline();
            interfaces.push_back(onSlot(6, 7, 2));
            if (!inUse)
                for (s_InterfaceList& entry : interfaces)
                    entry.stAuxiliaryInfo.usedByScreen.clear();
            related = c.tied;
            screens = c.screens;
            reset();
            chooseThumb(1280, 720);
            if (!inUse || c.affected.empty())
                expectCommittedAtOnce();
            else
                expectConfirmedAfterAssessing(c.affected);
            EXPECT_EQ(subcardCalls().size(), 1u);
            EXPECT_THAT(warnings(), IsEmpty());
        }
    }

    // Only the tied interface out of use: its screen is not affected.
    baseline();
    interfaces[1].stAuxiliaryInfo.usedByScreen.clear();
    screens = {screen(101, 0, {4}), screen(103, 2, {3})};
    reset();
    chooseThumb(1280, 720);
    expectConfirmedAfterAssessing({103});
}

TEST_F(ScreenImpactTest, ServicesAreAskedAboutTheTargetsSlotConnectorKeyAndDeviceParam)
{
    const std::tuple<const char*, std::optional<Bytes>, std::int32_t> cases[] = {
        {"no reply", std::nullopt, -1},
        {"a 4-byte reply", word(77), 77},
        {"a negative reply", word(-5), -5},
        {"a reply of 2 bytes", Bytes{9, 0}, -1},
        {"a reply of 8 bytes", Bytes{9, 0, 0, 0, 9, 0, 0, 0}, -1},
    };
    for (const auto& [name, reply, expected] : cases) {
        SCOPED_TRACE(name);
        deviceParamReply = reply;
        reset();
        chooseThumb(1280, 720);
        EXPECT_THAT(deviceCalls(), ElementsAre(2));
        EXPECT_THAT(subcardCalls(), ElementsAre(RelatedCall(1002, 21, expected)));
        expectConfirmedAfterAssessing({101});
    }

    // The target is the first entry with the id and another resolution: an
    // earlier entry already at 1280x720 is passed over, and so is its slot.
    baseline();
    s_InterfaceList already = onSlot(3, 1, 1);
    already.stThumbTiming.width = 1280;
    already.stThumbTiming.height = 720;
    interfaces.insert(interfaces.begin(), already);
    reset();
    chooseThumb(1280, 720);
    EXPECT_THAT(deviceCalls(), ElementsAre(2));
    EXPECT_THAT(subcardCalls(), ElementsAre(RelatedCall(1002, 21, -1)));
    expectConfirmedAfterAssessing({101});

    // Only connectorKey is the service's name for a connector.
    baseline();
    subcards[1].stConnectorArry[1].connectorKey = -40;
    reset();
    chooseThumb(1280, 720);
    EXPECT_THAT(subcardCalls(), ElementsAre(RelatedCall(1002, -40, -1)));
}

TEST_F(ScreenImpactTest, QueriesLeaveFirstInOrderEvenWhenTheResolutionStays)
{
    const std::tuple<const char*, std::int32_t, std::int32_t, bool> cases[] = {
        {"refresh only", 1920, 1080, false},
        {"height only", 1920, 720, true},
        {"width only", 1280, 1080, true},
    };
    for (const auto& [name, width, height, impact] : cases) {
        SCOPED_TRACE(name);
        reset();
        chooseThumb(width, height, 30.0f);
        if (impact) {
            expectConfirmedAfterAssessing({101});
            EXPECT_THAT(warnings(), IsEmpty());
            EXPECT_THAT(deviceCalls(), ElementsAre(2));
        } else {
            expectCommittedAtOnce();
            EXPECT_THAT(warnings(), ElementsAre("Not find the interface: id: 3"));
            EXPECT_THAT(deviceCalls(), IsEmpty());
            EXPECT_THAT(subcardCalls(), IsEmpty());
        }
        EXPECT_THAT(screenFiltersSeen, ElementsAre(Parameters{{"screenType", "2"}}));
        ASSERT_FALSE(interfaceFiltersSeen.empty());
        EXPECT_THAT(interfaceFiltersSeen.front(), IsEmpty()) << "the impact needs every interface";
        EXPECT_THAT(subcardRequestsSeen, ElementsAre(1));
        const auto messages = sent();
        ASSERT_GE(messages.size(), 4u);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(messages[i].sender, Sender);
    }

    // A current interface missing from the list, with a negative id.
    setCurrent(makeInterface(-4));
    reset();
    chooseThumb(1280, 720);
    ASSERT_FALSE(warnings().empty());
    EXPECT_EQ(warnings().front(), "Not find the interface: id: -4");
    EXPECT_THAT(deviceCalls(), IsEmpty());
    expectCommittedAtOnce(false);
}

TEST_F(ScreenImpactTest, ServicesAreLookedUpOnEveryChoiceAndAMissingOneMeansNoImpact)
{
    const auto serviceLookups = [this] {
        std::vector<std::string> names;
        for (const std::string& name : host.api().lookups())
            if (name == SubcardService || name == DeviceService)
                names.push_back(name);
        return names;
    };
    chooseThumb(1280, 720);
    chooseThumb(1280, 720);
    EXPECT_THAT(serviceLookups(), ElementsAre(SubcardService, DeviceService, SubcardService, DeviceService));

    auto* subcardService = static_cast<SubcardConfigManager*>(&host.subcardConfig());
    auto* deviceService = static_cast<DeviceConfigManager*>(&host.deviceConfig());
    const std::tuple<const char*, bool, bool> cases[] = {
        {"no subcard service", false, true},
        {"no device service", true, false},
        {"neither", false, false},
    };
    for (const auto& [name, withSubcard, withDevice] : cases) {
        SCOPED_TRACE(name);
        host.api().setService(SubcardService, subcardService);
        host.api().setService(DeviceService, deviceService);
        if (!withSubcard)
            host.api().removeService(SubcardService);
        if (!withDevice)
            host.api().removeService(DeviceService);
        reset();
        chooseThumb(1280, 720);
        ASSERT_FALSE(warnings().empty());
        EXPECT_EQ(warnings().front(), MissingService);
        // Not one impact query: the commit's fetch and pre-check come first.
        const auto steps = trace(sent());
        ASSERT_GE(steps.size(), 2u);
        EXPECT_EQ(steps[0], "C FC050111 8");
        EXPECT_EQ(steps[1], "E FC000626 44");
        for (std::uint32_t number : sentNumbers()) {
            EXPECT_NE(number, 0xFC050200u);
            EXPECT_NE(number, 0xFC0D1000u);
            EXPECT_NE(number, 0xFC000004u);
        }
        EXPECT_THAT(assessedTimings, IsEmpty());
        EXPECT_THAT(deviceCalls(), IsEmpty());
        EXPECT_THAT(subcardCalls(), IsEmpty());
    }

    // Back again, the very next choice finds them.
    host.api().setService(SubcardService, subcardService);
    host.api().setService(DeviceService, deviceService);
    reset();
    chooseThumb(1280, 720);
    expectConfirmedAfterAssessing({101});
}

TEST_F(ScreenImpactTest, WhatCannotBeWorkedOutMeansNoImpact)
{
    struct Case
    {
        const char* name;
        std::function<void()> arrange;
        const char* warning; // null: none
        std::size_t deviceCalls;
        std::size_t subcardCalls;
    };
    const Case cases[] = {
        {"no subcard in the slot", [this] { subcards.erase(subcards.begin() + 1, subcards.end()); },
         "Not find the subcard: slotId: 2", 1, 0},
        {"empty subcard answer", [this] { subcards.clear(); }, "Not find the subcard: slotId: 2", 1, 0},
        {"no connector with the number",
         [this] {
             subcards = {subcard(2, {connector(0, 20), connector(5, 25)})};
         },
         nullptr, 1, 0},
        {"empty screen answer", [this] { screens.clear(); }, nullptr, 1, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        baseline();
        c.arrange();
        reset();
        chooseThumb(1280, 720);
        expectCommittedAtOnce();
        if (c.warning != nullptr)
            EXPECT_THAT(warnings(), ElementsAre(c.warning));
        else
            EXPECT_THAT(warnings(), IsEmpty());
        EXPECT_THAT(deviceCalls(), ElementsAreArray(std::vector<std::int32_t>(c.deviceCalls, 2)));
        EXPECT_EQ(subcardCalls().size(), c.subcardCalls);
    }

    // An empty interface answer leaves nothing to change.
    baseline();
    interfaces.clear();
    reset();
    chooseThumb(1280, 720);
    ASSERT_FALSE(warnings().empty());
    EXPECT_EQ(warnings().front(), "Not find the interface: id: 3");
    EXPECT_THAT(deviceCalls(), IsEmpty());
    expectCommittedAtOnce(false);

    // Queries nobody answers read as empty lists.
    baseline();
    host.commands().removeResponder(0xFC050200u);
    reset();
    chooseThumb(1280, 720);
    expectCommittedAtOnce();
    EXPECT_THAT(warnings(), IsEmpty());
    EXPECT_EQ(subcardCalls().size(), 1u);

    host.commands().removeResponder(0xFC0D1000u);
    reset();
    chooseThumb(1280, 720);
    expectCommittedAtOnce();
    EXPECT_THAT(warnings(), ElementsAre("Not find the subcard: slotId: 2"));
    EXPECT_THAT(deviceCalls(), ElementsAre(2));
    EXPECT_THAT(subcardCalls(), IsEmpty());
}

TEST_F(ScreenImpactTest, EachAffectedScreenIsAssessedAloneWithTheChosenTiming)
{
    screens = {screen(101, 0, {4}), screen(102, 1, {5}), screen(107, 6, {4})};
    const auto expected = [](std::uint32_t screenId, float refresh) {
        s_ScreenThumbTiming timing;
        timing.screenId = screenId;
        timing.stThumbTiming = {0, refresh, 1280, 720, 0, 0, 0};
        return bytesOf(timing);
    };

    chooseThumb(1280, 720, 50.0f);
    expectConfirmedAfterAssessing({101, 107});
    ASSERT_EQ(assessedTimings.size(), 2u);
    EXPECT_EQ(bytesOf(assessedTimings[0].at(0)), expected(101, 50.0f));
    EXPECT_EQ(bytesOf(assessedTimings[1].at(0)), expected(107, 50.0f));

    // A reference choice is judged by its detail timing's resolution, for
    // the current interface whatever id the page put in.
    reset();
    chooseReference(1280, 720, 59.94f);
    expectConfirmedAfterAssessing({101, 107});
    EXPECT_THAT(deviceCalls(), ElementsAre(2));
    ASSERT_EQ(assessedTimings.size(), 2u);
    EXPECT_EQ(bytesOf(assessedTimings[0].at(0)), expected(101, 59.94f));
    EXPECT_EQ(bytesOf(assessedTimings[1].at(0)), expected(107, 59.94f));

    reset();
    chooseReference(1920, 1080, 30.0f);
    ASSERT_FALSE(warnings().empty());
    EXPECT_EQ(warnings().front(), "Not find the interface: id: 3");
    EXPECT_THAT(assessedTimings, IsEmpty());
    EXPECT_THAT(trace(sent()), ::testing::Not(::testing::Contains("E FC030605 556")));
}

TEST_F(ScreenImpactTest, AssessmentPassesOnlyWhenCarriedOutWithoutAFailureCode)
{
    std::vector<Bytes> delivered;
    host.events().addListener(
        [&](const kpf::IMessage& event) {
            const auto* data = static_cast<const unsigned char*>(event.data());
            delivered.emplace_back(data, data == nullptr ? data : data + event.size());
        },
        AssessFailed);
    const auto results = [](std::vector<std::int32_t> codes, std::int32_t first = 0) {
        std::vector<s_AssessResult> list;
        for (std::int32_t code : codes)
            list.push_back({first, code});
        return list;
    };
    const char* const Failed = "Fail to assess interface timing.";
    // name, answer, code queued (0: none), warning
    const std::tuple<const char*, Assessment, std::int32_t, const char*> cases[] = {
        {"first failure code of several", {Bytes{1}, results({0, 7, 9})}, 7, nullptr},
        {"a negative code", {Bytes{1}, results({-3})}, -3, nullptr},
        {"all codes 0", {Bytes{1}, results({0, 0})}, 0, nullptr},
        {"no results", {Bytes{1}, {}}, 0, nullptr},
        {"any non-zero answer byte", {Bytes{2}, results({0})}, 0, nullptr},
        {"only the code is judged", {Bytes{1}, results({0}, 5)}, 0, nullptr},
        {"answer byte 0", {Bytes{0}, results({0})}, 0, Failed},
        {"answer byte 0 with a code", {Bytes{0}, results({7})}, 0, Failed},
        {"no answer", {std::nullopt, {}}, 0, Failed},
        {"answer of 2 bytes", {Bytes{1, 1}, {}}, 0, Failed},
    };
    for (const auto& [name, answer, code, warning] : cases) {
        SCOPED_TRACE(name);
        baseline();
        assessments = {answer};
        delivered.clear();
        reset();
        chooseThumb(1280, 720);
        const auto messages = sent();
        const auto steps = trace(messages);
        ASSERT_GE(steps.size(), 6u);
        EXPECT_EQ(steps[4], "C FC05021F 8");
        const bool passes = code == 0 && warning == nullptr;
        if (passes) {
            expectConfirmedAfterAssessing({101});
        } else {
            // Refused: the page is refreshed, nothing is confirmed.
            EXPECT_EQ(steps[code != 0 ? 6 : 5], "C FC050111 8");
            EXPECT_THAT(steps, ::testing::Not(::testing::Contains("E FC030605 556")));
        }
        if (warning != nullptr)
            EXPECT_THAT(warnings(), ElementsAre(warning));
        else
            EXPECT_THAT(warnings(), IsEmpty());

        std::vector<std::string> queued;
        for (const SentMessage& message : messages)
            if (message.kind == SentKind::QueuedEvent || message.number == AssessFailed)
                queued.push_back(trace({message}).front());
        if (code == 0) {
            EXPECT_THAT(queued, IsEmpty());
            EXPECT_EQ(host.pump(), 0);
            continue;
        }
        EXPECT_THAT(queued, ElementsAre("Q FC02022D 4"));
        EXPECT_EQ(steps[5], "Q FC02022D 4") << "queued right after its assessment";
        EXPECT_EQ(messages[5].bytes, word(code));
        EXPECT_EQ(messages[5].sender, Sender);
        EXPECT_THAT(delivered, IsEmpty()) << "a queued event waits for the loop";
        EXPECT_EQ(host.pump(), 1);
        EXPECT_THAT(delivered, ElementsAre(word(code)));
    }

    // The first refusal ends the round: later screens are not assessed.
    baseline();
    screens = {screen(101, 0, {4}), screen(107, 6, {4})};
    assessments = {{Bytes{1}, results({4})}};
    reset();
    chooseThumb(1280, 720);
    EXPECT_THAT(assessedScreens(), ElementsAre(101u));
    host.pump();
}

TEST_F(ScreenImpactTest, InUseFlagAnswersForTheCurrentInterfaceAlike)
{
    const std::uint32_t numbers[] = {0xFC000617u, 0xFC030204u, 0xFC08021Eu};
    const unsigned char junk[840] = {1, 2, 3};
    const std::tuple<const void*, int> payloads[] = {{nullptr, 0}, {junk, 0},   {junk, 1},
                                                     {junk, 3},    {junk, 840}, {nullptr, 24}};
    const auto ask = [&](std::uint32_t number, const void* data, int size) {
        reset();
        host.event(number, data, size);
        EXPECT_THAT(warnings(), IsEmpty());
    };
    const auto expectFlag = [&](std::uint8_t flag, const std::string& id) {
        const auto messages = sent();
        EXPECT_THAT(trace(messages), ElementsAre("C FC050111 8", "E FC02060E 1"));
        if (messages.size() == 2) {
            EXPECT_EQ(messages[1].bytes, Bytes{flag});
            EXPECT_EQ(messages[1].sender, Sender);
        }
        EXPECT_THAT(interfaceFiltersSeen, ElementsAre(Parameters{{"interfaceId", id}}));
    };

    for (std::uint32_t number : numbers) {
        for (const auto& [data, size] : payloads) {
            SCOPED_TRACE(::testing::Message() << std::hex << number << std::dec << ", " << size << " bytes");
            ask(number, data, size);
            expectFlag(1, "3");
        }
    }

    for (std::uint32_t number : numbers) {
        SCOPED_TRACE(::testing::Message() << std::hex << number);
        baseline();
        interfaces[0].stAuxiliaryInfo.usedByScreen.clear();
        ask(number, nullptr, 0);
        expectFlag(0, "3");

        // Only the first answered entry counts.
        interfaces.push_back(onSlot(3, 2, 1));
        ask(number, nullptr, 0);
        expectFlag(0, "3");

        s_InterfaceList negative = makeInterface(-12);
        negative.stAuxiliaryInfo.usedByScreen = "screen";
        interfaces.push_back(negative);
        setCurrent(negative);
        ask(number, nullptr, 0);
        expectFlag(1, "-12");

        // Not answered for: no flag at all.
        setCurrent(makeInterface(8));
        ask(number, nullptr, 0);
        EXPECT_THAT(trace(sent()), ElementsAre("C FC050111 8"));
        EXPECT_THAT(interfaceFiltersSeen, ElementsAre(Parameters{{"interfaceId", "8"}}));
        setCurrent(interfaces[0]);
    }
}

TEST_F(ScreenImpactTest, PublishingTheReferenceChoiceSendsItsResolutionAndRefresh)
{
    const unsigned char junk[68] = {9};
    const std::tuple<const void*, int> payloads[] = {{nullptr, 0}, {junk, 1}, {junk, 68}, {nullptr, 68}};
    const auto publish = [&](const std::vector<std::string>& expectedTrace, const Bytes& expectedBytes) {
        for (const auto& [data, size] : payloads) {
            SCOPED_TRACE(size);
            reset();
            host.event(PublishReference, data, size);
            const auto messages = sent();
            EXPECT_THAT(trace(messages), ElementsAreArray(expectedTrace));
            if (!messages.empty() && messages.size() == expectedTrace.size()) {
                EXPECT_EQ(messages[0].bytes, expectedBytes);
                EXPECT_EQ(messages[0].sender, Sender);
            }
            EXPECT_THAT(warnings(), IsEmpty());
        }
    };

    publish({}, {}); // nothing chosen yet

    chooseReference(1920, 1080, 60.0f);
    const s_ThumbTimingInfo first{0, 60.0f, 1920, 1080, 0, 0, 0};
    publish({"E FC020611 28"}, bytesOf(first));

    // Stored for interface 3, not for the id the page sent.
    setCurrent(interfaces[1]);
    publish({}, {});
    setCurrent(interfaces[0]);
    publish({"E FC020611 28"}, bytesOf(first));

    // A thumb choice leaves it alone; a new reference choice replaces it.
    chooseThumb(1024, 768);
    publish({"E FC020611 28"}, bytesOf(first));
    chooseReference(1280, 720, 50.0f);
    const s_ThumbTimingInfo second{0, 50.0f, 1280, 720, 0, 0, 0};
    publish({"E FC020611 28"}, bytesOf(second));
}

TEST_F(ScreenImpactTest, ChangedReferenceTimingsOfTheCurrentInterfaceAreTakenOver)
{
    std::vector<s_InterfacePresetTiming> changed(3);
    changed[0].interfaceId = 7;
    changed[0].stTimingDetail.width = 800;
    changed[1].interfaceId = 3;
    changed[1].stTimingDetail = {9, 50.5f, 1280, 33, 44, 55, 66, 720, 88, 99, 100, 101, 102, 103};
    changed[2].interfaceId = 3;
    changed[2].stTimingDetail.width = 640;

    host.event(ChangedReferences, &changed, sizeof changed);
    EXPECT_THAT(warnings(),
                ElementsAre("Receive change interface timimg info: 3 ,width:  1280 ,height: 720 ,refresh: 50.5"));
    const auto messages = sent();
    ASSERT_THAT(trace(messages), ElementsAre("E FC030601 56"));
    EXPECT_EQ(messages[0].bytes, bytesOf(changed[1].stTimingDetail));
    EXPECT_EQ(messages[0].sender, Sender);

    // A list without the current interface changes nothing.
    setCurrent(makeInterface(5));
    const std::vector<s_InterfacePresetTiming> none;
    const std::vector<s_InterfacePresetTiming>* lists[] = {&changed, &none};
    for (const auto* list : lists) {
        reset();
        host.event(ChangedReferences, list, sizeof *list);
        EXPECT_THAT(warnings(), ElementsAre("could not find interfaceId(5)'s timing info."));
        EXPECT_THAT(trace(sent()), IsEmpty());
    }

    unsigned char padded[25] = {};
    std::memcpy(padded, &changed, sizeof changed);
    setCurrent(interfaces[0]);
    const std::tuple<const void*, int> wrong[] = {{padded, 23}, {padded, 25}, {nullptr, 24}, {padded, 0}};
    for (const auto& [data, size] : wrong) {
        SCOPED_TRACE(size);
        reset();
        host.event(ChangedReferences, data, size);
        EXPECT_THAT(warnings(), ElementsAre("resp does not matches."));
        EXPECT_THAT(trace(sent()), IsEmpty());
    }
}

TEST_F(ScreenImpactTest, ChangedThumbTimingsOfTheCurrentInterfaceAreForwarded)
{
    std::vector<s_InterfaceThumbTiming> changed = {
        {8, {1, 24.0f, 640, 480, 2, 3, 4}, 5, 6},
        {3, {11, 25.0f, 1280, 720, 44, 55, 66}, 77, 88},
        {3, {12, 30.0f, 800, 600, 45, 56, 67}, 78, 89},
    };
    host.event(ChangedThumbs, &changed, sizeof changed);
    EXPECT_THAT(warnings(), IsEmpty());
    const auto messages = sent();
    ASSERT_THAT(trace(messages), ElementsAre("E FC030606 16", "E FC030602 28"));
    const Model::s_InterfaceTimingNotice notice{66, 77, 0, 44};
    EXPECT_EQ(messages[0].bytes, bytesOf(notice));
    EXPECT_EQ(messages[1].bytes, bytesOf(changed[1].stThumbTiming));
    EXPECT_EQ(messages[0].sender, Sender);
    EXPECT_EQ(messages[1].sender, Sender);

    for (std::int32_t id : {9, -2}) {
        setCurrent(makeInterface(id));
        reset();
        host.event(ChangedThumbs, &changed, sizeof changed);
        EXPECT_THAT(warnings(), ElementsAre("could not find interfaceId(" + std::to_string(id) + ")'s timing info."));
        EXPECT_THAT(trace(sent()), IsEmpty());
    }

    unsigned char padded[25] = {};
    std::memcpy(padded, &changed, sizeof changed);
    setCurrent(interfaces[0]);
    const std::tuple<const void*, int> wrong[] = {{padded, 23}, {padded, 25}, {nullptr, 24}};
    for (const auto& [data, size] : wrong) {
        SCOPED_TRACE(size);
        reset();
        host.event(ChangedThumbs, data, size);
        EXPECT_THAT(warnings(), ElementsAre("resp does not matches."));
        EXPECT_THAT(trace(sent()), IsEmpty());
    }
}

} // namespace
} // namespace test
} // namespace edidvm
