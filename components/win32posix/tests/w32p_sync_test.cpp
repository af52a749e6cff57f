// Events, semaphores, mutexes, waits and critical sections within one process.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace
{

struct Handle
{
    explicit Handle(HANDLE h = nullptr) : h(h) {}
    ~Handle()
    {
        if (h != nullptr)
            CloseHandle(h);
    }
    HANDLE h;
};

} // namespace

// An auto-reset event releases one wait per signal (two sets do not count up); a manual-reset one stays
// signalled until reset.
TEST(W32pEvent, AutoAndManualResetAfterSet)
{
    for (const BOOL manual : {FALSE, TRUE})
    {
        SCOPED_TRACE(manual);
        Handle e(CreateEventW(nullptr, manual, TRUE, nullptr));
        ASSERT_NE(e.h, nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
        EXPECT_EQ(WaitForSingleObject(e.h, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(e.h, 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        EXPECT_TRUE(ResetEvent(e.h));
        EXPECT_EQ(WaitForSingleObject(e.h, 0), WAIT_TIMEOUT);
        EXPECT_TRUE(SetEvent(e.h));
        EXPECT_TRUE(SetEvent(e.h));
        EXPECT_EQ(WaitForSingleObject(e.h, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(e.h, 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
    }
}

TEST(W32pEvent, TimedWaitLastsItsTimeAndSetWakesASleeper)
{
    Handle e(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(e.h, 50), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));

    std::thread setter(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            SetEvent(e.h);
        });
    EXPECT_EQ(WaitForSingleObject(e.h, INFINITE), WAIT_OBJECT_0);
    setter.join();
}

TEST(W32pHandles, WrongKindNullAndClosedHandlesFail)
{
    HANDLE e = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Handle s(CreateSemaphoreW(nullptr, 0, 1, nullptr));
    EXPECT_W32_FAILS(SetEvent(s.h), FALSE, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(ReleaseMutex(e), FALSE, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(CloseHandle(nullptr), FALSE, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(CloseHandle(e));
    EXPECT_W32_FAILS(SetEvent(e), FALSE, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(WaitForSingleObject(e, 0), WAIT_FAILED, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(CloseHandle(e));
}

TEST(W32pSemaphore, CountsAndMaximum)
{
    EXPECT_W32_FAILS(CreateSemaphoreW(nullptr, 2, 1, nullptr), nullptr, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(CreateSemaphoreW(nullptr, 0, 0, nullptr), nullptr, ERROR_INVALID_PARAMETER);

    Handle s(CreateSemaphoreW(nullptr, 1, 3, nullptr));
    ASSERT_NE(s.h, nullptr);
    LONG previous = -7;
    EXPECT_TRUE(ReleaseSemaphore(s.h, 2, &previous));
    EXPECT_EQ(previous, 1);
    previous = -7;
    EXPECT_W32_FAILS(ReleaseSemaphore(s.h, 1, &previous), FALSE, ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(previous, -7);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WaitForSingleObject(s.h, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(s.h, 0), WAIT_TIMEOUT);
    EXPECT_W32_FAILS(ReleaseSemaphore(s.h, 0, nullptr), FALSE, ERROR_INVALID_PARAMETER);
}

TEST(W32pMutex, RecursiveOwnershipAndNotOwner)
{
    Handle m(CreateMutexW(nullptr, TRUE, nullptr));
    ASSERT_NE(m.h, nullptr);
    EXPECT_EQ(WaitForSingleObject(m.h, 0), WAIT_OBJECT_0); // owned twice now
    std::thread other(
        [&]
        {
            EXPECT_EQ(WaitForSingleObject(m.h, 0), WAIT_TIMEOUT);
            EXPECT_W32_FAILS(ReleaseMutex(m.h), FALSE, ERROR_NOT_OWNER);
        });
    other.join();
    EXPECT_TRUE(ReleaseMutex(m.h));
    std::thread stillOwned([&] { EXPECT_EQ(WaitForSingleObject(m.h, 0), WAIT_TIMEOUT); });
    stillOwned.join();
    EXPECT_TRUE(ReleaseMutex(m.h));
    EXPECT_W32_FAILS(ReleaseMutex(m.h), FALSE, ERROR_NOT_OWNER);
    std::thread nowFree(
        [&]
        {
            EXPECT_EQ(WaitForSingleObject(m.h, 0), WAIT_OBJECT_0);
            EXPECT_TRUE(ReleaseMutex(m.h));
        });
    nowFree.join();
}

// A mutex whose owner thread ends goes, abandoned, to the next waiter: one that comes later (here through a
// wait on several objects) or one already asleep on it.
TEST(W32pMutex, OwnerThreadEndingAbandonsItToTheNextWaiter)
{
    Handle m(CreateMutexW(nullptr, FALSE, nullptr));
    Handle taken(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    std::thread owner([&] { EXPECT_EQ(WaitForSingleObject(m.h, 0), WAIT_OBJECT_0); });
    owner.join();
    HANDLE both[2] = {taken.h, m.h};
    EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, 1000), WAIT_ABANDONED_0 + 1);
    EXPECT_EQ(WaitForSingleObject(m.h, 0), WAIT_OBJECT_0); // owned, recursively
    EXPECT_TRUE(ReleaseMutex(m.h));
    EXPECT_TRUE(ReleaseMutex(m.h));
    EXPECT_FALSE(ReleaseMutex(m.h));

    std::thread sleeper(
        [&]
        {
            WaitForSingleObject(m.h, INFINITE);
            SetEvent(taken.h);
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
        });
    WaitForSingleObject(taken.h, INFINITE);
    EXPECT_EQ(WaitForSingleObject(m.h, 5000), WAIT_ABANDONED_0);
    sleeper.join();
    EXPECT_TRUE(ReleaseMutex(m.h));
}

TEST(W32pWait, MultipleObjectsArgumentsAndLowestIndexWins)
{
    Handle a(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Handle b(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    Handle c(CreateSemaphoreW(nullptr, 1, 1, nullptr));
    HANDLE set[3] = {a.h, b.h, c.h};
    EXPECT_W32_FAILS(WaitForMultipleObjects(0, set, FALSE, 0), WAIT_FAILED, ERROR_INVALID_PARAMETER);
    std::vector<HANDLE> many(65, b.h);
    EXPECT_W32_FAILS(WaitForMultipleObjects(65, many.data(), FALSE, 0), WAIT_FAILED, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WaitForMultipleObjects(64, many.data(), FALSE, 0), WAIT_OBJECT_0);
    HANDLE withNull[2] = {a.h, nullptr};
    EXPECT_W32_FAILS(WaitForMultipleObjects(2, withNull, FALSE, 0), WAIT_FAILED, ERROR_INVALID_HANDLE);

    EXPECT_EQ(WaitForMultipleObjects(3, set, FALSE, 0), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(ResetEvent(b.h));
    // Only the winner is taken: the semaphore keeps its count while a lower index wins.
    EXPECT_TRUE(SetEvent(a.h));
    EXPECT_EQ(WaitForMultipleObjects(3, set, FALSE, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(a.h));
    EXPECT_EQ(WaitForMultipleObjects(3, set, FALSE, 0), WAIT_OBJECT_0 + 2);
    EXPECT_EQ(WaitForMultipleObjects(3, set, FALSE, 20), WAIT_TIMEOUT);
}

TEST(W32pWait, SleepingWaitAnyWakesForAnyKind)
{
    Handle a(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    Handle s(CreateSemaphoreW(nullptr, 0, 5, nullptr));
    Handle m(CreateMutexW(nullptr, TRUE, nullptr));
    HANDLE set[3] = {a.h, s.h, m.h};
    std::thread waiter(
        [&]
        {
            EXPECT_EQ(WaitForMultipleObjects(3, set, FALSE, 5000), WAIT_OBJECT_0 + 1);
            EXPECT_EQ(WaitForMultipleObjects(3, set, FALSE, 5000), WAIT_OBJECT_0 + 2);
            EXPECT_TRUE(ReleaseMutex(m.h));
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(ReleaseSemaphore(s.h, 1, nullptr));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(ReleaseMutex(m.h));
    waiter.join();
}

TEST(W32pWait, CurrentProcessPseudoHandleIsWaitableAndNeverSignalled)
{
    EXPECT_EQ(WaitForSingleObject(GetCurrentProcess(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(GetCurrentProcess(), 10), WAIT_TIMEOUT);
}

// Many threads set and wait on one auto-reset event: every wake a waiter sees is paid for by one SetEvent
// (never more wakes than sets), and once everything is done nothing was lost (each set was consumed, or the
// event was already signalled when it came).
TEST(W32pEvent, AutoResetNeverDuplicatesOrLosesWakesUnderThreads)
{
    Handle e(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    Handle done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    constexpr int kSetters = 4, kWaiters = 4, kSetsEach = 2000;
    std::atomic<int> effectiveSets{0}, wakes{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kWaiters; ++i)
        threads.emplace_back(
            [&]
            {
                HANDLE set[2] = {e.h, done.h};
                while (WaitForMultipleObjects(2, set, FALSE, INFINITE) == WAIT_OBJECT_0)
                    wakes.fetch_add(1);
            });
    Handle token(CreateSemaphoreW(nullptr, 1, 1, nullptr)); // serialises "set while unsignalled" counting
    for (int i = 0; i < kSetters; ++i)
        threads.emplace_back(
            [&]
            {
                for (int n = 0; n < kSetsEach; ++n)
                {
                    WaitForSingleObject(token.h, INFINITE);
                    const bool wasSignalled =
                        WaitForSingleObject(e.h, 0) == WAIT_OBJECT_0; // take it back if set
                    if (wasSignalled)
                        effectiveSets.fetch_sub(1);
                    SetEvent(e.h);
                    effectiveSets.fetch_add(1);
                    ReleaseSemaphore(token.h, 1, nullptr);
                }
            });
    for (int i = kWaiters; i < kWaiters + kSetters; ++i)
        threads[i].join();
    // The waiters are always waiting, so every signal must be taken, each by exactly one of them.
    for (int spin = 0; spin < 5000 && wakes.load() < effectiveSets.load(); ++spin)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // room for a duplicate wake to show
    SetEvent(done.h);
    for (int i = 0; i < kWaiters; ++i)
        threads[i].join();
    EXPECT_EQ(wakes.load(), effectiveSets.load());
    EXPECT_EQ(WaitForSingleObject(e.h, 0), WAIT_TIMEOUT);
}

TEST(W32pCriticalSection, RecursiveAndExclusive)
{
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EXPECT_TRUE(TryEnterCriticalSection(&cs));
    std::thread other([&] { EXPECT_FALSE(TryEnterCriticalSection(&cs)); });
    other.join();
    LeaveCriticalSection(&cs);
    LeaveCriticalSection(&cs);
    std::thread free(
        [&]
        {
            EXPECT_TRUE(TryEnterCriticalSection(&cs));
            LeaveCriticalSection(&cs);
        });
    free.join();
    DeleteCriticalSection(&cs);
}

TEST(W32pTime, ClocksAdvanceInTheirUnits)
{
    ULONGLONG before = 0, after = 0;
    EXPECT_FALSE(QueryUnbiasedInterruptTime(nullptr));
    EXPECT_TRUE(QueryUnbiasedInterruptTime(&before));
    const ULONGLONG tick = GetTickCount64();
    Sleep(20);
    EXPECT_TRUE(QueryUnbiasedInterruptTime(&after));
    EXPECT_GE(after - before, 200000u); // 20 ms in 100 ns units
    EXPECT_LT(after - before, 200000u * 50);
    EXPECT_GE(GetTickCount64() - tick, 19u);
    const DWORD tick32 = GetTickCount();
    EXPECT_LE(static_cast<DWORD>(GetTickCount64()) - tick32, 1u); // the same clock, read twice
}
