// CVeLFileWatcher: watches one file by watching its folder with a CVeLDirWatcher of its own and passing on
// the changes of that one name, so it also notices the file being replaced by a rename. Makes its own
// CVeLWaitHelper. Owns its CVeLFileWatcherImpl and forwards every call to it; destruction stops the watch
// and waits for its thread. Any thread may call it; not copyable. Every failure is traced and answered
// with false; nothing throws. Without an implementation (a null facade at construction) every call is
// traced at WRN and fails.
#pragma once

#include "ivelfilewatcher.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>

class CVeLFileWatcherImpl;

class KORUTILITIES_API CVeLFileWatcher : public IVeLFileWatcher, public CVeLNonCopyable
{
public:
    CVeLFileWatcher();
    explicit CVeLFileWatcher(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLFileWatcher() override;

    bool Start(const boost::filesystem::path& file, unsigned int changes,
               DirChangeCallback callback) override;
    bool Stop(DWORD timeout) override;
    bool IsRunning() const override;
    DirWatchEndEnum GetEndReason() const override;

private:
    std::unique_ptr<CVeLFileWatcherImpl> m_impl;
};
