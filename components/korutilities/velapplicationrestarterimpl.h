// CVeLApplicationRestarterImpl: the work of CVeLApplicationRestarter. Holds the facade, the waiting service
// and the Restart Manager session (started with the first AddResources, ended by the destructor). Every
// failure is traced at ERR and answered with false; nothing throws.
//
// Shutdown: the holders are opened first (so that their ends can be awaited), then the Restart Manager is
// asked to shut them down politely. What still runs then gets the rest of the deadline, and after it the
// forced shutdown. The session's list then tells which did not stop.
#pragma once

#include "ivelapplicationrestarter.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "velprocesshelperimpl.h"
#include "velwaithelpertimesupport.h"

#include <memory>

class CVeLApplicationRestarterImpl
{
public:
    CVeLApplicationRestarterImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                 std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLApplicationRestarterImpl();
    CVeLApplicationRestarterImpl(const CVeLApplicationRestarterImpl&) = delete;
    CVeLApplicationRestarterImpl& operator=(const CVeLApplicationRestarterImpl&) = delete;

    bool AddResources(const std::vector<boost::filesystem::path>& filesOrFolders);
    bool GetApplications(std::vector<VeLApplicationInfo>& applications) const;
    bool Shutdown(DWORD timeout, std::vector<VeLApplicationInfo>& failed);
    bool Restart(std::vector<VeLApplicationInfo>& failed);

private:
    bool StartSession();
    bool ListRecords(std::vector<RM_PROCESS_INFO>& records) const;
    // The applications in the given state.
    bool Collect(ApplicationStateEnum state, std::vector<VeLApplicationInfo>& applications) const;
    // Waits until the processes have ended or the deadline has passed; true when all ended.
    bool WaitForEnds(const std::vector<std::shared_ptr<CVeLProcess>>& processes,
                     const CVeLWaitHelperTimeSupport& deadline) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    CVeLProcessHelperImpl m_processes;
    DWORD m_session = 0;
    bool m_hasSession = false;
};
