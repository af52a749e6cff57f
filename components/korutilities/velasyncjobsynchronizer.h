// CVeLAsyncJobSynchronizer: lets one thread wait for a job that runs elsewhere. The job reports that it
// finished, that it is still alive (which restarts the time-out) or that it was cancelled. Owns three
// manual-reset events; the setters may be called from any thread at any time. Signals given before
// WaitForJobFinish begins are discarded by it.
#pragma once

#include "korutilities_export.h"
#include "velhandle.h"

class KORUTILITIES_API CVeLAsyncJobSynchronizer
{
public:
    CVeLAsyncJobSynchronizer();
    virtual ~CVeLAsyncJobSynchronizer();

    // A sign of life: the waiter's time-out starts afresh.
    void ResetTimeout();
    void SetJobCanceled();
    void SetJobFinished();
    // True when the job finished; false when it was cancelled or stayed silent for timeout ms. The
    // time-out bounds the silence between signs of life, not the job.
    bool WaitForJobFinish(int timeout);

private:
    CVeLHANDLE m_progressEvent;
    CVeLHANDLE m_finishedEvent;
    CVeLHANDLE m_cancelEvent;
};
