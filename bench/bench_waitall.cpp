// A wait for all of four events beside a wait for any of them: once with the events already signalled (the
// cost of the claim itself) and once as a ping-pong with a partner thread that signals them (the cost of a
// wake). Run the ping-pong pinned to two processors: taskset -c 0,1 bench_waitall.
#include "velwin32.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

namespace
{

constexpr DWORD kEvents = 4;

struct Events
{
    explicit Events(BOOL manualReset, BOOL initialState)
    {
        for (HANDLE& h : handles)
            h = CreateEventW(nullptr, manualReset, initialState, nullptr);
    }
    ~Events()
    {
        for (HANDLE h : handles)
            CloseHandle(h);
    }
    HANDLE handles[kEvents];
};

void Ready(benchmark::State& state, BOOL waitAll)
{
    Events events(TRUE, TRUE);
    for (auto _ : state)
        benchmark::DoNotOptimize(WaitForMultipleObjects(kEvents, events.handles, waitAll, 0));
}

void BM_Ready_WaitAll(benchmark::State& state)
{
    Ready(state, TRUE);
}
BENCHMARK(BM_Ready_WaitAll);

void BM_Ready_WaitAny(benchmark::State& state)
{
    Ready(state, FALSE);
}
BENCHMARK(BM_Ready_WaitAny);

// The partner signals all four events per round for a wait-all, the last one for a wait-any.
void PingPong(benchmark::State& state, BOOL waitAll)
{
    Events events(FALSE, FALSE);
    HANDLE ping = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<bool> stop{false};
    std::thread partner(
        [&]
        {
            for (;;)
            {
                WaitForSingleObject(ping, INFINITE);
                if (stop.load())
                    return;
                for (DWORD i = waitAll ? 0 : kEvents - 1; i < kEvents; ++i)
                    SetEvent(events.handles[i]);
            }
        });
    for (auto _ : state)
    {
        SetEvent(ping);
        WaitForMultipleObjects(kEvents, events.handles, waitAll, INFINITE);
    }
    stop.store(true);
    SetEvent(ping);
    partner.join();
    CloseHandle(ping);
}

void BM_PingPong_WaitAll(benchmark::State& state)
{
    PingPong(state, TRUE);
}
BENCHMARK(BM_PingPong_WaitAll)->UseRealTime();

void BM_PingPong_WaitAny(benchmark::State& state)
{
    PingPong(state, FALSE);
}
BENCHMARK(BM_PingPong_WaitAny)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
