#include "velfilewatcher.h"
#include "korutilitesbtracedef.h"
#include "velfilewatcherimpl.h"
#include "velwinapiwrapper.h"
#include "velcalltrace.h"

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
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid",
                               Start(file, changes, std::move(callback)));
}

bool CVeLFileWatcher::Stop(DWORD timeout)
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid", Stop(timeout));
}

bool CVeLFileWatcher::IsRunning() const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid", IsRunning());
}

DirWatchEndEnum CVeLFileWatcher::GetEndReason() const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid", GetEndReason());
}
