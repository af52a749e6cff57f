#include "veldirwatcher.h"
#include "korutilitesbtracedef.h"
#include "veldirwatcherimpl.h"
#include "velwaithelper.h"
#include "velwinapiwrapper.h"
#include "velcalltrace.h"

CVeLDirWatcher::CVeLDirWatcher()
    : m_impl(new CVeLDirWatcherImpl(std::make_shared<CVeLWinAPIWrapper>(),
                                    std::make_shared<CVeLWaitHelper>(false)))
{
}

CVeLDirWatcher::CVeLDirWatcher(std::shared_ptr<IVeLWinAPIWrapper> api,
                               std::shared_ptr<IVeLWaitHelper> waitHelper)
{
    if (!api || !waitHelper)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    m_impl.reset(new CVeLDirWatcherImpl(std::move(api), std::move(waitHelper)));
}

CVeLDirWatcher::~CVeLDirWatcher() {}

bool CVeLDirWatcher::Start(const boost::filesystem::path& folder, bool subtree, unsigned int changes,
                           DirChangeCallback callback)
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid",
                               Start(folder, subtree, changes, std::move(callback)));
}

bool CVeLDirWatcher::Stop(DWORD timeout)
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid", Stop(timeout));
}

bool CVeLDirWatcher::IsRunning() const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid", IsRunning());
}

DirWatchEndEnum CVeLDirWatcher::GetEndReason() const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid", GetEndReason());
}

DWORD CVeLDirWatcher::GetEndError() const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_WRN, "dirWatcherImpl is not valid", GetEndError());
}
