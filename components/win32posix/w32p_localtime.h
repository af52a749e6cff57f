// The local wall-clock time, from the real-time clock and the process's time zone (TZ, /etc/localtime).
#pragma once

#include "w32p_base.h"

// Fills the date and time; wDayOfWeek counts from Sunday = 0, as on Windows. Never fails.
W32P_API void GetLocalTime(LPSYSTEMTIME systemTime);
