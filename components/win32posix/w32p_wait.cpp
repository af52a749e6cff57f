// The one wait algorithm for every waitable kind.
//
// A wait over n objects (n = 1 for WaitForSingleObject) repeats three steps until it returns:
//  1. Claim: try the objects in index order and take the first that is signalled. Each attempt is one atomic
//     operation on that object's word (a compare-and-swap for auto-reset events, semaphores and mutexes), so
//     of several concurrent waiters exactly one takes an auto-reset signal or a semaphore count, and a wait
//     takes exactly one object: it stops at the first success. Trying in index order is why the lowest
//     signalled index wins.
//  2. Register: count itself among each object's sleepers, then read each word. A signaller changes the word
//     before it reads the sleeper count, so either it sees us and wakes us, or we see its change here. If a
//     word read here already shows a signal, go back to 1 without sleeping.
//  3. Sleep: one futex wait (futex_waitv for several words) that returns when any word differs from what was
//     read, when a signaller wakes it, or at the deadline on CLOCK_MONOTONIC. Then unregister and go to 1.
// Signallers wake every sleeper on the word; those that lose the claim in step 1 sleep again. A mutex's dying
// owner wakes only one sleeper (the kernel does that), so a wait that slept and then took a different object
// passes that wake on (PassOnWake). An idle waiter is asleep in the kernel: no polling, no CPU.
// The contract, and where Linux differs from Windows, are in w32p_sync.h.
#include "w32p_sync.h"
#include "w32p_waitable.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

// Never signalled: stands for the pseudo handles of the current process and thread, which end only with the
// waiter itself.
class NeverSignalled : public W32pWaitable
{
public:
    NeverSignalled() : W32pWaitable(W32pKind::Other, &m_word, &m_sleepers, false) {}
    W32pClaim TryClaim() override { return W32pClaim::NotReady; }
    bool SleepValue(std::uint32_t& value) override
    {
        value = 0;
        return true;
    }

private:
    std::atomic<std::uint32_t> m_word{0};
    std::atomic<std::uint32_t> m_sleepers{0};
};

struct timespec Deadline(DWORD milliseconds)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    now.tv_sec += milliseconds / 1000;
    now.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
    if (now.tv_nsec >= 1000000000L)
    {
        now.tv_sec += 1;
        now.tv_nsec -= 1000000000L;
    }
    return now;
}

bool Passed(const struct timespec& deadline)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > deadline.tv_sec || (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

// Sleeps until a word differs from its value, a wake, or the deadline (null: none).
void Sleep(W32pWaitable* const* objects, const std::uint32_t* values, DWORD count,
           const struct timespec* deadline)
{
    if (count == 1)
    {
        const int op = FUTEX_WAIT_BITSET | (objects[0]->Shared() ? 0 : FUTEX_PRIVATE_FLAG);
        syscall(SYS_futex, objects[0]->Word(), op, values[0], deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
        return;
    }
    struct futex_waitv waiters[MAXIMUM_WAIT_OBJECTS];
    for (DWORD i = 0; i < count; ++i)
    {
        waiters[i].val = values[i];
        waiters[i].uaddr = reinterpret_cast<std::uintptr_t>(objects[i]->Word());
        waiters[i].flags = FUTEX_32 | (objects[i]->Shared() ? 0 : FUTEX_PRIVATE_FLAG);
        waiters[i].__reserved = 0;
    }
    syscall(SYS_futex_waitv, waiters, count, 0, deadline, CLOCK_MONOTONIC);
}

DWORD WaitAny(W32pWaitable* const* objects, DWORD count, DWORD milliseconds)
{
    const bool finite = milliseconds != INFINITE;
    const struct timespec deadline = finite ? Deadline(milliseconds) : timespec();
    std::uint32_t values[MAXIMUM_WAIT_OBJECTS];
    bool slept = false;
    for (;;)
    {
        for (DWORD i = 0; i < count; ++i)
        {
            const W32pClaim claim = objects[i]->TryClaim();
            if (claim == W32pClaim::NotReady)
                continue;
            if (slept)
                for (DWORD j = 0; j < count; ++j)
                    if (j != i)
                        objects[j]->PassOnWake();
            return (claim == W32pClaim::Abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + i;
        }
        if (milliseconds == 0 || (finite && Passed(deadline)))
            return WAIT_TIMEOUT;
        for (DWORD i = 0; i < count; ++i)
            objects[i]->Sleepers()->fetch_add(1);
        bool ready = false;
        for (DWORD i = 0; i < count && !ready; ++i)
            ready = !objects[i]->SleepValue(values[i]);
        if (!ready)
        {
            Sleep(objects, values, count, finite ? &deadline : nullptr);
            slept = true;
        }
        for (DWORD i = 0; i < count; ++i)
            objects[i]->Sleepers()->fetch_sub(1);
    }
}

} // namespace

void W32pFutexWakeAll(std::atomic<std::uint32_t>* word, bool shared)
{
    syscall(SYS_futex, word, FUTEX_WAKE | (shared ? 0 : FUTEX_PRIVATE_FLAG), INT_MAX, nullptr, nullptr, 0);
}

void W32pWaitable::WakeAll() const
{
    if (m_sleepers->load() != 0)
        W32pFutexWakeAll(m_word, m_shared);
}

namespace
{
thread_local std::uint32_t t_threadId = 0; // cached; 0 until first asked

void ForgetThreadIdInChild()
{
    t_threadId = 0;
} // a forked child's thread has an id of its own

const int s_atFork = pthread_atfork(nullptr, nullptr, ForgetThreadIdInChild);
} // namespace

std::uint32_t W32pThreadId()
{
    if (t_threadId == 0)
        t_threadId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    return t_threadId;
}

std::shared_ptr<W32pWaitable> W32pLookupWaitable(HANDLE handle)
{
    if (handle == GetCurrentProcess() || handle == GetCurrentThread())
    {
        static const std::shared_ptr<W32pWaitable> never = std::make_shared<NeverSignalled>();
        return never;
    }
    std::shared_ptr<W32pObject> object = W32pLookupHandle(handle);
    if (!object)
        return nullptr;
    switch (object->kind)
    {
    case W32pKind::Event:
    case W32pKind::Semaphore:
    case W32pKind::Mutex:
    case W32pKind::Thread:
    case W32pKind::Process:
        return std::static_pointer_cast<W32pWaitable>(object); // every object of these kinds is waitable
    default:
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    std::shared_ptr<W32pWaitable> object = W32pLookupWaitable(handle);
    if (!object)
        return WAIT_FAILED;
    W32pWaitable* raw = object.get();
    return WaitAny(&raw, 1, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds)
{
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    std::shared_ptr<W32pWaitable> objects[MAXIMUM_WAIT_OBJECTS]; // keep them alive while waiting
    W32pWaitable* raw[MAXIMUM_WAIT_OBJECTS];
    for (DWORD i = 0; i < count; ++i)
    {
        objects[i] = W32pLookupWaitable(handles[i]);
        if (!objects[i])
            return WAIT_FAILED;
        raw[i] = objects[i].get();
    }
    if (waitAll)
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return WAIT_FAILED;
    }
    return WaitAny(raw, count, milliseconds);
}
