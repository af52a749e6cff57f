// Clocks: the unbiased interrupt time and the tick counts.
//
// QueryUnbiasedInterruptTime reads CLOCK_MONOTONIC, which like the unbiased interrupt time does not advance
// while the machine is suspended; its origin is the boot, not a Windows epoch. GetTickCount and
// GetTickCount64 read CLOCK_BOOTTIME (milliseconds since boot, suspend included, as on Windows). Thread-safe.
#pragma once

#include "w32p_base.h"

// The time in 100 ns units; FALSE with ERROR_INVALID_PARAMETER for a null pointer.
W32P_API BOOL QueryUnbiasedInterruptTime(PULONGLONG unbiasedTime);
// Milliseconds since boot, wrapping every 49.7 days.
W32P_API DWORD GetTickCount();
W32P_API ULONGLONG GetTickCount64();
