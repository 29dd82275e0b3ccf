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

// Every allocation in the process goes through here, so a benchmark can tell
// how many its timed loop made.
namespace {
std::atomic<std::uint64_t> g_allocations{0};

void* allocate(std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}

void* allocateAligned(std::size_t size, std::align_val_t alignment)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    const auto align = static_cast<std::size_t>(alignment);
    // aligned_alloc wants the size to be a multiple of the alignment.
    const std::size_t rounded = (size + align - 1) / align * align;
    return std::aligned_alloc(align, rounded == 0 ? align : rounded);
}
} // namespace

void* operator new(std::size_t size)
{
    if (void* p = allocate(size))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment)
{
    if (void* p = allocateAligned(size, alignment))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return operator new(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocateAligned(size, alignment);
}

void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(p);
}

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
    const std::uint64_t made = g_allocations.load(std::memory_order_relaxed) - before;
    state.counters["allocs_per_msg"] =
        state.iterations() == 0 ? 0.0 : static_cast<double>(made) / static_cast<double>(state.iterations());
}

void BM_RouteEvent(benchmark::State& state)
{
    Rig rig;
    BenchComponent& component = *rig.component;
    const std::uint64_t handledBefore = component.events();

    const std::uint64_t before = g_allocations.load(std::memory_order_relaxed);
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

    const std::uint64_t before = g_allocations.load(std::memory_order_relaxed);
    for (auto _ : state) {
        benchmark::DoNotOptimize(handler(&rig.message));
        benchmark::ClobberMemory();
    }
    reportAllocations(state, before);
}

BENCHMARK(BM_RouteEvent)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_PlainStdFunction)->Unit(benchmark::kNanosecond);

// The console output, then one line with route/plain, taken from the median
// when there are repetitions and from the single run otherwise.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    RatioReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred)
                continue;
            const std::string& name = run.run_name.function_name;
            if (run.run_type == Run::RT_Iteration)
                m_single[name] = run.GetAdjustedRealTime();
            else if (run.aggregate_name == "median")
                m_median[name] = run.GetAdjustedRealTime();
        }
    }

    void printRatio() const
    {
        const bool median = m_median.count("BM_RouteEvent") && m_median.count("BM_PlainStdFunction");
        const auto& times = median ? m_median : m_single;
        const auto route = times.find("BM_RouteEvent");
        const auto plain = times.find("BM_PlainStdFunction");
        if (route == times.end() || plain == times.end() || plain->second <= 0.0)
            return;
        std::printf("route/plain (%s real time): %.2f ns / %.2f ns = %.1fx\n", median ? "median" : "single run",
                    route->second, plain->second, route->second / plain->second);
    }

private:
    std::map<std::string, double> m_single;
    std::map<std::string, double> m_median;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio();
    benchmark::Shutdown();
    return 0;
}
