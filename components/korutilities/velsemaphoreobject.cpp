#include "velsemaphoreobject.h"
#include "korutilitesbtracedef.h"
#include "velwaithelper.h"

CVeLSemaphoreObject::CVeLSemaphoreObject(int maxCount, int initialCount)
    : m_handle(nullptr), m_timeout(INFINITE)
{
    CreateSemaphor(maxCount, initialCount);
}

CVeLSemaphoreObject::CVeLSemaphoreObject(int maxCount, int initialCount, DWORD timeout)
    : m_handle(nullptr), m_timeout(timeout)
{
    CreateSemaphor(maxCount, initialCount);
}

CVeLSemaphoreObject::CVeLSemaphoreObject(int maxCount, int initialCount, std::wstring name)
    : m_handle(nullptr), m_timeout(INFINITE)
{
    CreateSemaphor(maxCount, initialCount, name);
}

CVeLSemaphoreObject::CVeLSemaphoreObject(int maxCount, int initialCount, std::wstring name, DWORD timeout)
    : m_handle(nullptr), m_timeout(timeout)
{
    CreateSemaphor(maxCount, initialCount, name);
}

CVeLSemaphoreObject::CVeLSemaphoreObject(std::wstring name) : m_handle(nullptr), m_timeout(INFINITE)
{
    OpenSemaphor(name);
}

CVeLSemaphoreObject::CVeLSemaphoreObject(std::wstring name, DWORD timeout)
    : m_handle(nullptr), m_timeout(timeout)
{
    OpenSemaphor(name);
}

CVeLSemaphoreObject::~CVeLSemaphoreObject()
{
    Destroy();
}

void CVeLSemaphoreObject::CreateSemaphor(int maxCount, int initialCount)
{
    m_handle = CreateSemaphoreW(nullptr, initialCount, maxCount, nullptr);
    if (m_handle == nullptr)
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "CreateSemaphore failed, LastError=0x%08X !", error);
    }
}

void CVeLSemaphoreObject::CreateSemaphor(int maxCount, int initialCount, const std::wstring& name)
{
    m_handle = CreateSemaphoreW(nullptr, initialCount, maxCount, name.c_str());
    if (m_handle == nullptr)
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "CreateSemaphore failed, LastError=0x%08X !", error);
    }
}

void CVeLSemaphoreObject::OpenSemaphor(const std::wstring& name)
{
    m_handle = OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, TRUE, name.c_str());
    if (m_handle == nullptr)
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "OpenSemaphore failed, LastError=0x%08X !", error);
    }
}

void CVeLSemaphoreObject::Destroy()
{
    if (!IsValid())
    {
        VEL_TRACE(VEL_ERR, "Invalid Semaphore!");
        return;
    }
    if (CloseHandle(m_handle))
        m_handle = nullptr;
    else
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "CloseHandle failed, LastError=0x%08X !", error);
    }
}

bool CVeLSemaphoreObject::Lock()
{
    VEL_TRACE(VEL_DBG3, "Lock called (handle=0x%08X)", GetHandle());
    return LockWithTimeout(m_timeout);
}

bool CVeLSemaphoreObject::TryLock()
{
    VEL_TRACE(VEL_DBG3, "TryLock called (handle=0x%08X)", GetHandle());
    return LockWithTimeout(0);
}

bool CVeLSemaphoreObject::LockWithTimeout(DWORD timeout) const
{
    if (!IsValid())
    {
        VEL_TRACE(VEL_ERR, "SemaphoreObject is not valid!");
        return false;
    }
    CVeLWaitHelper waitHelper(true);
    WaitStatusEnum status = WaitError;
    if (!waitHelper.WaitForEvent(m_handle, timeout, status))
    {
        VEL_TRACE(VEL_ERR, "WaitForEvent failed!");
        return false;
    }
    if (status == WaitTimeout)
        VEL_TRACE(VEL_DBG2, "WaitForEvent wasnt successfull in timeout %lu !", timeout);
    else if (status == WaitError)
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "WaitForEvent failed (LastError=0x%08X)!", error);
    }
    return status == WaitSignaled;
}

bool CVeLSemaphoreObject::Release()
{
    if (!IsValid())
    {
        VEL_TRACE(VEL_ERR, "SemaphoreObject is not valid!");
        return false;
    }
    VEL_TRACE(VEL_DBG3, "Release called (handle=0x%08X)", GetHandle());
    if (ReleaseSemaphore(m_handle, 1, nullptr))
        return true;
    const DWORD error = GetLastError();
    VEL_TRACE(VEL_ERR, "ReleaseSemaphore failed (LastError=0x%08X)!", error);
    return false;
}

bool CVeLSemaphoreObject::IsValid() const
{
    return m_handle != nullptr;
}

void* CVeLSemaphoreObject::GetHandle() const
{
    return m_handle;
}

bool CVeLSemaphoreObject::Reset()
{
    if (!IsValid())
    {
        VEL_TRACE(VEL_ERR, "reset Semaphore failed -> Semaphore handle is invalid!");
        return false;
    }
    VEL_TRACE(VEL_DBG1, "Reset called (handle=0x%08X)", GetHandle());
    TryLock();
    return true;
}
