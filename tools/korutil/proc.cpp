// korutil proc: process services. "list [NAME]" and "holders FILE" print "<pid> <name>" lines; "start"
// prints the new process's id; "run" waits for the program and prints its exit code; "wait" ends with
// status 1 when the deadline passes first; "kill" asks the process to end and ends it by force after
// --timeout ms (5000 by default).
#include "korutil.h"

#include <velfilehandlehelper.h>
#include <velprocesshelper.h>
#include <velstringconverter.h>

#include <boost/filesystem/operations.hpp>

#include <cwchar>

namespace korutil
{

namespace
{

const DWORD kDefaultKillTimeout = 5000;

// "<pid> <name>" lines, or with json one array of {"pid","name"} records.
void PrintProcesses(const std::vector<std::pair<DWORD, std::wstring>>& processes, bool json)
{
    std::string document = "[";
    for (const auto& process : processes)
    {
        const std::string name = CVeLStringConverter::ConvertStdWStringToStdString(process.second);
        if (!json)
        {
            PrintLine(std::to_string(process.first) + " " + name);
            continue;
        }
        document += std::string(document.size() > 1 ? "," : "") +
                    "{\"pid\":" + std::to_string(process.first) + ",\"name\":" + JsonString(name) + "}";
    }
    if (json)
        PrintLine(document + "]");
}

// A number argument (a process id, milliseconds); false when it is none.
bool ParseNumber(const std::wstring& text, DWORD& value)
{
    wchar_t* end = nullptr;
    const unsigned long long parsed = std::wcstoull(text.c_str(), &end, 10);
    if (text.empty() || text[0] == L'-' || *end != L'\0' || parsed > 0xFFFFFFFFull)
        return false;
    value = static_cast<DWORD>(parsed);
    return true;
}

// The program is a path (any file-name bytes); the arguments are text, passed on as they were typed.
VeLProcessStartInfo StartInfo(const std::vector<std::wstring>& command)
{
    VeLProcessStartInfo info;
    info.program = ToPath(command[0]);
    for (std::size_t i = 1; i < command.size(); ++i)
    {
        std::wstring argument;
        CVeLStringConverter::ConvertUTF8Chars2StdWString(ToText(command[i]).c_str(), argument);
        info.arguments.push_back(argument);
    }
    return info;
}

int Holders(const std::vector<std::wstring>& args, bool json)
{
    const boost::filesystem::path file = ToPath(args[1]);
    boost::system::error_code error;
    if (!boost::filesystem::exists(file, error))
        return Failure("proc holders", ToText(args[1]) + ": no such file");
    std::list<VeLFileHandleInfo> holders;
    if (!CVeLFileHandleHelper().GetFileLockingProcesses(file, holders))
        return Failure("proc holders", ToText(args[1]) + ": cannot list the processes holding it");
    std::vector<std::pair<DWORD, std::wstring>> records;
    for (const VeLFileHandleInfo& holder : holders)
        records.emplace_back(holder.processId, holder.applicationName);
    PrintProcesses(records, json);
    return kExitOk;
}

int List(const std::vector<std::wstring>& args, bool json)
{
    CVeLProcessHelper helper;
    std::vector<VeLProcessInfo> processes;
    const bool listed =
        args.size() == 2 ? helper.FindByName(args[1], processes) : helper.ListProcesses(processes);
    if (!listed)
        return Failure("proc list", "cannot list the processes" + DescribeError(LastError()));
    std::vector<std::pair<DWORD, std::wstring>> records;
    for (const VeLProcessInfo& process : processes)
        records.emplace_back(process.processId, process.imageName);
    PrintProcesses(records, json);
    return kExitOk;
}

int Start(const std::vector<std::wstring>& command)
{
    std::shared_ptr<CVeLProcess> process = CVeLProcessHelper().Start(StartInfo(command));
    if (!process)
        return Failure("proc start", ToText(command[0]) + ": cannot start it" + DescribeError(LastError()));
    PrintLine(std::to_string(process->GetId()));
    return kExitOk;
}

int RunToEnd(const std::vector<std::wstring>& command, DWORD timeout)
{
    DWORD exitCode = 0;
    const CVeLResult<ProcessStatusEnum> status =
        CVeLProcessHelper().Run(StartInfo(command), timeout, exitCode);
    if (!status.IsSuccess())
        return Failure("proc run", ToText(command[0]) + ": cannot run it" + DescribeError(LastError()));
    if (status.GetValue() != ProcessStatusEnded)
        return Failure("proc run",
                       ToText(command[0]) + ": still running after " + std::to_string(timeout) + " ms");
    PrintLine(std::to_string(exitCode));
    return kExitOk;
}

int Wait(DWORD processId, DWORD timeout)
{
    std::shared_ptr<CVeLProcess> process = CVeLProcessHelper().Open(processId);
    if (!process)
        return Failure("proc wait", "no process " + std::to_string(processId) + DescribeError(LastError()));
    const CVeLResult<ProcessStatusEnum> status = process->Wait(timeout);
    if (!status.IsSuccess())
        return Failure("proc wait", "cannot wait for process " + std::to_string(processId));
    if (status.GetValue() != ProcessStatusEnded)
        return Failure("proc wait", "process " + std::to_string(processId) + " still runs after " +
                                        std::to_string(timeout) + " ms");
    return kExitOk;
}

int Kill(DWORD processId, DWORD timeout)
{
    if (!CVeLProcessHelper().End(processId, timeout, 1))
        return Failure("proc kill",
                       "cannot end process " + std::to_string(processId) + DescribeError(LastError()));
    return kExitOk;
}

// The sub-verbs that take a command after "--" or a process id and an optional time.
int RunWithOperands(Invocation& invocation, const std::vector<std::wstring>& args, const CVeLCommandLine& cmd)
{
    const std::wstring& verb = args[0];
    DWORD timeout = INFINITE;
    if (cmd.Has(L"timeout") && !ParseNumber(cmd.GetValue(L"timeout"), timeout))
        return UsageError(invocation, "--timeout needs a number of milliseconds");
    const std::vector<std::wstring> operands(args.begin() + 1, args.end());
    if (verb == L"start" || verb == L"run")
    {
        if (operands.empty())
            return UsageError(invocation, "expected -- CMD [ARG...]");
        return verb == L"start" ? Start(operands) : RunToEnd(operands, timeout);
    }
    DWORD processId = 0;
    if (operands.empty() || operands.size() > 2 || !ParseNumber(operands[0], processId) || processId == 0)
        return UsageError(invocation, "expected a process id");
    if (verb == L"wait")
    {
        if (operands.size() == 2 && !ParseNumber(operands[1], timeout))
            return UsageError(invocation, "expected a number of milliseconds");
        return Wait(processId, timeout);
    }
    if (operands.size() != 1)
        return UsageError(invocation, "expected one process id");
    return Kill(processId, cmd.Has(L"timeout") ? timeout : kDefaultKillTimeout);
}

} // namespace

int RunProc(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"json", 0, false);
    cmd.AddOption(L"timeout", L't', true);
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    const std::vector<std::wstring>& args = cmd.GetPositionals();
    const std::wstring verb = args.empty() ? L"" : args[0];
    if (verb == L"holders")
        return args.size() == 2 ? Holders(args, cmd.Has(L"json"))
                                : UsageError(invocation, "expected one FILE");
    if (verb == L"list")
        return args.size() <= 2 ? List(args, cmd.Has(L"json"))
                                : UsageError(invocation, "expected at most one NAME");
    if (verb == L"start" || verb == L"run" || verb == L"wait" || verb == L"kill")
        return RunWithOperands(invocation, args, cmd);
    return UsageError(invocation, "expected list, start, run, wait, kill or holders");
}

} // namespace korutil
