#include "veleventpool.h"

CVeLEventPool::CVeLEventPool()
{
    InitializeCriticalSection(&m_lock);
}

CVeLEventPool::~CVeLEventPool()
{
    DestroyEvents();
    DeleteCriticalSection(&m_lock);
}

void* CVeLEventPool::GetFreeEventHandle()
{
    EnterCriticalSection(&m_lock);
    HANDLE event;
    if (!m_freeEvents.empty())
    {
        event = m_freeEvents.back();
        m_freeEvents.pop_back();
        ResetEvent(event);
    }
    else
    {
        event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        m_allEvents.push_back(event);
    }
    LeaveCriticalSection(&m_lock);
    return event;
}

bool CVeLEventPool::ReleaseEventHandle(void* event)
{
    EnterCriticalSection(&m_lock);
    const bool known = IsKnownEvent(event);
    if (known)
        m_freeEvents.push_back(event);
    LeaveCriticalSection(&m_lock);
    return known;
}

bool CVeLEventPool::IsKnownEvent(void* event) const
{
    for (HANDLE known : m_allEvents)
        if (known == event)
            return true;
    return false;
}

void CVeLEventPool::DestroyEvents()
{
    m_freeEvents.clear();
    for (HANDLE event : m_allEvents)
        if (event != nullptr)
            CloseHandle(event);
    m_allEvents.clear();
}
