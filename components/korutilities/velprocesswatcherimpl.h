// CVeLProcessWatcherImpl: the work of CVeLProcessWatcher. Owns the watched processes, an auto-reset wake
// event, a manual-reset ended event (set by the thread as its last step, so
// that Stop can wait for it with a time-out) and the thread.
//
// The thread's loop: take a copy of the watched list under the lock; wait, through the injected waiting
// service and without a time-out, on the wake event (place 0) and the process handles (places 1 to n);
// the lowest signalled place wins. Place 0: re-read the stop flag and the list. Place i: that process has
// ended: remove it from the list, read its exit code and call back, outside the lock. A process ends once
// and is removed before the callback, so each is reported exactly once. Every failure is traced and
// answered with false; nothing throws.
#pragma once

#include "ivelprocesswatcher.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "velhandle.h"
#include "velprocesshelperimpl.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class CVeLProcessWatcherImpl
{
public:
    CVeLProcessWatcherImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                           std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLProcessWatcherImpl();
    CVeLProcessWatcherImpl(const CVeLProcessWatcherImpl&) = delete;
    CVeLProcessWatcherImpl& operator=(const CVeLProcessWatcherImpl&) = delete;

    bool Start(ProcessEndCallback callback);
    bool Watch(std::shared_ptr<CVeLProcess> process);
    bool Watch(DWORD processId);
    bool Stop(DWORD timeout);
    bool IsRunning() const { return m_running; }
    std::size_t GetWatchedCount() const;

private:
    void Run();
    // Waits for the next event; the ended process, or null for a wake (or a failed wait, with m_failed set).
    std::shared_ptr<CVeLProcess> WaitForNext();
    void Report(const CVeLProcess& process);

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLWaitHelper> m_waitHelper;
    CVeLProcessHelperImpl m_helper;
    CVeLHANDLE m_wakeEvent;  // auto-reset: a Watch or a Stop wants the thread to look again
    CVeLHANDLE m_endedEvent; // manual-reset: set by the thread as its last step

    mutable std::mutex m_lock;                           // guards m_watched and m_thread
    std::vector<std::shared_ptr<CVeLProcess>> m_watched; // the processes not yet reported
    std::thread m_thread;
    ProcessEndCallback m_callback; // set by Start before the thread starts; used by the thread alone

    std::atomic<std::thread::id> m_threadId{}; // the watcher's thread while it runs
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopRequested{false};
};
