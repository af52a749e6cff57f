// korutil watch: prints each change in a folder (and its subtree with --subtree) as "<action> <path>",
// until --count changes were printed or the watch ends. Lost changes (a burst faster than the output) are
// reported on stderr as "changes were lost, rescan" and watching goes on; a deleted folder ends the verb
// with status 1.
#include "korutil.h"

#include <veldirwatcher.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

namespace korutil
{

namespace
{

const char* ActionName(DirChangeEnum kind)
{
    switch (kind)
    {
    case DirChangeAdded:
        return "added";
    case DirChangeRemoved:
        return "removed";
    case DirChangeModified:
        return "modified";
    case DirChangeRenamedFrom:
        return "renamed-from";
    case DirChangeRenamedTo:
        return "renamed-to";
    default:
        return nullptr;
    }
}

} // namespace

int RunWatch(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"subtree", L's', false);
    cmd.AddOption(L"count", L'n', true);
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    if (cmd.GetPositionals().size() != 1)
        return UsageError(invocation, "one folder expected");
    unsigned long limit = 0;
    if (cmd.Has(L"count"))
    {
        const std::wstring text = cmd.GetValue(L"count");
        wchar_t* end = nullptr;
        limit = std::wcstoul(text.c_str(), &end, 10);
        if (text.empty() || *end != L'\0' || limit == 0)
            return UsageError(invocation, "--count needs a positive number");
    }
    const std::wstring folder = cmd.GetPositionals()[0];

    std::mutex lock;
    std::condition_variable done;
    unsigned long printed = 0; // guarded by lock
    bool ended = false;        // guarded by lock
    CVeLDirWatcher watcher;
    const bool started =
        watcher.Start(ToPath(folder), cmd.Has(L"subtree"), DirChangeAll,
                      [&](DirChangeEnum kind, const boost::filesystem::path& path)
                      {
                          std::lock_guard<std::mutex> guard(lock);
                          if (kind == DirChangeLost)
                          {
                              std::fprintf(stderr, "korutil: watch: changes were lost, rescan %s\n",
                                           ToText(folder).c_str());
                              return;
                          }
                          if (kind == DirChangeEnded)
                              ended = true;
                          else if (const char* action = ActionName(kind))
                          {
                              if (limit != 0 && printed >= limit)
                                  return;
                              PrintLine(std::string(action) + " " + PathText(path));
                              std::fflush(stdout);
                              ++printed;
                          }
                          done.notify_all();
                      });
    if (!started)
        return Failure("watch", ToText(folder) + ": cannot watch" + DescribeError(LastError()));
    {
        std::unique_lock<std::mutex> guard(lock);
        done.wait(guard, [&] { return ended || (limit != 0 && printed >= limit); });
    }
    watcher.Stop(INFINITE);
    if (watcher.GetEndReason() == DirWatchFolderRemoved)
        return Failure("watch", ToText(folder) + ": the folder was removed");
    if (watcher.GetEndReason() == DirWatchFailed)
        return Failure("watch", ToText(folder) + ": watching failed" + DescribeError(watcher.GetEndError()));
    return kExitOk;
}

} // namespace korutil
