// Processes: starting, waiting, exit codes, termination, command-line splitting.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace
{

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

// Runs commandLine to its end and returns its exit code (or -1).
long RunToEnd(std::wstring commandLine, LPVOID environment = nullptr, DWORD flags = 0,
              LPCWSTR directory = nullptr)
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, flags, environment, directory,
                        &startup, &info))
        return -1;
    EXPECT_EQ(WaitForSingleObject(info.hThread, 10000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(info.hProcess, 10000), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
    DWORD threadCode = 0;
    EXPECT_TRUE(GetExitCodeThread(info.hThread, &threadCode));
    EXPECT_EQ(threadCode, code);
    CloseHandle(info.hThread);
    CloseHandle(info.hProcess);
    return code;
}

std::wstring TempPath(const wchar_t* tag)
{
    return L"/tmp/" + TestName(tag);
}

} // namespace

TEST(W32pCommandLine, SplitsByTheWindowsRules)
{
    using V = std::vector<std::wstring>;
    EXPECT_EQ(W32pSplitCommandLine(L"prog a  b\tc"), (V{L"prog", L"a", L"b", L"c"}));
    EXPECT_EQ(W32pSplitCommandLine(L"\"C:\\Program Files\\x.exe\" \"a b\" c\"d e\"f"),
              (V{L"C:\\Program Files\\x.exe", L"a b", L"cd ef"}));
    EXPECT_EQ(W32pSplitCommandLine(L"p a\\\\b a\\\"b a\\\\\"b c\" a\\\\\\\"b"),
              (V{L"p", L"a\\\\b", L"a\"b", L"a\\b c", L"a\\\"b"}));
    EXPECT_EQ(W32pSplitCommandLine(L"p \"say \"\"hi\"\"\" \"\""), (V{L"p", L"say \"hi\"", L""}));
    EXPECT_EQ(W32pSplitCommandLine(L"c:\\dir\\p\\ x"), (V{L"c:\\dir\\p\\", L"x"}));
}

TEST(W32pProcess, ArgumentsEnvironmentAndDirectoryReachTheChild)
{
    const std::wstring out = TempPath(L"args");
    const std::string outNarrow(out.begin(), out.end());
    EXPECT_EQ(RunToEnd(L"/bin/sh -c \"printf '[%s]' \\\"$@\\\" > " + out + L"\" sh \"a b\" c\\\"d \"\""), 0);
    EXPECT_EQ(ReadFile(outNarrow), "[a b][c\"d][]");

    const wchar_t environment[] = L"GREETING=gr\u00fc\u00dfe\0PATH=/usr/bin:/bin\0";
    EXPECT_EQ(RunToEnd(L"sh -c \"echo $GREETING > " + out + L"\"", const_cast<wchar_t*>(environment),
                       CREATE_UNICODE_ENVIRONMENT),
              0);
    EXPECT_EQ(ReadFile(outNarrow), "gr\xc3\xbc\xc3\x9f"
                                   "e\n");

    const char narrowEnvironment[] = "GREETING=hello\0PATH=/usr/bin:/bin\0";
    EXPECT_EQ(RunToEnd(L"sh -c \"(echo $GREETING; pwd) > " + out + L"\"",
                       const_cast<char*>(narrowEnvironment), 0, L"/usr"),
              0);
    EXPECT_EQ(ReadFile(outNarrow), "hello\n/usr\n");
    unlink(outNarrow.c_str());
}

TEST(W32pProcess, ExitCodesAndStartFailures)
{
    EXPECT_EQ(RunToEnd(L"/bin/sh -c \"exit 7\""), 7);
    STARTUPINFOW startup = {};
    PROCESS_INFORMATION info = {};
    std::wstring missing = L"/nonexistent/program arg";
    EXPECT_W32_FAILS(
        CreateProcessW(nullptr, &missing[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info),
        FALSE, ERROR_FILE_NOT_FOUND);
    std::wstring shell = L"/bin/true";
    EXPECT_W32_FAILS(CreateProcessW(nullptr, &shell[0], nullptr, nullptr, FALSE, 0, nullptr, L"/nonexistent",
                                    &startup, &info),
                     FALSE, ERROR_DIRECTORY);
    EXPECT_W32_FAILS(
        CreateProcessW(nullptr, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info),
        FALSE, ERROR_INVALID_PARAMETER);
}

TEST(W32pProcess, StillActiveUntilTerminatedThenTheGivenCode)
{
    STARTUPINFOW startup = {};
    PROCESS_INFORMATION info = {};
    std::wstring commandLine = L"sleep 30";
    ASSERT_TRUE(CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &info));
    EXPECT_NE(info.dwProcessId, GetCurrentProcessId());
    EXPECT_EQ(WaitForInputIdle(info.hProcess, INFINITE), 0u);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    HANDLE opened = OpenProcess(PROCESS_ALL_ACCESS, FALSE, info.dwProcessId);
    ASSERT_NE(opened, nullptr);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE set[2] = {event, opened};
    EXPECT_EQ(WaitForMultipleObjects(2, set, FALSE, 20), WAIT_TIMEOUT);
    EXPECT_TRUE(TerminateProcess(info.hProcess, 42));
    EXPECT_EQ(WaitForMultipleObjects(2, set, FALSE, 10000), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(GetExitCodeProcess(opened, &code));
    EXPECT_EQ(code, 42u);
    EXPECT_W32_FAILS(TerminateProcess(opened, 1), FALSE, ERROR_ACCESS_DENIED);
    EXPECT_W32_FAILS(GetExitCodeProcess(info.hThread, &code), FALSE, ERROR_INVALID_HANDLE);
    for (HANDLE h : {info.hProcess, info.hThread, opened, event})
        CloseHandle(h);
}

TEST(W32pProcess, OpenProcessOfOtherProcessesAndOfItself)
{
    EXPECT_W32_FAILS(OpenProcess(PROCESS_ALL_ACCESS, FALSE, 0), nullptr, ERROR_INVALID_PARAMETER);
    HANDLE self = OpenProcess(SYNCHRONIZE, FALSE, GetCurrentProcessId());
    ASSERT_NE(self, nullptr);
    EXPECT_EQ(WaitForSingleObject(self, 0), WAIT_TIMEOUT);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(GetCurrentProcess(), &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    CloseHandle(self);

    // A process not started by CreateProcessW: its end is seen, and it is not reaped behind its parent's
    // back.
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t child = ForkChild(
        [&]
        {
            char c;
            return read(go[0], &c, 1) == 1 ? 5 : 1;
        });
    HANDLE other = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(child));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(WaitForSingleObject(other, 0), WAIT_TIMEOUT);
    ASSERT_EQ(write(go[1], "x", 1), 1);
    EXPECT_EQ(WaitForSingleObject(other, 10000), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(other, &code));
    EXPECT_EQ(code, 5u);
    EXPECT_EQ(JoinChild(child), 5);
    CloseHandle(other);
    close(go[0]);
    close(go[1]);
}

TEST(W32pProcess, StandardHandlesGroupsAndTheConsoleEndRequest)
{
    const std::wstring path = TempPath(L"stdout");
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = file;
    PROCESS_INFORMATION info = {};
    std::wstring echo = L"/bin/echo hello";
    ASSERT_TRUE(CreateProcessW(nullptr, &echo[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                               &startup, &info));
    EXPECT_EQ(WaitForSingleObject(info.hProcess, 10000), WAIT_OBJECT_0);
    CloseHandle(info.hProcess);
    CloseHandle(info.hThread);
    CloseHandle(file);
    EXPECT_EQ(ReadFile(std::string(path.begin(), path.end())), "hello\n");
    DeleteFileW(path.c_str());

    startup.hStdOutput = reinterpret_cast<HANDLE>(0x7ffc); // no handle of this process
    EXPECT_W32_FAILS(
        CreateProcessW(nullptr, &echo[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &info),
        FALSE, ERROR_INVALID_HANDLE);

    std::wstring sleeper = L"/bin/sleep 30";
    ASSERT_TRUE(CreateProcessW(nullptr, &sleeper[0], nullptr, nullptr, FALSE, CREATE_NEW_PROCESS_GROUP,
                               nullptr, nullptr, nullptr, &info));
    EXPECT_EQ(getpgid(static_cast<pid_t>(info.dwProcessId)), static_cast<pid_t>(info.dwProcessId));
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, info.dwProcessId));
    EXPECT_EQ(WaitForSingleObject(info.hProcess, 10000), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
    EXPECT_EQ(code, 128u + SIGTERM);
    CloseHandle(info.hProcess);
    CloseHandle(info.hThread);
    EXPECT_W32_FAILS(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, 0), FALSE, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(GenerateConsoleCtrlEvent(7, 1), FALSE, ERROR_INVALID_PARAMETER);
}

TEST(W32pEnvironment, BlockHoldsEveryVariable)
{
    ASSERT_TRUE(SetEnvironmentVariableW(L"KOR_W32P_BLOCK", L"wert ü"));
    LPWCH block = GetEnvironmentStringsW();
    ASSERT_NE(block, nullptr);
    bool found = false;
    for (const WCHAR* p = block; *p != L'\0'; p += std::wcslen(p) + 1)
        found = found || std::wstring(p) == L"KOR_W32P_BLOCK=wert ü";
    EXPECT_TRUE(found);
    EXPECT_TRUE(FreeEnvironmentStringsW(block));
    SetEnvironmentVariableW(L"KOR_W32P_BLOCK", nullptr);
}
