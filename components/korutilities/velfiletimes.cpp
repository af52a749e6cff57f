#include "velfiletimes.h"
#include "korutilitesbtracedef.h"
#include "velfiletimesimpl.h"
#include "velwinapiwrapper.h"
#include "velcalltrace.h"

namespace fs = boost::filesystem;

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
    return VEL_FORWARD(m_impl, GetFileTime(path, kind, fileTime));
}

bool CVeLFileTimes::GetUtcTime(const fs::path& path, FileTimeKindEnum kind, SYSTEMTIME& utc) const
{
    return VEL_FORWARD(m_impl, GetUtcTime(path, kind, utc));
}

bool CVeLFileTimes::GetLocalTime(const fs::path& path, FileTimeKindEnum kind, SYSTEMTIME& local) const
{
    return VEL_FORWARD(m_impl, GetLocalTime(path, kind, local));
}

bool CVeLFileTimes::SetLastWriteTime(const fs::path& path, ULONGLONG fileTime) const
{
    return VEL_FORWARD(m_impl, SetLastWriteTime(path, fileTime));
}
