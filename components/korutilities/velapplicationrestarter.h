// CVeLApplicationRestarter: one Restart Manager session: the files and folders added to it, the applications
// that hold them, their shutdown and their restart. Shutting down asks politely first (the close message on
// Windows; SIGTERM on Linux), then, after the deadline, ends the remaining holders by force; the polite step
// takes at least the system's own shutdown time-out (on Linux five seconds at most). Restarting starts the
// stopped applications again: on Windows those that registered for restart, through the Restart Manager;
// on Linux every one whose command line and working folder could be read from /proc before it was stopped.
// The session ends when the object is destroyed. Owns its CVeLApplicationRestarterImpl and forwards every
// call to it; one thread at a time. Every failure is traced at ERR and answered with false; nothing throws.
// Without an implementation (a null facade or wait helper at construction) every call traces "Can't access
// impl!".
#pragma once

#include "ivelapplicationrestarter.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>

class CVeLApplicationRestarterImpl;

class KORUTILITIES_API CVeLApplicationRestarter : public IVeLApplicationRestarter, public CVeLNonCopyable
{
public:
    // With the default facade and a CVeLWaitHelper of its own.
    CVeLApplicationRestarter();
    CVeLApplicationRestarter(std::shared_ptr<IVeLWinAPIWrapper> api,
                             std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLApplicationRestarter() override;

    bool AddResources(const std::vector<boost::filesystem::path>& filesOrFolders) override;
    bool GetApplications(std::vector<VeLApplicationInfo>& applications) const override;
    bool Shutdown(DWORD timeout, std::vector<VeLApplicationInfo>& failed) override;
    bool Restart(std::vector<VeLApplicationInfo>& failed) override;

private:
    std::unique_ptr<CVeLApplicationRestarterImpl> m_impl;
};
