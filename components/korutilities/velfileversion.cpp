#include "velfileversion.h"
#include "korutilitesbtracedef.h"
#include "velfileversionimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

// Each public call forwards to the implementation, or traces and answers false.
#define VEL_FILEVERSION_FORWARD(call)                                                                        \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return false;                                                                                        \
    }                                                                                                        \
    return m_impl->call

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
    VEL_FILEVERSION_FORWARD(GetFileVersion(file, version));
}

bool CVeLFileVersion::GetProductVersion(const fs::path& file, CVeLVersion& version) const
{
    VEL_FILEVERSION_FORWARD(GetProductVersion(file, version));
}

bool CVeLFileVersion::GetVersionString(const fs::path& file, const std::wstring& name,
                                       std::wstring& value) const
{
    VEL_FILEVERSION_FORWARD(GetVersionString(file, name, value));
}
