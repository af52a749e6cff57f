#include "vellockobjectguard.h"

CVeLLockObjectGuard::CVeLLockObjectGuard(IVeLLockObject* lock) : m_lock(lock)
{
    Lock();
}

CVeLLockObjectGuard::~CVeLLockObjectGuard()
{
    Unlock();
    m_lock = nullptr;
}

void CVeLLockObjectGuard::Lock()
{
    if (m_lock != nullptr && m_lock->IsValid())
        m_lock->Lock();
}

void CVeLLockObjectGuard::Unlock()
{
    if (m_lock != nullptr && m_lock->IsValid())
        m_lock->Release();
}
