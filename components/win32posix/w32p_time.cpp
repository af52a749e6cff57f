// Clocks over clock_gettime.
// The contract, and where Linux differs from Windows, are in w32p_time.h.
#include "w32p_time.h"

#include <ctime>

namespace
{
ULONGLONG Read(clockid_t clock, ULONGLONG unitNs)
{
    struct timespec now;
    clock_gettime(clock, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * (1000000000ull / unitNs) +
           static_cast<ULONGLONG>(now.tv_nsec) / unitNs;
}
} // namespace

BOOL QueryUnbiasedInterruptTime(PULONGLONG unbiasedTime)
{
    if (unbiasedTime == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *unbiasedTime = Read(CLOCK_MONOTONIC, 100);
    return TRUE;
}

DWORD GetTickCount()
{
    return static_cast<DWORD>(Read(CLOCK_BOOTTIME, 1000000));
}

ULONGLONG GetTickCount64()
{
    return Read(CLOCK_BOOTTIME, 1000000);
}
