#include "protomodel/messageids.h"
#include "viewmodel/viewmodelfixture.h"

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace msg = LCD::MessageId;

// Several host threads deliver a mix of messages to one component at once,
// also while its start message is still registering. Afterwards the state
// must be one that the same messages in some sequential order would leave.

namespace edidvm {
namespace test {
namespace {

constexpr std::uint32_t SetCurrent = msg::SetCurrentInterface;
constexpr std::uint32_t InterfaceType = msg::InterfaceType;
constexpr std::uint32_t GetTiming = msg::RefreshTiming;
constexpr std::uint32_t BoxAnswer = msg::BoxAnswer;
constexpr std::uint32_t ThumbWrite = msg::WriteThumb, ReferenceWrite = msg::WriteReference;
constexpr int Records = 4;
constexpr int Event = kpf::MessageKindEvent;

// Everything the threads send, alive throughout: several payloads are
// addresses into it. Each record has its own type and timing words, so a
// reply or a pushed block names the record it came from.
struct Traffic
{
    Traffic()
    {
        const std::uint32_t inUse[] = {msg::InUseAsked, msg::InUseAsked2, msg::InUseAsked3};
        for (int i = 0; i < Records; ++i) {
            records.push_back(makeInterface(i + 1, i, 10 + i));
            records[i].stThumbTiming.param6 = records[i].ifWord92; // as the thumb refresh sends it
            thumbs.push_back({0, {1, 50.0f + i, 800 + i, 600, 2, 3, 4}, 5, 6});
            references.push_back({0, {1, 50.0f + i, 1024 + i, 0, 0, 0, 0, 768, 0, 0, 0, 0, 0, 0}, 7, 8});
            changedRefs.push_back({i + 1, {}, 0, 0});
            changedRefs[i].stTimingDetail.param13 = 5000u + i;
            changedThumbs.push_back({i + 1, {0, 30.0f, 640, 480, 0, 0, std::uint32_t(i)}, 0, 0});
            answers[i].boxId = i % 2 == 0 ? 35 : 36;
            answers[i].result = i < 2 ? 1 : 0;
        }
        thumbCheck.info.stThumbCheckArry.push_back({0, 1, thumbs[0].stThumbTiming, 0, 0});
        detailCheck.info.stDetailCheckArry.push_back({0, 1, references[0].stTimingDetail, 0, 0});
        using D = std::tuple<std::uint32_t, int, const void*>;
        for (int i = 0; i < Records; ++i) // one round of every kind per record
            mix.insert(mix.end(), {D(SetCurrent, 840, &records[i]), D(InterfaceType, 0, nullptr),
                                   D(GetTiming, 0, nullptr), D(msg::ThumbCheckRequest, 8, &thumbCheckAddress),
                                   D(msg::DetailCheckRequest, 8, &detailCheckAddress),
                                   D(msg::ThumbChoice, 40, &thumbs[i]), D(msg::ReferenceChoice, 68, &references[i]),
                                   D(BoxAnswer, 556, &answers[i]), D(msg::ChangedReferenceTimings, 24, &changedRefs),
                                   D(msg::ChangedThumbTimings, 24, &changedThumbs), D(msg::SdiInterface, 16, &sdi),
                                   D(inUse[i % 3], 0, nullptr), D(msg::SelectedInterfaceTiming, 0, nullptr),
                                   D(msg::PublishReference, 0, nullptr)});
    }
    Traffic(const Traffic&) = delete;

    std::vector<s_InterfaceList> records;
    std::vector<s_InterfaceThumbTiming> thumbs, changedThumbs;
    std::vector<s_InterfacePresetTiming> references, changedRefs;
    QueryInfo<s_TimigCheckQuery> thumbCheck, detailCheck;
    const QueryInfo<s_TimigCheckQuery>* thumbCheckAddress = &thumbCheck;
    const QueryInfo<s_TimigCheckQuery>* detailCheckAddress = &detailCheck;
    Model::s_MessageBoxRequest answers[Records];
    Model::s_SDIInterfaceInfo sdi{1, 2, 3, 4};
    std::vector<std::tuple<std::uint32_t, int, const void*>> mix; // number, size, data
};

std::int32_t wordOf(const std::optional<Bytes>& bytes)
{
    std::int32_t word = -1;
    if (bytes && bytes->size() == sizeof word)
        std::memcpy(&word, bytes->data(), sizeof word);
    return word;
}

// Runs `body(thread)` on `threads` threads released together.
void together(int threads, const std::function<void(int)>& body)
{
    std::atomic<int> ready{0};
    std::vector<std::thread> running;
    for (int t = 0; t < threads; ++t)
        running.emplace_back([&, t] {
            for (ready++; ready.load() < threads;)
                std::this_thread::yield();
            body(t);
        });
    for (std::thread& thread : running)
        thread.join();
}

class StressTest : public ::testing::TestWithParam<int>
{
protected:
    // The device answers on every delivering thread; it keeps what it saw
    // under its own lock.
    void load()
    {
        ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
        component = host.components().at(0);
        device.interfaces = traffic.records;
        device.passingFrameRates = {6000}; // every thumb timing checked passes
        device.thumbWriteReply = Bytes{0};
        device.install(host, DeviceStandIn::InterfaceQuery | DeviceStandIn::TimingCheck | DeviceStandIn::ThumbWrite);
    }

    // The id that the last interface query naming one asked for; -1 when none did.
    int filteredId() const
    {
        int id = -1;
        for (const Parameters& params : device.interfaceFiltersSeen) {
            const auto wanted = params.find("interfaceId");
            if (wanted != params.end() && std::stoi(wanted->second) >= 0)
                id = std::stoi(wanted->second);
        }
        return id;
    }

    // The choices the last write with this number stored, as (interface,
    // timing bytes).
    std::vector<std::pair<int, Bytes>> lastWrite(std::uint32_t number) const
    {
        std::vector<std::pair<int, Bytes>> choices;
        if (number == ThumbWrite && !device.thumbWritten.empty())
            for (const auto& t : device.thumbWritten.back())
                choices.push_back({t.interfaceId, bytesOf(t.stThumbTiming)});
        if (number == ReferenceWrite && !device.referenceWritten.empty())
            for (const auto& t : device.referenceWritten.back())
                choices.push_back({t.interfaceId, bytesOf(t.stTimingDetail)});
        return choices;
    }

    // Delivery number `step` of the mix; a type reply, once routed, names a record.
    void deliverOne(int step)
    {
        const auto& [number, size, data] = traffic.mix[std::size_t(step) % traffic.mix.size()];
        const int kind = number == InterfaceType ? kpf::MessageKindCommand : Event; // the one command
        const std::optional<Bytes> reply = host.deliver(component, kind, number, size, data);
        const std::int32_t type = wordOf(reply);
        if (number == InterfaceType && reply && type != 0 && (type < 10 || type >= 10 + Records))
            badTypeReplies++;
    }

    // The current interface as three readers see it: the type reply, the
    // in-use query's filter and the timing a refresh pushes. All three must
    // name one record; 0 when none was ever adopted.
    int currentRecord()
    {
        const std::int32_t type = wordOf(host.deliver(component, kpf::MessageKindCommand, InterfaceType, 0, nullptr));
        device.interfaceFiltersSeen.clear();
        host.deliver(component, Event, msg::InUseAsked, 0, nullptr);
        if (type == 0) {
            EXPECT_EQ(filteredId(), 0) << "no interface adopted, yet an id is current";
            return 0;
        }
        host.recorder().clear();
        host.deliver(component, Event, GetTiming, 0, nullptr);
        std::int32_t traced = -1;
        for (const SentMessage& sent : host.recorder().messages())
            for (int i = 0; i < Records; ++i)
                if (sent.number == msg::DetailTiming && sent.bytes == bytesOf(traffic.records[i].stTimingDetail))
                    traced = i + 1;
        EXPECT_EQ(type, 10 + traced - 1) << "the type and the interface come from different records";
        EXPECT_EQ(filteredId(), traced) << "the id and the record come from different records";
        return traced;
    }

    WarningCapture capture;
    Traffic traffic;
    DeviceStandIn device; // outlives the host, which routes to it
    host::Host host;
    kpf::IMessageHandler* component = nullptr;
    std::atomic<int> badTypeReplies{0};
};

// Each round has a fresh host: one thread starts the component while the
// others deliver; then all go through the mix twice, each from its own place.
TEST_P(StressTest, MixedDeliveriesRacingTheStartLeaveASequentialState)
{
    ASSERT_NO_FATAL_FAILURE(load());
    together(4, [&](int t) {
        if (t == 0)
            host.start(component);
        for (int i = 0; i < 2 * int(traffic.mix.size()); ++i)
            deliverOne(i + GetParam() + t * 5);
    });
    ASSERT_EQ(host.subscriptions().calls().size(), 16u);
    // Every timing block pushed, and every choice stored, is one that was
    // sent whole, never a blend.
    std::set<Bytes> whole;
    for (int i = 0; i < Records; ++i)
        whole.insert({bytesOf(traffic.records[i].stTimingDetail), bytesOf(traffic.records[i].stThumbTiming),
                      bytesOf(traffic.changedRefs[i].stTimingDetail), bytesOf(traffic.thumbs[i].stThumbTiming),
                      bytesOf(traffic.references[i].stTimingDetail)});
    for (const SentMessage& sent : host.recorder().messages()) {
        if (sent.number == msg::DetailTiming || sent.number == msg::ThumbTiming || sent.number == msg::ChangedDetail) {
            EXPECT_EQ(whole.count(sent.bytes), 1u) << std::hex << sent.number;
        }
    }
    EXPECT_GT(currentRecord(), 0);

    device.forget(); // the threads are done
    host.deliver(component, Event, BoxAnswer, 556, &traffic.answers[0]);
    host.deliver(component, Event, BoxAnswer, 556, &traffic.answers[1]);
    for (std::uint32_t number : {ThumbWrite, ReferenceWrite}) {
        const std::vector<std::pair<int, Bytes>> written = lastWrite(number);
        ASSERT_EQ(written.size(), 1u) << std::hex << number;
        EXPECT_TRUE(written[0].first >= 1 && written[0].first <= Records);
        EXPECT_EQ(whole.count(written[0].second), 1u) << std::hex << number;
    }
    // The numbers route as they should.
    host.deliver(component, Event, SetCurrent, 840, &traffic.records[2]);
    EXPECT_EQ(currentRecord(), 3);
    EXPECT_EQ(badTypeReplies.load(), 0);
    EXPECT_EQ(host.store().liveCount(), 0u) << "a message or response leaked";
    for (const std::string& text : capture.texts())
        EXPECT_EQ(text.find("re-entered"), std::string::npos) << text;
}
INSTANTIATE_TEST_SUITE_P(Rounds, StressTest, ::testing::Range(0, 16));

} // namespace
} // namespace test
} // namespace edidvm
