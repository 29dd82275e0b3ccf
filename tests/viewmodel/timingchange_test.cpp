// SPDX-License-Identifier: MIT
// The timing-change flow end to end, each road as its exact trace.

#include "viewmodel/timingchangefixture.h"

#include <gmock/gmock.h>

namespace edidvm {
namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_P(TimingChangeTest, PreCheckRejectsOnlyOnTheCurrentInterfaceResultsWithoutTheWaitingIndicator)
{
    // A reference timing is judged on bandwidth alone, with no checks sent.
    // bandwidth-rejected.json plays a thumb over its limit and a reference
    // judged over bandwidth.
    struct Case
    {
        const char* name;
        bool reference;
        float refresh;
        s_TimigCheckResultArry results;
        bool passes;
    };
    const Case cases[] = {
        {"over bandwidth", false, 50.0f, {verdict(3, 10, 6000, 1)}, false},
        {"needed equal to limit", false, 50.0f, {verdict(3, 1000, 6000)}, true},
        {"5994 allows 59.0", false, 59.0f, {verdict(3, 10, 5994)}, true},
        {"6000 allows 60.0", false, 60.0f, {verdict(3, 10, 6000)}, true},
        {"5994 rejects 59.5", false, 59.5f, {verdict(3, 10, 5994)}, false},
        {"5994 rejects 59.94", false, 59.94f, {verdict(3, 10, 5994)}, false},
        {"another interface over", false, 50.0f, {verdict(5, 2000, 0, 1), verdict(3, 10, 6000)}, true},
        {"every result must pass", false, 50.0f, {verdict(3, 10, 6000), verdict(3, 10, 4999)}, false},
        {"no results", false, 50.0f, {}, true},
        {"reference needed above limit", true, 50.0f, {verdict(3, 1001, 6000)}, false},
        {"reference needed equal to limit, no frame rate", true, 50.0f, {verdict(3, 1000, 0)}, true},
        {"reference, another interface over", true, 50.0f, {verdict(5, 2000, 0, 1)}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reset();
        device.checkResults = c.results;
        c.reference ? choose(referenceTiming(1920, 1080, c.refresh)) : choose(thumbTiming(1920, 1080, c.refresh));
        const Trace written = c.reference ? ReferenceWrite : join({ThumbWrite, Committed});
        const Trace rejected = c.reference ? ReferenceRejected : ThumbRejected;
        EXPECT_EQ(trace(sent()), join({Impact, c.passes ? written : rejected}));
        EXPECT_EQ(device.thumbWritten.size() + device.referenceWritten.size(), c.passes ? 1u : 0u);
        EXPECT_EQ(device.thumbChecksSeen.size(), c.reference ? 0u : 1u);
        if (!c.passes) {
            EXPECT_EQ(payloadOf(msg::MessageBox), boxBytes(14, 4, BandwidthText));
        }
    }
}

TEST_P(TimingChangeTest, WhatCannotBeWorkedOutMeansAnImmediateCommit)
{
    const char noSubcard[] = "Not find the subcard: slotId: 2";
    const auto sameResolution = [&] {
        std::tie(device.interfaces[0].stThumbTiming.width, device.interfaces[0].stThumbTiming.height) =
            std::tuple(1280, 720);
    };
    struct Case
    {
        const char* name;
        std::function<void()> arrange;
        const char* warning; // null: none
        std::string asked;   // configuration services asked, D: device, S: subcard
    };
    const Case cases[] = {
        {"resolution unchanged", sameResolution, NoTarget, ""},
        {"no device service", [&] { host.api().removeService("deviceconfigmanager"); }, MissingService, ""},
        {"no subcard service", [&] { host.api().removeService("subcardconfigmanager"); }, MissingService, ""},
        {"no subcard in the slot", [&] { device.subcards.resize(1); }, noSubcard, "D"},
        {"subcard query unanswered", [&] { host.commands().removeResponder(msg::Subcards); }, noSubcard, "D"},
        {"no connector with the number in the first subcard", [&] { device.subcards[1].stConnectorArry.resize(1); },
         nullptr, "D"},
        {"screen query unanswered", [&] { host.commands().removeResponder(msg::Screens); }, nullptr, "DS"},
        {"no screens", [&] { device.screens.clear(); }, nullptr, "DS"},
    };
    const s_InterfaceThumbTiming chosen = thumbTiming(1280, 720, 50.0f);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        baseline();
        c.arrange();
        reset();
        host.api().clearLookups();
        const std::size_t deviceCalls = host.deviceConfig().calls().size();
        const std::size_t subcardCalls = host.subcardConfig().calls().size();
        choose(chosen);
        EXPECT_EQ(warnings(), c.warning ? Trace{c.warning} : Trace{});
        // The impact's queries go first even when the resolution stays.
        EXPECT_EQ(trace(sent()), join({c.warning == MissingService ? Trace{} : Impact, ThumbWrite, Committed}));
        EXPECT_EQ(bytesOfAll(device.thumbChecksSeen), thumbCheckBytes(chosen));
        EXPECT_EQ(bytesOfAll(device.thumbWritten), bytesOf(chosen));
        EXPECT_THAT(device.screenFiltersSeen, Each(Parameters{{"screenType", "2"}}));
        EXPECT_THAT(device.interfaceFiltersSeen, Each(IsEmpty()));
        EXPECT_THAT(device.subcardRequestsSeen, Each(1));
        // Looked up by name on every choice, never kept.
        EXPECT_THAT(host.api().lookups(), ElementsAre("subcardconfigmanager", "deviceconfigmanager"));
        EXPECT_EQ(host.deviceConfig().calls().size() - deviceCalls, c.asked.find('D') != std::string::npos ? 1u : 0u);
        EXPECT_EQ(host.subcardConfig().calls().size() - subcardCalls, c.asked.find('S') != std::string::npos ? 1u : 0u);
    }
}

TEST_P(TimingChangeTest, TheImpactTargetIsTheFirstEntryOfTheIdWithAnotherResolution)
{
    device.interfaces.insert(device.interfaces.begin(), makeInterface(3, 1));
    std::tie(device.interfaces[0].slotId, device.interfaces[0].stThumbTiming.width,
             device.interfaces[0].stThumbTiming.height) = std::tuple(1, 1280, 720);
    choose(thumbTiming(1280, 720, 50.0f));
    EXPECT_EQ(host.deviceConfig().calls().back(), 2);
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
    // Another height alone is another resolution.
    baseline();
    choose(thumbTiming(1920, 720, 50.0f));
    EXPECT_EQ(trace(sent()), join({Impact, Asked}));
}

// The same behaviour whether the host copies payloads or lends them. (The
// screen impact reads its own envelopes, so a host that answers elsewhere
// changes the outcome: the variation suite covers that.)
INSTANTIATE_TEST_SUITE_P(Hosts, TimingChangeTest,
                         ::testing::Values(host::Variation::Default, host::Variation::LentPayloads), variationTestName);

} // namespace
} // namespace test
} // namespace edidvm
