// CVeLMutexObject: a lock over a kernel mutex, unnamed or named (shared with every process that uses
// the name; joined when it exists). Owns the mutex through a CVeLHANDLE. The mutex is recursive and
// owned by the thread that took it. Note: a lock attempt that times out reports success (TryLock on a
// mutex held elsewhere returns true); callers that need to know must use another lock kind.
#pragma once

#include "korutilities_export.h"
#include "ivellockobject.h"
#include "velhandle.h"

#include <string>

class KORUTILITIES_API CVeLMutexObject : public IVeLLockObject
{
public:
    CVeLMutexObject();
    explicit CVeLMutexObject(DWORD timeout);
    explicit CVeLMutexObject(std::wstring name);
    CVeLMutexObject(std::wstring name, DWORD timeout);
    ~CVeLMutexObject() override;

    // True when the wait ended, signalled or timed out; false when the wait failed or the object is
    // invalid.
    bool Lock() override;
    bool TryLock() override;
    // False (traced) when the calling thread does not own the mutex.
    bool Release() override;
    bool IsValid() const override;
    void* GetHandle() const override;
    // One TryLock; true when the object is valid.
    bool Reset() override;

private:
    bool LockWithTimeout(DWORD timeout) const;
    void CheckForHandle();

    CVeLHANDLE m_mutex;
    DWORD m_timeout;
};
