#include "velmutexobject.h"
#include "korutilitesbtracedef.h"
#include "velwaithelper.h"

CVeLMutexObject::CVeLMutexObject() : m_mutex(CreateMutexW(nullptr, FALSE, nullptr)), m_timeout(INFINITE)
{
    CheckForHandle();
}

CVeLMutexObject::CVeLMutexObject(DWORD timeout)
    : m_mutex(CreateMutexW(nullptr, FALSE, nullptr)), m_timeout(timeout)
{
    CheckForHandle();
}

CVeLMutexObject::CVeLMutexObject(std::wstring name)
    : m_mutex(CreateMutexW(nullptr, FALSE, name.c_str())), m_timeout(INFINITE)
{
    CheckForHandle();
}

CVeLMutexObject::CVeLMutexObject(std::wstring name, DWORD timeout)
    : m_mutex(CreateMutexW(nullptr, FALSE, name.c_str())), m_timeout(timeout)
{
    CheckForHandle();
}

CVeLMutexObject::~CVeLMutexObject() {}

void CVeLMutexObject::CheckForHandle()
{
    if (!IsValid())
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "No handle. LastError=0x%08X !", error);
    }
}

bool CVeLMutexObject::Lock()
{
    VEL_TRACE(VEL_DBG3, "Lock called (handle=0x%08X)", GetHandle());
    return LockWithTimeout(m_timeout);
}

bool CVeLMutexObject::TryLock()
{
    VEL_TRACE(VEL_DBG3, "TryLock called (handle=0x%08X)", GetHandle());
    return LockWithTimeout(0);
}

// The status is not inspected after a completed wait: a time-out counts as success. This is the
// established behaviour of this lock and callers depend on it.
bool CVeLMutexObject::LockWithTimeout(DWORD timeout) const
{
    if (!IsValid())
        return false;
    CVeLWaitHelper waitHelper(true);
    WaitStatusEnum status = WaitError;
    if (waitHelper.WaitForEvent(m_mutex.GetHandle(), timeout, status))
        return true;
    if (status == WaitTimeout)
        VEL_TRACE(VEL_DBG2, "WaitForEvent wasnt successfull in timeout %ul !", timeout);
    else
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "WaitForEvent failed (LastError=0x%08X)!", error);
    }
    return false;
}

bool CVeLMutexObject::Release()
{
    if (!IsValid())
        return false;
    VEL_TRACE(VEL_DBG3, "Release called (handle=0x%08X)", GetHandle());
    if (ReleaseMutex(m_mutex.GetHandle()))
        return true;
    VEL_TRACE(VEL_ERR, "ReleaseMutex failed!");
    return false;
}

bool CVeLMutexObject::IsValid() const
{
    return m_mutex.IsValid();
}

void* CVeLMutexObject::GetHandle() const
{
    return m_mutex.GetHandle();
}

bool CVeLMutexObject::Reset()
{
    if (!IsValid())
    {
        VEL_TRACE(VEL_ERR, "reset Semaphore failed -> Mutex handle is invalid!");
        return false;
    }
    VEL_TRACE(VEL_DBG3, "Reset called (handle=0x%08X)", GetHandle());
    TryLock();
    return true;
}
