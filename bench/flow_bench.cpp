// SPDX-License-Identifier: MIT
// The component's answers end to end, through our host and the real library:
// the current-timing answer over interface lists of growing length, a thumb
// check request, and a whole confirmed thumb change.

#include "bench/alloccount.h"
#include "framework/wire.h"
#include "host/host.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "tests/support/devicestandin.h"
#include "viewmodel/viewmodelrecords.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

namespace msg = LCD::MessageId;

namespace {

using namespace LCD::ProtoModel::Interface;
using namespace LCD::ProtoModel::Screen;
using namespace LCD::ProtoModel::Subcard;
using edidvm::host::Bytes;
using edidvm::test::DeviceStandIn;
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
    DeviceStandIn standIn; // outlives the host, which routes to it
    edidvm::host::Host host;
    kpf::IMessageHandler* component = nullptr;

    explicit Device(int interfaceCount)
    {
        for (int id = CurrentId; id < CurrentId + interfaceCount; ++id)
            standIn.interfaces.push_back(entry(id));
        if (!host.load(EDIDVM_PLUGIN_PATH)) {
            std::fprintf(stderr, "%s\n", host.error().c_str());
            return;
        }
        component = host.components().front();
        host.setTracing(false);
        // Whole lists and nothing kept, so that the figures count the
        // component's own copies; every thumb check passes.
        standIn.readFilter = nullptr;
        standIn.keeping = false;
        standIn.passingFrameRates = {5000, 6000};
        standIn.thumbWriteReply = Bytes{0};
        standIn.install(host, DeviceStandIn::AllServices & ~DeviceStandIn::Selections);
        host.start(component);
        const s_InterfaceList current = standIn.interfaces.front();
        host.event(msg::SetCurrentInterface, &current, sizeof current);
    }

    // Two screens, each fed by an interface on a connector tied to the
    // current one.
    void affectTwoScreens()
    {
        s_SubcardInfo subcard;
        subcard.slotId = 2;
        subcard.stConnectorArry.resize(1);
        subcard.stConnectorArry[0].connectorId = CurrentId;
        standIn.subcards = {subcard};
        host.subcardConfig().setAnswer([](std::int32_t, std::int32_t, std::int32_t) { return std::vector<int>{1, 2}; });
        for (std::uint32_t index = 0; index < 2; ++index) {
            s_ScreenDetailInfo screen;
            screen.screenId = 10 + index;
            screen.screenIndex = index;
            screen.stOutputDetailArry.resize(1);
            screen.stOutputDetailArry[0].interfaceId = static_cast<std::int32_t>(CurrentId + index);
            standIn.screens.push_back(screen);
        }
    }
};

void BM_CurrentTimingAnswer(benchmark::State& state)
{
    const int entries = static_cast<int>(state.range(0));
    Device device(entries);
    const std::uint64_t before = edidvm::bench::allocationCount();
    for (auto _ : state)
        device.host.event(msg::RefreshTiming, nullptr, 0);
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
        device.host.event(msg::ThumbCheckRequest, &address, sizeof address);
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
        device.host.event(msg::ThumbChoice, &choice, sizeof choice);
        device.host.event(msg::BoxAnswer, &accepted, sizeof accepted);
    }
}
BENCHMARK(BM_ConfirmedThumbChangeTwoScreens)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
