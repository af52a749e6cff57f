// korutil trace modules|level|dump: the trace back-end of this process or of a running host, which is
// found by its process id (--pid) or its segment name (--segment). A dump of a host that has ended, or
// was killed, is read from its segment file (--segment); --remove deletes that file afterwards.
#include "korutil.h"

#include <btrace.h>
#include <velstringconverter.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace korutil
{

namespace
{

std::string Narrow(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

std::string JsonText(const std::string& text)
{
    std::string out = "\"";
    for (unsigned char c : text)
    {
        if (c == '"' || c == '\\')
            out += '\\', out += static_cast<char>(c);
        else if (c < 0x20)
        {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
        }
        else
            out += static_cast<char>(c);
    }
    return out + "\"";
}

// The segment named by --segment, or the one of the process --pid; empty (and true) for this process.
bool TargetSegment(const CVeLCommandLine& cmd, const char* verb, std::string& segment, int& status)
{
    segment.clear();
    if (cmd.Has(L"segment"))
    {
        segment = Narrow(cmd.GetValue(L"segment"));
        return true;
    }
    if (!cmd.Has(L"pid"))
        return true;
    const std::string text = Narrow(cmd.GetValue(L"pid"));
    char* end = nullptr;
    const unsigned long pid = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || pid == 0 || pid > 0xFFFFFFFFul)
    {
        status = Failure(verb, "not a process id: " + text);
        return false;
    }
    std::string error;
    if (!BTraceFindSegment(static_cast<std::uint32_t>(pid), segment, error))
    {
        status = Failure(verb, error);
        return false;
    }
    return true;
}

int Modules(Invocation& invocation, const CVeLCommandLine& cmd, const std::string& segment)
{
    if (!cmd.GetPositionals().empty())
        return UsageError(invocation, "trace modules takes no further arguments");
    std::vector<BTraceModuleLevel> modules;
    std::string error;
    if (segment.empty())
        modules = BTraceListModules();
    else if (!BTraceRemoteListModules(segment, modules, error))
        return Failure("trace", error);
    if (cmd.Has(L"json"))
    {
        std::string json = "{\"modules\":[";
        for (std::size_t i = 0; i < modules.size(); ++i)
            json += (i ? "," : "") + std::string("{\"module\":") + JsonText(modules[i].name) +
                    ",\"level\":" + JsonText(BTraceLevelName(modules[i].level)) + "}";
        PrintLine(json + "]}");
        return kExitOk;
    }
    for (const BTraceModuleLevel& m : modules)
        PrintLine(m.name + " " + BTraceLevelName(m.level));
    return kExitOk;
}

int Level(Invocation& invocation, const CVeLCommandLine& cmd, const std::string& segment)
{
    const auto& positionals = cmd.GetPositionals();
    if (positionals.size() != 2)
        return UsageError(invocation, "trace level needs MODULE and LEVEL");
    const std::string module = Narrow(positionals[0]);
    const int level = BTraceParseLevel(Narrow(positionals[1]).c_str());
    if (level < 0)
        return UsageError(invocation, "not a level: " + Narrow(positionals[1]));
    std::string error;
    if (segment.empty())
    {
        BTraceModule* target = BTraceFindModule(module.c_str());
        if (target == nullptr)
            return Failure("trace", "no module '" + module + "'");
        BTraceSetLevel(target, static_cast<unsigned char>(level));
        return kExitOk;
    }
    if (!BTraceRemoteSetLevel(segment, module, static_cast<unsigned>(level), error))
        return Failure("trace", error);
    return kExitOk;
}

int Dump(Invocation& invocation, const CVeLCommandLine& cmd, const std::string& segment)
{
    const auto& positionals = cmd.GetPositionals();
    if (positionals.size() != 1)
        return UsageError(invocation, "trace dump needs FILE");
    const std::string file = Narrow(positionals[0]);
    std::string error;
    const bool ok = segment.empty() ? BTraceDump(file, error) : BTraceDumpSegment(segment, file, error);
    if (!ok)
        return Failure("trace", ToText(positionals[0]) + ": " + error);
    if (cmd.Has(L"remove"))
    {
        if (segment.empty())
            return UsageError(invocation, "--remove needs --segment or --pid");
        if (!BTraceRemoveSegment(segment, error))
            return Failure("trace", error);
    }
    return kExitOk;
}

} // namespace

int RunTrace(Invocation& invocation)
{
    if (invocation.arguments.empty())
        return UsageError(invocation, "no sub-verb given");
    const std::wstring sub = invocation.arguments[0];
    CVeLCommandLine cmd;
    cmd.AddOption(L"pid", L'p', true);
    cmd.AddOption(L"segment", L's', true);
    cmd.AddOption(L"json", 0, false);
    cmd.AddOption(L"remove", 0, false);
    if (!ParseArguments(invocation, cmd, 1))
        return kExitUsage;
    std::string segment;
    int status = kExitOk;
    if (!TargetSegment(cmd, "trace", segment, status))
        return status;
    if (sub == L"modules")
        return Modules(invocation, cmd, segment);
    if (sub == L"level")
        return Level(invocation, cmd, segment);
    if (sub == L"dump")
        return Dump(invocation, cmd, segment);
    return UsageError(invocation, "unknown sub-verb: " + Narrow(sub));
}

} // namespace korutil
