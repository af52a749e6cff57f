// Wait-all, the sleep of waits on several objects on kernels without futex_waitv, and waits on every kind of
// handle.
#include "w32p_test_util.h"
#include "w32p_waitable.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <thread>

namespace
{

struct Closer
{
    void operator()(void* handle) const { CloseHandle(handle); }
};
using Owned = std::unique_ptr<void, Closer>;

// An auto-reset event, a semaphore and a mutex, all signalled, optionally named (then opened again by name in
// children).
struct Trio
{
    explicit Trio(const std::wstring& tag = L"")
        : event(CreateEventW(nullptr, FALSE, TRUE, Name(tag, L"e"))),
          semaphore(CreateSemaphoreW(nullptr, 1, 1, Name(tag, L"s"))),
          mutex(CreateMutexW(nullptr, FALSE, Name(tag, L"m")))
    {
        handles[0] = event.get();
        handles[1] = semaphore.get();
        handles[2] = mutex.get();
    }
    const wchar_t* Name(const std::wstring& tag, const wchar_t* kind)
    {
        names.push_back(tag.empty() ? L"" : TestName((tag + kind).c_str()));
        return names.back().empty() ? nullptr : names.back().c_str();
    }
    std::vector<std::wstring> names;
    Owned event, semaphore, mutex;
    HANDLE handles[3];
};

// What another thread can take of each object right now (and gives back): so nothing is held by the caller.
std::vector<DWORD> TakeableElsewhere(const Trio& trio)
{
    std::vector<DWORD> results;
    std::thread other(
        [&]
        {
            for (HANDLE h : trio.handles)
                results.push_back(WaitForSingleObject(h, 0));
            SetEvent(trio.handles[0]);
            ReleaseSemaphore(trio.handles[1], 1, nullptr);
            ReleaseMutex(trio.handles[2]);
        });
    other.join();
    return results;
}

double ThreadCpuSeconds()
{
    struct timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// Runs body once with waits on several words through futex_waitv and once through the wake word.
void InBothSleepModes(const std::function<void()>& body)
{
    for (const bool fallback : {false, true})
    {
        SCOPED_TRACE(fallback ? "wake word" : "futex_waitv");
        W32pUseWaitFallback(fallback);
        body();
    }
    W32pUseWaitFallback(false);
}

} // namespace

// With one object unavailable a wait-all takes nothing; with all available it takes all three at once, an
// abandoned mutex among them reported by its index.
TEST(W32pWaitAll, TakesAllOrNothing)
{
    struct Row
    {
        const char* what;
        int taken;    // index another thread takes first, -1: none
        bool abandon; // that thread ends while it owns the mutex
        DWORD expected;
    } rows[] = {
        {"all signalled", -1, false, WAIT_OBJECT_0},
        {"event taken", 0, false, WAIT_TIMEOUT},
        {"semaphore taken", 1, false, WAIT_TIMEOUT},
        {"mutex owned by another thread", 2, false, WAIT_TIMEOUT},
        {"mutex abandoned", 2, true, WAIT_ABANDONED_0 + 2},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        Trio trio;
        Owned ready(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        Owned release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        std::thread holder(
            [&]
            {
                if (row.taken >= 0)
                    WaitForSingleObject(trio.handles[row.taken], 0);
                SetEvent(ready.get());
                if (row.taken == 2 && !row.abandon)
                {
                    WaitForSingleObject(release.get(), INFINITE);
                    ReleaseMutex(trio.handles[2]);
                }
            });
        WaitForSingleObject(ready.get(), INFINITE);
        if (row.abandon)
            holder.join();
        EXPECT_EQ(WaitForMultipleObjects(3, trio.handles, TRUE, 20), row.expected);
        const bool failed = row.expected == WAIT_TIMEOUT;
        std::vector<DWORD> takeable(3, failed ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        if (failed)
            takeable[static_cast<std::size_t>(row.taken)] = WAIT_TIMEOUT;
        EXPECT_EQ(TakeableElsewhere(trio), takeable);
        if (!failed)
        {
            EXPECT_TRUE(ReleaseMutex(trio.handles[2]));
        }
        SetEvent(release.get());
        if (holder.joinable())
            holder.join();
    }
}

TEST(W32pWaitAll, DuplicatesAreRefusedAndASleeperWakesOnTheLastObject)
{
    Trio trio;
    HANDLE copy = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), trio.handles[1], GetCurrentProcess(), &copy, 0, FALSE,
                                DUPLICATE_SAME_ACCESS));
    Owned owned(copy);
    HANDLE same[2] = {trio.handles[0], trio.handles[0]};
    HANDLE copies[2] = {trio.handles[1], copy};
    EXPECT_W32_FAILS(WaitForMultipleObjects(2, same, TRUE, 0), WAIT_FAILED, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(WaitForMultipleObjects(2, copies, TRUE, 0), WAIT_FAILED, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WaitForMultipleObjects(2, copies, FALSE, 0), WAIT_OBJECT_0);

    InBothSleepModes(
        [&]
        {
            ResetEvent(trio.handles[0]);
            ReleaseSemaphore(trio.handles[1], 1, nullptr);
            std::thread waiter(
                [&]
                {
                    EXPECT_EQ(WaitForMultipleObjects(3, trio.handles, TRUE, 5000), WAIT_OBJECT_0);
                    ReleaseMutex(trio.handles[2]);
                });
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            EXPECT_EQ(WaitForSingleObject(trio.handles[1], 0), WAIT_OBJECT_0); // the waiter holds nothing yet
            EXPECT_TRUE(ReleaseSemaphore(trio.handles[1], 1, nullptr));
            EXPECT_TRUE(SetEvent(trio.handles[0]));
            waiter.join();
            EXPECT_EQ(TakeableElsewhere(trio),
                      (std::vector<DWORD>{WAIT_TIMEOUT, WAIT_TIMEOUT, WAIT_OBJECT_0}));
        });
}

// A failing wait-all never takes anything, not even for a moment: a thread that takes and gives back the
// semaphore alone always gets it.
TEST(W32pWaitAll, NoPartialAcquisitionIsEverVisible)
{
    Owned never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Owned semaphore(CreateSemaphoreW(nullptr, 1, 1, nullptr));
    HANDLE set[2] = {semaphore.get(), never.get()};
    std::atomic<bool> done{false};
    std::thread allWaiter(
        [&]
        {
            while (!done.load())
                EXPECT_EQ(WaitForMultipleObjects(2, set, TRUE, 0), WAIT_TIMEOUT);
        });
    int missed = 0;
    for (int i = 0; i < 20000; ++i)
    {
        if (WaitForSingleObject(semaphore.get(), 0) != WAIT_OBJECT_0)
            ++missed;
        else
            ReleaseSemaphore(semaphore.get(), 1, nullptr);
    }
    done = true;
    allWaiter.join();
    EXPECT_EQ(missed, 0);
}

// Named objects across processes: a child's wait-all takes all three once the last is set, and a mutex whose
// owner process was killed comes abandoned in a wait-all (in both sleep mechanisms).
TEST(W32pWaitAll, AcrossProcessesWithAKilledMutexOwner)
{
    InBothSleepModes(
        [&]
        {
            Trio trio(L"wa");
            ResetEvent(trio.handles[0]);
            const pid_t waiter = ForkChild(
                [&]
                {
                    Owned e(OpenEventW(EVENT_ALL_ACCESS, FALSE, trio.names[0].c_str()));
                    Owned s(OpenSemaphoreW(SEMAPHORE_ALL_ACCESS, FALSE, trio.names[1].c_str()));
                    Owned m(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, trio.names[2].c_str()));
                    HANDLE set[3] = {e.get(), s.get(), m.get()};
                    const DWORD result = WaitForMultipleObjects(3, set, TRUE, 5000);
                    ReleaseMutex(m.get());
                    return result == WAIT_OBJECT_0 ? 0 : 1;
                });
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            EXPECT_TRUE(SetEvent(trio.handles[0]));
            EXPECT_EQ(JoinChild(waiter), 0);
            EXPECT_EQ(TakeableElsewhere(trio),
                      (std::vector<DWORD>{WAIT_TIMEOUT, WAIT_TIMEOUT, WAIT_OBJECT_0}));

            ResetEvent(trio.handles[0]);
            const pid_t owner = ForkChild(
                [&]
                {
                    Owned m(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, trio.names[2].c_str()));
                    WaitForSingleObject(m.get(), 0);
                    SetEvent(trio.handles[0]);
                    pause();
                    return 0;
                });
            EXPECT_EQ(WaitForSingleObject(trio.handles[0], 5000), WAIT_OBJECT_0);
            EXPECT_TRUE(SetEvent(trio.handles[0]));
            std::thread killer(
                [&]
                {
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                    kill(owner, SIGKILL);
                });
            EXPECT_EQ(WaitForMultipleObjects(3, trio.handles, TRUE, 5000), WAIT_ABANDONED_0 + 2);
            killer.join();
            JoinChild(owner);
            EXPECT_TRUE(ReleaseMutex(trio.handles[2]));
        });
}

// Without futex_waitv a wait on two objects sleeps through its time-out instead of spinning, and still wakes
// for a signal from another thread.
TEST(W32pWaitFallback, TwoObjectWaitSleepsAndWakes)
{
    Owned a(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    Owned b(CreateSemaphoreW(nullptr, 0, 1, nullptr));
    HANDLE set[2] = {a.get(), b.get()};
    W32pUseWaitFallback(true);
    const double before = ThreadCpuSeconds();
    EXPECT_EQ(WaitForMultipleObjects(2, set, FALSE, 1000), WAIT_TIMEOUT);
    EXPECT_LT(ThreadCpuSeconds() - before, 0.2); // a spinning wait burns about 1 s
    std::thread signaller(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            ReleaseSemaphore(b.get(), 1, nullptr);
        });
    EXPECT_EQ(WaitForMultipleObjects(2, set, FALSE, 5000), WAIT_OBJECT_0 + 1);
    signaller.join();
    W32pUseWaitFallback(false);
}

// What a wait answers for each kind of handle.
TEST(W32pWait, EveryKindOfHandle)
{
    ScratchDir dir;
    HANDLE file = CreateFileW(dir.Wide(L"f").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr);
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    HANDLE copy = nullptr;
    DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
    HANDLE closed = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    CloseHandle(closed);
    struct Row
    {
        const char* what;
        HANDLE handle;
        DWORD result;
        DWORD error; // when result is WAIT_FAILED
    } rows[] = {
        {"current process", GetCurrentProcess(), WAIT_TIMEOUT, 0},
        {"current thread", GetCurrentThread(), WAIT_TIMEOUT, 0},
        {"file", file, WAIT_OBJECT_0, 0},
        {"mapping", mapping, WAIT_FAILED, ERROR_ACCESS_DENIED},
        {"duplicate of an event", copy, WAIT_OBJECT_0, 0},
        {"closed", closed, WAIT_FAILED, ERROR_INVALID_HANDLE},
        {"null", nullptr, WAIT_FAILED, ERROR_INVALID_HANDLE},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(row.handle, 10), row.result);
        if (row.result == WAIT_FAILED)
        {
            EXPECT_EQ(GetLastError(), row.error);
        }
    }
    for (HANDLE h : {file, mapping, event, copy})
        CloseHandle(h);
}
