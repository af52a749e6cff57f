// Helpers shared by the win32posix tests: unique object names and child processes.
#pragma once

#include "win32posix.h"

#include <dirent.h>
#include <functional>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// A name unique to this test process, so that tests running in parallel never meet.
inline std::wstring TestName(const wchar_t* tag)
{
    return L"w32ptest-" + std::to_wstring(getpid()) + L"-" + tag;
}

// Files under /dev/shm that belong to names made by TestName in this process.
inline std::vector<std::string> LeftoverShmFiles()
{
    const std::string prefix =
        "w32p." + std::to_string(getuid()) + ".w32ptest-" + std::to_string(getpid()) + "-";
    std::vector<std::string> found;
    if (DIR* dir = opendir("/dev/shm"))
    {
        while (dirent* entry = readdir(dir))
            if (std::string(entry->d_name).compare(0, prefix.size(), prefix) == 0)
                found.push_back(entry->d_name);
        closedir(dir);
    }
    return found;
}

// Runs body in a forked child whose exit status is body's result (0..255).
inline pid_t ForkChild(const std::function<int()>& body)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    return pid;
}

// The exit status of a child, or -1 when it did not exit normally.
inline int JoinChild(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}
