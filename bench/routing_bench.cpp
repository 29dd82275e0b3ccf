// SPDX-License-Identifier: MIT
#include "bench/alloccount.h"
#include "bench/signalpeer.h"
#include "bench/timesreporter.h"
#include "framework/api.h"
#include "framework/imessage.h"
#include "framework/wire.h"
#include "host/host.h"
#include "host/hostobjects.h"
#include "message/messagehandler.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

constexpr int BenchEvent = kpf::wireInt(0xFC00060Au);

// Registers its handler the way the view-model components do, so the routed
// path is the one they get.
class BenchComponent final : public LCD::Message::MessageHandler
{
public:
    BenchComponent() { m_name = "routingbench"; }

    int onInit() override
    {
        registerEvent(BenchEvent, [this](const kpf::IMessage* m) { return onEvent(m); });
        return 0;
    }

    const kpf::IMessage* onEvent(const kpf::IMessage*)
    {
        ++m_events;
        return nullptr;
    }

    std::uint64_t events() const { return m_events; }

private:
    std::uint64_t m_events = 0;
};

// A started component on our host, and one event message for it.
struct Rig
{
    edidvm::host::Host host;
    std::unique_ptr<BenchComponent> component;
    edidvm::host::HostMessage message{kpf::MessageKindEvent, BenchEvent, 0, nullptr, "bench"};

    Rig()
    {
        // The base looks the services up in its constructor.
        kpf::api::get().hostApi = &host.api();
        component = std::make_unique<BenchComponent>();
        host.start(component.get());
    }
    ~Rig()
    {
        component.reset();
        kpf::api::get().hostApi = nullptr;
    }
};

void reportAllocations(benchmark::State& state, std::uint64_t before)
{
    const std::uint64_t made = edidvm::bench::allocationCount() - before;
    state.counters["allocs_per_msg"] =
        state.iterations() == 0 ? 0.0 : static_cast<double>(made) / static_cast<double>(state.iterations());
}

void BM_RouteEvent(benchmark::State& state)
{
    Rig rig;
    BenchComponent& component = *rig.component;
    const std::uint64_t handledBefore = component.events();

    const std::uint64_t before = edidvm::bench::allocationCount();
    for (auto _ : state) {
        benchmark::DoNotOptimize(component.handleMessage(&rig.message));
        benchmark::ClobberMemory();
    }
    reportAllocations(state, before);

    // A miss in the table would time a much cheaper path.
    if (component.events() - handledBefore != static_cast<std::uint64_t>(state.iterations()))
        state.SkipWithError("the event did not reach the handler");
}

void BM_PlainStdFunction(benchmark::State& state)
{
    Rig rig;
    BenchComponent& component = *rig.component;
    std::function<const kpf::IMessage*(const kpf::IMessage*)> handler = [c = &component](const kpf::IMessage* m) {
        return c->onEvent(m);
    };
    // Keeps the call indirect, as it is in the table.
    benchmark::DoNotOptimize(handler);

    const std::uint64_t before = edidvm::bench::allocationCount();
    for (auto _ : state) {
        benchmark::DoNotOptimize(handler(&rig.message));
        benchmark::ClobberMemory();
    }
    reportAllocations(state, before);
}

void BM_QtDirectSignal(benchmark::State& state)
{
    Rig rig;
    BenchComponent* component = rig.component.get();
    edidvm::bench::SignalSender sender;
    QObject receiver;
    QObject::connect(
        &sender, &edidvm::bench::SignalSender::message, &receiver,
        [component](const kpf::IMessage* m) { component->onEvent(m); }, Qt::DirectConnection);

    const std::uint64_t before = edidvm::bench::allocationCount();
    for (auto _ : state) {
        emit sender.message(&rig.message);
        benchmark::ClobberMemory();
    }
    reportAllocations(state, before);
}

BENCHMARK(BM_RouteEvent)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_PlainStdFunction)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_QtDirectSignal)->Unit(benchmark::kNanosecond);

} // namespace

// Fixed loops for an instruction count under callgrind, which does not drift
// with the machine's load: collect only inside these two functions.
extern "C" __attribute__((noinline)) void edidvm_route_loop(BenchComponent& component, const kpf::IMessage& message,
                                                            long count)
{
    for (long i = 0; i < count; ++i)
        benchmark::DoNotOptimize(component.handleMessage(&message));
}

extern "C" __attribute__((noinline)) void
edidvm_plain_loop(const std::function<const kpf::IMessage*(const kpf::IMessage*)>& handler,
                  const kpf::IMessage& message, long count)
{
    for (long i = 0; i < count; ++i)
        benchmark::DoNotOptimize(handler(&message));
}

namespace {
int callgrindLoops(long count)
{
    Rig rig;
    BenchComponent* component = rig.component.get();
    std::function<const kpf::IMessage*(const kpf::IMessage*)> handler = [component](const kpf::IMessage* m) {
        return component->onEvent(m);
    };
    edidvm_route_loop(*component, rig.message, count);
    edidvm_plain_loop(handler, rig.message, count);
    return component->events() == static_cast<std::uint64_t>(2 * count) ? 0 : 1;
}
} // namespace

int main(int argc, char** argv)
{
    const std::string loopOption = "--callgrind-loop=";
    if (argc == 2 && std::string(argv[1]).rfind(loopOption, 0) == 0)
        return callgrindLoops(std::stol(std::string(argv[1]).substr(loopOption.size())));

    return runWithRatios(argc, argv, "real time", "ns", [](const std::map<std::string, double>&) {
        return std::vector<Ratio>{
            {"route/PlainStdFunction", "BM_RouteEvent", "BM_PlainStdFunction"},
            {"route/QtDirectSignal", "BM_RouteEvent", "BM_QtDirectSignal"},
        };
    });
}
