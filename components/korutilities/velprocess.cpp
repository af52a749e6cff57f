#include "velprocess.h"
#include "korutilitesbtracedef.h"
#include "velprocesshelperimpl.h"

CVeLProcess::CVeLProcess(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper,
                         DWORD processId, HANDLE process, HANDLE thread, bool leadsGroup)
    : m_api(api), m_waitHelper(std::move(waitHelper)), m_id(processId), m_process(api, process),
      m_thread(api, thread), m_leadsGroup(leadsGroup)
{
}

CVeLProcess::~CVeLProcess() {}

CVeLResult<ProcessStatusEnum> CVeLProcess::Wait(DWORD timeout) const
{
    if (!m_process.IsValid() || !m_waitHelper)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return CVeLResult<ProcessStatusEnum>();
    }
    WaitStatusEnum status = WaitError;
    if (!m_waitHelper->WaitForProcessEnd(m_process.GetHandle(), timeout, status) || status == WaitError)
    {
        VEL_TRACE(VEL_ERR, "Can't wait for process %u!", m_id);
        return CVeLResult<ProcessStatusEnum>();
    }
    return CVeLResult<ProcessStatusEnum>(true,
                                         status == WaitSignaled ? ProcessStatusEnded : ProcessStatusRunning);
}

CVeLResult<ProcessStatusEnum> CVeLProcess::GetStatus() const
{
    return Wait(0);
}

CVeLResult<unsigned long> CVeLProcess::GetExitCode() const
{
    if (!m_process.IsValid())
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return CVeLResult<unsigned long>();
    }
    DWORD code = 0;
    if (!m_api->WAPI_GetExitCodeProcess(m_process.GetHandle(), &code))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "GetExitCodeProcess of process %u failed (code=0x%08X)!", m_id, error);
        return CVeLResult<unsigned long>();
    }
    if (code == STILL_ACTIVE && GetStatus().GetValue() != ProcessStatusEnded)
    {
        VEL_TRACE(VEL_ERR, "Process %u is still running!", m_id);
        return CVeLResult<unsigned long>();
    }
    return CVeLResult<unsigned long>(true, code);
}

bool CVeLProcess::End(DWORD timeout, UINT exitCode) const
{
    return CVeLProcessHelperImpl(m_api, m_waitHelper).EndProcess(*this, timeout, exitCode);
}
