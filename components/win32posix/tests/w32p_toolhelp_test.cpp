// Process information over /proc: tool-help snapshots, image names, and the restart manager naming the
// processes that hold a file.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <fcntl.h>
#include <thread>

namespace
{

std::wstring SelfImage()
{
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer);
    return std::wstring(buffer, buffer + n);
}

// Starts "sleep" with file open on a descriptor it inherits; returns its pid once the exec is done.
pid_t StartHolder(const std::string& file)
{
    const pid_t child = fork();
    if (child == 0)
    {
        const int fd = open(file.c_str(), O_RDONLY); // no close-on-exec: sleep keeps it
        if (fd < 0)
            _exit(1);
        execl("/bin/sleep", "sleep", "30", static_cast<char*>(nullptr));
        _exit(2);
    }
    const std::string exe = "/proc/" + std::to_string(child) + "/exe";
    for (int i = 0; i < 500; ++i)
    {
        char buffer[PATH_MAX];
        const ssize_t n = readlink(exe.c_str(), buffer, sizeof buffer);
        if (n > 0 && std::string(buffer, n).find("sleep") != std::string::npos)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return child;
}

void StopHolder(pid_t child)
{
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

// The whole restart-manager round trip; 0 when every step answers as Windows does.
int CheckRestartManagerNamesHolder(const std::string& dir)
{
    const std::string file = dir + "/held-" + std::to_string(getpid());
    close(open(file.c_str(), O_CREAT | O_WRONLY, 0644));
    const pid_t holder = StartHolder(file);
    int result = 0;
    DWORD session = 0;
    WCHAR key[CCH_RM_SESSION_KEY + 1] = {};
    const std::wstring wide(file.begin(), file.end());
    LPCWSTR names[] = {wide.c_str()};
    UINT needed = 0, count = 0;
    DWORD reasons = 1;
    RM_PROCESS_INFO info[4];
    if (RmStartSession(&session, 0, key) != ERROR_SUCCESS || std::wcslen(key) != CCH_RM_SESSION_KEY)
        result = 1;
    else if (RmRegisterResources(session, 1, names, 0, nullptr, 0, nullptr) != ERROR_SUCCESS)
        result = 2;
    else if (RmGetList(session, &needed, &count, nullptr, &reasons) != ERROR_MORE_DATA || needed != 1 ||
             reasons != 0)
        result = 3;
    else if ((count = 4, RmGetList(session, &needed, &count, info, &reasons)) != ERROR_SUCCESS || count != 1)
        result = 4;
    else if (info[0].Process.dwProcessId != static_cast<DWORD>(holder) ||
             std::wstring(info[0].strAppName) != L"sleep")
        result = 5;
    else if (info[0].Process.ProcessStartTime.dwHighDateTime == 0 || info[0].AppStatus != RmStatusRunning)
        result = 6;
    StopHolder(holder);
    count = 0;
    if (result == 0 &&
        (RmGetList(session, &needed, &count, nullptr, &reasons) != ERROR_SUCCESS || needed != 0))
        result = 7;
    if (result == 0 && RmEndSession(session) != ERROR_SUCCESS)
        result = 8;
    if (result == 0 && RmEndSession(session) != ERROR_INVALID_HANDLE)
        result = 9;
    unlink(file.c_str());
    return result;
}

} // namespace

TEST(RestartManager, NamesTheProcessHoldingAFile)
{
    ScratchDir dir;
    EXPECT_EQ(CheckRestartManagerNamesHolder(dir.Narrow()), 0);
    EXPECT_EQ(RunAsOrdinaryUser([&] { return CheckRestartManagerNamesHolder(dir.Narrow()); }), 0);
}

TEST(RestartManager, UnknownSessionsAndBadArguments)
{
    UINT needed = 0, count = 0;
    DWORD reasons = 0;
    EXPECT_EQ(RmGetList(12345, &needed, &count, nullptr, &reasons), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(RmRegisterResources(12345, 0, nullptr, 0, nullptr, 0, nullptr),
              static_cast<DWORD>(ERROR_INVALID_HANDLE));
    DWORD session = 0;
    WCHAR key[CCH_RM_SESSION_KEY + 1];
    ASSERT_EQ(RmStartSession(&session, 0, key), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(RmRegisterResources(session, 1, nullptr, 0, nullptr, 0, nullptr),
              static_cast<DWORD>(ERROR_BAD_ARGUMENTS));
    EXPECT_EQ(RmEndSession(session), static_cast<DWORD>(ERROR_SUCCESS));
}

TEST(Toolhelp, SnapshotListsThisProcessWithItsParent)
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    ASSERT_NE(snapshot, INVALID_HANDLE_VALUE);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry - 1;
    EXPECT_W32_FAILS(Process32FirstW(snapshot, &entry), FALSE, ERROR_BAD_LENGTH);
    entry.dwSize = sizeof entry;
    bool found = false;
    int count = 0;
    for (BOOL more = Process32FirstW(snapshot, &entry); more;
         more = Process32NextW(snapshot, &entry), ++count)
    {
        if (entry.th32ProcessID == static_cast<DWORD>(getpid()))
        {
            found = true;
            EXPECT_EQ(entry.th32ParentProcessID, static_cast<DWORD>(getppid()));
            EXPECT_GE(entry.cntThreads, 1u);
            const std::wstring self = SelfImage();
            EXPECT_EQ(std::wstring(entry.szExeFile), self.substr(self.rfind(L'/') + 1));
        }
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    EXPECT_TRUE(found);
    EXPECT_GT(count, 1);
    EXPECT_TRUE(CloseHandle(snapshot));
    EXPECT_W32_FAILS(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0), INVALID_HANDLE_VALUE,
                     ERROR_NOT_SUPPORTED);
}

TEST(ProcessImage, FullNameOfThisProcessAndBufferRules)
{
    WCHAR buffer[PATH_MAX];
    DWORD size = PATH_MAX;
    ASSERT_TRUE(QueryFullProcessImageNameW(GetCurrentProcess(), 0, buffer, &size));
    EXPECT_EQ(std::wstring(buffer), SelfImage());
    EXPECT_EQ(size, SelfImage().size());
    DWORD small = 4;
    EXPECT_W32_FAILS(QueryFullProcessImageNameW(GetCurrentProcess(), 0, buffer, &small), FALSE,
                     ERROR_INSUFFICIENT_BUFFER);

    EXPECT_EQ(GetModuleFileNameExW(GetCurrentProcess(), nullptr, buffer, PATH_MAX), SelfImage().size());
    EXPECT_EQ(std::wstring(buffer), SelfImage());
    EXPECT_EQ(GetModuleFileNameExW(GetCurrentProcess(), nullptr, buffer, 5), 4u);
    EXPECT_EQ(std::wstring(buffer), SelfImage().substr(0, 4));

    EXPECT_W32_FAILS(QueryFullProcessImageNameW(reinterpret_cast<HANDLE>(0x1230), 0, buffer, &size), FALSE,
                     ERROR_INVALID_HANDLE);
}

TEST(RestartManager, ShutdownAndRestartNeedASessionAndSomethingStopped)
{
    EXPECT_EQ(RmShutdown(12345, 0, nullptr), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(RmRestart(12345, 0, nullptr), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    DWORD session = 0;
    WCHAR key[CCH_RM_SESSION_KEY + 1];
    ASSERT_EQ(RmStartSession(&session, 0, key), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(RmShutdown(session, RmForceShutdown, nullptr), static_cast<DWORD>(ERROR_SUCCESS)); // nobody
    EXPECT_EQ(RmRestart(session, 0, nullptr), static_cast<DWORD>(ERROR_REQUEST_OUT_OF_SEQUENCE));
    EXPECT_EQ(RmEndSession(session), static_cast<DWORD>(ERROR_SUCCESS));
}
