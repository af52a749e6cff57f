#include "velwaithelpertimesupport.h"
#include "korutilitesbtracedef.h"
#include "veltimeutilites.h"

CVeLWaitHelperTimeSupport::CVeLWaitHelperTimeSupport(DWORD timeout)
    : CVeLWaitHelperTimeSupport(timeout, &CVeLTimeUtilites::GetCorrectedTickCount)
{
}

CVeLWaitHelperTimeSupport::CVeLWaitHelperTimeSupport(DWORD timeout, TickSource clock)
    : m_timeout(timeout), m_startTick(0),
      m_clock(clock != nullptr ? clock : &CVeLTimeUtilites::GetCorrectedTickCount)
{
    m_startTick = m_clock();
}

CVeLWaitHelperTimeSupport::~CVeLWaitHelperTimeSupport() {}

DWORD CVeLWaitHelperTimeSupport::GetWaitTime() const
{
    if (m_timeout == 0 || m_timeout == INFINITE)
        return m_timeout;
    const DWORD now = m_clock();
    if (m_startTick == 0 || now == 0)
        return 1;
    // Not wrap-safe on its own: while start + timeout has wrapped and now has not, this waits in 1 ms
    // steps; IsCalcedTimeout, which is wrap-safe, ends the loop.
    const DWORD deadline = m_startTick + m_timeout;
    if (deadline > now)
        return deadline - now;
    return 1;
}

bool CVeLWaitHelperTimeSupport::IsCalcedTimeout() const
{
    const DWORD now = m_clock();
    if (m_startTick == 0 || now == 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid TickCount values - handle as timeout reached");
        return true;
    }
    return static_cast<DWORD>(now - m_startTick) >= m_timeout;
}
