// CVeLFileWatcherImpl: the work of CVeLFileWatcher: a CVeLDirWatcher on the file's folder (without
// subtree) with a CVeLWaitHelper of its own, and a filter that keeps the changes of the file's name.
// Lifetime and threads as CVeLDirWatcher's; every failure is traced and answered with false.
#pragma once

#include "ivelfilewatcher.h"
#include "ivelwinapiwrapper.h"
#include "veldirwatcher.h"

#include <memory>

class CVeLFileWatcherImpl
{
public:
    explicit CVeLFileWatcherImpl(std::shared_ptr<IVeLWinAPIWrapper> api);

    bool Start(const boost::filesystem::path& file, unsigned int changes, DirChangeCallback callback);
    bool Stop(DWORD timeout);
    bool IsRunning() const;
    DirWatchEndEnum GetEndReason() const;

private:
    CVeLDirWatcher m_folderWatcher;
};
