// korutil copy / rmtree: the file and directory helpers. copy writes to a temporary name beside the
// destination and renames it into place when complete, so an interrupted copy leaves no half-written
// destination; both show a progress bar on a terminal.
#include "korutil.h"

#include <veldirhelper.h>
#include <velfilebasics.h>
#include <velfilehelper.h>
#include <velwin32.h>

#include <boost/filesystem/operations.hpp>

#include <atomic>
#include <thread>

namespace korutil
{

namespace
{

// Redraws the bar every tenth of a second from a second thread while the library works; measure answers
// the units done so far.
class ProgressWatcher
{
public:
    template <typename Measure>
    ProgressWatcher(ProgressBar& bar, std::uint64_t total, Measure measure)
        : m_thread(
              [this, &bar, total, measure]
              {
                  while (!m_stop.load())
                  {
                      bar.Update(measure(), total);
                      Sleep(100);
                  }
              })
    {
    }
    ~ProgressWatcher()
    {
        m_stop = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

int CopyFile(Invocation& invocation, bool quiet, const boost::filesystem::path& source,
             const boost::filesystem::path& destination, const std::string& sourceText)
{
    CVeLFileHelper from(source, false);
    const boost::filesystem::path temporary = TemporaryBeside(destination);
    SetPendingTemporary(temporary);
    bool copied;
    {
        ProgressBar bar(invocation, quiet, "copy");
        ProgressWatcher watcher(bar, from.GetSize(),
                                [&temporary]
                                {
                                    boost::system::error_code error;
                                    const std::uintmax_t size =
                                        boost::filesystem::file_size(temporary, error);
                                    return error ? std::uint64_t(0) : static_cast<std::uint64_t>(size);
                                });
        copied = from.Copy(temporary);
    }
    const DWORD error = LastError();
    if (copied && CVeLFileBasics().Rename(temporary, destination))
    {
        SetPendingTemporary(boost::filesystem::path());
        return kExitOk;
    }
    CVeLFileHelper(temporary, false).Remove();
    SetPendingTemporary(boost::filesystem::path());
    return Failure("copy", copied ? "cannot replace " + PathText(destination)
                                  : sourceText + ": copy failed" + DescribeError(error));
}

int CopyDirectory(Invocation& invocation, bool quiet, const boost::filesystem::path& source,
                  const boost::filesystem::path& destination, const std::string& sourceText)
{
    boost::system::error_code error;
    if (boost::filesystem::exists(destination, error))
        return Failure("copy", PathText(destination) + ": already exists");
    const boost::filesystem::path temporary = TemporaryBeside(destination);
    bool copied;
    {
        ProgressBar bar(invocation, quiet, "copy");
        ProgressWatcher watcher(bar, 0, [] { return std::uint64_t(0); });
        copied = CVeLDirHelper(source, false).Copy(temporary);
    }
    if (copied && CVeLFileBasics().Rename(temporary, destination))
        return kExitOk;
    CVeLDirHelper(temporary, false).Remove();
    return Failure("copy", sourceText + ": copy failed");
}

} // namespace

int RunCopy(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"quiet", L'q', false);
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    const std::vector<std::wstring>& args = cmd.GetPositionals();
    if (args.size() != 2)
        return UsageError(invocation, "expected SRC and DST");
    const boost::filesystem::path source = ToPath(args[0]);
    boost::filesystem::path destination = ToPath(args[1]);
    boost::system::error_code error;
    const boost::filesystem::file_status status = boost::filesystem::symlink_status(source, error);
    if (!boost::filesystem::exists(status))
        return Failure("copy", ToText(args[0]) + ": no such file or directory");
    if (boost::filesystem::is_directory(destination, error) && !boost::filesystem::is_directory(status))
        destination /= source.filename();
    if (boost::filesystem::equivalent(source, destination, error))
        return Failure("copy", ToText(args[0]) + " and " + PathText(destination) + " are the same file");
    if (boost::filesystem::is_directory(status))
        return CopyDirectory(invocation, cmd.Has(L"quiet"), source, destination, ToText(args[0]));
    if (!boost::filesystem::is_regular_file(status))
        return Failure("copy", ToText(args[0]) + ": not a regular file or directory");
    return CopyFile(invocation, cmd.Has(L"quiet"), source, destination, ToText(args[0]));
}

int RunRmtree(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"quiet", L'q', false);
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    const std::vector<std::wstring>& args = cmd.GetPositionals();
    if (args.size() != 1)
        return UsageError(invocation, "expected one DIR");
    const boost::filesystem::path directory = ToPath(args[0]);
    boost::system::error_code error;
    const boost::filesystem::path resolved = boost::filesystem::weakly_canonical(directory, error);
    if (!boost::filesystem::is_directory(boost::filesystem::symlink_status(directory, error)))
        return Failure("rmtree", ToText(args[0]) + ": no such directory");
    // A root or the current directory's ancestry is never a tree a user means to delete by accident.
    if (resolved.empty() || resolved == resolved.root_path() ||
        boost::filesystem::equivalent(directory, boost::filesystem::current_path(error), error))
        return Failure("rmtree", ToText(args[0]) + ": refusing to remove a root or the current directory");
    CVeLResult<CVeLFilesystemError> result;
    {
        ProgressBar bar(invocation, cmd.Has(L"quiet"), "rmtree");
        ProgressWatcher watcher(bar, 0, [] { return std::uint64_t(0); });
        result = CVeLDirHelper(directory, false).Remove();
    }
    if (!result.IsSuccess())
        return Failure("rmtree",
                       ToText(args[0]) + ": cannot remove " + PathText(result.GetValue().GetErrorPath()) +
                           DescribeError(static_cast<std::uint32_t>(result.GetValue().GetOperationResult())));
    return kExitOk;
}

} // namespace korutil
