// IVeLProcessHelper: starting programs, finding running processes by name or id, asking them to end and
// ending them (alone or with everything they started), and the windows of other applications. The
// records and enumerations the process services share live here.
#pragma once

#include "velresult.h"
#include "velwin32.h"

#include <boost/filesystem/path.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

// The status of a started or watched process.
enum ProcessStatusEnum
{
    ProcessStatusUnknown = 0, // it could not be asked
    ProcessStatusRunning = 1,
    ProcessStatusEnded = 2,
};

// What to start. The arguments are passed to the program exactly as given: they are quoted by the Windows
// command-line rules, which the program's runtime (or win32posix on Linux) undoes.
struct VeLProcessStartInfo
{
    boost::filesystem::path program;       // a path; a bare name is searched in PATH
    std::vector<std::wstring> arguments;   // without the program itself
    boost::filesystem::path workingFolder; // empty: the caller's
    // The environment: the caller's, with these variables set (replacing a variable of the same name) and
    // then these removed. Names are compared as written.
    std::map<std::wstring, std::wstring> setVariables;
    std::vector<std::wstring> removeVariables;
    bool hidden = false; // no window and no console window
    // The program leads a process group of its own, so that the console's request to end reaches it and
    // the programs it starts, and not the caller.
    bool newProcessGroup = false;
};

// One running process as the system lists it.
struct VeLProcessInfo
{
    DWORD processId = 0;
    DWORD parentId = 0;
    std::wstring imageName;            // the executable's file name
    boost::filesystem::path imagePath; // its full path; empty when the system does not give it to us
};

class CVeLProcess;

class IVeLProcessHelper
{
public:
    virtual ~IVeLProcessHelper() {}
    // The started process, or null.
    virtual std::shared_ptr<CVeLProcess> Start(const VeLProcessStartInfo& info) const = 0;
    // Starts the program and waits up to timeout ms for its end. Ended: exitCode is its exit code. Running
    // (the deadline passed): the process keeps running.
    virtual CVeLResult<ProcessStatusEnum> Run(const VeLProcessStartInfo& info, DWORD timeout,
                                              DWORD& exitCode) const = 0;
    // A process that runs, for waiting on and ending it; null when there is none of that id.
    virtual std::shared_ptr<CVeLProcess> Open(DWORD processId) const = 0;
    virtual bool ListProcesses(std::vector<VeLProcessInfo>& processes) const = 0;
    // The processes whose executable's file name is imageName, compared without regard to case.
    virtual bool FindByName(const std::wstring& imageName, std::vector<VeLProcessInfo>& processes) const = 0;
    virtual bool FindById(DWORD processId, VeLProcessInfo& process) const = 0;
    virtual bool IsRunning(DWORD processId) const = 0;
    // Asks the process to end, waits up to timeout ms, then terminates it with exitCode.
    virtual bool End(DWORD processId, DWORD timeout, UINT exitCode) const = 0;
    // The same for the process and every process it started, and theirs.
    virtual bool EndTree(DWORD processId, DWORD timeout, UINT exitCode) const = 0;
    // The top-level windows of the process.
    virtual bool GetTopLevelWindows(DWORD processId, std::vector<HWND>& windows) const = 0;
    virtual bool GetForegroundWindow(HWND& window) const = 0;
};
