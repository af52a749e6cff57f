#include "velfilewatcherimpl.h"
#include "korutilitesbtracedef.h"
#include "velwaithelper.h"

namespace fs = boost::filesystem;

CVeLFileWatcherImpl::CVeLFileWatcherImpl(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_folderWatcher(std::move(api), std::make_shared<CVeLWaitHelper>(false))
{
}

bool CVeLFileWatcherImpl::Start(const fs::path& file, unsigned int changes, DirChangeCallback callback)
{
    const fs::path name = file.filename();
    if (!callback || (changes & DirChangeAll) == 0 || name.empty() || name == "." || name == ".." ||
        !file.has_filename())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    const fs::path folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    // Everything the filter needs is captured by value: it runs on the folder watcher's thread.
    auto filter = [file, folder, name, changes, callback](DirChangeEnum kind, const fs::path& path)
    {
        if (kind == DirChangeLost || kind == DirChangeEnded)
            callback(kind, file);
        else if ((kind & changes) && path.filename() == name && path.parent_path() == folder)
            callback(kind, file);
    };
    return m_folderWatcher.Start(folder, false, DirChangeAll, filter);
}

bool CVeLFileWatcherImpl::Stop(DWORD timeout)
{
    return m_folderWatcher.Stop(timeout);
}

bool CVeLFileWatcherImpl::IsRunning() const
{
    return m_folderWatcher.IsRunning();
}

DirWatchEndEnum CVeLFileWatcherImpl::GetEndReason() const
{
    return m_folderWatcher.GetEndReason();
}
