// CVeLDirWatcher: watches a folder, optionally with its subtree, on a thread of its own and calls back
// with each change (added, removed, modified, renamed from / to) for the kinds the caller chose. A burst
// that outruns the callback is reported as DirChangeLost ("changes were lost, rescan"), never dropped
// silently; a deleted folder ends the watch with DirChangeEnded and the reason DirWatchFolderRemoved.
// Owns its CVeLDirWatcherImpl and forwards every call to it; destruction stops the watch and waits for
// its thread, so the callback never runs after the destructor returns. The waiting service is injected
// so that a test can replace it. Any thread may call it; not copyable. Every failure is traced and
// answered with false; nothing throws. Without an implementation (a null facade or wait helper at
// construction) every call is traced at WRN and fails.
#pragma once

#include "iveldirwatcher.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>

class CVeLDirWatcherImpl;

class KORUTILITIES_API CVeLDirWatcher : public IVeLDirWatcher, public CVeLNonCopyable
{
public:
    // With the default facade and a CVeLWaitHelper of its own.
    CVeLDirWatcher();
    CVeLDirWatcher(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLDirWatcher() override;

    bool Start(const boost::filesystem::path& folder, bool subtree, unsigned int changes,
               DirChangeCallback callback) override;
    bool Stop(DWORD timeout) override;
    bool IsRunning() const override;
    DirWatchEndEnum GetEndReason() const override;
    DWORD GetEndError() const override;

private:
    std::unique_ptr<CVeLDirWatcherImpl> m_impl;
};
