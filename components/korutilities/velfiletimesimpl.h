// CVeLFileTimesImpl: the work of CVeLFileTimes, all through the facade. Holds the facade only; any thread
// may use it. Every failure is traced at ERR and answered with false.
#pragma once

#include "ivelfiletimes.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class CVeLFileTimesImpl
{
public:
    explicit CVeLFileTimesImpl(std::shared_ptr<IVeLWinAPIWrapper> api);

    bool GetFileTime(const boost::filesystem::path& path, FileTimeKindEnum kind, ULONGLONG& fileTime) const;
    bool GetUtcTime(const boost::filesystem::path& path, FileTimeKindEnum kind, SYSTEMTIME& utc) const;
    bool GetLocalTime(const boost::filesystem::path& path, FileTimeKindEnum kind, SYSTEMTIME& local) const;
    bool SetLastWriteTime(const boost::filesystem::path& path, ULONGLONG fileTime) const;

private:
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
