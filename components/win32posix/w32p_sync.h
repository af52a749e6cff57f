// Events, semaphores and mutexes, the wait functions, Sleep and critical sections.
//
// Objects live while a handle (or a wait in progress) refers to them. Named objects share one namespace with
// file mappings and are visible to every process of the same user: their state lives in POSIX shared memory,
// in a folder of the user's own (mode 0700) that no other user can put a name into; a name found there that
// this code did not make for the user is refused with ERROR_ACCESS_DENIED. A named object exists exactly
// while some process holds a handle to it; a process that exits without closing its handles releases them
// at exit, and a holder killed with SIGKILL counts as gone (its file is removed by the last closer, or by the
// next create or open in any process when every holder was killed). A named object costs its holders no
// file descriptor, so a process may hold tens of thousands, as on Windows. Linux has
// no sessions, so "Local\x", "Global\x" and "x" all name the same object. Names are case-sensitive.
// Differs from Windows: "Global\" names are not shared with other users (on Windows they are machine-wide,
// open to the users the creator's security descriptor admits); security attributes and access masks are
// accepted and ignored, so every handle has full access (a handle opened with SYNCHRONIZE alone may still
// signal the object); handles are not inherited by child processes.
//
// Waits sleep in the kernel on futexes, never poll, and measure time-outs on the monotonic clock. All
// functions are thread-safe.
#pragma once

#include "w32p_base.h"

#define WAIT_OBJECT_0 0x00000000u
#define WAIT_ABANDONED 0x00000080u
#define WAIT_ABANDONED_0 0x00000080u
#define WAIT_IO_COMPLETION 0x000000C0u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu
#define STILL_ACTIVE 259u

#define DELETE 0x00010000L
#define READ_CONTROL 0x00020000L
#define EVENT_MODIFY_STATE 0x0002
#define EVENT_ALL_ACCESS 0x1F0003
#define SEMAPHORE_MODIFY_STATE 0x0002
#define SEMAPHORE_ALL_ACCESS 0x1F0003
#define MUTEX_MODIFY_STATE 0x0001
#define MUTEX_ALL_ACCESS 0x1F0001

// A new event, or (named, existing event) a handle to the existing one with ERROR_ALREADY_EXISTS; its
// manualReset and initialState are then ignored. Null with ERROR_INVALID_HANDLE when the name belongs to
// another kind of object, or the error of the failing system call.
W32P_API HANDLE CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                             LPCWSTR name);
// The existing named event; null with ERROR_FILE_NOT_FOUND (unknown), ERROR_INVALID_HANDLE (another kind)
// or ERROR_INVALID_PARAMETER (null name).
W32P_API HANDLE OpenEventW(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name);
// Signals the event: a manual-reset event releases every waiter until reset, an auto-reset event exactly one
// waiter (or the next one to come). FALSE with ERROR_INVALID_HANDLE for anything but an open event handle.
W32P_API BOOL SetEvent(HANDLE event);
// Unsignals the event. FALSE with ERROR_INVALID_HANDLE for anything but an open event handle.
W32P_API BOOL ResetEvent(HANDLE event);

// A semaphore with count initialCount (0 <= initialCount <= maximumCount, maximumCount > 0, else null with
// ERROR_INVALID_PARAMETER); named and existing: as CreateEventW, the counts are then ignored.
W32P_API HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES attributes, LONG initialCount, LONG maximumCount,
                                 LPCWSTR name);
// As OpenEventW, for semaphores.
W32P_API HANDLE OpenSemaphoreW(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name);
// Adds releaseCount (> 0) to the count and stores the count before it in previousCount (if given). FALSE with
// ERROR_TOO_MANY_POSTS when that would pass the maximum (nothing changed, previousCount not written),
// ERROR_INVALID_PARAMETER for a count <= 0, ERROR_INVALID_HANDLE for anything but a semaphore handle.
W32P_API BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount);

// A mutex, owned by the calling thread when initialOwner is TRUE and this call created it (joining an
// existing named mutex gives no ownership, as on Windows). Recursive: the owner may wait on it again and must
// release it as often. A mutex whose owner thread ends, or whose owner process dies (also by SIGKILL), while
// holding it is abandoned: the next waiter gets WAIT_ABANDONED_0 + i and owns it.
W32P_API HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES attributes, BOOL initialOwner, LPCWSTR name);
// As OpenEventW, for mutexes.
W32P_API HANDLE OpenMutexW(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name);
// Gives up one level of ownership. FALSE with ERROR_NOT_OWNER when the calling thread does not own it,
// ERROR_INVALID_HANDLE for anything but a mutex handle.
W32P_API BOOL ReleaseMutex(HANDLE mutex);

// Waits until the object is signalled and takes it (auto-reset event cleared, semaphore count lowered, mutex
// owned). WAIT_OBJECT_0, WAIT_ABANDONED_0 (abandoned mutex, now owned), WAIT_TIMEOUT after milliseconds
// (INFINITE: never), or WAIT_FAILED with ERROR_INVALID_HANDLE for a handle that is not open or not waitable.
// Waitable: events, semaphores, mutexes, threads, processes (signalled at their end), the pseudo handles of
// the current process and thread (never signalled) and files (always signalled: I/O here completes within
// the call that starts it). A file-mapping handle fails with ERROR_ACCESS_DENIED, as a section on Windows.
// Time-outs run on the monotonic clock, which (as on Windows since 8) does not count time the machine spent
// suspended. Differs from Windows: nothing known.
W32P_API DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
// Wait-any (waitAll FALSE): takes exactly one signalled object, the one with the lowest index, and returns
// WAIT_OBJECT_0 + i or WAIT_ABANDONED_0 + i. Wait-all (waitAll TRUE): waits until every object is signalled
// and takes them all at once, WAIT_OBJECT_0, or WAIT_ABANDONED_0 + i where i is the lowest index of an
// abandoned mutex among them (all are taken then too); until then it holds none of them, and no other
// waiter, in any process, ever sees a part of the set taken. WAIT_TIMEOUT as above. WAIT_FAILED with
// ERROR_INVALID_PARAMETER for count 0 or above MAXIMUM_WAIT_OBJECTS (64), a null array, or (wait-all) one
// object twice, also through two handles; ERROR_INVALID_HANDLE (or ERROR_ACCESS_DENIED) as above.
// Differs from Windows: a wait-all that keeps losing single objects to wait-any waiters may wait longer
// than on Windows (no queue order between waiters; neither is promised there). Without futex_waitv (kernels
// before 5.16) a sleeping wait-any on several objects is woken by every signal of any object of the user and
// looks again; over a mutex whose owner may be killed it also looks every 100 ms, because the kernel wakes
// such a mutex's sleepers without passing through this code.
W32P_API DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);
// Suspends the calling thread for milliseconds (INFINITE: for ever); Sleep(0) yields the processor.
W32P_API void Sleep(DWORD milliseconds);

// A recursive lock inside one process, as on Windows: the owner may enter again and must leave as often.
// Tools that check threads see it as an ordinary mutex (it wraps a recursive pthread mutex, allocated by
// InitializeCriticalSection and freed by DeleteCriticalSection; DebugInfo holds it).
typedef struct _RTL_CRITICAL_SECTION
{
    PVOID DebugInfo;
    LONG LockCount;
    LONG RecursionCount;
    HANDLE OwningThread;
    HANDLE LockSemaphore;
    ULONG_PTR SpinCount;
} CRITICAL_SECTION, *PCRITICAL_SECTION, *LPCRITICAL_SECTION;

W32P_API void InitializeCriticalSection(LPCRITICAL_SECTION section);
W32P_API void EnterCriticalSection(LPCRITICAL_SECTION section);
// TRUE when the calling thread now owns the section (also when it already did), FALSE when another does.
W32P_API BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section);
W32P_API void LeaveCriticalSection(LPCRITICAL_SECTION section);
W32P_API void DeleteCriticalSection(LPCRITICAL_SECTION section);
