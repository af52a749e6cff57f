// CVeLProcessWatcher: watches up to 63 processes on a thread of its own (not a CVeLWorkerThread, whose base
// is for host programs) and calls back once for each when it ends. The thread sleeps in one wait on the
// process handles together with its wake event (set by Watch and Stop), so nothing polls. The callback runs
// on the watcher's thread, one call at a time; it may call Watch and Stop but must not destroy the watcher.
// Destruction stops the thread and waits for it, so the callback never runs after the destructor returns.
// Owns its CVeLProcessWatcherImpl and forwards every call to it; any thread may call it. Every failure is
// traced at ERR and answered with false; nothing throws. Without an implementation (a null facade or wait
// helper at construction) every call is traced and fails.
#pragma once

#include "ivelprocesswatcher.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>

class CVeLProcessWatcherImpl;

class KORUTILITIES_API CVeLProcessWatcher : public IVeLProcessWatcher, public CVeLNonCopyable
{
public:
    // With the default facade and a CVeLWaitHelper of its own.
    CVeLProcessWatcher();
    CVeLProcessWatcher(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLProcessWatcher() override;

    bool Start(ProcessEndCallback callback) override;
    bool Watch(std::shared_ptr<CVeLProcess> process) override;
    bool Watch(DWORD processId) override;
    bool Stop(DWORD timeout) override;
    bool IsRunning() const override;
    std::size_t GetWatchedCount() const override;

private:
    std::unique_ptr<CVeLProcessWatcherImpl> m_impl;
};
