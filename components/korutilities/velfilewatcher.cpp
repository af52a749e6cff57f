#include "velfilewatcher.h"
#include "korutilitesbtracedef.h"
#include "velfilewatcherimpl.h"
#include "velwinapiwrapper.h"

// Each public call forwards to the implementation, or traces at WRN and answers the failure value.
#define VEL_FILEWATCHER_FORWARD(call, failure)                                                               \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_WRN, "dirWatcherImpl is not valid");                                                   \
        return failure;                                                                                      \
    }                                                                                                        \
    return m_impl->call

CVeLFileWatcher::CVeLFileWatcher() : m_impl(new CVeLFileWatcherImpl(std::make_shared<CVeLWinAPIWrapper>())) {}

CVeLFileWatcher::CVeLFileWatcher(std::shared_ptr<IVeLWinAPIWrapper> api)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    m_impl.reset(new CVeLFileWatcherImpl(std::move(api)));
}

CVeLFileWatcher::~CVeLFileWatcher() {}

bool CVeLFileWatcher::Start(const boost::filesystem::path& file, unsigned int changes,
                            DirChangeCallback callback)
{
    VEL_FILEWATCHER_FORWARD(Start(file, changes, std::move(callback)), false);
}

bool CVeLFileWatcher::Stop(DWORD timeout)
{
    VEL_FILEWATCHER_FORWARD(Stop(timeout), false);
}

bool CVeLFileWatcher::IsRunning() const
{
    VEL_FILEWATCHER_FORWARD(IsRunning(), false);
}

DirWatchEndEnum CVeLFileWatcher::GetEndReason() const
{
    VEL_FILEWATCHER_FORWARD(GetEndReason(), DirWatchNotEnded);
}
