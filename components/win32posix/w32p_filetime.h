// File times: setting them on a handle and converting them to calendar times.
//
// Where Linux differs from Windows, and what this layer does:
// - Linux cannot set a file's creation (birth) time: SetFileTime ignores that argument. Last access and
//   last write are set with nanosecond resolution from the 100 ns file time. A null pointer, or a time of
//   all ones, leaves that time as it is.
// - SystemTimeToTzSpecificLocalTime knows the process's own time zone only (TZ, /etc/localtime): the time
//   zone argument must be null, otherwise ERROR_NOT_SUPPORTED.
#pragma once

#include "w32p_base.h"

typedef struct _TIME_ZONE_INFORMATION
{
    LONG Bias;
    WCHAR StandardName[32];
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    WCHAR DaylightName[32];
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
} TIME_ZONE_INFORMATION, *PTIME_ZONE_INFORMATION, *LPTIME_ZONE_INFORMATION;

// FALSE with ERROR_INVALID_HANDLE for a handle that is not a file or directory, or the error of the
// change (ERROR_ACCESS_DENIED when the caller does not own the file).
W32P_API BOOL SetFileTime(HANDLE file, const FILETIME* creationTime, const FILETIME* lastAccessTime,
                          const FILETIME* lastWriteTime);
// FALSE with ERROR_INVALID_PARAMETER for a time at or beyond 0x8000000000000000 or a null argument.
W32P_API BOOL FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime);
// FALSE with ERROR_INVALID_PARAMETER for an impossible date.
W32P_API BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime);
W32P_API BOOL SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION* timeZone,
                                              const SYSTEMTIME* universalTime, LPSYSTEMTIME localTime);
