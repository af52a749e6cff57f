// CVeLSemaphoreObject: a lock over a kernel semaphore, unnamed or named (a named one is shared with
// every process that uses the name). Owns the semaphore handle from construction to destruction; all
// operations may be called from any thread. A failed creation leaves an invalid object and a trace.
#pragma once

#include "korutilities_export.h"
#include "ivellockobject.h"
#include "velwin32.h"

#include <string>

class KORUTILITIES_API CVeLSemaphoreObject : public IVeLLockObject
{
public:
    CVeLSemaphoreObject(int maxCount, int initialCount);
    CVeLSemaphoreObject(int maxCount, int initialCount, DWORD timeout);
    // Creates the named semaphore, or joins it when it exists.
    CVeLSemaphoreObject(int maxCount, int initialCount, std::wstring name);
    CVeLSemaphoreObject(int maxCount, int initialCount, std::wstring name, DWORD timeout);
    // Opens an existing named semaphore.
    explicit CVeLSemaphoreObject(std::wstring name);
    CVeLSemaphoreObject(std::wstring name, DWORD timeout);
    CVeLSemaphoreObject(const CVeLSemaphoreObject&) = delete;
    CVeLSemaphoreObject& operator=(const CVeLSemaphoreObject&) = delete;
    ~CVeLSemaphoreObject() override;

    // Takes one count within the default time-out; false on time-out or failure.
    bool Lock() override;
    // Takes one count if there is one now.
    bool TryLock() override;
    // Gives one count back; false (traced) when that would exceed the maximum.
    bool Release() override;
    bool IsValid() const override;
    void* GetHandle() const override;
    // Takes away at most one count (it does not drain the semaphore); true when the object is valid.
    bool Reset() override;
    // Takes one count within timeout ms; true only when a count was taken.
    virtual bool LockWithTimeout(DWORD timeout) const;

private:
    void CreateSemaphor(int maxCount, int initialCount);
    void CreateSemaphor(int maxCount, int initialCount, const std::wstring& name);
    void OpenSemaphor(const std::wstring& name);
    void Destroy();

    HANDLE m_handle;
    DWORD m_timeout;
};
