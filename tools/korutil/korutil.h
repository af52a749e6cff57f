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

// text (UTF-8) as a JSON string literal, quotes included.
std::string JsonString(const std::string& text);

// Writes a line to stdout.
void PrintLine(const std::string& line);

} // namespace korutil

namespace korutil
{

// Writes size bytes to destination without ever leaving a half-written destination: the bytes go to a
// temporary file beside it, which is renamed over the destination only when complete (and removed on any
// failure, or when the tool is interrupted). False with reason filled on failure.
bool WriteFileAtomically(const boost::filesystem::path& destination, const unsigned char* data,
                         std::size_t size, std::string& reason);
// The temporary name beside destination that WriteFileAtomically and the copy verb use.
boost::filesystem::path TemporaryBeside(const boost::filesystem::path& destination);
// While a temporary file is being written, an interrupt (Ctrl-C, SIGTERM) removes it before the tool ends
// with status 130; pass an empty path when it is renamed into place or removed.
void SetPendingTemporary(const boost::filesystem::path& temporary);
// Reads a whole file; false with reason filled on failure.
bool ReadWholeFile(const boost::filesystem::path& file, std::vector<unsigned char>& content,
                   std::string& reason);

// A progress bar on stderr for work longer than a moment; silent when stderr is no terminal or quiet.
class ProgressBar
{
public:
    ProgressBar(const Invocation& invocation, bool quiet, const std::string& label);
    ~ProgressBar();
    // done of total units (bytes, entries); total 0 shows activity without a percentage.
    void Update(std::uint64_t done, std::uint64_t total);
    // Clears the bar's line.
    void Finish();

private:
    bool m_active;
    bool m_drawn = false;
    std::string m_label;
    std::uint64_t m_lastPercent = ~0ull;
    unsigned m_spin = 0;
};

} // namespace korutil
