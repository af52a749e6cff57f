// CVeLProcessHelper: starts programs (arguments quoted so that each arrives unchanged, a working folder, the
// caller's environment with variables added or removed, optionally without a window), runs them to their
// end with a deadline, finds processes by image name (without regard to case, as Windows compares file
// names) or id with their full image path, and ends processes or whole trees of them: politely first — the
// close message to the process's top-level windows on Windows; on Linux, which has no windows, SIGTERM
// (win32posix's console break request) — then, at the deadline, by force. The windows of other applications
// can be found on Windows only; on Linux those calls fail with a traced reason. Owns its
// CVeLProcessHelperImpl and forwards every call to it; holds no state of its own, so any thread may use one
// instance. Every failure is traced at ERR and answered with false, null or a failed result; nothing
// throws. Without an implementation (a null facade or wait helper at construction) every call is traced
// and fails.
#pragma once

#include "ivelprocesshelper.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"
#include "velprocess.h"

#include <memory>

class CVeLProcessHelperImpl;

class KORUTILITIES_API CVeLProcessHelper : public IVeLProcessHelper, public CVeLNonCopyable
{
public:
    // With the default facade and a CVeLWaitHelper of its own.
    CVeLProcessHelper();
    CVeLProcessHelper(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLProcessHelper() override;

    std::shared_ptr<CVeLProcess> Start(const VeLProcessStartInfo& info) const override;
    CVeLResult<ProcessStatusEnum> Run(const VeLProcessStartInfo& info, DWORD timeout,
                                      DWORD& exitCode) const override;
    std::shared_ptr<CVeLProcess> Open(DWORD processId) const override;
    bool ListProcesses(std::vector<VeLProcessInfo>& processes) const override;
    bool FindByName(const std::wstring& imageName, std::vector<VeLProcessInfo>& processes) const override;
    bool FindById(DWORD processId, VeLProcessInfo& process) const override;
    // False also, without a trace, when the process has ended or never existed.
    bool IsRunning(DWORD processId) const override;
    bool End(DWORD processId, DWORD timeout, UINT exitCode) const override;
    bool EndTree(DWORD processId, DWORD timeout, UINT exitCode) const override;
    bool GetTopLevelWindows(DWORD processId, std::vector<HWND>& windows) const override;
    bool GetForegroundWindow(HWND& window) const override;

    // The command line that carries program and arguments unchanged by the Windows rules; false for text
    // that none can carry (a zero character anywhere, a quote in the program).
    static bool BuildCommandLine(const std::wstring& program, const std::vector<std::wstring>& arguments,
                                 std::wstring& commandLine);

private:
    std::unique_ptr<CVeLProcessHelperImpl> m_impl;
};
