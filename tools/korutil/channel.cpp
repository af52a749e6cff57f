// korutil channel create|write|read: the shared-memory command channel. create holds the block until the
// tool is interrupted (the block lives while some process holds it); write and read open it by name.
#include "korutil.h"

#include <velcmdinterfacesharedmemoryhandler.h>
#include <velstringconverter.h>
#include <velwin32.h>

#include <csignal>
#include <cstdio>

namespace korutil
{

namespace
{

volatile std::sig_atomic_t g_stop = 0;

extern "C" void StopHolding(int)
{
    g_stop = 1;
}

} // namespace

int RunChannel(Invocation& invocation)
{
    CVeLCommandLine cmd;
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    const std::vector<std::wstring>& args = cmd.GetPositionals();
    if (args.size() < 2)
        return UsageError(invocation, "expected create NAME, write NAME TEXT or read NAME");
    const std::wstring& sub = args[0];
    const std::wstring& name = args[1];
    if (sub == L"create" && args.size() == 2)
    {
        CVeLCmdInterfaceSharedMemoryHandler channel(true, name);
        if (!channel.IsSharedMemoryAvailable())
            return Failure("channel create",
                           ToText(name) + ": cannot create the channel" + DescribeError(LastError()));
        std::signal(SIGINT, StopHolding);
        std::signal(SIGTERM, StopHolding);
        // Scripts wait for this line before they use the channel.
        PrintLine("holding " + ToText(name));
        std::fflush(stdout);
        while (!g_stop)
            Sleep(100);
        return kExitOk;
    }
    const bool write = sub == L"write" && args.size() == 3;
    if (!write && !(sub == L"read" && args.size() == 2))
        return UsageError(invocation, "expected create NAME, write NAME TEXT or read NAME");
    const std::string verb = write ? "channel write" : "channel read";
    CVeLCmdInterfaceSharedMemoryHandler channel(false, name);
    if (!channel.IsSharedMemoryAvailable())
        return Failure(verb, ToText(name) + ": no such channel");
    if (write)
    {
        if (!channel.WriteDataToMemory(args[2]))
            return Failure(verb, "text too long for the channel (at most 65535 bytes of UTF-8)");
        return kExitOk;
    }
    std::wstring text;
    if (!channel.ReadDataFromMemory(text))
        return Failure(verb, ToText(name) + ": cannot read the channel");
    PrintLine(CVeLStringConverter::ConvertStdWStringToStdString(text));
    return kExitOk;
}

} // namespace korutil
