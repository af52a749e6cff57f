// korutil: the library's command line. main starts the trace back-end (the tool is a trace host like any
// program on the library), finds the verb family in the table and runs it. The table itself is
// verbs.def; the helpers every verb uses are here.
#include "korutil.h"

#include <korutilitesbtracedef.h>
#include <velbtracetool.h>
#include <velpathconverter.h>
#include <velstringconverter.h>
#include <velwin32.h>

#include <cstdio>
#include <iostream>
#include <map>

#ifdef _WIN32
#include <io.h>
#define KORUTIL_ISATTY(fd) _isatty(fd)
#else
#include <unistd.h>
#define KORUTIL_ISATTY(fd) isatty(fd)
#endif

namespace korutil
{

#define KORUTIL_VERB(name, summary, usage, function) int function(Invocation& invocation);
#include "verbs.def"
#undef KORUTIL_VERB

const std::vector<VerbFamily>& VerbTable()
{
    static const std::vector<VerbFamily> table = {
#define KORUTIL_VERB(name, summary, usage, function) {name, summary, usage, function},
#include "verbs.def"
#undef KORUTIL_VERB
    };
    return table;
}

namespace
{

void PrintFamilyUsage(std::FILE* out, const VerbFamily& family)
{
    std::string usage = family.usage;
    std::size_t start = 0;
    bool first = true;
    while (start <= usage.size())
    {
        const std::size_t end = usage.find('\n', start);
        const std::string line =
            usage.substr(start, end == std::string::npos ? std::string::npos : end - start);
        std::fprintf(out, "%s korutil %s\n", first ? "usage:" : "      ", line.c_str());
        first = false;
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
}

void PrintToolUsage(std::FILE* out)
{
    std::fprintf(out, "usage: korutil VERB [ARGUMENTS...]\n"
                      "       korutil VERB --help   shows the verb's usage\n\n"
                      "verbs:\n");
    for (const VerbFamily& family : VerbTable())
        std::fprintf(out, "  %-10s %s\n", family.name, family.summary);
}

bool WantsHelp(const std::vector<std::wstring>& arguments)
{
    for (const std::wstring& argument : arguments)
    {
        if (argument == L"--")
            return false;
        if (argument == L"--help" || argument == L"-h")
            return true;
    }
    return false;
}

} // namespace

bool ParseArguments(Invocation& invocation, CVeLCommandLine& cmd, std::size_t skip)
{
    std::vector<std::wstring> arguments(
        invocation.arguments.begin() +
            static_cast<std::ptrdiff_t>(std::min(skip, invocation.arguments.size())),
        invocation.arguments.end());
    if (cmd.Parse(arguments))
        return true;
    UsageError(invocation, CVeLStringConverter::ConvertStdWStringToStdString(cmd.GetError()));
    return false;
}

int UsageError(const Invocation& invocation, const std::string& reason)
{
    std::fprintf(stderr, "korutil: %s: %s\n", invocation.family->name, reason.c_str());
    PrintFamilyUsage(stderr, *invocation.family);
    return kExitUsage;
}

int Failure(const std::string& verb, const std::string& reason)
{
    std::fprintf(stderr, "korutil: %s: %s\n", verb.c_str(), reason.c_str());
    return kExitFailed;
}

std::string DescribeError(std::uint32_t code)
{
    static const std::map<std::uint32_t, const char*> texts = {
        {ERROR_FILE_NOT_FOUND, "file not found"},
        {ERROR_PATH_NOT_FOUND, "path not found"},
        {ERROR_ACCESS_DENIED, "access denied"},
        {ERROR_SHARING_VIOLATION, "the file is in use"},
        {ERROR_ALREADY_EXISTS, "already exists"},
        {ERROR_FILE_EXISTS, "already exists"},
        {ERROR_DISK_FULL, "disk full"},
        {ERROR_HANDLE_DISK_FULL, "disk full"},
        {ERROR_DIR_NOT_EMPTY, "directory not empty"},
        {ERROR_INVALID_NAME, "invalid name"},
        {ERROR_NOT_ENOUGH_MEMORY, "not enough memory"},
        {ERROR_INVALID_DATA, "invalid data"},
        {WAIT_TIMEOUT, "timed out"},
    };
    if (code == 0)
        return std::string();
    const auto it = texts.find(code);
    return " (Win32 error " + std::to_string(code) +
           (it != texts.end() ? std::string(": ") + it->second : "") + ")";
}

std::uint32_t LastError()
{
    return static_cast<std::uint32_t>(GetLastError());
}

boost::filesystem::path ToPath(const std::wstring& argument)
{
    return CVeLPathConverter::FromWide(argument);
}

std::string ToText(const std::wstring& argument)
{
    return CVeLPathConverter::ToUtf8(ToPath(argument));
}

std::string PathText(const boost::filesystem::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

void PrintLine(const std::string& line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

} // namespace korutil

int main(int argc, char** argv)
{
    using namespace korutil;
    const std::string segment = "korutil." + std::to_string(GetCurrentProcessId());
    CVeLBTraceTool::InitializeBTrace(std::string("korutil"), segment, 64, std::string("korutil"));

    int status = kExitUsage;
    std::vector<std::wstring> arguments = CVeLCommandLine::ArgumentsOf(argc, argv, 1);
    if (arguments.empty())
        PrintToolUsage(stderr);
    else if (arguments[0] == L"--help" || arguments[0] == L"-h")
    {
        PrintToolUsage(stdout);
        status = kExitOk;
    }
    else
    {
        const VerbFamily* family = nullptr;
        for (const VerbFamily& candidate : VerbTable())
            if (ToText(arguments[0]) == candidate.name)
                family = &candidate;
        if (family == nullptr)
        {
            std::fprintf(stderr, "korutil: unknown verb '%s'\n", ToText(arguments[0]).c_str());
            PrintToolUsage(stderr);
        }
        else
        {
            Invocation invocation{family, std::vector<std::wstring>(arguments.begin() + 1, arguments.end()),
                                  KORUTIL_ISATTY(2) != 0};
            if (WantsHelp(invocation.arguments))
            {
                PrintFamilyUsage(stdout, *family);
                status = kExitOk;
            }
            else
                status = family->run(invocation);
        }
    }
    std::fflush(stdout);
    CVeLBTraceTool::ShutdownBTrace();
    // The tool's ring is per run: after a normal end nobody reads it, so it does not stay behind.
    std::string ignored;
    BTraceRemoveSegment(segment, ignored);
    return status;
}
