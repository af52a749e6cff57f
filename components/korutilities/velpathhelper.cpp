#include "velpathhelper.h"
#include "korutilitesbtracedef.h"
#include "velpathhelperimpl.h"
#include "velwinapiwrapper.h"
#include "velcalltrace.h"

namespace fs = boost::filesystem;

CVeLPathHelper::CVeLPathHelper() : m_impl(new CVeLPathHelperImpl(std::make_shared<CVeLWinAPIWrapper>())) {}

CVeLPathHelper::CVeLPathHelper(std::shared_ptr<IVeLWinAPIWrapper> api)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLPathHelperImpl(std::move(api)));
}

CVeLPathHelper::~CVeLPathHelper() {}

bool CVeLPathHelper::Join(const fs::path& base, const fs::path& relative, fs::path& result) const
{
    return VEL_FORWARD(m_impl, Join(base, relative, result));
}

fs::path CVeLPathHelper::Normalize(const fs::path& path) const
{
    return VEL_FORWARD(m_impl, Normalize(path));
}

bool CVeLPathHelper::MakeRelative(const fs::path& target, const fs::path& base, fs::path& result) const
{
    return VEL_FORWARD(m_impl, MakeRelative(target, base, result));
}

bool CVeLPathHelper::GetProgramFolder(fs::path& folder) const
{
    return VEL_FORWARD(m_impl, GetProgramFolder(folder));
}

bool CVeLPathHelper::GetTempFolder(fs::path& folder) const
{
    return VEL_FORWARD(m_impl, GetTempFolder(folder));
}

bool CVeLPathHelper::GetUserAppDataFolder(fs::path& folder, bool create) const
{
    return VEL_FORWARD(m_impl,
                       GetKnownFolder(FOLDERID_RoamingAppData, "user application data", create, folder));
}

bool CVeLPathHelper::GetLocalAppDataFolder(fs::path& folder, bool create) const
{
    return VEL_FORWARD(m_impl,
                       GetKnownFolder(FOLDERID_LocalAppData, "local application data", create, folder));
}

bool CVeLPathHelper::GetMachineAppDataFolder(fs::path& folder) const
{
    return VEL_FORWARD(m_impl,
                       GetKnownFolder(FOLDERID_ProgramData, "machine application data", false, folder));
}

bool CVeLPathHelper::GetDocumentsFolder(fs::path& folder, bool create) const
{
    return VEL_FORWARD(m_impl, GetKnownFolder(FOLDERID_Documents, "documents", create, folder));
}
