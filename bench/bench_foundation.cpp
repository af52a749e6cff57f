// CRC-32 beside zlib's crc32, and the cost of a suppressed and of an emitted trace message.
#include <korutilitesbtracedef.h>
#include <velcrc32.h>

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdlib>
#include <random>
#include <vector>

namespace
{

std::vector<unsigned char> RandomBytes(std::size_t size)
{
    std::mt19937 random(7);
    std::vector<unsigned char> data(size);
    for (auto& b : data)
        b = static_cast<unsigned char>(random());
    return data;
}

void BM_CVeLCRC32(benchmark::State& state)
{
    auto data = RandomBytes(static_cast<std::size_t>(state.range(0)));
    CVeLCRC32 crc;
    for (auto _ : state)
        benchmark::DoNotOptimize(crc.GetCRC32(data.data(), static_cast<ULONG>(data.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_ZlibCrc32(benchmark::State& state)
{
    auto data = RandomBytes(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uInt>(data.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_TraceSuppressed(benchmark::State& state)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_ERR);
    int value = 0;
    for (auto _ : state)
    {
        VEL_TRACE(VEL_DBG3, "suppressed %d %s", value, "text");
        benchmark::DoNotOptimize(++value);
    }
}

void BM_TraceEmittedToFile(benchmark::State& state)
{
    setenv("BTRACE_OUTPUT", "/dev/null", 1);
    BTraceReloadConfiguration();
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
    int value = 0;
    for (auto _ : state)
    {
        VEL_TRACE(VEL_DBG3, "emitted %d %s", value, "text");
        ++value;
    }
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_ERR);
}

} // namespace

BENCHMARK(BM_CVeLCRC32)->Arg(4096)->Arg(1 << 20);
BENCHMARK(BM_ZlibCrc32)->Arg(4096)->Arg(1 << 20);
BENCHMARK(BM_TraceSuppressed);
BENCHMARK(BM_TraceEmittedToFile);
BENCHMARK_MAIN();
