#include "velprocesswatcher.h"
#include "velcalltrace.h"
#include "velprocesswatcherimpl.h"
#include "velwaithelper.h"
#include "velwinapiwrapper.h"

CVeLProcessWatcher::CVeLProcessWatcher()
    : m_impl(new CVeLProcessWatcherImpl(std::make_shared<CVeLWinAPIWrapper>(),
                                        std::make_shared<CVeLWaitHelper>(false)))
{
}

CVeLProcessWatcher::CVeLProcessWatcher(std::shared_ptr<IVeLWinAPIWrapper> api,
                                       std::shared_ptr<IVeLWaitHelper> waitHelper)
{
    if (!api || !waitHelper)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    m_impl.reset(new CVeLProcessWatcherImpl(std::move(api), std::move(waitHelper)));
}

CVeLProcessWatcher::~CVeLProcessWatcher() {}

bool CVeLProcessWatcher::Start(ProcessEndCallback callback)
{
    return VEL_FORWARD(m_impl, Start(std::move(callback)));
}

bool CVeLProcessWatcher::Watch(std::shared_ptr<CVeLProcess> process)
{
    return VEL_FORWARD(m_impl, Watch(std::move(process)));
}

bool CVeLProcessWatcher::Watch(DWORD processId)
{
    return VEL_FORWARD(m_impl, Watch(processId));
}

bool CVeLProcessWatcher::Stop(DWORD timeout)
{
    return VEL_FORWARD(m_impl, Stop(timeout));
}

bool CVeLProcessWatcher::IsRunning() const
{
    return VEL_FORWARD(m_impl, IsRunning());
}

std::size_t CVeLProcessWatcher::GetWatchedCount() const
{
    return VEL_FORWARD(m_impl, GetWatchedCount());
}
