// IVeLLockObject: one interface for every lock of the library (kernel semaphore or mutex, spin flag in
// shared or process memory), so that a component can be handed "a lock". Times are milliseconds;
// INFINITE means no time-out. No implementation records who holds it.
#pragma once

class IVeLLockObject
{
public:
    virtual ~IVeLLockObject() {}
    // Takes the lock, waiting at most the object's default time-out.
    virtual bool Lock() = 0;
    // Takes the lock only if it is free now.
    virtual bool TryLock() = 0;
    virtual bool Release() = 0;
    virtual bool IsValid() const = 0;
    // The kernel handle behind the lock, or null where there is none.
    virtual void* GetHandle() const = 0;
    // Brings the lock back to a known state (meaning per implementation).
    virtual bool Reset() = 0;
};
