// The one wait algorithm for every waitable kind.
//
// Wait-any (and WaitForSingleObject) repeats three steps until it returns:
//  1. Claim: try the objects in index order and take the first that is signalled. Each attempt is one atomic
//     operation on that object's word under its claim lock, so of several concurrent waiters exactly one
//     takes an auto-reset signal or a semaphore count, and a wait takes exactly one object: it stops at the
//     first success. Trying in index order is why the lowest signalled index wins.
//  2. Register: count itself among each object's sleepers, then read each word. A signaller changes the word
//     before it reads the sleeper count, so either it sees us and wakes us, or we see its change here. If a
//     word read here already shows a signal, go back to 1 without sleeping.
//  3. Sleep: one futex wait (futex_waitv for several words) that returns when any word differs from what was
//     read, when a signaller wakes it, or at the deadline on CLOCK_MONOTONIC. Then unregister and go to 1.
// Wait-all differs in step 1: it takes the claim locks of all objects, and only when every object is
// signalled takes them all, before releasing the locks; other claimers wait for those locks, so none ever
// sees a part of the set taken. In steps 2 and 3 it sleeps on one object that is not signalled, the last.
// Signallers wake every sleeper on the word; those that lose the claim in step 1 sleep again. A mutex's dying
// owner wakes only one sleeper (the kernel does that), so a wait that slept and then did not take it passes
// that wake on (PassOnWake). An idle waiter is asleep in the kernel: no polling, no CPU.
//
// Kernels before 5.16 have no futex_waitv (checked once). There a wait that sleeps on several words sleeps
// instead on one wake word of the user, in shared memory, that every W32pFutexWakeAll of every process of the
// user advances and wakes while such a wait is registered on it. Each signal then wakes every such wait of
// the user (they check their objects and sleep again). A mutex abandoned by a killed process is the one wake
// that does not pass through W32pFutexWakeAll (the kernel wakes its word directly), so such waits over a
// mutex wake at least every 100 ms to look.
// The contract, and where Linux differs from Windows, are in w32p_sync.h.
#include "w32p_sync.h"
#include "w32p_waitable.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

// An object whose state never changes: never signalled for the pseudo handles of the current process and
// thread (they end only with the waiter itself), always signalled for file handles (I/O here is complete
// when the call that started it returns).
class Unchanging : public W32pWaitable
{
public:
    explicit Unchanging(bool signalled)
        : W32pWaitable(W32pKind::Other, &m_word, &m_sleepers, false), m_word(signalled ? 1 : 0)
    {
    }
    W32pClaim ClaimLocked() override { return m_word.load() ? W32pClaim::Claimed : W32pClaim::NotReady; }
    bool Signalled() override { return m_word.load() != 0; }
    bool SleepValue(std::uint32_t& value) override
    {
        value = m_word.load();
        return value == 0;
    }

private:
    std::atomic<std::uint32_t> m_word;
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

bool Before(const struct timespec& a, const struct timespec& b)
{
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

bool Passed(const struct timespec& deadline)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return !Before(now, deadline);
}

// ---- the sleep of waits on several words on kernels without futex_waitv ----

// -1 not known yet, 0 futex_waitv, 1 the wake word.
std::atomic<int> g_fallback{-1};

bool UseFallback()
{
    int use = g_fallback.load();
    if (use < 0)
    {
        // Zero words is refused with EINVAL by a kernel that has the call, and with ENOSYS (or, under a
        // filter, another error) by one that has not.
        const long result = syscall(SYS_futex_waitv, nullptr, 0, 0, nullptr, CLOCK_MONOTONIC);
        use = result == -1 && errno == EINVAL ? 0 : 1;
        int unknown = -1;
        if (!g_fallback.compare_exchange_strong(unknown, use))
            use = unknown;
    }
    return use == 1;
}

struct WakeState
{
    std::atomic<std::uint32_t> sequence; // advanced by every wake while sleepers is not 0
    std::atomic<std::uint32_t> sleepers; // waits registered on sequence
};
static_assert(sizeof(WakeState) <= sizeof(W32pNamedHeader::state), "fits the header");

// The user's wake word, a named object of its own kind that lives while this process does (it is never
// closed: a wait may still use it while the process exits). Without shared memory, a word of this process.
std::shared_ptr<W32pNamedSegment> OpenWakeSegment()
{
    return W32pNamedSegment::OpenInternal(".wake", W32pKind::Other, 0,
                                          [](W32pNamedHeader& header) { new (header.state) WakeState(); });
}

WakeState& TheWakeState()
{
    static const auto* const segment = new std::shared_ptr<W32pNamedSegment>(OpenWakeSegment());
    static WakeState local{};
    return *segment ? *reinterpret_cast<WakeState*>((*segment)->Header().state) : local;
}

void WakeFallbackSleepers()
{
    WakeState& wake = TheWakeState();
    if (wake.sleepers.load() == 0)
        return;
    wake.sequence.fetch_add(1);
    syscall(SYS_futex, &wake.sequence, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Sleeps until the wake word leaves sequence, or the deadline (null: none); at most 100 ms when the kernel
// may wake one of the objects directly.
void SleepOnWakeWord(WakeState& wake, std::uint32_t sequence, const struct timespec* deadline, bool capped)
{
    struct timespec cap;
    if (capped)
    {
        cap = Deadline(100);
        if (deadline == nullptr || Before(cap, *deadline))
            deadline = &cap;
    }
    syscall(SYS_futex, &wake.sequence, FUTEX_WAIT_BITSET, sequence, deadline, nullptr,
            FUTEX_BITSET_MATCH_ANY);
}

// Sleeps until a word differs from its value, a wake, or the deadline (null: none).
void SleepOnWords(W32pWaitable* const* objects, const std::uint32_t* values, DWORD count,
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

// Steps 2 and 3: registers, reads the words and sleeps unless one shows its object signalled. Returns
// whether it slept.
bool SleepRound(W32pWaitable* const* objects, DWORD count, const struct timespec* deadline)
{
    WakeState* wake = count > 1 && UseFallback() ? &TheWakeState() : nullptr;
    if (wake != nullptr)
        wake->sleepers.fetch_add(1);
    for (DWORD i = 0; i < count; ++i)
        objects[i]->Sleepers()->fetch_add(1);
    const std::uint32_t sequence = wake != nullptr ? wake->sequence.load() : 0;
    std::uint32_t values[MAXIMUM_WAIT_OBJECTS];
    bool sleeps = true;
    bool kernelWakes = false;
    for (DWORD i = 0; i < count && sleeps; ++i)
    {
        sleeps = objects[i]->SleepValue(values[i]);
        kernelWakes = kernelWakes || objects[i]->KernelWakes();
    }
    if (sleeps && wake == nullptr)
        SleepOnWords(objects, values, count, deadline);
    else if (sleeps)
        SleepOnWakeWord(*wake, sequence, deadline, kernelWakes);
    for (DWORD i = 0; i < count; ++i)
        objects[i]->Sleepers()->fetch_sub(1);
    if (wake != nullptr)
        wake->sleepers.fetch_sub(1);
    return sleeps;
}

// Step 1 of a wait-any: takes the signalled object with the lowest index.
bool ClaimAny(W32pWaitable* const* objects, DWORD count, DWORD& taken, DWORD& result)
{
    for (DWORD i = 0; i < count; ++i)
    {
        const W32pClaim claim = objects[i]->TryClaim();
        if (claim == W32pClaim::NotReady)
            continue;
        taken = i;
        result = (claim == W32pClaim::Abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + i;
        return true;
    }
    return false;
}

// Takes the claim locks of all objects. Never waits while holding one: when a lock is taken, it lets go of
// those it has, waits for that one to be free and starts again, so two wait-alls never deadlock.
void LockAll(W32pWaitable* const* objects, DWORD count)
{
    for (;;)
    {
        DWORD locked = 0;
        while (locked < count && objects[locked]->TryLockClaims())
            ++locked;
        if (locked == count)
            return;
        for (DWORD i = 0; i < locked; ++i)
            objects[i]->UnlockClaims();
        objects[locked]->LockClaims();
        objects[locked]->UnlockClaims();
    }
}

// Step 1 of a wait-all: takes every object if every one is signalled, else none. result is WAIT_OBJECT_0,
// or WAIT_ABANDONED_0 + the lowest index of an abandoned mutex among them.
bool ClaimAll(W32pWaitable* const* objects, DWORD count, DWORD& result)
{
    LockAll(objects, count);
    bool all = true;
    for (DWORD i = 0; i < count && all; ++i)
        all = objects[i]->Signalled();
    result = WAIT_OBJECT_0;
    for (DWORD i = 0; i < count && all; ++i)
        if (objects[i]->ClaimLocked() == W32pClaim::Abandoned && result == WAIT_OBJECT_0)
            result = WAIT_ABANDONED_0 + i;
    for (DWORD i = 0; i < count; ++i)
        objects[i]->UnlockClaims();
    return all;
}

// The object a wait-all sleeps on: the last that is not signalled (read without its claim lock, so only a
// hint), or null when all seem signalled. All must become signalled, so a wake of that one is the only one
// worth waking for; signallers that signal a set in index order then wake the wait once.
W32pWaitable* LastUnsignalled(W32pWaitable* const* objects, DWORD count)
{
    for (DWORD i = count; i-- > 0;)
        if (!objects[i]->Signalled())
            return objects[i];
    return nullptr;
}

DWORD Wait(W32pWaitable* const* objects, DWORD count, bool all, DWORD milliseconds)
{
    const bool finite = milliseconds != INFINITE;
    const struct timespec deadline = finite ? Deadline(milliseconds) : timespec();
    bool slept = false;
    for (;;)
    {
        DWORD taken = count; // a wait-any's object
        DWORD result = WAIT_FAILED;
        const bool done = all ? ClaimAll(objects, count, result) : ClaimAny(objects, count, taken, result);
        if (slept)
            for (DWORD i = 0; i < count; ++i)
                if (i != taken)
                    objects[i]->PassOnWake();
        if (done)
            return result;
        if (milliseconds == 0 || (finite && Passed(deadline)))
            return WAIT_TIMEOUT;
        W32pWaitable* const missing = all ? LastUnsignalled(objects, count) : nullptr;
        slept = all ? missing != nullptr && SleepRound(&missing, 1, finite ? &deadline : nullptr)
                    : SleepRound(objects, count, finite ? &deadline : nullptr);
    }
}

// Whether two entries name one object (also through different handles of one named object). Files and
// pseudo handles share one unchanging stand-in each and are not compared.
bool HasDuplicates(W32pWaitable* const* objects, DWORD count)
{
    for (DWORD i = 0; i < count; ++i)
        for (DWORD j = i + 1; j < count; ++j)
            if (objects[i]->Word() == objects[j]->Word() && objects[i]->kind != W32pKind::Other)
                return true;
    return false;
}

} // namespace

void W32pUseWaitFallback(bool use)
{
    g_fallback.store(use ? 1 : -1);
}

W32pClaim W32pWaitable::TryClaim()
{
    LockClaims();
    const W32pClaim claim = ClaimLocked();
    UnlockClaims();
    return claim;
}

bool W32pWaitable::TryLockClaims()
{
    if (m_claimLock == nullptr)
        return true;
    std::uint32_t expected = 0;
    return m_claimLock->compare_exchange_strong(expected, W32pThreadId());
}

void W32pWaitable::LockClaims()
{
    for (unsigned spins = 1; !TryLockClaims(); ++spins)
    {
        sched_yield();
        if (spins % 1024 != 0)
            continue;
        // A thread id that no longer exists held it: a process killed within the few instructions it holds
        // the lock for.
        std::uint32_t holder = m_claimLock->load();
        if (holder != 0 && kill(static_cast<pid_t>(holder), 0) != 0 && errno == ESRCH)
            m_claimLock->compare_exchange_strong(holder, 0);
    }
}

void W32pWaitable::UnlockClaims()
{
    if (m_claimLock != nullptr)
        m_claimLock->store(0);
}

void W32pFutexWakeAll(std::atomic<std::uint32_t>* word, bool shared)
{
    syscall(SYS_futex, word, FUTEX_WAKE | (shared ? 0 : FUTEX_PRIVATE_FLAG), INT_MAX, nullptr, nullptr, 0);
    if (g_fallback.load() == 1)
        WakeFallbackSleepers();
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
        static const std::shared_ptr<W32pWaitable> never = std::make_shared<Unchanging>(false);
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
    case W32pKind::File:
    {
        static const std::shared_ptr<W32pWaitable> always = std::make_shared<Unchanging>(true);
        return always;
    }
    case W32pKind::FileMapping: // a section has no right to be waited for
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
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
    return Wait(&raw, 1, false, milliseconds);
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
    if (!waitAll)
        return Wait(raw, count, false, milliseconds);
    if (HasDuplicates(raw, count))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    return Wait(raw, count, true, milliseconds);
}
