// SPDX-License-Identifier: MIT
// The component on hosts that behave differently within the contract: data()
// read once, lists answered elsewhere, deliveries nested in its own sends,
// the current interface moving while a step runs.

#include "viewmodel/timingchangefixture.h"

#include <gmock/gmock.h>

#include <array>
#include <deque>
#include <functional>

namespace edidvm {
namespace test {
namespace {

using host::Variation;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char Reentry[] = "handler re-entered on a thread that holds the view model's lock; ignored";
const s_ThumbTimigCheck ValidCheck{0, 0, {0, 60.0f, 1920, 1080, 0, 0, 0}, 0, 0};

class VariationTest : public TimingChangeTest
{
protected:
    // A check request as the page sends it: the envelope's address.
    host::Delivery checkRequest(std::uint32_t number, std::vector<s_ThumbTimigCheck> thumbs,
                                std::vector<s_DetailTimigCheck> details = {})
    {
        auto& request = requests.emplace_back();
        request.info.stThumbCheckArry = std::move(thumbs);
        request.info.stDetailCheckArry = std::move(details);
        QueryInfo<s_TimigCheckQuery>* address = &request;
        return event(number, address);
    }

    std::deque<QueryInfo<s_TimigCheckQuery>> requests;
};

TEST_F(VariationTest, UnstablePayloadsAreReadOnceOrTheSecondReadFailsAsEachHandlerStates)
{
    host.setVariation(Variation::UnstableData);
    const s_InterfaceThumbTiming thumb = thumbTiming(1920, 1080, 60.0f);
    const s_InterfacePresetTiming reference = referenceTiming(1920, 1080, 60.0f);
    const std::vector<s_InterfacePresetTiming> references = {reference};
    const std::vector<s_InterfaceThumbTiming> thumbs = {thumb};
    // The choices and the changed timings read data() a second time.
    struct SecondRead
    {
        const char* name;
        std::uint32_t number;
        const void* data;
        int size;
        Trace texts;
    };
    const SecondRead secondReads[] = {
        {"thumb choice", msg::ThumbChoice, &thumb, sizeof thumb, {"The pstThumbTiming is null."}},
        {"reference choice", msg::ReferenceChoice, &reference, sizeof reference, {"The pstTimingDetail is null."}},
        {"changed reference timings", msg::ChangedReferenceTimings, &references, sizeof references, {}},
        {"changed thumb timings", msg::ChangedThumbTimings, &thumbs, sizeof thumbs, {}},
    };
    for (const SecondRead& read : secondReads) {
        SCOPED_TRACE(read.name);
        reset();
        host.event(read.number, read.data, read.size);
        EXPECT_THAT(sent(), IsEmpty());
        EXPECT_EQ(warnings(), read.texts);
    }
    // Nothing was stored, and the answer is read through its first data().
    reset();
    answer(35, 1);
    answer(36, 1);
    EXPECT_THAT(warnings(), ElementsAre("m_interfaceTimingArry is empty", "m_interfaceRefTimingArry is empty"));
    host.setVariation(Variation::Default);
    choose(thumb);
    host.setVariation(Variation::UnstableData);
    reset();
    answer(35, 1);
    EXPECT_EQ(trace(sent()), join({ThumbWrite, Committed}));
    // The SDI record is copied from the address tested.
    const std::uint32_t sdi[4] = {1, 2, 3, 4};
    host.event(msg::SdiInterface, sdi, sizeof sdi);
    EXPECT_THAT(warnings(), IsEmpty());
}

// A list answered elsewhere leaves the asker's envelope empty; a nulled
// pointer variable is a failed query.
TEST_F(VariationTest, ListsAnsweredElsewhereAreNotReadAndANulledPointerIsAFailedQuery)
{
    host.setVariation(Variation::AnswerElsewhere);
    choose(thumbTiming(1280, 720, 60.0f));
    EXPECT_EQ(warnings(), Trace{"Not find the interface: id: 3"});
    reset();
    device.interfaceAnswerNulled = true;
    pageEvent(msg::RefreshTiming);
    pageEvent(msg::SelectedInterfaceTiming);
    EXPECT_EQ(trace(sent()), Trace({"C FC050111 8", "C FC050111 8"}));
    EXPECT_EQ(warnings(), Trace({"get interface detail fail.", "get interface detail fail.", "inferface info error"}));
}

TEST_F(VariationTest, InsideASendUnderTheLockOnlyTheStepThatWouldLockMeetsTheGuard)
{
    // Every handler reaching the step that would lock, delivered inside
    // setCurrent's lock; the payload checks before it are the payload table's.
    struct Nested
    {
        const char* name;
        host::Delivery delivery;
        Trace texts, nestedSends = {};
    };
    Model::s_MessageBoxRequest box;
    box.boxId = 14;
    const Trace fetch = {"C FC050111 8"};
    const auto thumbs = std::vector<s_InterfaceThumbTiming>{thumbTiming(800, 600, 60.0f)};
    const Nested cases[] = {
        {"current interface", event(msg::SetCurrentInterface, makeInterface(5, 2, 8)), {Reentry}},
        {"SDI record", event(msg::SdiInterface, std::array<std::int32_t, 4>{}), {Reentry}},
        {"refresh", bare(msg::RefreshTiming), {Reentry}, fetch},
        {"thumb timing", bare(msg::SelectedInterfaceTiming), {Reentry}, {"C FC050111 8", "C FC08100A 0"}},
        {"thumb check", checkRequest(msg::ThumbCheckRequest, {ValidCheck}), {Reentry}, fetch},
        {"detail check", checkRequest(msg::DetailCheckRequest, {}, {s_DetailTimigCheck{}}), {Reentry}, fetch},
        {"thumb choice", event(msg::ThumbChoice, thumbTiming(1280, 720, 50.0f, 5)), {}, join({Impact, Asked})},
        {"reference choice", event(msg::ReferenceChoice, referenceTiming(800, 600, 60.0f)), {Reentry}},
        {"reference publication", bare(msg::PublishReference), {Reentry}},
        {"changed reference timings", bare(msg::ChangedReferenceTimings), {Reentry}},
        {"changed thumb timings", event(msg::ChangedThumbTimings, thumbs), {Reentry}},
        {"box answer, unknown box", event(msg::BoxAnswer, box), {"Msg type is not correct"}},
        {"in-use question", bare(msg::InUseAsked), {}, {"C FC050111 8", "E FC02060E 1"}},
        {"interface type command", bare(msg::InterfaceType, kpf::MessageKindCommand), {}},
    };
    for (const Nested& c : cases) {
        SCOPED_TRACE(c.name);
        baseline();
        // setCurrent holds the lock across both of its events.
        interjectOnce(Variation::NestedDeliveries, {c.delivery}, msg::DetailTiming);
        setCurrent(makeInterface(3, 1));
        host.setVariation(Variation::Default);
        EXPECT_EQ(trace(sent()), join({{"E FC020607 56"}, c.nestedSends, {"E FC020608 28"}}));
        EXPECT_EQ(warnings(), c.texts);
    }
}

// Both checks hold the lock across their query, the publication of the
// stored reference choice across its event.
TEST_F(VariationTest, TheLockIsHeldAcrossEachSendThatNeedsIt)
{
    struct Holder
    {
        const char* name;
        std::uint32_t during;
        std::function<void()> prepare, act;
    };
    const Holder holders[] = {
        {"thumb check", msg::ThumbCheck, [] {}, [&] { requestChecks({ValidCheck}); }},
        {"detail check", msg::DetailCheck, [] {}, [&] { requestChecks({}, {s_DetailTimigCheck{}}); }},
        {"reference publication", msg::CommittedThumb, [&] { choose(referenceTiming(1920, 1080, 50.0f)); },
         [&] { pageEvent(msg::PublishReference); }},
    };
    for (const Holder& holder : holders) {
        SCOPED_TRACE(holder.name);
        baseline();
        holder.prepare();
        interjectOnce(Variation::NestedDeliveries, {event(msg::SetCurrentInterface, makeInterface(5, 2, 8))},
                      holder.during);
        capture.clear();
        holder.act();
        host.setVariation(Variation::Default);
        EXPECT_EQ(warnings(), Trace{Reentry});
    }
}

} // namespace
} // namespace test
} // namespace edidvm
