// CVeLProcessHelperImpl: the work of CVeLProcessHelper, and the ending of one CVeLProcess. Holds only the
// facade and the waiting service, so one object may be used from several threads at once. Every failure is
// traced and answered with false, null or a failed result; nothing throws.
//
// Ending a process: first a polite request. Where the process has top-level windows, each gets the close
// message (WM_CLOSE). Otherwise, when the process leads a process group this program started, or when the
// system has no windows at all (window enumeration is not supported: Linux, where win32posix delivers the
// request as SIGTERM), the console's break request goes to it. Then the wait up to the deadline, then
// TerminateProcess with the given exit code and a wait of up to five seconds for the system to finish it.
//
// Ending a tree: the descendants are found in a process snapshot by their parent ids (breadth first, each
// process once, so a reused id can't make a loop) and opened before anything is ended, so that an id
// reused meanwhile is never hit. The root gets the polite request and the deadline; what still runs is then
// terminated, the root first so that it starts nothing new; two more snapshots catch children that the tree
// started meanwhile.
#pragma once

#include "ivelprocesshelper.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"

#include <memory>
#include <vector>

class CVeLProcess;

class CVeLProcessHelperImpl
{
public:
    CVeLProcessHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper);

    std::shared_ptr<CVeLProcess> Start(const VeLProcessStartInfo& info) const;
    CVeLResult<ProcessStatusEnum> Run(const VeLProcessStartInfo& info, DWORD timeout, DWORD& exitCode) const;
    std::shared_ptr<CVeLProcess> Open(DWORD processId) const;
    bool ListProcesses(std::vector<VeLProcessInfo>& processes) const;
    bool FindByName(const std::wstring& imageName, std::vector<VeLProcessInfo>& processes) const;
    bool FindById(DWORD processId, VeLProcessInfo& process) const;
    bool IsRunning(DWORD processId) const;
    bool End(DWORD processId, DWORD timeout, UINT exitCode) const;
    bool EndTree(DWORD processId, DWORD timeout, UINT exitCode) const;
    bool GetTopLevelWindows(DWORD processId, std::vector<HWND>& windows) const;
    bool GetForegroundWindow(HWND& window) const;

    bool EndProcess(const CVeLProcess& process, DWORD timeout, UINT exitCode) const;

    // The command line that hands program and arguments to a Windows program unchanged: the program in
    // quotes, each argument quoted and escaped where it needs it. False for text that no command line can
    // carry (a zero character, a quote in the program).
    static bool BuildCommandLine(const std::wstring& program, const std::vector<std::wstring>& arguments,
                                 std::wstring& commandLine);
    static std::wstring QuoteArgument(const std::wstring& argument);

private:
    // The caller's environment with info's changes, as a block of zero-ended "NAME=VALUE" strings sorted by
    // name without regard to case, ended by an empty string.
    bool BuildEnvironment(const VeLProcessStartInfo& info, std::vector<WCHAR>& block) const;
    bool Snapshot(std::vector<VeLProcessInfo>& processes) const;
    void FillImagePath(VeLProcessInfo& process) const;
    std::shared_ptr<CVeLProcess> OpenQuiet(DWORD processId) const;
    void RequestEnd(const CVeLProcess& process) const;
    bool Terminate(const CVeLProcess& process, UINT exitCode) const;
    std::vector<std::shared_ptr<CVeLProcess>> OpenDescendants(DWORD rootId,
                                                              std::vector<DWORD>& knownIds) const;
    void TraceStartFailure(const VeLProcessStartInfo& info, DWORD error) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLWaitHelper> m_waitHelper;
};
