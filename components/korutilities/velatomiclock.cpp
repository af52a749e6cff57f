#include "velatomiclock.h"
#include "velstopwatch.h"

CVeLAtomicLock::CVeLAtomicLock() : CVeLAtomicLock(INFINITE) {}

CVeLAtomicLock::CVeLAtomicLock(DWORD timeout) : m_flag(0), m_timeout(timeout)
{
    InterlockedExchange(&m_flag, 0);
}

CVeLAtomicLock::~CVeLAtomicLock() {}

bool CVeLAtomicLock::Lock()
{
    CVeLStopWatch watch(true);
    if (InterlockedExchange(&m_flag, 1) == 0)
        return true;
    for (;;)
    {
        if (m_timeout != INFINITE && m_timeout < watch.GetElapsedTime())
            return false;
        if (InterlockedExchange(&m_flag, 1) == 0)
            return true;
    }
}

bool CVeLAtomicLock::TryLock()
{
    return InterlockedExchange(&m_flag, 1) == 0;
}

bool CVeLAtomicLock::Release()
{
    InterlockedExchange(&m_flag, 0);
    return true;
}

bool CVeLAtomicLock::IsValid() const
{
    return true;
}

void* CVeLAtomicLock::GetHandle() const
{
    return nullptr;
}

bool CVeLAtomicLock::Reset()
{
    InterlockedExchange(&m_flag, 0);
    return true;
}
