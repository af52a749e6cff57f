// The lock objects and guards, in one process and across real child processes.
#include "childprocess.h"
#include "korutilitesbtracedef.h"
#include "tracedtest.h"
#include "velatomiclock.h"
#include "velcriticalsectionlocker.h"
#include "vellockobjectguard.h"
#include "velmutexobject.h"
#include "velsemaphoreobject.h"
#include "velshmspinlockobject.h"
#include "velstopwatch.h"

#include "kortestsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

namespace
{

std::wstring UniqueName(const char* stem)
{
    return std::wstring(stem, stem + std::strlen(stem)) + L"_" + std::to_wstring(kortest::ProcessId());
}

std::wstring Wide(const std::string& s)
{
    return std::wstring(s.begin(), s.end());
}

using LockTest = kortest::TracedTest;

// Records what a guard does with its lock; Lock() fails as a timed-out lock would.
class RecordingLock : public IVeLLockObject
{
public:
    bool Lock() override
    {
        ++locks;
        return false;
    }
    bool TryLock() override { return false; }
    bool Release() override
    {
        ++releases;
        return true;
    }
    bool IsValid() const override { return valid; }
    void* GetHandle() const override { return nullptr; }
    bool Reset() override { return true; }
    int locks = 0, releases = 0;
    bool valid = true;
};

} // namespace

TEST_F(LockTest, SemaphoreCountsTryLockResetAndFailures)
{
    BTraceCapture capture;
    CVeLSemaphoreObject semaphore(5, 3, 50);
    ASSERT_TRUE(semaphore.IsValid());
    EXPECT_TRUE(semaphore.Reset()); // takes one count: 2 left
    EXPECT_TRUE(capture.CountContaining("Reset called (handle=0x") == 1u);
    EXPECT_TRUE(semaphore.TryLock());
    EXPECT_TRUE(semaphore.Lock());
    EXPECT_FALSE(semaphore.TryLock()); // exhausted
    EXPECT_FALSE(semaphore.Lock());    // 50 ms default time-out
    EXPECT_TRUE(semaphore.Release());
    EXPECT_TRUE(semaphore.LockWithTimeout(0));

    CVeLSemaphoreObject full(1, 1);
    EXPECT_FALSE(full.Release()); // beyond the maximum

    // A semaphore that failed to be made or opened is invalid and says so on use and when destroyed.
    {
        CVeLSemaphoreObject broken(0, 0);
        EXPECT_FALSE(broken.IsValid());
        EXPECT_FALSE(broken.Lock());
        EXPECT_FALSE(broken.Release());
        EXPECT_FALSE(broken.Reset());
        CVeLSemaphoreObject missing(UniqueName("kor_missing_sem"));
    }
}

TEST_F(LockTest, MutexTryLockReportsSuccessWhenHeldElsewhere)
{
    CVeLMutexObject mutex(100);
    ASSERT_TRUE(mutex.IsValid());
    std::thread holder(
        [&]
        {
            EXPECT_TRUE(mutex.Lock());
            // The other thread's try counts a time-out as success.
            std::thread other(
                [&]
                {
                    EXPECT_TRUE(mutex.TryLock());
                    EXPECT_TRUE(mutex.Lock());     // 100 ms time-out, also "success"
                    EXPECT_FALSE(mutex.Release()); // it never owned the mutex
                });
            other.join();
            EXPECT_TRUE(mutex.Release());
        });
    holder.join();
    EXPECT_TRUE(mutex.Reset());
    EXPECT_TRUE(mutex.Release()); // Reset's TryLock took it
}

TEST_F(LockTest, AtomicLockSpinsUntilItsTimeout)
{
    CVeLAtomicLock lock(0);
    EXPECT_TRUE(lock.IsValid());
    EXPECT_EQ(lock.GetHandle(), nullptr);
    EXPECT_TRUE(lock.Lock());
    EXPECT_FALSE(lock.TryLock());
    CVeLStopWatch watch(true);
    EXPECT_FALSE(lock.Lock()); // time-out 0: fails once the watch shows 1 ms
    EXPECT_GE(watch.GetElapsedTime(), 1u);
    EXPECT_TRUE(lock.Release());
    EXPECT_TRUE(lock.TryLock());
    EXPECT_TRUE(lock.Reset());
    EXPECT_TRUE(lock.TryLock());
}

TEST_F(LockTest, GuardReleasesEvenWhenLockFailed)
{
    RecordingLock lock;
    {
        CVeLLockObjectGuard guard(&lock);
    }
    EXPECT_EQ(lock.locks, 1);
    EXPECT_EQ(lock.releases, 1);
    lock.valid = false;
    {
        CVeLLockObjectGuard guard(&lock);
        CVeLLockObjectGuard none(nullptr);
    }
    EXPECT_EQ(lock.locks, 1);
    EXPECT_EQ(lock.releases, 1);
}

TEST(CVeLCriticalSectionLocker, EntersForTheScope)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    {
        CVeLCriticalSectionLocker locker(section);
        std::thread([&] { EXPECT_FALSE(TryEnterCriticalSection(&section)); }).join();
    }
    std::thread(
        [&]
        {
            EXPECT_TRUE(TryEnterCriticalSection(&section));
            LeaveCriticalSection(&section);
        })
        .join();
    DeleteCriticalSection(&section);
}

TEST_F(LockTest, SpinLockWordsAreSharedByIndexNotByName)
{
    CVeLShMSpinlockObject a(L"first", 100, 0);
    CVeLShMSpinlockObject b(L"second", 100, 0);
    CVeLShMSpinlockObject c(L"first", 101, 0);
    ASSERT_TRUE(a.IsValid());
    EXPECT_EQ(a.GetHandle(), nullptr);
    a.Reset();
    c.Reset();
    EXPECT_TRUE(a.TryLock());
    EXPECT_FALSE(b.TryLock());
    EXPECT_FALSE(b.Lock()); // time-out 0
    EXPECT_TRUE(c.TryLock());
    EXPECT_TRUE(b.Release()); // anyone may release
    EXPECT_TRUE(a.TryLock());
    a.Release();
    c.Release();
}

// --- across processes -------------------------------------------------------------------------------

// Adds KOR_ROUNDS to the counter in the KOR_COUNTER mapping, each time under the spin lock at index 200.
KOR_CHILD_ROLE(spin_lock)
{
    CVeLShMSpinlockObject lock(L"child", 200);
    const std::string counterName = kortest::ChildParameter("KOR_COUNTER");
    HANDLE mapping = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, Wide(counterName).c_str());
    if (!lock.IsValid() || mapping == nullptr)
        return 2;
    volatile int* counter =
        static_cast<volatile int*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 4096));
    for (int i = std::stoi(kortest::ChildParameter("KOR_ROUNDS")); i > 0; --i)
    {
        if (!lock.Lock())
            return 3;
        const int value = *counter; // a plain read-modify-write: only the lock keeps it whole
        *counter = value + 1;
        lock.Release();
    }
    return 0;
}

TEST(LockObjectsAcrossProcesses, SpinLockWithTheSameIndexLosesNoUpdate)
{
    const std::wstring counterName = UniqueName("kor_spin_counter");
    HANDLE mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, counterName.c_str());
    ASSERT_NE(mapping, nullptr);
    volatile int* counter =
        static_cast<volatile int*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 4096));
    *counter = 0;
    CVeLShMSpinlockObject(L"parent", 200).Reset();
    const int processes = 3, rounds = 3000;
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p)
        children.push_back(kortest::StartChild(
            "spin_lock", {"KOR_ROUNDS=" + std::to_string(rounds),
                          "KOR_COUNTER=" + std::string(counterName.begin(), counterName.end())}));
    for (pid_t child : children)
        EXPECT_EQ(kortest::WaitChild(child), 0);
    EXPECT_EQ(*counter, processes * rounds);
    UnmapViewOfFile(const_cast<int*>(counter));
    CloseHandle(mapping);
}

KOR_CHILD_ROLE(semaphore_release_twice)
{
    CVeLSemaphoreObject semaphore(Wide(kortest::ChildParameter("KOR_NAME")));
    if (!semaphore.IsValid())
        return 2;
    return semaphore.Release() && semaphore.Release() ? 0 : 3;
}

TEST(LockObjectsAcrossProcesses, NamedSemaphoreCountsAreShared)
{
    const std::wstring name = UniqueName("kor_shared_sem");
    CVeLSemaphoreObject semaphore(2, 0, name, 5000);
    ASSERT_TRUE(semaphore.IsValid());
    EXPECT_FALSE(semaphore.TryLock());
    EXPECT_EQ(kortest::WaitChild(kortest::StartChild("semaphore_release_twice",
                                                     {"KOR_NAME=" + std::string(name.begin(), name.end())})),
              0);
    EXPECT_TRUE(semaphore.Lock());
    EXPECT_TRUE(semaphore.Lock());
    EXPECT_FALSE(semaphore.TryLock());
}

KOR_CHILD_ROLE(mutex_hold)
{
    // Takes the named mutex, says so through the named event, and holds it until killed (or 30 s).
    CVeLMutexObject mutex(Wide(kortest::ChildParameter("KOR_NAME")));
    HANDLE ready = OpenEventW(EVENT_MODIFY_STATE, FALSE, Wide(kortest::ChildParameter("KOR_READY")).c_str());
    if (!mutex.IsValid() || ready == nullptr || !mutex.Lock())
        return 2;
    SetEvent(ready);
    Sleep(30000);
    return 0;
}

TEST(LockObjectsAcrossProcesses, NamedMutexExcludesAndPassesOnWhenTheHolderIsKilled)
{
    const std::wstring name = UniqueName("kor_shared_mutex");
    const std::wstring readyName = UniqueName("kor_mutex_ready");
    HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, readyName.c_str());
    CVeLMutexObject mutex(name, 5000);
    ASSERT_TRUE(mutex.IsValid());
    pid_t child =
        kortest::StartChild("mutex_hold", {"KOR_NAME=" + std::string(name.begin(), name.end()),
                                           "KOR_READY=" + std::string(readyName.begin(), readyName.end())});
    ASSERT_EQ(WaitForSingleObject(ready, 10000), static_cast<DWORD>(WAIT_OBJECT_0));
    // Held by the child: our wait times out, which this lock reports as success without owning it.
    EXPECT_EQ(WaitForSingleObject(mutex.GetHandle(), 50), static_cast<DWORD>(WAIT_TIMEOUT));
    kortest::KillProcess(child);
    EXPECT_EQ(kortest::WaitChild(child), kortest::KilledExitCode);
    // The abandoned mutex goes to the next waiter, which owns it (the wait loop waits past the
    // abandonment once more, so it is held twice).
    EXPECT_TRUE(mutex.Lock());
    EXPECT_TRUE(mutex.Release());
    EXPECT_TRUE(mutex.Release());
    EXPECT_FALSE(mutex.Release());
    CloseHandle(ready);
}
