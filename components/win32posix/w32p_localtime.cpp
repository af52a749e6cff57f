// GetLocalTime over the real-time clock and the process's time zone.
// The contract, and where Linux differs from Windows, are in w32p_localtime.h.
#include "w32p_localtime.h"

#include <ctime>

void GetLocalTime(LPSYSTEMTIME systemTime)
{
    if (systemTime == nullptr)
        return;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm local;
    localtime_r(&now.tv_sec, &local);
    systemTime->wYear = static_cast<WORD>(local.tm_year + 1900);
    systemTime->wMonth = static_cast<WORD>(local.tm_mon + 1);
    systemTime->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    systemTime->wDay = static_cast<WORD>(local.tm_mday);
    systemTime->wHour = static_cast<WORD>(local.tm_hour);
    systemTime->wMinute = static_cast<WORD>(local.tm_min);
    systemTime->wSecond =
        static_cast<WORD>(local.tm_sec > 59 ? 59 : local.tm_sec); // no leap second on Windows
    systemTime->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}
