// CVeLFileTimes: reads the times of a file or folder (through the facade's GetFileAttributesEx, which
// needs no open handle and so never meets another program's exclusive open) and sets the last write time
// (through an attribute-only open and SetFileTime). On Linux the creation time is the one win32posix
// reports (the status-change time: Linux keeps no portable birth time). Owns its CVeLFileTimesImpl and
// forwards every call to it; holds only the facade, so any thread may use one instance. Every failure is
// traced at ERR and answered with false; nothing throws. Without an implementation (a null facade at
// construction) every call is traced and fails.
#pragma once

#include "ivelfiletimes.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <memory>

class CVeLFileTimesImpl;

class KORUTILITIES_API CVeLFileTimes : public IVeLFileTimes
{
public:
    CVeLFileTimes();
    explicit CVeLFileTimes(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLFileTimes() override;
    CVeLFileTimes(const CVeLFileTimes&) = delete;
    CVeLFileTimes& operator=(const CVeLFileTimes&) = delete;

    bool GetFileTime(const boost::filesystem::path& path, FileTimeKindEnum kind,
                     ULONGLONG& fileTime) const override;
    bool GetUtcTime(const boost::filesystem::path& path, FileTimeKindEnum kind,
                    SYSTEMTIME& utc) const override;
    bool GetLocalTime(const boost::filesystem::path& path, FileTimeKindEnum kind,
                      SYSTEMTIME& local) const override;
    bool SetLastWriteTime(const boost::filesystem::path& path, ULONGLONG fileTime) const override;

private:
    std::unique_ptr<CVeLFileTimesImpl> m_impl;
};
