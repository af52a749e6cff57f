// Shared parts of the korutil command line: the exit statuses, the invocation handed to each verb
// family, and the helpers every verb uses to parse its arguments, report a failure and turn arguments
// into paths. Each family of verbs lives in one source file and registers one row in verbs.def.
#pragma once

#include <velcommandline.h>

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace korutil
{

enum ExitStatus : int
{
    kExitOk = 0,     // the operation succeeded
    kExitFailed = 1, // the operation failed; one line on stderr says why
    kExitUsage = 2,  // bad usage; the verb's usage is on stderr
};

// One family of verbs: its name on the command line, a one-line summary for "korutil --help", the
// usage lines for "korutil VERB --help", and the function that runs it.
struct Invocation;
using VerbFunction = int (*)(Invocation& invocation);
struct VerbFamily
{
    const char* name;
    const char* summary;
    const char* usage;
    VerbFunction run;
};

const std::vector<VerbFamily>& VerbTable();

// What a verb function receives: its family, the arguments after the family name (wide text, file
// names converted losslessly), and whether stderr is a terminal (for progress bars).
struct Invocation
{
    const VerbFamily* family;
    std::vector<std::wstring> arguments;
    bool stderrIsTerminal;
};

// Parses the invocation's arguments (after skipping `skip` leading ones, e.g. a sub-verb) into cmd,
// which has its options declared. On bad usage prints the reason and the family's usage on stderr and
// answers false; the caller then returns kExitUsage.
bool ParseArguments(Invocation& invocation, CVeLCommandLine& cmd, std::size_t skip = 0);
// Bad usage with a reason: prints "korutil: VERB: reason" and the usage; answers kExitUsage.
int UsageError(const Invocation& invocation, const std::string& reason);
// A failed operation: prints "korutil: VERB: reason" on stderr; answers kExitFailed.
int Failure(const std::string& verb, const std::string& reason);
// " (Win32 error N: text)" for a failure code, empty for 0; appended to failure reasons.
std::string DescribeError(std::uint32_t code);
// The calling thread's last Win32 error code.
std::uint32_t LastError();

// An argument as a path (lossless for any file-name bytes), and as text to print (as given).
boost::filesystem::path ToPath(const std::wstring& argument);
std::string ToText(const std::wstring& argument);
// UTF-8 text to print of a path.
std::string PathText(const boost::filesystem::path& path);

// Writes a line to stdout.
void PrintLine(const std::string& line);

} // namespace korutil
