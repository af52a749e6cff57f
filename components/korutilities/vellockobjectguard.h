// CVeLLockObjectGuard: takes an IVeLLockObject (not owned) for the life of a scope and releases it at
// the end, also when taking it failed or timed out. Copies share the pointer without taking the lock
// and each releases it: do not copy a guard in use.
#pragma once

#include "korutilities_export.h"
#include "ivellockobject.h"

class KORUTILITIES_API CVeLLockObjectGuard
{
public:
    // Locks a valid lock (the result is not kept).
    explicit CVeLLockObjectGuard(IVeLLockObject* lock);
    CVeLLockObjectGuard(const CVeLLockObjectGuard&) = default;
    CVeLLockObjectGuard& operator=(const CVeLLockObjectGuard&) = default;
    // Releases a valid lock.
    virtual ~CVeLLockObjectGuard();

private:
    void Lock();
    void Unlock();

    IVeLLockObject* m_lock;
};
