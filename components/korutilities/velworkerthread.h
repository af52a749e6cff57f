// CVeLWorkerThread: base for a background thread of the host program. A derived class supplies the
// preparation (on the starting thread), the readiness check and one unit of work (its mission, repeated
// on the new thread until it fails or a stop is requested). Runs at most one thread at a time. The base
// neither stops nor waits for the thread on destruction: a derived class must have stopped it.
// The running and stop flags are written by one thread and read by the other; they are atomic so that
// the reads are well defined, with no ordering implied beyond the start handshake on the start lock.
#pragma once

#include "korutilities_export.h"
#include "ivellockobject.h"
#include "velhandle.h"
#include "velsemaphoreobject.h"

#include <atomic>
#include <memory>

class KORUTILITIES_API CVeLWorkerThread
{
public:
    CVeLWorkerThread();
    CVeLWorkerThread(const CVeLWorkerThread&) = delete;
    CVeLWorkerThread& operator=(const CVeLWorkerThread&) = delete;
    virtual ~CVeLWorkerThread();

    // Starts the thread and waits at most timeout ms until it runs. True when the thread is running.
    // False (traced) when already running, when preparation or thread creation failed, or when the
    // thread did not confirm in time (it may run on nonetheless).
    bool Start(unsigned int timeout);
    // Starts the thread without waiting for it to begin; false (traced) on the same failures.
    bool RequestStart();
    // Asks the thread to end after its current mission, and releases one count of the stop semaphore
    // for a mission that blocks on it. Does not wait.
    void RequestStop();
    // RequestStop, then WaitForEnd(timeout).
    bool Stop(unsigned int timeout);
    // True when the thread ended within timeout ms; false (traced with the wait status) otherwise.
    bool WaitForEnd(unsigned int timeout) const;
    bool IsRunning() const;

protected:
    // On the starting thread before the thread is created; false stops the start.
    virtual bool PrepareForThreadStart() = 0;
    // First on the new thread; false ends it at once.
    virtual bool IsReadyToRun() = 0;
    // One unit of work; false ends the thread.
    virtual bool ThreadMission() = 0;

    // Released once per stop request; a mission that blocks may wait on it to end in time.
    CVeLSemaphoreObject m_stopSemaphore;

private:
    bool LockStartLock();
    static DWORD ThreadMain(void* self);
    void ThreadMainLoop();

    std::atomic<bool> m_running;
    std::atomic<bool> m_stopRequested;
    CVeLHANDLE m_thread;
    std::shared_ptr<IVeLLockObject> m_startLock;
    DWORD m_threadId;
};
