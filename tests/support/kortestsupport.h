// Portable helpers of the test programs: the environment, temporary files and folders, child processes
// (the test program started again) and the facts a test needs about where it runs. Each keeps what
// differs between Linux and Windows in kortestsupport.cpp, so the tests themselves stay free of platform
// conditionals. Any thread may call them; the environment helpers change the whole process's environment.
// Failures are reported as empty paths or -1; nothing throws.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kortest
{

// Sets (or, with UnsetEnv, removes) an environment variable of this process; values are UTF-8.
void SetEnv(const std::string& name, const std::string& value);
void UnsetEnv(const std::string& name);

// The id of this process.
int ProcessId();

// A new, empty, uniquely named file or folder in the system's temporary folder, its name starting with
// stem; the path in UTF-8, or "" when none could be made. The caller removes it.
std::string NewTempFile(const std::string& stem);
std::string NewTempFolder(const std::string& stem);

// Starts this test program again with the arguments and extra environment entries ("NAME=value") given;
// its process id, or -1.
pid_t StartSelf(const std::vector<std::string>& arguments, const std::vector<std::string>& environment);
// Waits for a process started by StartSelf: its exit code, KilledExitCode after KillProcess, -1 when it
// cannot be waited for.
int WaitProcess(pid_t pid);
// Ends a process (started by StartSelf or by any other means) at once, without letting it clean up; its
// exit code is then KilledExitCode on both platforms.
void KillProcess(pid_t pid);
constexpr int KilledExitCode = 128 + 9;

// Runs a command with the system's command interpreter: its standard output and exit status (-1 when it
// could not be run).
struct ShellResult
{
    int status = -1;
    std::string output;
};
ShellResult RunShell(const std::string& command);

// The number of kernel handles this process holds open (Wine always answers 0).
std::size_t OpenHandleCount();

// True when the Win32 API of this process is Wine's, which differs from Windows in a few documented ways.
bool UnderWine();
// True on Linux, where /proc, /dev/shm and signals exist.
bool OnLinux();

} // namespace kortest

// Skips the current test under Wine, with the reason in the test output.
#define KORTEST_SKIP_UNDER_WINE(reason)                                                                      \
    do                                                                                                       \
    {                                                                                                        \
        if (::kortest::UnderWine())                                                                          \
            GTEST_SKIP() << "Wine: " << reason;                                                              \
    } while (false)

// Skips the current test where the Linux-only facilities it examines do not exist.
#define KORTEST_LINUX_ONLY(reason)                                                                           \
    do                                                                                                       \
    {                                                                                                        \
        if (!::kortest::OnLinux())                                                                           \
            GTEST_SKIP() << "Linux only: " << reason;                                                        \
    } while (false)
