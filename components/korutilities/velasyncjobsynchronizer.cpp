#include "velasyncjobsynchronizer.h"
#include "korutilitesbtracedef.h"
#include "velwaithelper.h"

#include <vector>

CVeLAsyncJobSynchronizer::CVeLAsyncJobSynchronizer()
    : m_progressEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_finishedEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_cancelEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
}

CVeLAsyncJobSynchronizer::~CVeLAsyncJobSynchronizer() {}

void CVeLAsyncJobSynchronizer::ResetTimeout()
{
    SetEvent(m_progressEvent.GetHandle());
}

void CVeLAsyncJobSynchronizer::SetJobCanceled()
{
    SetEvent(m_cancelEvent.GetHandle());
}

void CVeLAsyncJobSynchronizer::SetJobFinished()
{
    SetEvent(m_finishedEvent.GetHandle());
}

bool CVeLAsyncJobSynchronizer::WaitForJobFinish(int timeout)
{
    ResetEvent(m_finishedEvent.GetHandle());
    ResetEvent(m_progressEvent.GetHandle());
    ResetEvent(m_cancelEvent.GetHandle());
    const std::vector<void*> events{m_finishedEvent.GetHandle(), m_progressEvent.GetHandle(),
                                    m_cancelEvent.GetHandle()};
    CVeLWaitHelper waitHelper(true);
    int index = -1;
    WaitStatusEnum status = WaitError;
    for (;;)
    {
        // A failing wait function would fail again at once: end the wait instead of spinning on it.
        if (!waitHelper.WaitForMultipleEvents(events, static_cast<DWORD>(timeout), index, status))
        {
            VEL_TRACE(VEL_ERR, "wait for job failed => abort job!");
            return false;
        }
        if (status == WaitSignaled)
        {
            switch (index)
            {
            case 0:
                VEL_TRACE(VEL_DBG1, "job finished in time");
                return true;
            case 1:
                VEL_TRACE(VEL_DBG1, "progress triggered => job still alive");
                ResetEvent(m_progressEvent.GetHandle());
                continue;
            case 2:
                VEL_TRACE(VEL_ERR, "an error occured => stop job!");
                return false;
            default:
                VEL_TRACE(VEL_ERR, "unknown event index => abort job!");
                return false;
            }
        }
        if (status == WaitTimeout)
        {
            VEL_TRACE(VEL_WRN, "timeout occured => job not finished yet");
            return false;
        }
    }
}
