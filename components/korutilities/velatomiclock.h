// CVeLAtomicLock: a spin lock on a flag in process memory (0 free, 1 taken), changed only by atomic
// exchange. For very short critical sections between threads of one process; spins without sleeping.
// Records no owner and counts no recursion: a second Lock() by the holder spins until its time-out.
#pragma once

#include "korutilities_export.h"
#include "ivellockobject.h"
#include "velwin32.h"

class KORUTILITIES_API CVeLAtomicLock : public IVeLLockObject
{
public:
    CVeLAtomicLock();
    explicit CVeLAtomicLock(DWORD timeout);
    ~CVeLAtomicLock() override;

    // Spins until the flag is taken or the time-out (INFINITE: none) has passed.
    bool Lock() override;
    bool TryLock() override;
    bool Release() override;
    // Always true.
    bool IsValid() const override;
    // Always null.
    void* GetHandle() const override;
    bool Reset() override;

private:
    volatile LONG m_flag;
    DWORD m_timeout;
};
