// IVeLFileTimes: the creation, last access and last write times of a file or folder, as 64-bit Windows
// file times (100 ns units since 1601-01-01 UTC), as UTC and as local calendar times; and setting the
// last write time.
#pragma once

#include "velwin32.h"

#include <boost/filesystem/path.hpp>

enum FileTimeKindEnum
{
    FileTimeCreation = 0,
    FileTimeLastAccess = 1,
    FileTimeLastWrite = 2,
};

class IVeLFileTimes
{
public:
    virtual ~IVeLFileTimes() {}
    virtual bool GetFileTime(const boost::filesystem::path& path, FileTimeKindEnum kind,
                             ULONGLONG& fileTime) const = 0;
    virtual bool GetUtcTime(const boost::filesystem::path& path, FileTimeKindEnum kind,
                            SYSTEMTIME& utc) const = 0;
    // In the time zone of this machine (with its daylight-saving rule for that date).
    virtual bool GetLocalTime(const boost::filesystem::path& path, FileTimeKindEnum kind,
                              SYSTEMTIME& local) const = 0;
    virtual bool SetLastWriteTime(const boost::filesystem::path& path, ULONGLONG fileTime) const = 0;
};
