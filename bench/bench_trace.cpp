// A trace message with three arguments into the shared ring, beside what a user would pick instead:
// formatting it with snprintf into a buffer, spdlog's asynchronous logger, and, as the floor, a plain
// binary write of the same fields into a ring of our own making. Also the cost of a message below the
// level. Run pinned to two cores: taskset -c 0,1 bench_trace
#include <korutilitesbtracedef.h>

#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <ctime>
#include <unistd.h>
#include <x86intrin.h>

namespace
{

// CPU time of the whole process (all threads, including a logger's own), in nanoseconds.
double ProcessCpuNs()
{
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// Reports the process's CPU time per message: an asynchronous logger's background thread counts too.
struct ProcessCpuPerMessage
{
    benchmark::State& state;
    double start = ProcessCpuNs();
    explicit ProcessCpuPerMessage(benchmark::State& s) : state(s) {}
    ~ProcessCpuPerMessage()
    {
        if (state.thread_index() == 0)
            state.counters["process_cpu_ns_per_msg"] = benchmark::Counter(
                (ProcessCpuNs() - start) / static_cast<double>(state.iterations() * state.threads()));
    }
};

BTraceModule g_benchModule("bench", BTRACE_INF);
const BTraceDescriptor g_message = {&g_benchModule, "bench_trace.cpp", "axis %d moved to %lld after %u ms",
                                    1u << 16, BTraceMakeFlags(BTRACE_INF, 3)};

// Starts the back-end with a 4 MiB ring and no text output, once for the whole run.
void StartRing()
{
    static const bool started = []
    {
        unsetenv("BTRACE_OUTPUT");
        BTraceReloadConfiguration();
        BTraceAttachModule(&g_benchModule);
        BTraceSetLevel(&g_benchModule, BTRACE_INF);
        const std::string segment = "bench_trace." + std::to_string(getpid());
        BTraceInitialize("bench", "bench", segment.c_str(), 4u << 20, true, 0, 0);
        std::atexit(
            []
            {
                const std::string name = BTraceGetInitInfo().segment;
                BTraceShutdown();
                std::string error;
                BTraceRemoveSegment(name, error);
            });
        return !BTraceGetInitInfo().segmentFile.empty();
    }();
    if (!started)
        std::abort();
}

void BM_RingEmit3(benchmark::State& state)
{
    StartRing();
    std::int64_t i = 0;
    ProcessCpuPerMessage cpu(state);
    for (auto _ : state)
    {
        if (g_benchModule.level.load(std::memory_order_relaxed) >= BTRACE_INF)
            BTracePrint(&g_message, 0, std::uint64_t(3), static_cast<std::uint64_t>(i), std::uint64_t(17));
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RingEmit3)->UseRealTime();
BENCHMARK(BM_RingEmit3)->Threads(2)->UseRealTime();

void BM_RingBelowLevel(benchmark::State& state)
{
    StartRing();
    std::int64_t i = 0;
    for (auto _ : state)
    {
        if (g_benchModule.level.load(std::memory_order_relaxed) >= BTRACE_DBG3)
            BTracePrint(&g_message, 0, std::uint64_t(3), static_cast<std::uint64_t>(i), std::uint64_t(17));
        benchmark::DoNotOptimize(++i);
    }
}
BENCHMARK(BM_RingBelowLevel);

void BM_Snprintf3(benchmark::State& state)
{
    char buffer[256];
    long long i = 0;
    for (auto _ : state)
    {
        std::snprintf(buffer, sizeof buffer, "axis %d moved to %lld after %u ms", 3, i++, 17u);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Snprintf3);

void BM_SpdlogAsync3(benchmark::State& state)
{
    static std::shared_ptr<spdlog::logger> logger = []
    {
        spdlog::init_thread_pool(8192, 1);
        return spdlog::create_async<spdlog::sinks::basic_file_sink_mt>("bench", "/dev/null");
    }();
    long long i = 0;
    ProcessCpuPerMessage cpu(state);
    for (auto _ : state)
        logger->info("axis {} moved to {} after {} ms", 3, i++, 17u);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SpdlogAsync3)->UseRealTime();
BENCHMARK(BM_SpdlogAsync3)->Threads(2)->UseRealTime();

// The floor: the same fields (site, time stamp, thread, three arguments) stored into a ring of fixed
// records with one atomic add per message and no checks at all.
struct FloorRecord
{
    const void* site;
    std::uint64_t ticks;
    std::uint64_t thread;
    std::uint64_t args[3];
    std::uint64_t pad[2];
};
constexpr std::size_t kFloorRecords = 1 << 16;
FloorRecord* g_floor = new FloorRecord[kFloorRecords];
std::atomic<std::uint64_t> g_floorNext{0};
thread_local std::uint64_t t_floorThread = static_cast<std::uint64_t>(gettid());

void BM_FloorBinaryRing3(benchmark::State& state)
{
    std::uint64_t i = 0;
    ProcessCpuPerMessage cpu(state);
    for (auto _ : state)
    {
        const std::uint64_t n = g_floorNext.fetch_add(1, std::memory_order_relaxed) & (kFloorRecords - 1);
        FloorRecord& r = g_floor[n];
        r.site = &g_message;
        r.ticks = __rdtsc();
        r.thread = t_floorThread;
        r.args[0] = 3;
        r.args[1] = i++;
        r.args[2] = 17;
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloorBinaryRing3)->UseRealTime();
BENCHMARK(BM_FloorBinaryRing3)->Threads(2)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
