#include "velpathhelper.h"
#include "korutilitesbtracedef.h"
#include "velpathhelperimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

// Each public call forwards to the implementation, or traces and answers the failure value.
#define VEL_PATHHELPER_FORWARD(call, failure)                                                                \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return failure;                                                                                      \
    }                                                                                                        \
    return m_impl->call

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
    VEL_PATHHELPER_FORWARD(Join(base, relative, result), false);
}

fs::path CVeLPathHelper::Normalize(const fs::path& path) const
{
    VEL_PATHHELPER_FORWARD(Normalize(path), fs::path());
}

bool CVeLPathHelper::MakeRelative(const fs::path& target, const fs::path& base, fs::path& result) const
{
    VEL_PATHHELPER_FORWARD(MakeRelative(target, base, result), false);
}

bool CVeLPathHelper::GetProgramFolder(fs::path& folder) const
{
    VEL_PATHHELPER_FORWARD(GetProgramFolder(folder), false);
}

bool CVeLPathHelper::GetTempFolder(fs::path& folder) const
{
    VEL_PATHHELPER_FORWARD(GetTempFolder(folder), false);
}

bool CVeLPathHelper::GetUserAppDataFolder(fs::path& folder, bool create) const
{
    VEL_PATHHELPER_FORWARD(GetKnownFolder(FOLDERID_RoamingAppData, "user application data", create, folder),
                           false);
}

bool CVeLPathHelper::GetLocalAppDataFolder(fs::path& folder, bool create) const
{
    VEL_PATHHELPER_FORWARD(GetKnownFolder(FOLDERID_LocalAppData, "local application data", create, folder),
                           false);
}

bool CVeLPathHelper::GetMachineAppDataFolder(fs::path& folder) const
{
    VEL_PATHHELPER_FORWARD(GetKnownFolder(FOLDERID_ProgramData, "machine application data", false, folder),
                           false);
}

bool CVeLPathHelper::GetDocumentsFolder(fs::path& folder, bool create) const
{
    VEL_PATHHELPER_FORWARD(GetKnownFolder(FOLDERID_Documents, "documents", create, folder), false);
}
