#include "velfiletimesimpl.h"
#include "korutilitesbtracedef.h"
#include "velhandle.h"
#include "velpathconverter.h"

namespace fs = boost::filesystem;

namespace
{

std::string Utf8(const fs::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

ULONGLONG ToTicks(const FILETIME& time)
{
    return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

} // namespace

CVeLFileTimesImpl::CVeLFileTimesImpl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

bool CVeLFileTimesImpl::GetFileTime(const fs::path& path, FileTimeKindEnum kind, ULONGLONG& fileTime) const
{
    if (path.empty() || kind < FileTimeCreation || kind > FileTimeLastWrite)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!m_api->WAPI_GetFileAttributesEx(CVeLPathConverter::ToWide(path).c_str(), GetFileExInfoStandard,
                                         &data))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "Can't read the times of %s (code= 0x%08X)!", Utf8(path).c_str(), error);
        return false;
    }
    const FILETIME& time = kind == FileTimeCreation     ? data.ftCreationTime
                           : kind == FileTimeLastAccess ? data.ftLastAccessTime
                                                        : data.ftLastWriteTime;
    fileTime = ToTicks(time);
    return true;
}

bool CVeLFileTimesImpl::GetUtcTime(const fs::path& path, FileTimeKindEnum kind, SYSTEMTIME& utc) const
{
    ULONGLONG ticks = 0;
    if (!GetFileTime(path, kind, ticks))
        return false;
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(ticks);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    if (!m_api->WAPI_FileTimeToSystemTime(&time, &utc))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "FileTimeToSystemTime failed (code= 0x%08X)!", error);
        return false;
    }
    return true;
}

bool CVeLFileTimesImpl::GetLocalTime(const fs::path& path, FileTimeKindEnum kind, SYSTEMTIME& local) const
{
    SYSTEMTIME utc;
    if (!GetUtcTime(path, kind, utc))
        return false;
    if (!m_api->WAPI_SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "SystemTimeToTzSpecificLocalTime failed (code= 0x%08X)!", error);
        return false;
    }
    return true;
}

bool CVeLFileTimesImpl::SetLastWriteTime(const fs::path& path, ULONGLONG fileTime) const
{
    // All ones means "leave unchanged" to SetFileTime, and times from 0x8000... on are not valid.
    if (path.empty() || fileTime >= 0x8000000000000000ull)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    // Attribute-only access with full sharing: setting a time must not disturb other users of the file.
    CVeLHANDLE file(m_api,
                    m_api->WAPI_CreateFile(CVeLPathConverter::ToWide(path).c_str(), FILE_WRITE_ATTRIBUTES,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                           OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file.IsValid())
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "Cannot open file %s (err = %ld)", Utf8(path).c_str(), static_cast<long>(error));
        return false;
    }
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(fileTime);
    time.dwHighDateTime = static_cast<DWORD>(fileTime >> 32);
    if (!m_api->WAPI_SetFileTime(file.GetHandle(), nullptr, nullptr, &time))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "Can't set the last write time of %s (code= 0x%08X)!", Utf8(path).c_str(), error);
        return false;
    }
    return true;
}
