#include "velprocesswatcherimpl.h"
#include "korutilitesbtracedef.h"
#include "velprocess.h"

#include <algorithm>

namespace
{

// One wait covers at most 64 handles; the wake event takes one place.
const std::size_t kMaxWatched = 63;

} // namespace

CVeLProcessWatcherImpl::CVeLProcessWatcherImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                               std::shared_ptr<IVeLWaitHelper> waitHelper)
    : m_api(api), m_waitHelper(waitHelper), m_helper(api, waitHelper), m_wakeEvent(api), m_endedEvent(api)
{
    m_wakeEvent = m_api->WAPI_CreateEvent(nullptr, FALSE, FALSE, nullptr);
    m_endedEvent = m_api->WAPI_CreateEvent(nullptr, TRUE, FALSE, nullptr);
}

CVeLProcessWatcherImpl::~CVeLProcessWatcherImpl()
{
    Stop(INFINITE);
}

bool CVeLProcessWatcherImpl::Start(ProcessEndCallback callback)
{
    if (!callback)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    if (!m_wakeEvent.IsValid() || !m_endedEvent.IsValid())
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_running)
    {
        VEL_TRACE(VEL_ERR, "Process watcher already running!");
        return false;
    }
    if (m_thread.joinable())
        m_thread.join(); // a thread that ended by itself
    m_callback = std::move(callback);
    m_stopRequested = false;
    m_api->WAPI_ResetEvent(m_endedEvent.GetHandle());
    m_running = true;
    try
    {
        m_thread = std::thread(&CVeLProcessWatcherImpl::Run, this);
    }
    catch (const std::exception&)
    {
        VEL_TRACE(VEL_ERR, "Can't start watcher thread!");
        m_running = false;
        return false;
    }
    return true;
}

bool CVeLProcessWatcherImpl::Watch(std::shared_ptr<CVeLProcess> process)
{
    if (!process || process->GetHandle() == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_watched.size() >= kMaxWatched)
        {
            VEL_TRACE(VEL_ERR, "Can't watch more than %u processes!", static_cast<unsigned>(kMaxWatched));
            return false;
        }
        m_watched.push_back(std::move(process));
    }
    m_api->WAPI_SetEvent(m_wakeEvent.GetHandle());
    return true;
}

bool CVeLProcessWatcherImpl::Watch(DWORD processId)
{
    std::shared_ptr<CVeLProcess> process = m_helper.Open(processId);
    return process && Watch(std::move(process));
}

bool CVeLProcessWatcherImpl::Stop(DWORD timeout)
{
    if (m_threadId.load() == std::this_thread::get_id())
    {
        // From the callback: the thread ends after the callback returns.
        m_stopRequested = true;
        m_api->WAPI_SetEvent(m_wakeEvent.GetHandle());
        return true;
    }
    std::lock_guard<std::mutex> guard(m_lock);
    if (!m_thread.joinable())
        return true;
    m_stopRequested = true;
    m_api->WAPI_SetEvent(m_wakeEvent.GetHandle());
    WaitStatusEnum status = WaitError;
    if (!m_waitHelper->WaitForEvent(m_endedEvent.GetHandle(), timeout, status) || status != WaitSignaled)
    {
        VEL_TRACE(VEL_ERR, "Process watcher did not end in time");
        return false;
    }
    m_thread.join();
    return true;
}

std::size_t CVeLProcessWatcherImpl::GetWatchedCount() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_watched.size();
}

std::shared_ptr<CVeLProcess> CVeLProcessWatcherImpl::WaitForNext()
{
    std::vector<std::shared_ptr<CVeLProcess>> watched;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        watched = m_watched; // the handles stay open while this copy holds them
    }
    std::vector<void*> handles(1, m_wakeEvent.GetHandle());
    for (const std::shared_ptr<CVeLProcess>& process : watched)
        handles.push_back(process->GetHandle());
    int index = -1;
    WaitStatusEnum status = WaitError;
    if (!m_waitHelper->WaitForMultipleEvents(handles, INFINITE, index, status) || status != WaitSignaled ||
        index < 0 || static_cast<std::size_t>(index) >= handles.size())
    {
        VEL_TRACE(VEL_ERR, "Process watcher can't wait, it ends!");
        m_stopRequested = true;
        return nullptr;
    }
    if (index == 0)
        return nullptr;
    std::shared_ptr<CVeLProcess> ended = watched[static_cast<std::size_t>(index - 1)];
    std::lock_guard<std::mutex> guard(m_lock);
    m_watched.erase(std::remove(m_watched.begin(), m_watched.end(), ended), m_watched.end());
    return ended;
}

void CVeLProcessWatcherImpl::Report(const CVeLProcess& process)
{
    DWORD code = 0;
    const bool known = m_api->WAPI_GetExitCodeProcess(process.GetHandle(), &code) != FALSE;
    VEL_TRACE(VEL_DBG1, "Process %u ended (exit code %u)", process.GetId(), known ? code : 0u);
    m_callback(process.GetId(), known, known ? code : 0);
}

void CVeLProcessWatcherImpl::Run()
{
    m_threadId = std::this_thread::get_id();
    while (!m_stopRequested)
    {
        std::shared_ptr<CVeLProcess> ended = WaitForNext();
        if (ended && !m_stopRequested)
            Report(*ended);
    }
    m_threadId = std::thread::id();
    m_running = false;
    m_api->WAPI_SetEvent(m_endedEvent.GetHandle());
}
