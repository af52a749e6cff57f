#include "velfileversion.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velfileversionimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

CVeLFileVersion::CVeLFileVersion() : m_impl(new CVeLFileVersionImpl(std::make_shared<CVeLWinAPIWrapper>())) {}

CVeLFileVersion::CVeLFileVersion(std::shared_ptr<IVeLWinAPIWrapper> api)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLFileVersionImpl(std::move(api)));
}

CVeLFileVersion::~CVeLFileVersion() {}

bool CVeLFileVersion::GetFileVersion(const fs::path& file, CVeLVersion& version) const
{
    return VEL_FORWARD(m_impl, GetFileVersion(file, version));
}

bool CVeLFileVersion::GetProductVersion(const fs::path& file, CVeLVersion& version) const
{
    return VEL_FORWARD(m_impl, GetProductVersion(file, version));
}

bool CVeLFileVersion::GetVersionString(const fs::path& file, const std::wstring& name,
                                       std::wstring& value) const
{
    return VEL_FORWARD(m_impl, GetVersionString(file, name, value));
}
