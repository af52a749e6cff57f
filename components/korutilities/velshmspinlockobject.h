// CVeLShMSpinlockObject: a spin lock in the machine-wide shared mapping "TEST_SHM_0" (2048 bytes, an
// array of 32-bit lock words: 0 free, 1 taken; lock number index is the word at byte offset index * 4).
// Every process that uses the same index shares the lock; the name given to the constructors does not
// select the mapping. Owns the mapping handle; the view stays mapped until the process ends. Spins
// without sleeping, for very short critical sections. No owner is recorded: any thread or process may
// release the lock, and a lock taken by a process that dies stays taken until Release() or Reset().
// On Linux the mapping lives in POSIX shared memory while some process holds it.
#pragma once

#include "korutilities_export.h"
#include "ivellockobject.h"
#include "velhandle.h"

#include <string>

class KORUTILITIES_API CVeLShMSpinlockObject : public IVeLLockObject
{
public:
    CVeLShMSpinlockObject(const std::wstring& name, unsigned int index);
    CVeLShMSpinlockObject(const std::wstring& name, unsigned int index, DWORD timeout);
    ~CVeLShMSpinlockObject() override;

    // Spins until the word is taken or the time-out (checked against a stop-watch) has passed.
    bool Lock() override;
    bool TryLock() override;
    // Frees the word, whoever took it.
    bool Release() override;
    bool IsValid() const override;
    // Always null: the lock has no kernel handle of its own.
    void* GetHandle() const override;
    // Frees the word (no validity check).
    bool Reset() override;

private:
    // Maps the shared lock words again for index (the index is not checked against the 512 words).
    void Init(const std::wstring& name, unsigned int index);
    bool OpenShm(const std::wstring& name, unsigned int index, unsigned int size);

    CVeLHANDLE m_mapping;
    void* m_view;
    volatile LONG* m_lockWord;
    DWORD m_timeout;
};
