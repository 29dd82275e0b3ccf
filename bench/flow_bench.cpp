// The component's answers end to end, through our host and the real library:
// the current-timing answer over interface lists of growing length, a thumb
// check request, and a whole confirmed thumb change.

#include "bench/alloccount.h"
#include "framework/wire.h"
#include "host/host.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/queryinfo.h"
#include "viewmodel/viewmodelrecords.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace LCD::ProtoModel::Interface;
using namespace LCD::ProtoModel::Screen;
using namespace LCD::ProtoModel::Subcard;
using edidvm::host::Bytes;
using LCD::GlobalMessageHander::QueryInfo;

constexpr std::int32_t CurrentId = 1;

// Each entry carries one text too long for the small-string buffer, so
// every copy of an entry makes exactly one allocation and the allocation
// count tells how often the list was copied.
s_InterfaceList entry(std::int32_t id)
{
    s_InterfaceList record;
    record.interfaceId = id;
    record.slotId = 2;
    record.connectorId = id;
    record.stAuxiliaryInfo.interfaceType = 4;
    record.stAuxiliaryInfo.usedByScreen = "used by screen number " + std::to_string(id);
    record.stThumbTiming = {0, 60.0f, 1920, 1080, 0, 0, 0};
    return record;
}

// The library on our host, with the device's side answering every query.
struct Device
{
    edidvm::host::Host host;
    kpf::IMessageHandler* component = nullptr;
    std::vector<s_InterfaceList> interfaces;
    std::vector<s_ScreenDetailInfo> screens;
    std::vector<s_SubcardInfo> subcards;

    explicit Device(int interfaceCount)
    {
        for (int id = CurrentId; id < CurrentId + interfaceCount; ++id)
            interfaces.push_back(entry(id));
        if (!host.load(EDIDVM_PLUGIN_PATH)) {
            std::fprintf(stderr, "%s\n", host.error().c_str());
            return;
        }
        component = host.components().front();
        host.setTracing(false);
        host.commands().setResponder(0xFC050111u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = edidvm::host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command))
                query->info.stInterfaceListArry = interfaces;
            return std::nullopt;
        });
        host.commands().setResponder(0xFC051000u, [](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = edidvm::host::payloadAddress<QueryInfo<s_TimigCheckQuery>>(command)) {
                for (const s_ThumbTimigCheck& check : query->info.stThumbCheckArry) {
                    s_TimigCheckResult result;
                    result.interfaceId = check.interfaceId;
                    result.maxFrameRate = 6000;
                    result.frameRates = {5000, 6000};
                    query->info.stCheckResultArry.push_back(result);
                }
            }
            return std::nullopt;
        });
        host.commands().setResponder(0xFC050200u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = edidvm::host::payloadAddress<QueryInfo<s_ScreenDetail>>(command))
                query->info.stScreenDetailInfoArry = screens;
            return std::nullopt;
        });
        host.commands().setResponder(0xFC0D1000u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = edidvm::host::payloadAddress<QueryInfo<s_SubcardQuery>>(command))
                query->info.stSubcardInfoArry = subcards;
            return std::nullopt;
        });
        host.commands().setResponder(0xFC05021Fu, [](const kpf::IMessage&) { return std::optional<Bytes>(Bytes{1}); });
        host.commands().setResponder(0xFC051008u, [](const kpf::IMessage&) { return std::optional<Bytes>(Bytes{0}); });
        host.start(component);
        const s_InterfaceList current = interfaces.front();
        host.event(0xFC021009u, &current, sizeof current);
    }

    // Two screens, each fed by an interface on a connector tied to the
    // current one.
    void affectTwoScreens()
    {
        s_SubcardInfo subcard;
        subcard.slotId = 2;
        subcard.stConnectorArry.resize(1);
        subcard.stConnectorArry[0].connectorId = CurrentId;
        subcards = {subcard};
        host.subcardConfig().setAnswer([](std::int32_t, std::int32_t, std::int32_t) { return std::vector<int>{1, 2}; });
        for (std::uint32_t index = 0; index < 2; ++index) {
            s_ScreenDetailInfo screen;
            screen.screenId = 10 + index;
            screen.screenIndex = index;
            screen.stOutputDetailArry.resize(1);
            screen.stOutputDetailArry[0].interfaceId = static_cast<std::int32_t>(CurrentId + index);
            screens.push_back(screen);
        }
    }
};

void BM_CurrentTimingAnswer(benchmark::State& state)
{
    const int entries = static_cast<int>(state.range(0));
    Device device(entries);
    const std::uint64_t before = edidvm::bench::allocationCount();
    for (auto _ : state)
        device.host.event(0xFC00060Au, nullptr, 0);
    const double perAnswer =
        static_cast<double>(edidvm::bench::allocationCount() - before) / static_cast<double>(state.iterations());
    state.counters["allocs_per_answer"] = perAnswer;
    // One allocation per entry is the device's own copy into the envelope;
    // more would mean the component copies the list again.
    state.counters["allocs_per_entry"] = perAnswer / entries;
    state.counters["ns_per_entry"] =
        benchmark::Counter(static_cast<double>(entries) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_CurrentTimingAnswer)->Arg(1)->Arg(8)->Arg(64)->Arg(512)->Unit(benchmark::kMicrosecond);

void BM_ThumbCheckOfSix(benchmark::State& state)
{
    Device device(8);
    QueryInfo<s_TimigCheckQuery> request;
    for (int tag = 0; tag < 6; ++tag)
        request.info.stThumbCheckArry.push_back({CurrentId, tag, {0, 60.0f, 1920, 1080, 0, 0, 0}, 0, 0});
    QueryInfo<s_TimigCheckQuery>* address = &request;
    for (auto _ : state)
        device.host.event(0xFC000605u, &address, sizeof address);
}
BENCHMARK(BM_ThumbCheckOfSix)->Unit(benchmark::kMicrosecond);

void BM_ConfirmedThumbChangeTwoScreens(benchmark::State& state)
{
    Device device(8);
    device.affectTwoScreens();
    s_InterfaceThumbTiming choice;
    choice.stThumbTiming = {0, 50.0f, 1280, 720, 0, 0, 0};
    Model::s_MessageBoxRequest accepted;
    accepted.boxId = 35;
    accepted.result = 1;
    for (auto _ : state) {
        device.host.event(0xFC00060Cu, &choice, sizeof choice);
        device.host.event(0xFC000620u, &accepted, sizeof accepted);
    }
}
BENCHMARK(BM_ConfirmedThumbChangeTwoScreens)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
