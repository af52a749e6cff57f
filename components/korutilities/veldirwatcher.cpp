#include "veldirwatcher.h"
#include "korutilitesbtracedef.h"
#include "veldirwatcherimpl.h"
#include "velwaithelper.h"
#include "velwinapiwrapper.h"

// Each public call forwards to the implementation, or traces at WRN and answers the failure value.
#define VEL_DIRWATCHER_FORWARD(call, failure)                                                                \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_WRN, "dirWatcherImpl is not valid");                                                   \
        return failure;                                                                                      \
    }                                                                                                        \
    return m_impl->call

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
    VEL_DIRWATCHER_FORWARD(Start(folder, subtree, changes, std::move(callback)), false);
}

bool CVeLDirWatcher::Stop(DWORD timeout)
{
    VEL_DIRWATCHER_FORWARD(Stop(timeout), false);
}

bool CVeLDirWatcher::IsRunning() const
{
    VEL_DIRWATCHER_FORWARD(IsRunning(), false);
}

DirWatchEndEnum CVeLDirWatcher::GetEndReason() const
{
    VEL_DIRWATCHER_FORWARD(GetEndReason(), DirWatchNotEnded);
}

DWORD CVeLDirWatcher::GetEndError() const
{
    VEL_DIRWATCHER_FORWARD(GetEndError(), 0);
}
