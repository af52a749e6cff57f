#include "veltimeutilites.h"
#include "korutilitesbtracedef.h"

DWORD CVeLTimeUtilites::GetCorrectedTickCount()
{
    ULONGLONG interruptTime = 0; // 100 ns units
    if (!QueryUnbiasedInterruptTime(&interruptTime))
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "QueryUnbiasedInterruptTime failed: %d", error);
        return 0;
    }
    return static_cast<DWORD>(interruptTime / 10000u);
}
