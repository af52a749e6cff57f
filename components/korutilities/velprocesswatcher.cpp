#include "velprocesswatcher.h"
#include "velimplforward.h"
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
    VEL_IMPL_FORWARD(false, Start(std::move(callback)));
}

bool CVeLProcessWatcher::Watch(std::shared_ptr<CVeLProcess> process)
{
    VEL_IMPL_FORWARD(false, Watch(std::move(process)));
}

bool CVeLProcessWatcher::Watch(DWORD processId)
{
    VEL_IMPL_FORWARD(false, Watch(processId));
}

bool CVeLProcessWatcher::Stop(DWORD timeout)
{
    VEL_IMPL_FORWARD(false, Stop(timeout));
}

bool CVeLProcessWatcher::IsRunning() const
{
    VEL_IMPL_FORWARD(false, IsRunning());
}

std::size_t CVeLProcessWatcher::GetWatchedCount() const
{
    VEL_IMPL_FORWARD(0, GetWatchedCount());
}
