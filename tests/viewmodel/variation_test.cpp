// The component on hosts that behave differently within the contract: data()
// read once, lists answered elsewhere, deliveries nested in its own sends,
// the current interface moving while a step runs.

#include "viewmodel/timingchangefixture.h"

#include <gmock/gmock.h>

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <type_traits>

namespace edidvm {
namespace test {
namespace {

using host::Variation;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char Reentry[] = "handler re-entered on a thread that holds the view model's lock; ignored";
const s_ThumbTimigCheck ValidCheck{0, 0, {0, 60.0f, 1920, 1080, 0, 0, 0}, 0, 0};

template <typename Record>
host::Delivery event(std::uint32_t number, const Record& record, std::optional<int> size = std::nullopt)
{
    host::Delivery delivery;
    delivery.number = number;
    delivery.payload = bytesOf(record);
    // A record owning texts is delivered from a copy that lives as long as
    // the delivery; its bytes would point into the caller's temporary.
    if constexpr (!std::is_trivially_copyable_v<Record>)
        delivery.record = std::make_shared<const Record>(record);
    delivery.size = size;
    return delivery;
}

host::Delivery bare(std::uint32_t number, int kind = kpf::MessageKindEvent)
{
    host::Delivery delivery;
    delivery.kind = kind;
    delivery.number = number;
    delivery.size = 0;
    return delivery;
}

class VariationTest : public TimingChangeTest
{
protected:
    // Under NestedDeliveries, or MovingCurrent; once, during the given send.
    void interjectOnce(Variation variation, std::vector<host::Delivery> deliveries, std::uint32_t during)
    {
        host.setVariation(variation);
        host::Interjection interjection;
        interjection.deliveries = std::move(deliveries);
        interjection.during = {during};
        interjection.times = 1;
        host.setInterjection(std::move(interjection));
    }

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
    const std::tuple<std::uint32_t, const void*, int, Trace> secondReads[] = {
        {0xFC00060Cu, &thumb, sizeof thumb, {"The pstThumbTiming is null."}},
        {0xFC00060Du, &reference, sizeof reference, {"The pstTimingDetail is null."}},
        {0xFC081005u, &references, sizeof references, {}},
        {0xFC081006u, &thumbs, sizeof thumbs, {}},
    };
    for (const auto& [number, data, size, texts] : secondReads) {
        reset();
        host.event(number, data, size);
        EXPECT_THAT(sent(), IsEmpty()) << std::hex << number;
        EXPECT_EQ(warnings(), texts) << std::hex << number;
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
    host.event(0xFC031007u, sdi, sizeof sdi);
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(VariationTest, AListAnsweredElsewhereIsCopiedAndANulledPointerVariableIsAFailedQuery)
{
    host.setVariation(Variation::AnswerElsewhere);
    // The screen impact reads its own envelope, which stays empty.
    choose(thumbTiming(1280, 720, 60.0f));
    EXPECT_EQ(warnings(), Trace{"Not find the interface: id: 3"});

    reset();
    device.interfaceAnswerNulled = true;
    pageEvent(0xFC00060Au);
    pageEvent(0xFC00060Bu);
    EXPECT_EQ(trace(sent()), Trace({"C FC050111 8", "C FC050111 8"}));
    EXPECT_EQ(warnings(), Trace({"get interface detail fail.", "get interface detail fail.", "inferface info error"}));
}

TEST_F(VariationTest, InsideASendUnderTheLockOnlyTheStepThatWouldLockMeetsTheGuard)
{
    // Every handler, once stopped before the step that would lock and once
    // reaching it, delivered inside setCurrent's lock.
    struct Nested
    {
        host::Delivery delivery;
        bool emptyList;
        Trace nestedSends;
        Trace texts;
    };
    s_ThumbTimigCheck zero = ValidCheck;
    zero.stThumbTiming.height = 0;
    Model::s_MessageBoxRequest box;
    box.boxId = 14;
    const Trace fetch = {"C FC050111 8"};
    const Nested cases[] = {
        {event(0xFC021009u, makeInterface(5, 2, 8), 839), false, {}, {"set current interface info error"}},
        {event(0xFC021009u, makeInterface(5, 2, 8)), false, {}, {Reentry}},
        {event(0xFC031007u, std::int32_t(0)), false, {}, {"command does not correct."}},
        {event(0xFC031007u, std::array<std::int32_t, 4>{}), false, {}, {Reentry}},
        {bare(0xFC00060Au), false, fetch, {Reentry}},
        {bare(0xFC00060Au), true, fetch, {}},
        {bare(0xFC00060Bu), true, fetch, {"inferface info error"}},
        {bare(0xFC00060Bu), false, {"C FC050111 8", "C FC08100A 0"}, {Reentry}},
        {event(0xFC000605u, std::int32_t(0)), false, {}, {"msg data is null."}},
        {checkRequest(0xFC000605u, {}), false, {}, {"stThumbCheckArry is empty."}},
        {checkRequest(0xFC000605u, {zero, ValidCheck}), false, {}, {"timing is 0."}},
        {checkRequest(0xFC000605u, {ValidCheck}), false, fetch, {Reentry}},
        {checkRequest(0xFC000606u, {}), false, {}, {"stDetailCheckArry is empty."}},
        {checkRequest(0xFC000606u, {}, {s_DetailTimigCheck{}}), false, fetch, {Reentry}},
        {event(0xFC00060Cu, thumbTiming(1280, 720, 50.0f, 5)), false, join({Impact, Asked}), {}},
        {event(0xFC00060Du, thumbTiming(800, 600, 60.0f)), false, {}, {"req does not matches."}},
        {event(0xFC00060Du, referenceTiming(800, 600, 60.0f)), false, {}, {Reentry}},
        {bare(0xFC070606u), false, {}, {Reentry}},
        {bare(0xFC081005u), false, {}, {Reentry}},
        {bare(0xFC081006u), false, {}, {"resp does not matches."}},
        {event(0xFC081006u, std::vector<s_InterfaceThumbTiming>{thumbTiming(800, 600, 60.0f)}), false, {}, {Reentry}},
        {event(0xFC000620u, box), false, {}, {"Msg type is not correct"}},
        {bare(0xFC000617u), false, {"C FC050111 8", "E FC02060E 1"}, {}},
        {bare(0xFC051016u, kpf::MessageKindCommand), false, {}, {}},
    };
    for (const Nested& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << c.delivery.number << " size "
                                          << c.delivery.size.value_or(int(c.delivery.payload.size())));
        baseline();
        if (c.emptyList)
            device.interfaces.clear();
        // setCurrent holds the lock across both of its events.
        interjectOnce(Variation::NestedDeliveries, {c.delivery}, 0xFC020607u);
        setCurrent(makeInterface(3, 1));
        host.setVariation(Variation::Default);
        EXPECT_EQ(trace(sent()), join({{"E FC020607 56"}, c.nestedSends, {"E FC020608 28"}}));
        EXPECT_EQ(warnings(), c.texts);
    }
    // Both checks hold the lock across their query, the publication of the
    // stored reference choice across its event.
    const std::tuple<std::uint32_t, std::function<void()>, std::function<void()>> holders[] = {
        {0xFC051000u, [] {}, [&] { requestChecks({ValidCheck}); }},
        {0xFC051001u, [] {}, [&] { requestChecks({}, {s_DetailTimigCheck{}}); }},
        {0xFC020611u, [&] { choose(referenceTiming(1920, 1080, 50.0f)); }, [&] { pageEvent(0xFC070606u); }},
    };
    for (const auto& [during, prepare, act] : holders) {
        SCOPED_TRACE(::testing::Message() << "during " << std::hex << during);
        baseline();
        prepare();
        interjectOnce(Variation::NestedDeliveries, {event(0xFC021009u, makeInterface(5, 2, 8))}, during);
        capture.clear();
        act();
        host.setVariation(Variation::Default);
        EXPECT_EQ(warnings(), Trace{Reentry});
    }
}

} // namespace
} // namespace test
} // namespace edidvm
