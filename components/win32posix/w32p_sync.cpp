// Events, semaphores, mutexes and critical sections.
// The contract, and where Linux differs from Windows, are in w32p_sync.h.
#include "w32p_sync.h"

#include "w32p_waitable.h"

#include <cerrno>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace
{

// ---- state records, one per kind; the same layout serves unnamed (heap) and named (shared page) objects
// ----

struct EventState
{
    std::atomic<std::uint32_t> word;      // 1 signalled, 0 not; changed by SetEvent, ResetEvent and claims
    std::atomic<std::uint32_t> sleepers;  // see W32pWaitable
    std::uint32_t manualReset;            // fixed at creation
    std::atomic<std::uint32_t> claimLock; // see W32pWaitable
};

struct SemaphoreState
{
    std::atomic<std::uint32_t> word;      // the count, 0..maximum; changed by releases and claims
    std::atomic<std::uint32_t> sleepers;  // see W32pWaitable
    std::uint32_t maximum;                // fixed at creation
    std::atomic<std::uint32_t> claimLock; // see W32pWaitable
};

// Laid out as an entry of the kernel's robust futex list (the layout glibc gives its robust mutexes): the
// owner thread links the entry into its list while it owns the mutex, so that if the thread dies (also with
// its whole process, by SIGKILL) the kernel sets FUTEX_OWNER_DIED in the word and wakes a sleeper.
struct MutexState
{
    std::atomic<std::uint32_t> word;      // owner's thread id | kOwnerDied | kWaiters; 0 when free
    std::atomic<std::uint32_t> sleepers;  // see W32pWaitable
    std::atomic<std::uint32_t> recursion; // how often the owner holds it; touched by the owner only
    std::atomic<std::uint32_t> claimLock; // see W32pWaitable
    std::uint64_t unused1;
    void* prev; // robust list links, each the address of a neighbour's next; owner thread only
    void* next;
};
constexpr long kRobustFutexOffset = 0 - 32; // word relative to next
static_assert(sizeof(MutexState) == 40, "robust list entry layout");

constexpr std::uint32_t kTidMask = 0x3FFFFFFFu;   // FUTEX_TID_MASK
constexpr std::uint32_t kOwnerDied = 0x40000000u; // FUTEX_OWNER_DIED: set by the kernel or a thread's end
constexpr std::uint32_t kWaiters = 0x80000000u;   // FUTEX_WAITERS: a sleeper needs a wake on release

static_assert(sizeof(EventState) <= sizeof(W32pNamedHeader::state), "fits the header");

// ---- the robust futex list of the calling thread ----

struct RobustHead
{
    void* list; // address of the first entry's next, or of this field when the list is empty
    long futexOffset;
    void* listOpPending;
};

// The list the C library registered for this thread, if its entries have our layout; else null, and only the
// orderly end of a thread abandons its mutexes (a killed process then leaves them owned).
RobustHead* ThreadRobustHead()
{
    thread_local RobustHead* head = nullptr;
    thread_local bool known = false;
    if (!known)
    {
        known = true;
        void* registered = nullptr;
        std::size_t length = 0;
        if (syscall(SYS_get_robust_list, 0, &registered, &length) == 0 && registered != nullptr &&
            length == sizeof(RobustHead) &&
            static_cast<RobustHead*>(registered)->futexOffset == kRobustFutexOffset)
            head = static_cast<RobustHead*>(registered);
    }
    return head;
}

void** PrevSlotOf(void* entryNext)
{
    return reinterpret_cast<void**>(reinterpret_cast<std::uintptr_t>(entryNext) & ~std::uintptr_t(1)) - 1;
}

void RobustLink(MutexState& state)
{
    RobustHead* head = ThreadRobustHead();
    if (head == nullptr)
        return;
    void* first = head->list;
    state.next = first;
    state.prev = &head->list;
    *PrevSlotOf(first) = &state.next;
    __atomic_signal_fence(__ATOMIC_SEQ_CST); // the kernel must see a whole entry
    head->list = &state.next;
}

void RobustUnlink(MutexState& state)
{
    RobustHead* head = ThreadRobustHead();
    if (head == nullptr || state.next == nullptr)
        return;
    *PrevSlotOf(state.next) = state.prev;
    *reinterpret_cast<void**>(reinterpret_cast<std::uintptr_t>(state.prev) & ~std::uintptr_t(1)) = state.next;
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    state.prev = nullptr;
    state.next = nullptr;
}

void SetOpPending(void* entry)
{
    if (RobustHead* head = ThreadRobustHead())
    {
        head->listOpPending = entry;
        __atomic_signal_fence(__ATOMIC_SEQ_CST);
    }
}

// ---- storage of a state record: on the heap, or in the header of a named segment ----

template <typename State>
struct Storage
{
    std::unique_ptr<State> own;                // unnamed objects
    std::shared_ptr<W32pNamedSegment> segment; // named objects
    State* state = nullptr;
};

template <typename State>
bool MakeStorage(LPCWSTR name, W32pKind kind, bool create, const std::function<void(State&)>& init,
                 Storage<State>& storage, bool& created)
{
    if (name == nullptr || *name == L'\0')
    {
        storage.own.reset(new State());
        init(*storage.own);
        storage.state = storage.own.get();
        created = true;
        return true;
    }
    storage.segment = W32pNamedSegment::Open(
        name, kind, create, 0, [&](W32pNamedHeader& header) { init(*new (header.state) State()); }, created);
    if (!storage.segment)
        return false;
    storage.state = reinterpret_cast<State*>(storage.segment->Header().state);
    return true;
}

class Event : public W32pWaitable
{
public:
    explicit Event(Storage<EventState> storage)
        : W32pWaitable(W32pKind::Event, &storage.state->word, &storage.state->sleepers, !!storage.segment,
                       &storage.state->claimLock),
          m_storage(std::move(storage)), m_state(*m_storage.state)
    {
    }
    W32pClaim ClaimLocked() override
    {
        if (m_state.manualReset)
            return m_state.word.load() ? W32pClaim::Claimed : W32pClaim::NotReady;
        std::uint32_t expected = 1;
        return m_state.word.compare_exchange_strong(expected, 0) ? W32pClaim::Claimed : W32pClaim::NotReady;
    }
    bool Signalled() override { return m_state.word.load() != 0; }
    bool SleepValue(std::uint32_t& value) override
    {
        value = m_state.word.load();
        return value == 0;
    }
    void Set()
    {
        if (m_state.word.exchange(1) == 0)
            WakeAll();
    }
    // Under the claim lock, so that a wait-all never sees the event signalled and then fails to take it.
    void Reset()
    {
        LockClaims();
        m_state.word.store(0);
        UnlockClaims();
    }

private:
    Storage<EventState> m_storage;
    EventState& m_state;
};

class Semaphore : public W32pWaitable
{
public:
    explicit Semaphore(Storage<SemaphoreState> storage)
        : W32pWaitable(W32pKind::Semaphore, &storage.state->word, &storage.state->sleepers, !!storage.segment,
                       &storage.state->claimLock),
          m_storage(std::move(storage)), m_state(*m_storage.state)
    {
    }
    W32pClaim ClaimLocked() override
    {
        std::uint32_t count = m_state.word.load();
        while (count > 0)
            if (m_state.word.compare_exchange_weak(count, count - 1))
                return W32pClaim::Claimed;
        return W32pClaim::NotReady;
    }
    bool Signalled() override { return m_state.word.load() != 0; }
    bool SleepValue(std::uint32_t& value) override
    {
        value = m_state.word.load();
        return value == 0;
    }
    BOOL Release(LONG count, LONG* previous)
    {
        std::uint32_t current = m_state.word.load();
        do
        {
            if (static_cast<std::uint64_t>(current) + static_cast<std::uint32_t>(count) > m_state.maximum)
            {
                SetLastError(ERROR_TOO_MANY_POSTS);
                return FALSE;
            }
        } while (!m_state.word.compare_exchange_weak(current, current + static_cast<std::uint32_t>(count)));
        if (previous != nullptr)
            *previous = static_cast<LONG>(current);
        WakeAll();
        return TRUE;
    }

private:
    Storage<SemaphoreState> m_storage;
    SemaphoreState& m_state;
};

class Mutex;

// The mutexes the calling thread owns; a thread that ends abandons them (the kernel does the same for a
// thread of a process that is killed). Holding a reference keeps the state mapped while it is linked into the
// list.
struct OwnedMutexes
{
    std::vector<std::shared_ptr<Mutex>> list;
    ~OwnedMutexes();
};
thread_local OwnedMutexes t_owned;

class Mutex : public W32pWaitable, public std::enable_shared_from_this<Mutex>
{
public:
    explicit Mutex(Storage<MutexState> storage)
        : W32pWaitable(W32pKind::Mutex, &storage.state->word, &storage.state->sleepers, true,
                       &storage.state->claimLock),
          m_storage(std::move(storage)), m_state(*m_storage.state)
    {
    }
    W32pClaim ClaimLocked() override
    {
        const std::uint32_t self = W32pThreadId();
        std::uint32_t word = m_state.word.load();
        for (;;)
        {
            if ((word & kTidMask) == self)
            {
                m_state.recursion.store(m_state.recursion.load(std::memory_order_relaxed) + 1,
                                        std::memory_order_relaxed);
                return W32pClaim::Claimed;
            }
            if ((word & kTidMask) != 0)
                return W32pClaim::NotReady;
            SetOpPending(&m_state.next);
            if (m_state.word.compare_exchange_weak(word, self | (word & kWaiters)))
                break;
        }
        m_state.recursion.store(1, std::memory_order_relaxed);
        RobustLink(m_state);
        SetOpPending(nullptr);
        t_owned.list.push_back(shared_from_this());
        return (word & kOwnerDied) ? W32pClaim::Abandoned : W32pClaim::Claimed;
    }
    bool Signalled() override
    {
        const std::uint32_t owner = m_state.word.load() & kTidMask;
        return owner == 0 || owner == W32pThreadId();
    }
    bool KernelWakes() const override { return true; }
    bool SleepValue(std::uint32_t& value) override
    {
        const std::uint32_t self = W32pThreadId();
        std::uint32_t word = m_state.word.load();
        for (;;)
        {
            if ((word & kTidMask) == 0 || (word & kTidMask) == self)
                return false;
            if ((word & kWaiters) || m_state.word.compare_exchange_weak(word, word | kWaiters))
                break;
        }
        value = word | kWaiters;
        return true;
    }
    void PassOnWake() override
    {
        std::uint32_t word = m_state.word.load();
        if ((word & kTidMask) == 0 && (word & kWaiters) &&
            m_state.word.compare_exchange_strong(word, word & ~kWaiters))
            W32pFutexWakeAll(&m_state.word, true);
    }
    BOOL Release()
    {
        if ((m_state.word.load() & kTidMask) != W32pThreadId())
        {
            SetLastError(ERROR_NOT_OWNER);
            return FALSE;
        }
        const std::uint32_t depth = m_state.recursion.load(std::memory_order_relaxed);
        if (depth > 1)
        {
            m_state.recursion.store(depth - 1, std::memory_order_relaxed);
            return TRUE;
        }
        GiveUp(0);
        return TRUE;
    }
    bool OwnedByCaller() const { return (m_state.word.load() & kTidMask) == W32pThreadId(); }
    // Ends the calling thread's ownership; newWord is 0 (released) or kOwnerDied (abandoned).
    void GiveUp(std::uint32_t newWord)
    {
        std::shared_ptr<Mutex> keep = shared_from_this();
        m_state.recursion.store(0, std::memory_order_relaxed);
        SetOpPending(&m_state.next);
        RobustUnlink(m_state);
        const std::uint32_t old = m_state.word.exchange(newWord);
        SetOpPending(nullptr);
        if ((old & kWaiters) || m_state.sleepers.load() != 0)
            W32pFutexWakeAll(&m_state.word, true);
        // Handles opened separately on one named mutex are distinct objects over one state: match the state.
        auto& owned = t_owned.list;
        for (auto it = owned.begin(); it != owned.end(); ++it)
            if (&(*it)->m_state == &m_state)
            {
                owned.erase(it);
                break;
            }
    }

private:
    Storage<MutexState> m_storage;
    MutexState& m_state;
};

OwnedMutexes::~OwnedMutexes()
{
    while (!list.empty())
    {
        std::shared_ptr<Mutex> mutex = list.back();
        if (mutex->OwnedByCaller())
            mutex->GiveUp(kOwnerDied);
        else
            list.pop_back();
    }
}

template <typename T>
HANDLE Insert(std::shared_ptr<T> object, bool created)
{
    HANDLE handle = W32pInsertHandle(std::move(object));
    if (handle != nullptr)
        SetLastError(created ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return handle;
}

bool CheckOpenName(LPCWSTR name)
{
    if (name == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (*name == L'\0')
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return false;
    }
    return true;
}

} // namespace

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    Storage<EventState> storage;
    bool created = false;
    std::function<void(EventState&)> init = [&](EventState& s)
    {
        s.manualReset = manualReset ? 1 : 0;
        s.word.store(initialState ? 1 : 0);
    };
    if (!MakeStorage(name, W32pKind::Event, true, init, storage, created))
        return nullptr;
    return Insert(std::make_shared<Event>(std::move(storage)), created);
}

HANDLE OpenEventW(DWORD, BOOL, LPCWSTR name)
{
    if (!CheckOpenName(name))
        return nullptr;
    Storage<EventState> storage;
    bool created = false;
    if (!MakeStorage<EventState>(name, W32pKind::Event, false, nullptr, storage, created))
        return nullptr;
    return Insert(std::make_shared<Event>(std::move(storage)), true);
}

BOOL SetEvent(HANDLE event)
{
    std::shared_ptr<Event> object = W32pLookupHandleAs<Event>(event, W32pKind::Event);
    if (!object)
        return FALSE;
    object->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE event)
{
    std::shared_ptr<Event> object = W32pLookupHandleAs<Event>(event, W32pKind::Event);
    if (!object)
        return FALSE;
    object->Reset();
    return TRUE;
}

HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES, LONG initialCount, LONG maximumCount, LPCWSTR name)
{
    if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Storage<SemaphoreState> storage;
    bool created = false;
    std::function<void(SemaphoreState&)> init = [&](SemaphoreState& s)
    {
        s.maximum = static_cast<std::uint32_t>(maximumCount);
        s.word.store(static_cast<std::uint32_t>(initialCount));
    };
    if (!MakeStorage(name, W32pKind::Semaphore, true, init, storage, created))
        return nullptr;
    return Insert(std::make_shared<Semaphore>(std::move(storage)), created);
}

HANDLE OpenSemaphoreW(DWORD, BOOL, LPCWSTR name)
{
    if (!CheckOpenName(name))
        return nullptr;
    Storage<SemaphoreState> storage;
    bool created = false;
    if (!MakeStorage<SemaphoreState>(name, W32pKind::Semaphore, false, nullptr, storage, created))
        return nullptr;
    return Insert(std::make_shared<Semaphore>(std::move(storage)), true);
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount)
{
    std::shared_ptr<Semaphore> object = W32pLookupHandleAs<Semaphore>(semaphore, W32pKind::Semaphore);
    if (!object)
        return FALSE;
    if (releaseCount <= 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return object->Release(releaseCount, previousCount);
}

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCWSTR name)
{
    Storage<MutexState> storage;
    bool created = false;
    std::function<void(MutexState&)> init = [](MutexState&) {};
    if (!MakeStorage(name, W32pKind::Mutex, true, init, storage, created))
        return nullptr;
    auto mutex = std::make_shared<Mutex>(std::move(storage));
    if (created && initialOwner)
        mutex->TryClaim(); // nobody else can see it yet
    return Insert(std::move(mutex), created);
}

HANDLE OpenMutexW(DWORD, BOOL, LPCWSTR name)
{
    if (!CheckOpenName(name))
        return nullptr;
    Storage<MutexState> storage;
    bool created = false;
    if (!MakeStorage<MutexState>(name, W32pKind::Mutex, false, nullptr, storage, created))
        return nullptr;
    return Insert(std::make_shared<Mutex>(std::move(storage)), true);
}

BOOL ReleaseMutex(HANDLE mutex)
{
    std::shared_ptr<Mutex> object = W32pLookupHandleAs<Mutex>(mutex, W32pKind::Mutex);
    if (!object)
        return FALSE;
    return object->Release();
}

void Sleep(DWORD milliseconds)
{
    if (milliseconds == 0)
    {
        sched_yield();
        return;
    }
    if (milliseconds == INFINITE)
        for (;;)
            pause();
    struct timespec rest = {static_cast<time_t>(milliseconds / 1000),
                            static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR)
    {
    }
}

void InitializeCriticalSection(LPCRITICAL_SECTION section)
{
    auto* mutex = new pthread_mutex_t;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    *section = CRITICAL_SECTION();
    section->DebugInfo = mutex;
    section->LockCount = -1;
}

void EnterCriticalSection(LPCRITICAL_SECTION section)
{
    pthread_mutex_lock(static_cast<pthread_mutex_t*>(section->DebugInfo));
}

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section)
{
    return pthread_mutex_trylock(static_cast<pthread_mutex_t*>(section->DebugInfo)) == 0 ? TRUE : FALSE;
}

void LeaveCriticalSection(LPCRITICAL_SECTION section)
{
    pthread_mutex_unlock(static_cast<pthread_mutex_t*>(section->DebugInfo));
}

void DeleteCriticalSection(LPCRITICAL_SECTION section)
{
    auto* mutex = static_cast<pthread_mutex_t*>(section->DebugInfo);
    if (mutex == nullptr)
        return;
    pthread_mutex_destroy(mutex);
    delete mutex;
    section->DebugInfo = nullptr;
}
