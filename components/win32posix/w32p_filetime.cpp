// File times on Linux; the header lists where Linux differs from Windows.
#include "w32p_filetime.h"
#include "w32p_file.h"

#include <ctime>
#include <sys/stat.h>

namespace
{

constexpr ULONGLONG kTicksPerSecond = 10000000ull;
constexpr ULONGLONG kEpochDifference = 11644473600ull; // seconds from 1601-01-01 to 1970-01-01

ULONGLONG Ticks(const FILETIME& ft)
{
    return (static_cast<ULONGLONG>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

struct timespec ToTimespec(const FILETIME* ft)
{
    struct timespec ts;
    if (ft == nullptr || (ft->dwLowDateTime == 0xFFFFFFFFu && ft->dwHighDateTime == 0xFFFFFFFFu))
    {
        ts.tv_sec = 0;
        ts.tv_nsec = UTIME_OMIT;
        return ts;
    }
    const ULONGLONG ticks = Ticks(*ft);
    ts.tv_sec = static_cast<time_t>(static_cast<long long>(ticks / kTicksPerSecond) -
                                    static_cast<long long>(kEpochDifference));
    ts.tv_nsec = static_cast<long>(ticks % kTicksPerSecond) * 100;
    return ts;
}

bool ValidDate(const SYSTEMTIME& st)
{
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (st.wYear < 1601 || st.wYear > 30827 || st.wMonth < 1 || st.wMonth > 12 || st.wDay < 1 ||
        st.wHour > 23 || st.wMinute > 59 || st.wSecond > 59 || st.wMilliseconds > 999)
        return false;
    const bool leap = (st.wYear % 4 == 0 && st.wYear % 100 != 0) || st.wYear % 400 == 0;
    return st.wDay <= days[st.wMonth - 1] + (st.wMonth == 2 && leap ? 1 : 0);
}

} // namespace

BOOL SetFileTime(HANDLE file, const FILETIME* /*creationTime*/, const FILETIME* lastAccessTime,
                 const FILETIME* lastWriteTime)
{
    const int fd = W32pFileDescriptorOfHandle(file);
    if (fd < 0)
        return FALSE;
    const struct timespec times[2] = {ToTimespec(lastAccessTime), ToTimespec(lastWriteTime)};
    if (futimens(fd, times) != 0)
    {
        W32pSetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime)
{
    if (fileTime == nullptr || systemTime == nullptr || Ticks(*fileTime) >= 0x8000000000000000ull)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const ULONGLONG ticks = Ticks(*fileTime);
    const long long seconds =
        static_cast<long long>(ticks / kTicksPerSecond) - static_cast<long long>(kEpochDifference);
    const time_t t = static_cast<time_t>(seconds);
    struct tm utc;
    if (gmtime_r(&t, &utc) == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    systemTime->wYear = static_cast<WORD>(utc.tm_year + 1900);
    systemTime->wMonth = static_cast<WORD>(utc.tm_mon + 1);
    systemTime->wDayOfWeek = static_cast<WORD>(utc.tm_wday);
    systemTime->wDay = static_cast<WORD>(utc.tm_mday);
    systemTime->wHour = static_cast<WORD>(utc.tm_hour);
    systemTime->wMinute = static_cast<WORD>(utc.tm_min);
    systemTime->wSecond = static_cast<WORD>(utc.tm_sec);
    systemTime->wMilliseconds = static_cast<WORD>((ticks % kTicksPerSecond) / 10000u);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime)
{
    if (systemTime == nullptr || fileTime == nullptr || !ValidDate(*systemTime))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    struct tm utc = {};
    utc.tm_year = systemTime->wYear - 1900;
    utc.tm_mon = systemTime->wMonth - 1;
    utc.tm_mday = systemTime->wDay;
    utc.tm_hour = systemTime->wHour;
    utc.tm_min = systemTime->wMinute;
    utc.tm_sec = systemTime->wSecond;
    const long long seconds = static_cast<long long>(timegm(&utc)) + static_cast<long long>(kEpochDifference);
    const ULONGLONG ticks = static_cast<ULONGLONG>(seconds) * kTicksPerSecond +
                            static_cast<ULONGLONG>(systemTime->wMilliseconds) * 10000u;
    fileTime->dwLowDateTime = static_cast<DWORD>(ticks);
    fileTime->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return TRUE;
}

BOOL SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION* timeZone, const SYSTEMTIME* universalTime,
                                     LPSYSTEMTIME localTime)
{
    if (timeZone != nullptr)
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    FILETIME ft;
    if (localTime == nullptr || !SystemTimeToFileTime(universalTime, &ft))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const time_t t = static_cast<time_t>(static_cast<long long>(Ticks(ft) / kTicksPerSecond) -
                                         static_cast<long long>(kEpochDifference));
    struct tm local;
    if (localtime_r(&t, &local) == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    localTime->wYear = static_cast<WORD>(local.tm_year + 1900);
    localTime->wMonth = static_cast<WORD>(local.tm_mon + 1);
    localTime->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    localTime->wDay = static_cast<WORD>(local.tm_mday);
    localTime->wHour = static_cast<WORD>(local.tm_hour);
    localTime->wMinute = static_cast<WORD>(local.tm_min);
    localTime->wSecond = static_cast<WORD>(local.tm_sec);
    localTime->wMilliseconds = universalTime->wMilliseconds;
    return TRUE;
}
