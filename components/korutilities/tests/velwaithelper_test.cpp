// CVeLHANDLE, CVeLWaitHelper (the wait loop's deadline rules with a controllable clock),
// CVeLWaitHelperTimeSupport, CVeLTimeUtilites and CVeLEventPool.
#include "korutilitesbtracedef.h"
#include "tracedtest.h"
#include "veleventpool.h"
#include "velhandle.h"
#include "veltimeutilites.h"
#include "velwaithelper.h"

#include "kortestsupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace
{

// The test clock: a fixed value, a value that follows real time from a base, or a script.
std::atomic<DWORD> g_fixedTick{1000};
std::atomic<int> g_reads{0};
DWORD FixedClock()
{
    ++g_reads;
    return g_fixedTick;
}

std::chrono::steady_clock::time_point g_realStart;
std::atomic<DWORD> g_realBase{0};
DWORD RealTimeFromBase()
{
    ++g_reads;
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - g_realStart);
    const DWORD tick = g_realBase + static_cast<DWORD>(ms.count());
    return tick == 0 ? 1 : tick; // 0 means "clock failed"; the test clock never fails
}

// Frozen for the first three reads (start, wait time, first deadline check), then past the deadline.
DWORD FrozenThenLate()
{
    return ++g_reads <= 3 ? 5000u : 5000u + 10000u;
}

DWORD BrokenClock()
{
    return 0;
}

unsigned ElapsedMs(std::chrono::steady_clock::time_point since)
{
    return static_cast<unsigned>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since)
            .count());
}

class WaitHelperTest : public kortest::TracedTest
{
protected:
    void SetUp() override
    {
        TracedTest::SetUp();
        g_reads = 0;
        m_event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        ASSERT_TRUE(m_event.IsValid());
    }
    CVeLHANDLE m_event;
};

} // namespace

TEST_F(WaitHelperTest, TimeoutZeroPollsOnce)
{
    CVeLWaitHelper helper(true, &FixedClock);
    WaitStatusEnum status = WaitError;
    EXPECT_TRUE(helper.WaitForEvent(m_event.GetHandle(), 0, status));
    EXPECT_EQ(status, WaitTimeout);
    EXPECT_EQ(g_reads.load(), 2); // the start tick and one deadline check: one pass
    SetEvent(m_event.GetHandle());
    EXPECT_TRUE(helper.WaitForEvent(m_event.GetHandle(), 0, status));
    EXPECT_EQ(status, WaitSignaled);
}

TEST_F(WaitHelperTest, BrokenClockCutsTheWaitToOneMillisecondAndTimesOut)
{
    BTraceCapture capture;
    CVeLWaitHelper helper(false, &BrokenClock);
    WaitStatusEnum status = WaitError;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(helper.WaitForEvent(m_event.GetHandle(), 60000, status));
    EXPECT_EQ(status, WaitTimeout);
    EXPECT_LT(ElapsedMs(start), 30000u);
    EXPECT_TRUE(capture.Contains(VEL_ERR, "Invalid TickCount values - handle as timeout reached"));
    EXPECT_FALSE(capture.Contains(VEL_WRN, "Calculated timeout reached! (258)")); // verbose lines are off
}

TEST_F(WaitHelperTest, EarlyWaitTimeoutContinuesUntilTheDeadlineAgrees)
{
    BTraceCapture capture;
    CVeLWaitHelper helper(true, &FrozenThenLate);
    WaitStatusEnum status = WaitError;
    EXPECT_TRUE(helper.WaitForEvent(m_event.GetHandle(), 20, status));
    EXPECT_EQ(status, WaitTimeout);
    EXPECT_EQ(capture.Count(VEL_DBG1, "Timeout signaled, but not reached - continue waiting."), 1u);
    EXPECT_TRUE(capture.Contains(VEL_WRN, "Calculated timeout reached! (258)"));
}

TEST_F(WaitHelperTest, DeadlineBeyondTheTickWrapKeepsTheWholeTimeout)
{
    g_realStart = std::chrono::steady_clock::now();
    g_realBase = 0xFFFFFFFFu - 40u; // the counter wraps 40 ms into the wait
    CVeLWaitHelper helper(false, &RealTimeFromBase);
    WaitStatusEnum status = WaitError;
    EXPECT_TRUE(helper.WaitForEvent(m_event.GetHandle(), 120, status));
    EXPECT_EQ(status, WaitTimeout);
    EXPECT_GE(ElapsedMs(g_realStart), 119u);
    EXPECT_LT(ElapsedMs(g_realStart), 5000u);
    EXPECT_GT(g_reads.load(), 10); // 1 ms steps until the wrap
}

TEST(CVeLWaitHelperTimeSupport, WaitTimesAcrossTheWrap)
{
    static std::atomic<DWORD> now{0xFFFFFFF0u};
    auto clock = []() -> DWORD { return now; };
    CVeLWaitHelperTimeSupport time(0x20, clock);
    now = 0xFFFFFFF8u; // deadline 0x10 has wrapped, the counter has not
    EXPECT_EQ(time.GetWaitTime(), 1u);
    EXPECT_FALSE(time.IsCalcedTimeout());
    now = 0x5;
    EXPECT_EQ(time.GetWaitTime(), 0x10u - 0x5u);
    EXPECT_FALSE(time.IsCalcedTimeout());
    now = 0x10;
    EXPECT_EQ(time.GetWaitTime(), 1u);
    EXPECT_TRUE(time.IsCalcedTimeout());

    CVeLWaitHelperTimeSupport endless(INFINITE, clock);
    EXPECT_EQ(endless.GetWaitTime(), INFINITE);
    EXPECT_FALSE(endless.IsCalcedTimeout());
    CVeLWaitHelperTimeSupport poll(0, clock);
    EXPECT_EQ(poll.GetWaitTime(), 0u);
    EXPECT_TRUE(poll.IsCalcedTimeout());
}

TEST_F(WaitHelperTest, FailingWaitBeforeTheDeadlineReturnsFalseAndLeavesTheStatus)
{
    BTraceCapture capture;
    HANDLE closed = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CloseHandle(closed);
    CVeLWaitHelper helper(true, &FixedClock);
    WaitStatusEnum status = WaitSignaled;
    EXPECT_FALSE(helper.WaitForEvent(closed, 1000, status));
    EXPECT_EQ(status, WaitSignaled);
    EXPECT_TRUE(capture.Contains(VEL_ERR, "MsgWaitForMultipleObjects failed (code= 0x00000006)!"));
    // After the deadline the same failure reports a time-out.
    EXPECT_TRUE(helper.WaitForEvent(closed, 0, status));
    EXPECT_EQ(status, WaitTimeout);
}

TEST_F(WaitHelperTest, NullUnknownAndNamedEvents)
{
    BTraceCapture capture;
    CVeLWaitHelper helper(true);
    WaitStatusEnum status = WaitSignaled;
    EXPECT_FALSE(helper.WaitForEvent(static_cast<void*>(nullptr), 10, status));
    EXPECT_EQ(status, WaitError);
    EXPECT_TRUE(capture.Contains(VEL_ERR, "No Event!"));
    status = WaitSignaled;
    EXPECT_FALSE(helper.WaitForEvent(std::wstring(L"kor_no_such_event"), 10, status));
    EXPECT_EQ(status, WaitError);
    EXPECT_TRUE(capture.Contains(VEL_ERR, "OpenEvent failed (code= 0x00000002!"));

    CVeLHANDLE named(CreateEventW(nullptr, TRUE, TRUE, L"kor_wait_named_event"));
    EXPECT_TRUE(helper.WaitForEvent(std::wstring(L"kor_wait_named_event"), 10, status));
    EXPECT_EQ(status, WaitSignaled);
    EXPECT_TRUE(capture.Contains(VEL_DBG3, "Event 0 signaled."));
}

TEST_F(WaitHelperTest, MultipleEventsGiveTheLowestSignalledIndexOrMinusOneForNone)
{
    CVeLHANDLE second(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    CVeLHANDLE third(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    CVeLWaitHelper helper(false);
    int index = 7;
    WaitStatusEnum status = WaitError;
    EXPECT_TRUE(helper.WaitForMultipleEvents({m_event.GetHandle(), second.GetHandle(), third.GetHandle()},
                                             100, index, status));
    EXPECT_EQ(status, WaitSignaled);
    EXPECT_EQ(index, 1);
    // An empty vector counts as signalled, with index -1.
    status = WaitError;
    EXPECT_TRUE(helper.WaitForMultipleEvents({}, 100, index, status));
    EXPECT_EQ(status, WaitSignaled);
    EXPECT_EQ(index, -1);
}

TEST_F(WaitHelperTest, ProcessOrThreadEndAndWaitTime)
{
    BTraceCapture capture;
    CVeLWaitHelper helper(false);
    const auto start = std::chrono::steady_clock::now();
    helper.WaitTime(30);
    EXPECT_GE(ElapsedMs(start), 29u);

    CVeLHANDLE thread(CreateThread(
        nullptr, 0, [](LPVOID) -> DWORD { return 3; }, nullptr, 0, nullptr));
    WaitStatusEnum status = WaitError;
    EXPECT_TRUE(helper.WaitForProcessEnd(thread.GetHandle(), 5000, status));
    EXPECT_EQ(status, WaitSignaled);
    EXPECT_EQ(capture.CountContaining("Wait for process / thread end of handle= 0x"), 1u);
}

TEST(CVeLTimeUtilites, CorrectedTickCountFollowsTheMonotonicClock)
{
    const DWORD first = CVeLTimeUtilites::GetCorrectedTickCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const DWORD second = CVeLTimeUtilites::GetCorrectedTickCount();
    EXPECT_NE(first, 0u);
    EXPECT_GE(static_cast<DWORD>(second - first), 19u);
    EXPECT_LT(static_cast<DWORD>(second - first), 5000u);
}

TEST(CVeLHANDLE, OwnsAndClosesExactlyOnce)
{
    KORTEST_SKIP_UNDER_WINE("GetProcessHandleCount always answers 0");
    const std::size_t before = kortest::OpenHandleCount();
    {
        CVeLHANDLE empty;
        EXPECT_FALSE(empty.IsValid());
        EXPECT_EQ(&empty, nullptr);
        CVeLHANDLE invalid(INVALID_HANDLE_VALUE);
        EXPECT_FALSE(invalid.IsValid());
        EXPECT_NE(&invalid, nullptr); // an invalid value still yields its address

        CVeLHANDLE owner(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        EXPECT_TRUE(owner.IsValid());
        EXPECT_EQ(*&owner, owner.GetHandle());
        EXPECT_EQ(kortest::OpenHandleCount(), before + 1);
        owner = CreateEventW(nullptr, FALSE, FALSE, nullptr); // closes the first
        EXPECT_EQ(kortest::OpenHandleCount(), before + 1);
    }
    EXPECT_EQ(kortest::OpenHandleCount(), before);
}

TEST(CVeLHANDLE, WithoutFacadeTracesAndClosesNothing)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_ERR);
    BTraceCapture capture;
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    {
        CVeLHANDLE handle(std::shared_ptr<IVeLWinAPIWrapper>(), event);
        handle = event; // the same value: "closed" first, but there is no facade
    }
    EXPECT_EQ(capture.Count(VEL_ERR, "Can't access api wrapper!"), 2u);
    EXPECT_TRUE(CloseHandle(event)); // still open
}

TEST(CVeLEventPool, ReusesReleasedEventsLastInFirstOut)
{
    CVeLEventPool pool;
    void* a = pool.GetFreeEventHandle();
    void* b = pool.GetFreeEventHandle();
    ASSERT_NE(a, nullptr);
    ASSERT_NE(a, b);
    SetEvent(a);
    EXPECT_TRUE(pool.ReleaseEventHandle(a));
    EXPECT_TRUE(pool.ReleaseEventHandle(b));
    EXPECT_EQ(pool.GetFreeEventHandle(), b);
    void* again = pool.GetFreeEventHandle();
    EXPECT_EQ(again, a);
    EXPECT_EQ(WaitForSingleObject(again, 0), static_cast<DWORD>(WAIT_TIMEOUT)); // reset when handed out

    HANDLE foreign = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_FALSE(pool.ReleaseEventHandle(foreign));
    CloseHandle(foreign);
    // Released twice: free twice.
    EXPECT_TRUE(pool.ReleaseEventHandle(a));
    EXPECT_TRUE(pool.ReleaseEventHandle(a));
    EXPECT_EQ(pool.GetFreeEventHandle(), a);
    EXPECT_EQ(pool.GetFreeEventHandle(), a);
}
