#include "velapplicationrestarterimpl.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velprocess.h"
#include "velstringconverter.h"

#include <boost/filesystem/operations.hpp>

namespace fs = boost::filesystem;

namespace
{

ApplicationStateEnum StateOf(ULONG status)
{
    if (status & RmStatusErrorOnStop)
        return ApplicationNotStopped;
    if (status & RmStatusErrorOnRestart)
        return ApplicationNotRestarted;
    if (status & RmStatusRestarted)
        return ApplicationRestarted;
    if (status & (RmStatusStopped | RmStatusStoppedOther))
        return ApplicationStopped;
    return ApplicationRunning;
}

// The regular files below folder, subfolders included; symbolic links are not followed.
bool AddFolderFiles(const fs::path& folder, std::vector<std::wstring>& names)
{
    boost::system::error_code error;
    fs::recursive_directory_iterator it(folder, error), end;
    for (; !error && it != end; it.increment(error))
    {
        if (fs::is_regular_file(it->symlink_status()))
            names.push_back(CVeLPathConverter::ToWide(it->path()));
    }
    if (error)
    {
        VEL_TRACE(VEL_ERR, "Can't list folder %s: %s", CVeLPathConverter::ToUtf8(folder).c_str(),
                  error.message().c_str());
        return false;
    }
    return true;
}

} // namespace

CVeLApplicationRestarterImpl::CVeLApplicationRestarterImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                                           std::shared_ptr<IVeLWaitHelper> waitHelper)
    : m_api(api), m_processes(api, std::move(waitHelper))
{
}

CVeLApplicationRestarterImpl::~CVeLApplicationRestarterImpl()
{
    if (!m_hasSession)
        return;
    const DWORD code = m_api->WAPI_RmEndSession(m_session);
    if (code != ERROR_SUCCESS)
        VEL_TRACE(VEL_ERR, "RmEndSession failed (code=0x%08X)!", code);
}

bool CVeLApplicationRestarterImpl::StartSession()
{
    if (m_hasSession)
        return true;
    WCHAR sessionKey[CCH_RM_SESSION_KEY + 1] = {};
    const DWORD code = m_api->WAPI_RmStartSession(&m_session, 0, sessionKey);
    if (code != ERROR_SUCCESS)
    {
        VEL_TRACE(VEL_ERR, "RmStartSession failed (code=0x%08X)!", code);
        return false;
    }
    m_hasSession = true;
    return true;
}

bool CVeLApplicationRestarterImpl::AddResources(const std::vector<fs::path>& filesOrFolders)
{
    std::vector<std::wstring> names;
    for (const fs::path& path : filesOrFolders)
    {
        if (path.empty())
        {
            VEL_TRACE(VEL_ERR, "Invalid parameter");
            return false;
        }
        boost::system::error_code error;
        if (fs::is_directory(fs::symlink_status(path, error)))
        {
            if (!AddFolderFiles(path, names))
                return false;
        }
        else
            names.push_back(CVeLPathConverter::ToWide(path));
    }
    if (names.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    if (!StartSession())
        return false;
    std::vector<LPCWSTR> pointers;
    for (const std::wstring& name : names)
        pointers.push_back(name.c_str());
    const DWORD code = m_api->WAPI_RmRegisterResources(m_session, static_cast<UINT>(pointers.size()),
                                                       pointers.data(), 0, nullptr, 0, nullptr);
    if (code != ERROR_SUCCESS)
    {
        VEL_TRACE(VEL_ERR, "RmRegisterResources failed (code=0x%08X)!", code);
        return false;
    }
    return true;
}

bool CVeLApplicationRestarterImpl::ListRecords(std::vector<RM_PROCESS_INFO>& records) const
{
    records.clear();
    if (!m_hasSession)
    {
        VEL_TRACE(VEL_ERR, "No files registered!");
        return false;
    }
    // The list may grow between the size query and the fetch; a few rounds settle it.
    for (int round = 0; round < 4; ++round)
    {
        UINT needed = 0, count = static_cast<UINT>(records.size());
        DWORD rebootReasons = 0;
        const DWORD code = m_api->WAPI_RmGetList(m_session, &needed, &count,
                                                 records.empty() ? nullptr : records.data(), &rebootReasons);
        if (code == ERROR_SUCCESS)
        {
            records.resize(count);
            return true;
        }
        if (code != ERROR_MORE_DATA)
        {
            VEL_TRACE(VEL_ERR, "RmGetList failed (code=0x%08X)!", code);
            return false;
        }
        records.resize(needed);
    }
    VEL_TRACE(VEL_ERR, "RmGetList failed (code=0x%08X)!", static_cast<DWORD>(ERROR_MORE_DATA));
    return false;
}

bool CVeLApplicationRestarterImpl::GetApplications(std::vector<VeLApplicationInfo>& applications) const
{
    applications.clear();
    std::vector<RM_PROCESS_INFO> records;
    if (!ListRecords(records))
        return false;
    for (RM_PROCESS_INFO& record : records)
    {
        record.strAppName[CCH_RM_MAX_APP_NAME] = L'\0';
        VeLApplicationInfo application;
        application.processId = record.Process.dwProcessId;
        application.name = record.strAppName;
        application.restartable = record.bRestartable != FALSE;
        application.state = StateOf(record.AppStatus);
        applications.push_back(application);
    }
    return true;
}

bool CVeLApplicationRestarterImpl::Collect(ApplicationStateEnum state,
                                           std::vector<VeLApplicationInfo>& applications) const
{
    std::vector<VeLApplicationInfo> all;
    if (!GetApplications(all))
        return false;
    applications.clear();
    for (const VeLApplicationInfo& application : all)
        if (application.state == state)
            applications.push_back(application);
    return true;
}

bool CVeLApplicationRestarterImpl::WaitForEnds(const std::vector<std::shared_ptr<CVeLProcess>>& processes,
                                               const CVeLWaitHelperTimeSupport& deadline) const
{
    for (const std::shared_ptr<CVeLProcess>& process : processes)
        if (process->Wait(deadline.IsCalcedTimeout() ? 0 : deadline.GetWaitTime()).GetValue() !=
            ProcessStatusEnded)
            return false;
    return true;
}

bool CVeLApplicationRestarterImpl::Shutdown(DWORD timeout, std::vector<VeLApplicationInfo>& failed)
{
    failed.clear();
    const CVeLWaitHelperTimeSupport deadline(timeout);
    std::vector<VeLApplicationInfo> holders;
    if (!Collect(ApplicationRunning, holders))
        return false;
    std::vector<std::shared_ptr<CVeLProcess>> processes;
    for (const VeLApplicationInfo& holder : holders)
        if (std::shared_ptr<CVeLProcess> process = m_processes.Open(holder.processId))
            processes.push_back(process);
    DWORD code = m_api->WAPI_RmShutdown(m_session, 0, nullptr);
    if (code != ERROR_SUCCESS && !WaitForEnds(processes, deadline))
    {
        VEL_TRACE(VEL_WRN, "Applications did not end in %u ms, shutting them down by force", timeout);
        code = m_api->WAPI_RmShutdown(m_session, RmForceShutdown, nullptr);
    }
    if (!Collect(ApplicationNotStopped, failed))
        return false;
    if (code != ERROR_SUCCESS && !failed.empty())
    {
        VEL_TRACE(VEL_ERR, "RmShutdown failed (code=0x%08X), %u applications still run!", code,
                  static_cast<unsigned>(failed.size()));
        return false;
    }
    return true;
}

bool CVeLApplicationRestarterImpl::Restart(std::vector<VeLApplicationInfo>& failed)
{
    failed.clear();
    if (!m_hasSession)
    {
        VEL_TRACE(VEL_ERR, "No files registered!");
        return false;
    }
    const DWORD code = m_api->WAPI_RmRestart(m_session, 0, nullptr);
    if (!Collect(ApplicationNotRestarted, failed))
        return false;
    if (code != ERROR_SUCCESS)
    {
        VEL_TRACE(VEL_ERR, "RmRestart failed (code=0x%08X)!", code);
        return false;
    }
    return true;
}
