// The process-wide handle table shared by every kind of object of this layer (events, semaphores,
// mutexes, threads, processes, file mappings, files, searches, snapshots, ...).
//
// A HANDLE is a small multiple of 4, never 0 and never INVALID_HANDLE_VALUE, naming one slot that holds a
// shared reference to the object. Closing removes the slot; the object dies with its last reference (a
// wait in progress keeps its own), so closing is thread-safe against concurrent use. Values of closed
// slots are reused, as on Windows. Internal to win32posix: the library sees only HANDLE.
#pragma once

#include "w32p_base.h"

#include <memory>

enum class W32pKind
{
    Event,
    Semaphore,
    Mutex,
    Thread,
    Process,
    FileMapping,
    File,
    FindFile,
    Snapshot,
    Other,
};

struct W32P_API W32pObject
{
    explicit W32pObject(W32pKind objectKind) : kind(objectKind) {}
    virtual ~W32pObject();
    W32pObject(const W32pObject&) = delete;
    W32pObject& operator=(const W32pObject&) = delete;

    const W32pKind kind;
};

// A new handle for object; null with ERROR_NOT_ENOUGH_MEMORY (table full) or ERROR_INVALID_PARAMETER
// (null object).
W32P_API HANDLE W32pInsertHandle(std::shared_ptr<W32pObject> object);
// The object behind handle; null with ERROR_INVALID_HANDLE for an unknown, closed or special value.
W32P_API std::shared_ptr<W32pObject> W32pLookupHandle(HANDLE handle);
// The object behind handle if it is of that kind; null with ERROR_INVALID_HANDLE otherwise.
template <typename T>
std::shared_ptr<T> W32pLookupHandleAs(HANDLE handle, W32pKind kind)
{
    std::shared_ptr<W32pObject> object = W32pLookupHandle(handle);
    if (!object)
        return nullptr;
    if (object->kind != kind)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return std::static_pointer_cast<T>(object);
}
// Removes handle from the table and returns what it held (null with ERROR_INVALID_HANDLE if none).
W32P_API std::shared_ptr<W32pObject> W32pRemoveHandle(HANDLE handle);
// Number of open handles (for tests that check nothing leaks).
W32P_API std::size_t W32pOpenHandleCount();

#define DUPLICATE_CLOSE_SOURCE 0x00000001
#define DUPLICATE_SAME_ACCESS 0x00000002

// FALSE with ERROR_INVALID_HANDLE for a handle that is not open.
W32P_API BOOL CloseHandle(HANDLE handle);
// Same process only: both process handles must be GetCurrentProcess() (or a handle of this process);
// another process fails with ERROR_NOT_SUPPORTED. The copy names the same object.
W32P_API BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE sourceHandle, HANDLE targetProcess,
                              LPHANDLE targetHandle, DWORD desiredAccess, BOOL inheritHandle, DWORD options);
// The pseudo handle (-1) of the calling process, as on Windows; it is never in the table.
W32P_API HANDLE GetCurrentProcess();
// The pseudo handle (-2) of the calling thread.
W32P_API HANDLE GetCurrentThread();
