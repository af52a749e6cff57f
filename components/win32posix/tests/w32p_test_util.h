// Helpers shared by the win32posix tests: unique object names, child processes, a scratch directory removed
// at the end, and a way to run a check as an ordinary user when the tests run as root.
#pragma once

#include "win32posix.h"

#include <dirent.h>
#include <filesystem>
#include <grp.h>
#include <stdlib.h>
#include <sys/stat.h>
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

// The folder of the named objects of the calling user.
inline std::string NamedObjectDir()
{
    return "/dev/shm/w32p-2." + std::to_string(geteuid());
}

// Files of named objects that belong to names made by TestName in this process.
inline std::vector<std::string> LeftoverShmFiles()
{
    const std::string prefix = "w32ptest-" + std::to_string(getpid()) + "-";
    std::vector<std::string> found;
    if (DIR* dir = opendir(NamedObjectDir().c_str()))
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

class ScratchDir
{
public:
    ScratchDir()
    {
        char pattern[] = "/tmp/w32ptestXXXXXX";
        m_path = mkdtemp(pattern);
        chmod(m_path.c_str(), 0777); // an ordinary user must be able to work here too
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    const std::string& Narrow() const { return m_path; }
    // The path of name inside the directory, written with Windows separators.
    std::wstring Wide(const std::wstring& name = L"") const
    {
        std::wstring wide(m_path.begin(), m_path.end());
        return name.empty() ? wide : wide + L"\\" + name;
    }
    std::string NarrowOf(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// Runs check in a child process as user "nobody" (uid/gid 65534) and returns its result; when the tests
// do not run as root, check runs in a child under the current user. 0 means the check passed; any other
// value names the failing step.
inline int RunAsOrdinaryUser(const std::function<int()>& check)
{
    pid_t child = fork();
    if (child == 0)
    {
        if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            _exit(250);
        _exit(check());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

// Expects call, made with the last error cleared, to return failed and to leave error as the last error.
#define EXPECT_W32_FAILS(call, failed, error)                                                                \
    do                                                                                                       \
    {                                                                                                        \
        SetLastError(0);                                                                                     \
        EXPECT_EQ((call), (failed)) << #call;                                                                \
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(error)) << #call;                                       \
    } while (0)
