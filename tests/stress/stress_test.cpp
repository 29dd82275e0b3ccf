#include "viewmodel/viewmodelfixture.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

// Several host threads deliver a mix of messages to one component at once,
// also while its start message is still registering. Afterwards the state
// must be one that the same messages in some sequential order would leave.

namespace edidvm {
namespace test {
namespace {

constexpr std::uint32_t SetCurrent = 0xFC021009u;
constexpr std::uint32_t InterfaceType = 0xFC051016u;
constexpr std::uint32_t GetTiming = 0xFC00060Au;
constexpr std::uint32_t BoxAnswer = 0xFC000620u;
constexpr int Records = 4;

// Each record has its own type and timing words, so a reply or a pushed
// block names the record it came from.
s_InterfaceList record(int index)
{
    s_InterfaceList entry = makeInterface(index + 1, index, 10 + index);
    entry.stThumbTiming.param6 = entry.ifWord92; // as the thumb refresh sends it
    return entry;
}

// Everything the threads send, alive for the whole delivery, since several
// payloads are addresses into it.
struct Traffic
{
    Traffic()
    {
        for (int i = 0; i < Records; ++i) {
            records.push_back(record(i));
            thumbs.push_back({0, {1, 50.0f + i, 800 + i, 600, 2, 3, 4}, 5, 6});
            references.push_back({0, {}, 7, 8});
            references.back().stTimingDetail = {1, 50.0f + i, 1024 + i, 0, 0, 0, 0, 768, 0, 0, 0, 0, 0, 0};
            changedRefs.push_back({i + 1, {}, 0, 0});
            changedRefs.back().stTimingDetail.param13 = 5000u + i;
            changedThumbs.push_back({i + 1, {0, 30.0f, 640, 480, 0, 0, std::uint32_t(i)}, 0, 0});
        }
        thumbCheck.info.stThumbCheckArry.push_back({0, 1, thumbs[0].stThumbTiming, 0, 0});
        detailCheck.info.stDetailCheckArry.push_back({0, 1, references[0].stTimingDetail, 0, 0});
        const int event = kpf::MessageKindEvent;
        const std::uint32_t inUse[] = {0xFC000617u, 0xFC030204u, 0xFC08021Eu};
        for (int i = 0; i < Records; ++i) {
            answers[i].boxId = i % 2 == 0 ? 35 : 36;
            answers[i].result = i < 2 ? 1 : 0;
            const Delivery round[] = {{event, SetCurrent, 840, &records[i]},
                                      {kpf::MessageKindCommand, InterfaceType, 0, nullptr},
                                      {event, GetTiming, 0, nullptr},
                                      {event, 0xFC000605u, 8, &thumbCheckAddress},
                                      {event, 0xFC000606u, 8, &detailCheckAddress},
                                      {event, 0xFC00060Cu, 40, &thumbs[i]},
                                      {event, 0xFC00060Du, 68, &references[i]},
                                      {event, BoxAnswer, 556, &answers[i]},
                                      {event, 0xFC081005u, 24, &changedRefs},
                                      {event, 0xFC081006u, 24, &changedThumbs},
                                      {event, 0xFC031007u, 16, &sdi},
                                      {event, inUse[i % 3], 0, nullptr},
                                      {event, 0xFC00060Bu, 0, nullptr},
                                      {event, 0xFC070606u, 0, nullptr}};
            mix.insert(mix.end(), std::begin(round), std::end(round));
        }
    }
    Traffic(const Traffic&) = delete; // the mix points into it

    struct Delivery
    {
        int kind;
        std::uint32_t number;
        int size;
        const void* data;
    };

    std::vector<s_InterfaceList> records;
    std::vector<s_InterfaceThumbTiming> thumbs;
    std::vector<s_InterfacePresetTiming> references;
    std::vector<s_InterfacePresetTiming> changedRefs;
    std::vector<s_InterfaceThumbTiming> changedThumbs;
    QueryInfo<s_TimigCheckQuery> thumbCheck;
    QueryInfo<s_TimigCheckQuery> detailCheck;
    const QueryInfo<s_TimigCheckQuery>* thumbCheckAddress = &thumbCheck;
    const QueryInfo<s_TimigCheckQuery>* detailCheckAddress = &detailCheck;
    Model::s_MessageBoxRequest answers[Records];
    Model::s_SDIInterfaceInfo sdi{1, 2, 3, 4};
    std::vector<Delivery> mix; // one round of every kind per record
};

class StressTest : public ::testing::Test
{
protected:
    // Stand-ins that keep no state of their own except under a lock, since
    // they answer on every delivering thread.
    void loadAndAnswer(host::Host& host)
    {
        ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
        host.commands().setResponder(0xFC050111u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            auto* query = host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command);
            Parameters params;
            if (query != nullptr && query->filter)
                query->filter(params);
            const auto wanted = params.find("interfaceId");
            if (wanted != params.end())
                filteredId = std::stoi(wanted->second);
            for (const s_InterfaceList& entry : traffic.records) {
                if (query != nullptr && (wanted == params.end() || wanted->second == std::to_string(entry.interfaceId)))
                    query->info.stInterfaceListArry.push_back(entry);
            }
            return std::nullopt;
        });
        const auto checkService = [](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = host::payloadAddress<QueryInfo<s_TimigCheckQuery>>(command)) {
                for (const s_ThumbTimigCheck& check : query->info.stThumbCheckArry) {
                    s_TimigCheckResult result;
                    result.interfaceId = check.interfaceId;
                    result.frameRates = {6000};
                    result.maxFrameRate = 6000;
                    query->info.stCheckResultArry.push_back(result);
                }
            }
            return std::nullopt;
        };
        host.commands().setResponder(0xFC051000u, checkService);
        host.commands().setResponder(0xFC051001u, checkService);
        host.commands().setResponder(0xFC051008u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (command.size() != 24 || command.data() == nullptr)
                return std::nullopt;
            std::lock_guard<std::mutex> lock(mutex);
            thumbWritten = *static_cast<const std::vector<s_InterfaceThumbTiming>*>(command.data());
            return Bytes{0};
        });
        host.recorder().setHook([this](const SentMessage& sent, const void* data) {
            std::lock_guard<std::mutex> lock(mutex);
            if (sent.number == 0xFC051009u && sent.size == 24 && data != nullptr)
                referenceWritten = *static_cast<const std::vector<s_InterfacePresetTiming>*>(data);
        });
    }

    // Delivery number `step` of the mix, straight to the handler.
    void deliverOne(host::Host& host, kpf::IMessageHandler* component, int step)
    {
        const Traffic::Delivery& d = traffic.mix[std::size_t(step) % traffic.mix.size()];
        const std::optional<Bytes> reply = host.deliver(component, d.kind, d.number, d.size, d.data);
        if (d.number == InterfaceType && reply && !isType(wordOf(*reply)))
            badTypeReplies++;
    }

    // Runs `body(thread)` on `threads` threads released together.
    static void together(int threads, const std::function<void(int)>& body)
    {
        std::atomic<int> ready{0};
        std::vector<std::thread> running;
        for (int t = 0; t < threads; ++t) {
            running.emplace_back([&, t] {
                ready++;
                while (ready.load() < threads)
                    std::this_thread::yield();
                body(t);
            });
        }
        for (std::thread& thread : running)
            thread.join();
    }

    static std::int32_t wordOf(const Bytes& bytes)
    {
        std::int32_t word = -1;
        if (bytes.size() == sizeof word)
            std::memcpy(&word, bytes.data(), sizeof word);
        return word;
    }

    static bool isType(std::int32_t type) { return type == 0 || (type >= 10 && type < 10 + Records); }

    // The current interface as three readers see it: the type reply, the
    // in-use query's filter and the record a refresh looks up. All three
    // must name one record; 0 when none was ever adopted.
    int currentRecord(host::Host& host, kpf::IMessageHandler* component)
    {
        const std::optional<Bytes> reply = host.deliver(component, kpf::MessageKindCommand, InterfaceType, 0, nullptr);
        EXPECT_TRUE(reply.has_value());
        const std::int32_t type = reply ? wordOf(*reply) : -1;
        filteredId = -1;
        host.deliver(component, kpf::MessageKindEvent, 0xFC000617u, 0, nullptr);
        if (type == 0) {
            EXPECT_EQ(filteredId.load(), 0) << "no interface adopted, yet an id is current";
            return 0;
        }
        host.recorder().clear();
        host.deliver(component, kpf::MessageKindEvent, GetTiming, 0, nullptr);
        std::int32_t traced = -1;
        for (const SentMessage& sent : host.recorder().messages()) {
            if (sent.number == 0xFC020607u)
                traced = static_cast<std::int32_t>(recordFrom<s_TimingDetailInfo>(sent).param13) - 1300;
        }
        EXPECT_EQ(type, 10 + traced - 1) << "the type and the interface come from different records";
        EXPECT_EQ(filteredId.load(), traced) << "the id and the record come from different records";
        return traced;
    }

    void expectNoReentryOrLeak(host::Host& host)
    {
        EXPECT_EQ(host.store().liveCount(), 0u) << "a message or response leaked";
        for (const std::string& text : capture.texts())
            EXPECT_EQ(text.find("re-entered"), std::string::npos) << text;
    }

    WarningCapture capture;
    Traffic traffic;
    std::atomic<int> filteredId{-1};
    std::atomic<int> badTypeReplies{0};
    std::mutex mutex;
    std::vector<s_InterfaceThumbTiming> thumbWritten;
    std::vector<s_InterfacePresetTiming> referenceWritten;
};

TEST_F(StressTest, MixedDeliveriesOnSeveralThreadsLeaveASequentialState)
{
    host::Host host;
    loadAndAnswer(host);
    ASSERT_FALSE(HasFatalFailure());
    kpf::IMessageHandler* component = host.components().at(0);
    host.start(component);
    host.deliver(component, kpf::MessageKindEvent, SetCurrent, 840, &traffic.records[0]);

    // Each thread goes through the mix ten times from its own place in it.
    together(4, [&](int t) {
        for (int i = 0; i < 10 * Records * 14; ++i)
            deliverOne(host, component, i + t * 5);
    });

    EXPECT_EQ(badTypeReplies.load(), 0);
    // Every timing block pushed is one that was sent whole, never a blend.
    for (const SentMessage& sent : host.recorder().messages()) {
        if (sent.number != 0xFC020607u && sent.number != 0xFC020608u && sent.number != 0xFC030601u)
            continue;
        bool known = false;
        for (int i = 0; i < Records; ++i) {
            known = known || sent.bytes == bytesOf(traffic.records[i].stTimingDetail) ||
                    sent.bytes == bytesOf(traffic.records[i].stThumbTiming) ||
                    sent.bytes == bytesOf(traffic.changedRefs[i].stTimingDetail);
        }
        EXPECT_TRUE(known) << std::hex << sent.number;
    }
    EXPECT_GT(currentRecord(host, component), 0);

    // The stored choices are whole choices that were sent.
    {
        std::lock_guard<std::mutex> lock(mutex);
        thumbWritten.clear();
        referenceWritten.clear();
    }
    host.deliver(component, kpf::MessageKindEvent, BoxAnswer, 556, &traffic.answers[0]);
    host.deliver(component, kpf::MessageKindEvent, BoxAnswer, 556, &traffic.answers[1]);
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(thumbWritten.size(), 1u);
    ASSERT_EQ(referenceWritten.size(), 1u);
    bool thumbKnown = false;
    bool referenceKnown = false;
    for (int i = 0; i < Records; ++i) {
        thumbKnown = thumbKnown || bytesOf(thumbWritten[0].stThumbTiming) == bytesOf(traffic.thumbs[i].stThumbTiming);
        referenceKnown = referenceKnown ||
                         bytesOf(referenceWritten[0].stTimingDetail) == bytesOf(traffic.references[i].stTimingDetail);
    }
    EXPECT_TRUE(thumbKnown && referenceKnown);
    EXPECT_TRUE(thumbWritten[0].interfaceId >= 1 && thumbWritten[0].interfaceId <= Records);
    EXPECT_TRUE(referenceWritten[0].interfaceId >= 1 && referenceWritten[0].interfaceId <= Records);
    expectNoReentryOrLeak(host);
}

TEST_F(StressTest, DeliveriesRaceWithTheStartMessage)
{
    for (int round = 0; round < 16; ++round) {
        host::Host host;
        loadAndAnswer(host);
        ASSERT_FALSE(HasFatalFailure());
        kpf::IMessageHandler* component = host.components().at(0);
        together(3, [&](int t) {
            if (t == 0) {
                host.start(component);
                return;
            }
            for (int i = 0; i < 3 * 14; ++i)
                deliverOne(host, component, i + round + t * 7);
        });

        const auto calls = host.subscriptions().calls();
        ASSERT_EQ(calls.size(), 16u);
        for (const host::SubscribeCall& call : calls) {
            EXPECT_EQ(call.component, component);
            EXPECT_EQ(call.sender, "outputedidviewmodel");
        }
        EXPECT_EQ(badTypeReplies.load(), 0);
        const int current = currentRecord(host, component);
        EXPECT_TRUE(current >= 0 && current <= Records) << current;
        // Registration is complete: the numbers route as they should.
        host.deliver(component, kpf::MessageKindEvent, SetCurrent, 840, &traffic.records[2]);
        EXPECT_EQ(currentRecord(host, component), 3);
        expectNoReentryOrLeak(host);
        if (HasFailure())
            break;
    }
}

} // namespace
} // namespace test
} // namespace edidvm
