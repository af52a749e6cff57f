#include "velprocesshelperimpl.h"
#include "korutilitesbtracedef.h"
#include "velhandle.h"
#include "velpathconverter.h"
#include "velprocess.h"
#include "velstringconverter.h"

#include <algorithm>
#include <cwctype>
#include <set>

namespace
{

// How long a terminated process may take to be finished by the system.
const DWORD kTerminateWait = 5000;
// The access a process object needs here: waiting, its exit code and image path, terminating it.
const DWORD kProcessAccess = SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION;

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

// Windows compares names of files (and so of images) without regard to case, character by character.
bool SameName(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](wchar_t x, wchar_t y) {
                                                  return std::towupper(static_cast<wint_t>(x)) ==
                                                         std::towupper(static_cast<wint_t>(y));
                                              });
}

std::wstring NameOf(const std::wstring& entry)
{
    // Entries of the hidden per-drive kind ("=C:=C:\\dir") start with '='; their name runs to the second.
    const std::size_t equals = entry.find(L'=', 1);
    return entry.substr(0, equals);
}

// The collector of the window enumeration.
struct WindowSearch
{
    const IVeLWinAPIWrapper* api;
    DWORD processId;
    std::vector<HWND>* windows;
};

BOOL CALLBACK CollectWindow(HWND window, LPARAM parameter)
{
    auto* search = reinterpret_cast<WindowSearch*>(parameter);
    DWORD owner = 0;
    search->api->WAPI_GetWindowThreadProcessId(window, &owner);
    if (owner == search->processId)
        search->windows->push_back(window);
    return TRUE;
}

bool SystemHasNoWindows(DWORD error)
{
    return error == ERROR_NOT_SUPPORTED || error == ERROR_CALL_NOT_IMPLEMENTED;
}

} // namespace

CVeLProcessHelperImpl::CVeLProcessHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                             std::shared_ptr<IVeLWaitHelper> waitHelper)
    : m_api(std::move(api)), m_waitHelper(std::move(waitHelper))
{
}

std::wstring CVeLProcessHelperImpl::QuoteArgument(const std::wstring& argument)
{
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos)
        return argument;
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (wchar_t c : argument)
    {
        if (c == L'\\')
        {
            ++backslashes;
            continue;
        }
        // Backslashes count only before a quote: there they are doubled, and the quote escaped.
        quoted.append(c == L'"' ? 2 * backslashes + 1 : backslashes, L'\\');
        backslashes = 0;
        quoted += c;
    }
    quoted.append(2 * backslashes, L'\\'); // they precede the closing quote
    return quoted + L"\"";
}

bool CVeLProcessHelperImpl::BuildCommandLine(const std::wstring& program,
                                             const std::vector<std::wstring>& arguments,
                                             std::wstring& commandLine)
{
    // The program name takes no escapes: quotes only group, so it can't contain one.
    if (program.empty() || program.find_first_of(std::wstring(L"\"\0", 2)) != std::wstring::npos)
        return false;
    commandLine = L"\"" + program + L"\"";
    for (const std::wstring& argument : arguments)
    {
        if (argument.find(L'\0') != std::wstring::npos)
            return false;
        commandLine += L" " + QuoteArgument(argument);
    }
    return true;
}

bool CVeLProcessHelperImpl::BuildEnvironment(const VeLProcessStartInfo& info, std::vector<WCHAR>& block) const
{
    for (const auto& variable : info.setVariables)
    {
        if (variable.first.empty() ||
            variable.first.find_first_of(std::wstring(L"=\0", 2)) != std::wstring::npos ||
            variable.second.find(L'\0') != std::wstring::npos)
            return false;
    }
    LPWCH current = m_api->WAPI_GetEnvironmentStrings();
    if (current == nullptr)
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "GetEnvironmentStrings failed (code=0x%08X)!", error);
        return false;
    }
    std::vector<std::wstring> entries;
    for (const WCHAR* p = current; *p != L'\0'; p += entries.back().size() + 1)
        entries.emplace_back(p);
    m_api->WAPI_FreeEnvironmentStrings(current);
    auto dropped = [&info](const std::wstring& entry)
    {
        const std::wstring name = NameOf(entry);
        return info.setVariables.count(name) != 0 ||
               std::find(info.removeVariables.begin(), info.removeVariables.end(), name) !=
                   info.removeVariables.end();
    };
    entries.erase(std::remove_if(entries.begin(), entries.end(), dropped), entries.end());
    for (const auto& variable : info.setVariables)
        if (std::find(info.removeVariables.begin(), info.removeVariables.end(), variable.first) ==
            info.removeVariables.end())
            entries.push_back(variable.first + L"=" + variable.second);
    std::stable_sort(
        entries.begin(), entries.end(),
        [](const std::wstring& a, const std::wstring& b)
        {
            return std::lexicographical_compare(
                a.begin(), a.end(), b.begin(), b.end(),
                [](wchar_t x, wchar_t y)
                { return std::towupper(static_cast<wint_t>(x)) < std::towupper(static_cast<wint_t>(y)); });
        });
    block.clear();
    for (const std::wstring& entry : entries)
        block.insert(block.end(), entry.c_str(), entry.c_str() + entry.size() + 1);
    block.push_back(L'\0');
    if (block.size() == 1)
        block.push_back(L'\0'); // an empty environment is still two zeros
    return true;
}

void CVeLProcessHelperImpl::TraceStartFailure(const VeLProcessStartInfo& info, DWORD error) const
{
    const std::string program = CVeLPathConverter::ToUtf8(info.program);
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        VEL_TRACE(VEL_ERR, "Program %s not found (code=0x%08X)!", program.c_str(), error);
    else if (error == ERROR_DIRECTORY)
        VEL_TRACE(VEL_ERR, "Working folder %s does not exist (code=0x%08X)!",
                  CVeLPathConverter::ToUtf8(info.workingFolder).c_str(), error);
    else
        VEL_TRACE(VEL_ERR, "CreateProcess %s failed (code=0x%08X)!", program.c_str(), error);
}

std::shared_ptr<CVeLProcess> CVeLProcessHelperImpl::Start(const VeLProcessStartInfo& info) const
{
    const std::wstring program = CVeLPathConverter::ToWide(info.program);
    std::wstring commandLine;
    std::vector<WCHAR> environment;
    if (!BuildCommandLine(program, info.arguments, commandLine))
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return nullptr;
    }
    if (!BuildEnvironment(info, environment))
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return nullptr;
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    DWORD flags = CREATE_UNICODE_ENVIRONMENT;
    if (info.hidden)
    {
        startup.dwFlags |= STARTF_USESHOWWINDOW;
        startup.wShowWindow = SW_HIDE;
        flags |= CREATE_NO_WINDOW;
    }
    if (info.newProcessGroup)
        flags |= CREATE_NEW_PROCESS_GROUP;
    // A bare name is searched by the system (through the command line); a path is taken as it is.
    const bool bareName = !info.program.has_parent_path();
    const std::wstring folder = CVeLPathConverter::ToWide(info.workingFolder);
    PROCESS_INFORMATION started = {};
    std::vector<WCHAR> writable(commandLine.c_str(), commandLine.c_str() + commandLine.size() + 1);
    if (!m_api->WAPI_CreateProcess(bareName ? nullptr : program.c_str(), writable.data(), nullptr, nullptr,
                                   FALSE, flags, environment.data(),
                                   folder.empty() ? nullptr : folder.c_str(), &startup, &started))
    {
        TraceStartFailure(info, m_api->WAPI_GetLastError());
        return nullptr;
    }
    VEL_TRACE(VEL_DBG1, "Started %s as process %u", Utf8(program).c_str(), started.dwProcessId);
    return std::make_shared<CVeLProcess>(m_api, m_waitHelper, started.dwProcessId, started.hProcess,
                                         started.hThread, info.newProcessGroup);
}

CVeLResult<ProcessStatusEnum> CVeLProcessHelperImpl::Run(const VeLProcessStartInfo& info, DWORD timeout,
                                                         DWORD& exitCode) const
{
    std::shared_ptr<CVeLProcess> process = Start(info);
    if (!process)
        return CVeLResult<ProcessStatusEnum>();
    const CVeLResult<ProcessStatusEnum> status = process->Wait(timeout);
    if (!status.IsSuccess() || status.GetValue() != ProcessStatusEnded)
        return status;
    const CVeLResult<unsigned long> code = process->GetExitCode();
    if (!code.IsSuccess())
        return CVeLResult<ProcessStatusEnum>();
    exitCode = code.GetValue();
    return status;
}

std::shared_ptr<CVeLProcess> CVeLProcessHelperImpl::OpenQuiet(DWORD processId) const
{
    if (processId == 0)
        return nullptr;
    HANDLE handle = m_api->WAPI_OpenProcess(kProcessAccess, FALSE, processId);
    if (handle == nullptr)
        return nullptr;
    return std::make_shared<CVeLProcess>(m_api, m_waitHelper, processId, handle, nullptr, false);
}

std::shared_ptr<CVeLProcess> CVeLProcessHelperImpl::Open(DWORD processId) const
{
    if (processId == 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return nullptr;
    }
    std::shared_ptr<CVeLProcess> process = OpenQuiet(processId);
    if (!process)
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "OpenProcess %u failed (code=0x%08X)!", processId, error);
    }
    return process;
}

bool CVeLProcessHelperImpl::Snapshot(std::vector<VeLProcessInfo>& processes) const
{
    processes.clear();
    CVeLHANDLE snapshot(m_api, m_api->WAPI_CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot.IsValid())
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "CreateToolhelp32Snapshot failed (code=0x%08X)!", error);
        return false;
    }
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = m_api->WAPI_Process32First(snapshot.GetHandle(), &entry); more;
         more = m_api->WAPI_Process32Next(snapshot.GetHandle(), &entry))
    {
        VeLProcessInfo process;
        process.processId = entry.th32ProcessID;
        process.parentId = entry.th32ParentProcessID;
        entry.szExeFile[MAX_PATH - 1] = L'\0';
        process.imageName = entry.szExeFile;
        processes.push_back(process);
    }
    return true;
}

void CVeLProcessHelperImpl::FillImagePath(VeLProcessInfo& process) const
{
    CVeLHANDLE handle(m_api,
                      m_api->WAPI_OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process.processId));
    if (!handle.IsValid())
        return; // another user's or a protected process: the name is all the system gives
    std::vector<WCHAR> buffer(32768);
    DWORD size = static_cast<DWORD>(buffer.size());
    if (m_api->WAPI_QueryFullProcessImageName(handle.GetHandle(), 0, buffer.data(), &size))
        process.imagePath = CVeLPathConverter::FromWide(std::wstring(buffer.data(), size));
}

bool CVeLProcessHelperImpl::ListProcesses(std::vector<VeLProcessInfo>& processes) const
{
    return Snapshot(processes);
}

bool CVeLProcessHelperImpl::FindByName(const std::wstring& imageName,
                                       std::vector<VeLProcessInfo>& processes) const
{
    processes.clear();
    if (imageName.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    std::vector<VeLProcessInfo> all;
    if (!Snapshot(all))
        return false;
    for (VeLProcessInfo& process : all)
    {
        if (!SameName(process.imageName, imageName))
            continue;
        FillImagePath(process);
        processes.push_back(process);
    }
    return true;
}

bool CVeLProcessHelperImpl::FindById(DWORD processId, VeLProcessInfo& process) const
{
    if (processId == 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    std::vector<VeLProcessInfo> all;
    if (!Snapshot(all))
        return false;
    for (VeLProcessInfo& candidate : all)
    {
        if (candidate.processId != processId)
            continue;
        FillImagePath(candidate);
        process = candidate;
        return true;
    }
    VEL_TRACE(VEL_ERR, "No process %u!", processId);
    return false;
}

bool CVeLProcessHelperImpl::IsRunning(DWORD processId) const
{
    std::shared_ptr<CVeLProcess> process = OpenQuiet(processId);
    return process && process->GetStatus().GetValue() == ProcessStatusRunning;
}

void CVeLProcessHelperImpl::RequestEnd(const CVeLProcess& process) const
{
    std::vector<HWND> windows;
    WindowSearch search = {m_api.get(), process.GetId(), &windows};
    const bool enumerated =
        m_api->WAPI_EnumWindows(&CollectWindow, reinterpret_cast<LPARAM>(&search)) != FALSE;
    const bool noWindowsHere = !enumerated && SystemHasNoWindows(m_api->WAPI_GetLastError());
    std::size_t posted = 0;
    for (HWND window : windows)
        posted += m_api->WAPI_PostMessage(window, WM_CLOSE, 0, 0) ? 1 : 0;
    if (posted != 0)
    {
        VEL_TRACE(VEL_DBG1, "Asked process %u to close %u windows", process.GetId(),
                  static_cast<unsigned>(posted));
        return;
    }
    if (!process.LeadsGroup() && !noWindowsHere)
    {
        VEL_TRACE(VEL_DBG1, "Process %u has no window to close", process.GetId());
        return;
    }
    if (!m_api->WAPI_GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, process.GetId()))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_WRN, "Can't ask process %u to end (code=0x%08X)", process.GetId(), error);
    }
}

bool CVeLProcessHelperImpl::Terminate(const CVeLProcess& process, UINT exitCode) const
{
    if (process.GetStatus().GetValue() == ProcessStatusEnded)
        return true;
    if (!m_api->WAPI_TerminateProcess(process.GetHandle(), exitCode))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        if (process.GetStatus().GetValue() == ProcessStatusEnded)
            return true; // it ended by itself in between
        VEL_TRACE(VEL_ERR, "TerminateProcess %u failed (code=0x%08X)!", process.GetId(), error);
        return false;
    }
    return true;
}

bool CVeLProcessHelperImpl::EndProcess(const CVeLProcess& process, DWORD timeout, UINT exitCode) const
{
    if (process.GetStatus().GetValue() == ProcessStatusEnded)
        return true;
    RequestEnd(process);
    if (process.Wait(timeout).GetValue() == ProcessStatusEnded)
        return true;
    VEL_TRACE(VEL_WRN, "Process %u did not end in %u ms, terminating it", process.GetId(), timeout);
    if (!Terminate(process, exitCode))
        return false;
    if (process.Wait(kTerminateWait).GetValue() != ProcessStatusEnded)
    {
        VEL_TRACE(VEL_ERR, "Process %u did not end after TerminateProcess!", process.GetId());
        return false;
    }
    return true;
}

bool CVeLProcessHelperImpl::End(DWORD processId, DWORD timeout, UINT exitCode) const
{
    std::shared_ptr<CVeLProcess> process = Open(processId);
    return process && EndProcess(*process, timeout, exitCode);
}

std::vector<std::shared_ptr<CVeLProcess>>
CVeLProcessHelperImpl::OpenDescendants(DWORD rootId, std::vector<DWORD>& knownIds) const
{
    std::vector<std::shared_ptr<CVeLProcess>> found;
    std::vector<VeLProcessInfo> all;
    if (!Snapshot(all))
        return found;
    std::set<DWORD> inTree(knownIds.begin(), knownIds.end());
    inTree.insert(rootId);
    // Breadth first over the parent links; every id joins the tree once, so a reused id can't loop.
    for (bool grew = true; grew;)
    {
        grew = false;
        for (const VeLProcessInfo& process : all)
        {
            if (inTree.count(process.processId) || !inTree.count(process.parentId) || process.processId == 0)
                continue;
            inTree.insert(process.processId);
            knownIds.push_back(process.processId);
            grew = true;
            if (std::shared_ptr<CVeLProcess> opened = OpenQuiet(process.processId))
                found.push_back(opened);
        }
    }
    return found;
}

bool CVeLProcessHelperImpl::EndTree(DWORD processId, DWORD timeout, UINT exitCode) const
{
    std::shared_ptr<CVeLProcess> root = Open(processId);
    if (!root)
        return false;
    std::vector<DWORD> knownIds;
    std::vector<std::shared_ptr<CVeLProcess>> tree = OpenDescendants(processId, knownIds);
    tree.insert(tree.begin(), root);
    RequestEnd(*root);
    root->Wait(timeout);
    bool ended = true;
    for (int pass = 0; pass < 3; ++pass)
    {
        for (const std::shared_ptr<CVeLProcess>& process : tree)
            ended = Terminate(*process, exitCode) && ended;
        tree = OpenDescendants(processId, knownIds); // started meanwhile by a member that still ran
        if (tree.empty())
            break;
    }
    for (const std::shared_ptr<CVeLProcess>& process : tree)
        ended = Terminate(*process, exitCode) && ended;
    if (root->Wait(kTerminateWait).GetValue() != ProcessStatusEnded)
    {
        VEL_TRACE(VEL_ERR, "Process %u did not end after TerminateProcess!", processId);
        return false;
    }
    return ended;
}

bool CVeLProcessHelperImpl::GetTopLevelWindows(DWORD processId, std::vector<HWND>& windows) const
{
    windows.clear();
    if (processId == 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    WindowSearch search = {m_api.get(), processId, &windows};
    if (!m_api->WAPI_EnumWindows(&CollectWindow, reinterpret_cast<LPARAM>(&search)))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        if (SystemHasNoWindows(error))
            VEL_TRACE(VEL_ERR, "This system has no windows (code=0x%08X)!", error);
        else
            VEL_TRACE(VEL_ERR, "EnumWindows failed (code=0x%08X)!", error);
        windows.clear();
        return false;
    }
    return true;
}

bool CVeLProcessHelperImpl::GetForegroundWindow(HWND& window) const
{
    window = m_api->WAPI_GetForegroundWindow();
    if (window != nullptr)
        return true;
    const DWORD error = m_api->WAPI_GetLastError();
    if (SystemHasNoWindows(error))
        VEL_TRACE(VEL_ERR, "This system has no windows (code=0x%08X)!", error);
    else
        VEL_TRACE(VEL_ERR, "No window is in the foreground!");
    return false;
}
