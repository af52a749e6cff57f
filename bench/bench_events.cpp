// Event ping-pong: one side signals, the other answers, round trip after round trip. Our auto-reset events
// (unnamed between threads, named between processes) beside what a user would write instead: a raw futex
// (private between threads, shared between processes) and a pair of pipes.
#include "velwin32.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <climits>
#include <linux/futex.h>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

// ---- the partner side, run by a thread or a forked child ----

// A one-word auto-reset signal on a raw futex, as a user would write it without this library.
struct FutexSignal
{
    std::atomic<std::uint32_t> word{0};
    void Set(bool shared)
    {
        word.store(1);
        syscall(SYS_futex, &word, FUTEX_WAKE | (shared ? 0 : FUTEX_PRIVATE_FLAG), 1, nullptr, nullptr, 0);
    }
    void Wait(bool shared)
    {
        while (word.exchange(0) == 0)
            syscall(SYS_futex, &word, FUTEX_WAIT | (shared ? 0 : FUTEX_PRIVATE_FLAG), 0, nullptr, nullptr, 0);
    }
};

struct FutexPair
{
    FutexSignal ping, pong;
    std::atomic<bool> stop{false};
};

void FutexPartner(FutexPair* pair, bool shared)
{
    for (;;)
    {
        pair->ping.Wait(shared);
        if (pair->stop.load())
            return;
        pair->pong.Set(shared);
    }
}

void EventPartner(HANDLE ping, HANDLE pong, const std::atomic<bool>* stop)
{
    for (;;)
    {
        WaitForSingleObject(ping, INFINITE);
        if (stop->load())
            return;
        SetEvent(pong);
    }
}

void PipePartner(int in, int out)
{
    char c;
    while (read(in, &c, 1) == 1 && c != 'q')
        if (write(out, &c, 1) != 1)
            return;
}

// ---- threads ----

void BM_Threads_Event(benchmark::State& state)
{
    HANDLE ping = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE pong = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<bool> stop{false};
    std::thread partner(EventPartner, ping, pong, &stop);
    for (auto _ : state)
    {
        SetEvent(ping);
        WaitForSingleObject(pong, INFINITE);
    }
    stop.store(true);
    SetEvent(ping);
    partner.join();
    CloseHandle(ping);
    CloseHandle(pong);
}
BENCHMARK(BM_Threads_Event)->UseRealTime();

void BM_Threads_RawFutex(benchmark::State& state)
{
    FutexPair pair;
    std::thread partner(FutexPartner, &pair, false);
    for (auto _ : state)
    {
        pair.ping.Set(false);
        pair.pong.Wait(false);
    }
    pair.stop.store(true);
    pair.ping.Set(false);
    partner.join();
}
BENCHMARK(BM_Threads_RawFutex)->UseRealTime();

void BM_Threads_Pipe(benchmark::State& state)
{
    int there[2], back[2];
    if (pipe(there) != 0 || pipe(back) != 0)
        return state.SkipWithError("pipe");
    std::thread partner(PipePartner, there[0], back[1]);
    char c = 'x';
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(write(there[1], &c, 1));
        benchmark::DoNotOptimize(read(back[0], &c, 1));
    }
    c = 'q';
    benchmark::DoNotOptimize(write(there[1], &c, 1));
    partner.join();
    for (int fd : {there[0], there[1], back[0], back[1]})
        close(fd);
}
BENCHMARK(BM_Threads_Pipe)->UseRealTime();

// ---- processes ----

void BM_Processes_NamedEvent(benchmark::State& state)
{
    const std::wstring base = L"bench-events-" + std::to_wstring(getpid());
    HANDLE ping = CreateEventW(nullptr, FALSE, FALSE, (base + L"-ping").c_str());
    HANDLE pong = CreateEventW(nullptr, FALSE, FALSE, (base + L"-pong").c_str());
    auto* stop = static_cast<std::atomic<bool>*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    new (stop) std::atomic<bool>(false);
    const pid_t child = fork();
    if (child == 0)
    {
        // An unrelated process would open the names; the child does the same.
        HANDLE childPing = OpenEventW(SYNCHRONIZE, FALSE, (base + L"-ping").c_str());
        HANDLE childPong = OpenEventW(EVENT_MODIFY_STATE, FALSE, (base + L"-pong").c_str());
        EventPartner(childPing, childPong, stop);
        _exit(0);
    }
    for (auto _ : state)
    {
        SetEvent(ping);
        WaitForSingleObject(pong, INFINITE);
    }
    stop->store(true);
    SetEvent(ping);
    waitpid(child, nullptr, 0);
    munmap(stop, 4096);
    CloseHandle(ping);
    CloseHandle(pong);
}
BENCHMARK(BM_Processes_NamedEvent)->UseRealTime();

void BM_Processes_SharedFutex(benchmark::State& state)
{
    auto* pair = static_cast<FutexPair*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    new (pair) FutexPair();
    const pid_t child = fork();
    if (child == 0)
    {
        FutexPartner(pair, true);
        _exit(0);
    }
    for (auto _ : state)
    {
        pair->ping.Set(true);
        pair->pong.Wait(true);
    }
    pair->stop.store(true);
    pair->ping.Set(true);
    waitpid(child, nullptr, 0);
    munmap(pair, 4096);
}
BENCHMARK(BM_Processes_SharedFutex)->UseRealTime();

void BM_Processes_Pipe(benchmark::State& state)
{
    int there[2], back[2];
    if (pipe(there) != 0 || pipe(back) != 0)
        return state.SkipWithError("pipe");
    const pid_t child = fork();
    if (child == 0)
    {
        PipePartner(there[0], back[1]);
        _exit(0);
    }
    char c = 'x';
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(write(there[1], &c, 1));
        benchmark::DoNotOptimize(read(back[0], &c, 1));
    }
    c = 'q';
    benchmark::DoNotOptimize(write(there[1], &c, 1));
    waitpid(child, nullptr, 0);
    for (int fd : {there[0], there[1], back[0], back[1]})
        close(fd);
}
BENCHMARK(BM_Processes_Pipe)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
