// korutil proc holders: which processes hold a file open, one "<pid> <name>" line each.
#include "korutil.h"

#include <velfilehandlehelper.h>
#include <velstringconverter.h>

#include <boost/filesystem/operations.hpp>

namespace korutil
{

int RunProc(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"json", 0, false);
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    const std::vector<std::wstring>& args = cmd.GetPositionals();
    if (args.size() != 2 || args[0] != L"holders")
        return UsageError(invocation, args.empty() || args[0] != L"holders" ? "expected holders FILE"
                                                                            : "expected one FILE");
    const boost::filesystem::path file = ToPath(args[1]);
    boost::system::error_code error;
    if (!boost::filesystem::exists(file, error))
        return Failure("proc holders", ToText(args[1]) + ": no such file");
    std::list<VeLFileHandleInfo> holders;
    if (!CVeLFileHandleHelper().GetFileLockingProcesses(file, holders))
        return Failure("proc holders", ToText(args[1]) + ": cannot list the processes holding it");
    const bool json = cmd.Has(L"json");
    std::string document = "[";
    for (const VeLFileHandleInfo& holder : holders)
    {
        const std::string name = CVeLStringConverter::ConvertStdWStringToStdString(holder.applicationName);
        if (!json)
        {
            PrintLine(std::to_string(holder.processId) + " " + name);
            continue;
        }
        document += std::string(document.size() > 1 ? "," : "") +
                    "{\"pid\":" + std::to_string(holder.processId) + ",\"name\":" + JsonString(name) + "}";
    }
    if (json)
        PrintLine(document + "]");
    return kExitOk;
}

} // namespace korutil
