#include "velbtracetool.h"
#include "velstringconverter.h"
#include "velvarenvironment.h"

#include <btrace.h>

CVeLBTraceTool::CVeLBTraceTool() {}

CVeLBTraceTool::CVeLBTraceTool(const CVeLBTraceTool&) {}

CVeLBTraceTool& CVeLBTraceTool::operator=(const CVeLBTraceTool&)
{
    return *this;
}

CVeLBTraceTool::~CVeLBTraceTool() {}

bool CVeLBTraceTool::InitializeBTrace(std::string first, std::string segment, unsigned int sizeKiB,
                                      std::string fourth)
{
    if (first.empty() || segment.empty() || fourth.empty())
        return false;
    const bool breakMode = IsBreakModeEnabled();
    BTraceInitialize(first.c_str(), fourth.c_str(), segment.c_str(), std::uint64_t(sizeKiB) * 1024u, true,
                     breakMode ? 2u : 0u, 0u);
    BTraceRegisterModule("KORSW", false);
    BTraceRegisterModule("main", true);
    return true;
}

bool CVeLBTraceTool::InitializeBTrace(std::wstring first, std::wstring segment, unsigned int sizeKiB,
                                      std::wstring fourth)
{
    return InitializeBTrace(CVeLStringConverter::ConvertStdWStringToStdString(first),
                            CVeLStringConverter::ConvertStdWStringToStdString(segment), sizeKiB,
                            CVeLStringConverter::ConvertStdWStringToStdString(fourth));
}

void CVeLBTraceTool::ShutdownBTrace()
{
    BTraceShutdown();
}

bool CVeLBTraceTool::IsBreakModeEnabled()
{
    const std::wstring name = L"BTRACE_BREAK_ACTIVE";
    CVeLVarEnvironment environment;
    std::wstring value;
    if (!environment.CheckVariableExists(name) || !environment.GetEnvVariable(name, value))
        return false;
    return value == L"1";
}
