// Helpers shared by the win32posix tests: a scratch directory removed at the end, wide paths into it, and a
// way to run a check as an ordinary user when the tests run as root.
#pragma once

#include "win32posix.h"

#include <filesystem>
#include <functional>
#include <string>

#include <grp.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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
