// The process-wide handle table, CloseHandle and DuplicateHandle.
// The contract, and where Linux differs from Windows, are in w32p_handles.h.
#include "w32p_handles.h"

#include <mutex>
#include <vector>

W32pObject::~W32pObject() {}

namespace
{

constexpr std::size_t kMaxHandles = 1u << 24;

struct HandleTable
{
    std::mutex lock;                                // guards slots and freeSlots
    std::vector<std::shared_ptr<W32pObject>> slots; // slot i is handle value 4 * (i + 1)
    std::vector<std::size_t> freeSlots;             // empty slots, reused last-in first-out
};

HandleTable& Table()
{
    static HandleTable* table = new HandleTable; // never destroyed: handles may be closed during exit
    return *table;
}

bool SlotOf(HANDLE handle, std::size_t& slot)
{
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if (value == 0 || (value & 3u) != 0 || value > 4 * kMaxHandles)
        return false;
    slot = value / 4 - 1;
    return true;
}

} // namespace

HANDLE W32pInsertHandle(std::shared_ptr<W32pObject> object)
{
    if (!object)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    HandleTable& t = Table();
    std::lock_guard<std::mutex> guard(t.lock);
    std::size_t slot;
    if (!t.freeSlots.empty())
    {
        slot = t.freeSlots.back();
        t.freeSlots.pop_back();
        t.slots[slot] = std::move(object);
    }
    else
    {
        if (t.slots.size() >= kMaxHandles)
        {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        slot = t.slots.size();
        t.slots.push_back(std::move(object));
    }
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(4 * (slot + 1)));
}

std::shared_ptr<W32pObject> W32pLookupHandle(HANDLE handle)
{
    std::size_t slot;
    if (SlotOf(handle, slot))
    {
        HandleTable& t = Table();
        std::lock_guard<std::mutex> guard(t.lock);
        if (slot < t.slots.size() && t.slots[slot])
            return t.slots[slot];
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

std::shared_ptr<W32pObject> W32pRemoveHandle(HANDLE handle)
{
    std::size_t slot;
    std::shared_ptr<W32pObject> object;
    if (SlotOf(handle, slot))
    {
        HandleTable& t = Table();
        std::lock_guard<std::mutex> guard(t.lock);
        if (slot < t.slots.size() && t.slots[slot])
        {
            object = std::move(t.slots[slot]);
            t.slots[slot].reset();
            t.freeSlots.push_back(slot);
        }
    }
    if (!object)
        SetLastError(ERROR_INVALID_HANDLE);
    return object; // destroyed by the caller outside the table lock
}

std::size_t W32pOpenHandleCount()
{
    HandleTable& t = Table();
    std::lock_guard<std::mutex> guard(t.lock);
    return t.slots.size() - t.freeSlots.size();
}

BOOL CloseHandle(HANDLE handle)
{
    std::shared_ptr<W32pObject> object = W32pRemoveHandle(handle);
    return object ? TRUE : FALSE;
}

HANDLE GetCurrentProcess()
{
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));
}

HANDLE GetCurrentThread()
{
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));
}

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE sourceHandle, HANDLE targetProcess, LPHANDLE targetHandle,
                     DWORD /*desiredAccess*/, BOOL /*inheritHandle*/, DWORD options)
{
    if (sourceProcess != GetCurrentProcess() || targetProcess != GetCurrentProcess())
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    std::shared_ptr<W32pObject> object = W32pLookupHandle(sourceHandle);
    if (!object)
        return FALSE;
    HANDLE copy = W32pInsertHandle(object);
    if (copy == nullptr)
        return FALSE;
    if (targetHandle != nullptr)
        *targetHandle = copy;
    else
        W32pRemoveHandle(copy);
    if (options & DUPLICATE_CLOSE_SOURCE)
        W32pRemoveHandle(sourceHandle);
    return TRUE;
}
