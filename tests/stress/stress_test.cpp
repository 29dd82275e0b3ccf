// SPDX-License-Identifier: MIT
#include "framework/idispatchers.h"
#include "framework/ihostapi.h"
#include "framework/imessagehandler.h"
#include "protomodel/messageids.h"
#include "viewmodel/viewmodelfixture.h"

#include <QtGlobal>

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <tuple>
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
    // Each kind's last write stored one choice, of a record, sent whole.
    const auto lastWrite = [&](const auto& writes, auto timing) {
        ASSERT_TRUE(!writes.empty() && writes.back().size() == 1u);
        EXPECT_TRUE(writes.back()[0].interfaceId >= 1 && writes.back()[0].interfaceId <= Records);
        EXPECT_EQ(whole.count(bytesOf(writes.back()[0].*timing)), 1u);
    };
    lastWrite(device.thumbWritten, &s_InterfaceThumbTiming::stThumbTiming);
    lastWrite(device.referenceWritten, &s_InterfacePresetTiming::stTimingDetail);
    // The numbers route as they should.
    host.deliver(component, Event, SetCurrent, 840, &traffic.records[2]);
    EXPECT_EQ(currentRecord(), 3);
    EXPECT_EQ(badTypeReplies.load(), 0);
    EXPECT_EQ(host.store().liveCount(), 0u) << "a message or response leaked";
    for (const std::string& text : capture.texts())
        EXPECT_EQ(text.find("re-entered"), std::string::npos) << text;
}
INSTANTIATE_TEST_SUITE_P(Rounds, StressTest, ::testing::Range(0, 16));

// Our host's own locks (the recorder's, the dispatchers', the warning
// capture's) order the component's racing accesses for a race detector, as
// the device's host would not. These services take no lock and share
// nothing writable between threads: what the component sends goes to the
// sending thread's own log.
struct ThreadLog
{
    int shown = 0, hidden = 0;
    std::vector<Bytes> thumbs, references; // the timings written
};
thread_local ThreadLog* t_log = nullptr;

class BareHost final : public kpf::IHostApi,
                       public kpf::ICommandDispatcher,
                       public kpf::IEventDispatcher,
                       public kpf::IMessageCenter
{
public:
    explicit BareHost(const std::vector<s_InterfaceList>& interfaces) : m_interfaces(interfaces) {}

    // No configuration services: every choice is committed at once.
    void* findService(const char* name) override
    {
        const std::string wanted = name;
        if (wanted == "commanddispatcher")
            return static_cast<kpf::ICommandDispatcher*>(this);
        if (wanted == "eventdispatcher")
            return static_cast<kpf::IEventDispatcher*>(this);
        return wanted == "kpf_default_messagecenter" ? static_cast<kpf::IMessageCenter*>(this) : nullptr;
    }
    kpf::IMessage* createMessage(int number, int size, const void* data, const char*) override
    {
        return new host::HostMessage(Event, number, size, data, "bare");
    }
    kpf::IMessage* createMessage(int number, const char*, int size, const void* data, int) override
    {
        return new host::HostMessage(kpf::MessageKindCommand, number, size, data, "bare");
    }
    // Only messages: no command is answered with a reply, and no check
    // with a verdict, so every check passes.
    void release(void** object) override { delete static_cast<host::HostMessage*>(*object); }
    int send(kpf::IMessage** message, kpf::IResponse** response, int) override
    {
        *response = nullptr;
        const kpf::IMessage& command = **message;
        const std::uint32_t number = kpf::wireWord(command.number());
        if (auto* query = number == msg::InterfaceDetail
                              ? host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command)
                              : nullptr)
            query->info.stInterfaceListArry = m_interfaces;
        if (number == msg::WriteThumb)
            t_log->thumbs.push_back(bytesOf(
                static_cast<const std::vector<s_InterfaceThumbTiming>*>(command.data())->front().stThumbTiming));
        return 0;
    }
    void post(kpf::IMessage** message) override { delete static_cast<host::HostMessage*>(*message); }
    void send(kpf::IMessage** message, int) override
    {
        const std::unique_ptr<host::HostMessage> event(static_cast<host::HostMessage*>(*message));
        const std::uint32_t number = kpf::wireWord(event->number());
        t_log->shown += number == msg::ShowWaiting;
        t_log->hidden += number == msg::HideWaiting;
        if (number == msg::WriteReference)
            t_log->references.push_back(bytesOf(
                static_cast<const std::vector<s_InterfacePresetTiming>*>(event->data())->front().stTimingDetail));
    }
    int subscribe(int, const std::string&) override { return 0; }
    void reservedSlot0() override {}
    void reservedSlot1() override {}
    void reservedSlot2() override {}
    void reservedSlot3() override {}

private:
    const std::vector<s_InterfaceList>& m_interfaces;
};

void deliverBare(kpf::IMessageHandler* component, std::uint32_t number, int size, const void* data)
{
    const int kind = number == InterfaceType ? kpf::MessageKindCommand : Event;
    const host::HostMessage message(kind, kpf::wireInt(number), size, data, "bare");
    delete static_cast<const host::HostMessage*>(component->handleMessage(&message));
}

// Two deliveries raced, each on two threads, with nothing but the
// component's own locks between them: deleting one of them is a data race
// that ThreadSanitizer reports, which fails the test.
TEST(BareStressTest, EachLockedHandlerRacesAWriterOfWhatItGuards)
{
    Traffic traffic;
    BareHost bare(traffic.records);
    host::Host host;
    ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
    host.callPluginit(&bare);
    ASSERT_TRUE(host.readDescription());
    kpf::IMessageHandler* component = host.createComponent(0);
    ASSERT_NE(component, nullptr) << host.error();
    // A handler that takes no lock either: the warnings go nowhere.
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    ThreadLog logs[5];
    t_log = &logs[4];
    deliverBare(component, kpf::wireWord(kpf::MessageStart), 0, nullptr);

    using D = std::tuple<std::uint32_t, int, const void*>;
    const D current(SetCurrent, 840, &traffic.records[1]);
    struct Race
    {
        const char* name;
        D even, odd; // what the even and the odd threads deliver
    };
    const Race races[] = {
        {"current interface", D(SetCurrent, 840, &traffic.records[0]), current},
        {"SDI record", D(msg::SdiInterface, 16, &traffic.sdi), D(msg::SdiInterface, 16, &traffic.sdi)},
        {"refresh", D(GetTiming, 0, nullptr), current},
        {"selected interface", D(msg::SelectedInterfaceTiming, 0, nullptr), current},
        {"thumb check", D(msg::ThumbCheckRequest, 8, &traffic.thumbCheckAddress), current},
        {"detail check", D(msg::DetailCheckRequest, 8, &traffic.detailCheckAddress), current},
        {"changed reference timings", D(msg::ChangedReferenceTimings, 24, &traffic.changedRefs), current},
        {"changed thumb timings", D(msg::ChangedThumbTimings, 24, &traffic.changedThumbs), current},
        {"reference choice", D(msg::ReferenceChoice, 68, &traffic.references[0]), current},
        {"reference publication", D(msg::PublishReference, 0, nullptr), current},
        {"reference choice and publication", D(msg::PublishReference, 0, nullptr),
         D(msg::ReferenceChoice, 68, &traffic.references[1])},
        {"thumb choices", D(msg::ThumbChoice, 40, &traffic.thumbs[0]), D(msg::ThumbChoice, 40, &traffic.thumbs[1])},
        {"thumb choice and answer", D(msg::ThumbChoice, 40, &traffic.thumbs[2]),
         D(BoxAnswer, 556, &traffic.answers[0])},
        {"reference choice and answer", D(msg::ReferenceChoice, 68, &traffic.references[2]),
         D(BoxAnswer, 556, &traffic.answers[1])},
    };
    for (const Race& race : races)
        together(4, [&](int t) {
            t_log = &logs[t];
            const auto& [number, size, data] = t % 2 == 0 ? race.even : race.odd;
            // Yielding interleaves the threads on few cores.
            for (int i = 0; i < 200; ++i, std::this_thread::yield())
                deliverBare(component, number, size, data);
        });
    qInstallMessageHandler(previous);

    // Every indicator shown was hidden, by whichever thread wrote, and
    // every timing written is one that was chosen, whole.
    std::set<Bytes> chosen;
    for (int i = 0; i < Records; ++i)
        chosen.insert({bytesOf(traffic.thumbs[i].stThumbTiming), bytesOf(traffic.references[i].stTimingDetail)});
    int shown = 0, hidden = 0;
    std::size_t written[2] = {0, 0};
    for (const ThreadLog& log : logs) {
        shown += log.shown;
        hidden += log.hidden;
        written[0] += log.thumbs.size();
        written[1] += log.references.size();
        for (const std::vector<Bytes>* timings : {&log.thumbs, &log.references})
            for (const Bytes& timing : *timings)
                EXPECT_EQ(chosen.count(timing), 1u);
    }
    EXPECT_EQ(shown, hidden);
    EXPECT_GT(written[0], 0u);
    EXPECT_GT(written[1], 0u);
}

} // namespace
} // namespace test
} // namespace edidvm
