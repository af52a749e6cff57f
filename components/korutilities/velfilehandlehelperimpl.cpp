#include "velfilehandlehelperimpl.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velwin32.h"

#include <vector>

CVeLFileHandleHelperImpl::CVeLFileHandleHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_api(std::move(api))
{
}

CVeLFileHandleHelperImpl::~CVeLFileHandleHelperImpl() {}

namespace
{

VeLFileHandleInfo ToHandleInfo(const RM_PROCESS_INFO& record)
{
    VeLFileHandleInfo info;
    info.processId = record.Process.dwProcessId;
    info.processStartTime = record.Process.ProcessStartTime;
    info.applicationName = record.strAppName;
    info.serviceShortName = record.strServiceShortName;
    info.applicationType = record.ApplicationType;
    info.restartable = record.bRestartable != FALSE;
    return info;
}

} // namespace

bool CVeLFileHandleHelperImpl::ListHolders(DWORD session, const std::wstring& name,
                                           std::list<VeLFileHandleInfo>& processes) const
{
    LPCWSTR names[] = {name.c_str()};
    DWORD code = m_api->WAPI_RmRegisterResources(session, 1, names, 0, nullptr, 0, nullptr);
    if (code != ERROR_SUCCESS)
    {
        VEL_TRACE(VEL_ERR, "RegisterResources failed (code= %d)!", code);
        return false;
    }
    UINT needed = 0, count = 0;
    DWORD rebootReasons = 0;
    code = m_api->WAPI_RmGetList(session, &needed, &count, nullptr, &rebootReasons);
    // Only "more data" means there are holders to fetch; any other first answer means there are none.
    if (code != ERROR_MORE_DATA)
        return true;
    std::vector<RM_PROCESS_INFO> records(needed);
    count = needed;
    code = m_api->WAPI_RmGetList(session, &needed, &count, records.data(), &rebootReasons);
    if (code != ERROR_SUCCESS)
    {
        VEL_TRACE(VEL_ERR, "GetList failed (code= %d)!", code);
        return false;
    }
    for (UINT i = 0; i < count && i < records.size(); ++i)
        processes.push_back(ToHandleInfo(records[i]));
    return true;
}

bool CVeLFileHandleHelperImpl::GetFileLockingProcesses(const boost::filesystem::path& file,
                                                       std::list<VeLFileHandleInfo>& processes) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Can't not access api wrapper!");
        VEL_TRACE(VEL_ERR, "Can't access api wrapper!");
        return false;
    }
    if (file.empty())
    {
        VEL_TRACE(VEL_ERR, "Empty path!");
        return false;
    }

    DWORD session = 0;
    WCHAR sessionKey[CCH_RM_SESSION_KEY + 1] = {};
    DWORD code = m_api->WAPI_RmStartSession(&session, 0, sessionKey);
    if (code != ERROR_SUCCESS)
    {
        VEL_TRACE(VEL_ERR, "StartSession failed (code= %d)!", code);
        return false;
    }

    const bool succeeded = ListHolders(session, CVeLPathConverter::ToWide(file), processes);
    code = m_api->WAPI_RmEndSession(session);
    if (code != ERROR_SUCCESS)
        VEL_TRACE(VEL_ERR, "RmEndSession failed (code=0x%08X)!", code);
    return succeeded;
}
