#include "velfiletimes.h"
#include "korutilitesbtracedef.h"
#include "velfiletimesimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

// Each public call forwards to the implementation, or traces and answers false.
#define VEL_FILETIMES_FORWARD(call)                                                                          \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return false;                                                                                        \
    }                                                                                                        \
    return m_impl->call

CVeLFileTimes::CVeLFileTimes() : m_impl(new CVeLFileTimesImpl(std::make_shared<CVeLWinAPIWrapper>())) {}

CVeLFileTimes::CVeLFileTimes(std::shared_ptr<IVeLWinAPIWrapper> api)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLFileTimesImpl(std::move(api)));
}

CVeLFileTimes::~CVeLFileTimes() {}

bool CVeLFileTimes::GetFileTime(const fs::path& path, FileTimeKindEnum kind, ULONGLONG& fileTime) const
{
    VEL_FILETIMES_FORWARD(GetFileTime(path, kind, fileTime));
}

bool CVeLFileTimes::GetUtcTime(const fs::path& path, FileTimeKindEnum kind, SYSTEMTIME& utc) const
{
    VEL_FILETIMES_FORWARD(GetUtcTime(path, kind, utc));
}

bool CVeLFileTimes::GetLocalTime(const fs::path& path, FileTimeKindEnum kind, SYSTEMTIME& local) const
{
    VEL_FILETIMES_FORWARD(GetLocalTime(path, kind, local));
}

bool CVeLFileTimes::SetLastWriteTime(const fs::path& path, ULONGLONG fileTime) const
{
    VEL_FILETIMES_FORWARD(SetLastWriteTime(path, fileTime));
}
