// The platform side of the test helpers: POSIX calls on Linux, the Win32 API on Windows. This is the one
// test source with platform conditionals; everything else uses kortestsupport.h.
#include "kortestsupport.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <map>
#include <mutex>
#else
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;
// The handle table of the Win32 layer over Linux.
std::size_t W32pOpenHandleCount();
#endif

namespace kortest
{

namespace
{

void ReadAll(FILE* pipe, std::string& output)
{
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, n);
}

} // namespace

#if defined(_WIN32)

namespace
{

std::string UniqueName(const std::string& stem)
{
    static std::atomic<unsigned> counter{0};
    return stem + "-" + std::to_string(ProcessId()) + "-" + std::to_string(++counter);
}

std::wstring Wide(const std::string& utf8)
{
    if (utf8.empty())
        return std::wstring();
    int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &out[0], n);
    return out;
}

std::string Narrow(const std::wstring& wide)
{
    if (wide.empty())
        return std::string();
    int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr,
                                nullptr);
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), &out[0], n, nullptr, nullptr);
    return out;
}

std::string TempFolder()
{
    wchar_t buffer[MAX_PATH + 1];
    DWORD n = GetTempPathW(MAX_PATH + 1, buffer);
    return n == 0 ? std::string(".\\") : Narrow(std::wstring(buffer, n));
}

// One argument quoted by the rules CommandLineToArgvW and the C run-time read back.
std::wstring Quote(const std::wstring& arg)
{
    std::wstring out = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : arg)
    {
        if (c == L'\\')
            ++backslashes;
        else
        {
            if (c == L'"')
                out.append(backslashes + 1, L'\\');
            backslashes = 0;
        }
        out += c;
    }
    out.append(backslashes, L'\\');
    return out + L"\"";
}

// Started children by pid: Windows waits on the process handle, which only the creator holds.
std::mutex g_childrenLock;
std::map<pid_t, HANDLE> g_children; // guarded by g_childrenLock

HANDLE ChildHandle(pid_t pid)
{
    std::lock_guard<std::mutex> lock(g_childrenLock);
    auto it = g_children.find(pid);
    return it == g_children.end() ? nullptr : it->second;
}

} // namespace

void SetEnv(const std::string& name, const std::string& value)
{
    // The C run-time's copy first (getenv; an empty value removes it there), then the Win32 block that
    // GetEnvironmentVariableW and child processes read, which also holds empty values.
    _putenv_s(name.c_str(), value.c_str());
    SetEnvironmentVariableW(Wide(name).c_str(), Wide(value).c_str());
}

void UnsetEnv(const std::string& name)
{
    _putenv_s(name.c_str(), "");
    SetEnvironmentVariableW(Wide(name).c_str(), nullptr);
}

int ProcessId()
{
    return static_cast<int>(GetCurrentProcessId());
}

std::string NewTempFile(const std::string& stem)
{
    for (int attempt = 0; attempt < 100; ++attempt)
    {
        std::string path = TempFolder() + UniqueName(stem);
        HANDLE h = CreateFileW(Wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h != INVALID_HANDLE_VALUE)
        {
            CloseHandle(h);
            return path;
        }
    }
    return std::string();
}

std::string NewTempFolder(const std::string& stem)
{
    for (int attempt = 0; attempt < 100; ++attempt)
    {
        std::string path = TempFolder() + UniqueName(stem);
        if (CreateDirectoryW(Wide(path).c_str(), nullptr))
            return path;
    }
    return std::string();
}

pid_t StartSelf(const std::vector<std::string>& arguments, const std::vector<std::string>& environment)
{
    wchar_t exe[32768];
    DWORD n = GetModuleFileNameW(nullptr, exe, 32768);
    if (n == 0 || n >= 32768)
        return -1;
    std::wstring commandLine = Quote(exe);
    for (const std::string& a : arguments)
        commandLine += L" " + Quote(Wide(a));

    // The parent's environment with the extra entries overriding those of the same name.
    std::map<std::wstring, std::wstring> entries;
    if (wchar_t* block = GetEnvironmentStringsW())
    {
        for (const wchar_t* e = block; *e; e += wcslen(e) + 1)
        {
            std::wstring entry(e);
            size_t eq = entry.find(L'=', 1);
            if (eq != std::wstring::npos)
                entries[entry.substr(0, eq)] = entry;
        }
        FreeEnvironmentStringsW(block);
    }
    for (const std::string& e : environment)
    {
        std::wstring entry = Wide(e);
        entries[entry.substr(0, entry.find(L'='))] = entry;
    }
    std::wstring block;
    for (auto& e : entries)
        block += e.second + L'\0';
    block += L'\0';

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(exe, &commandLine[0], nullptr, nullptr, FALSE, CREATE_UNICODE_ENVIRONMENT, &block[0],
                        nullptr, &startup, &info))
        return -1;
    CloseHandle(info.hThread);
    std::lock_guard<std::mutex> lock(g_childrenLock);
    g_children[static_cast<pid_t>(info.dwProcessId)] = info.hProcess;
    return static_cast<pid_t>(info.dwProcessId);
}

int WaitProcess(pid_t pid)
{
    HANDLE h = ChildHandle(pid);
    if (h == nullptr || WaitForSingleObject(h, INFINITE) != WAIT_OBJECT_0)
        return -1;
    DWORD code = 0;
    GetExitCodeProcess(h, &code);
    CloseHandle(h);
    std::lock_guard<std::mutex> lock(g_childrenLock);
    g_children.erase(pid);
    return static_cast<int>(code);
}

void KillProcess(pid_t pid)
{
    if (HANDLE h = ChildHandle(pid))
    {
        TerminateProcess(h, KilledExitCode);
        return;
    }
    HANDLE other = OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(pid));
    if (other == nullptr)
        return;
    TerminateProcess(other, KilledExitCode);
    CloseHandle(other);
}

ShellResult RunShell(const std::string& command)
{
    ShellResult result;
    FILE* pipe = _wpopen(Wide(command).c_str(), L"rb");
    if (pipe == nullptr)
        return result;
    ReadAll(pipe, result.output);
    result.status = _pclose(pipe);
    return result;
}

std::size_t OpenHandleCount()
{
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return count;
}

bool UnderWine()
{
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool OnLinux()
{
    return false;
}

#else

namespace
{

std::string TempFolder()
{
    const char* tmp = std::getenv("TMPDIR");
    std::string folder = tmp != nullptr && *tmp ? tmp : "/tmp";
    return folder.back() == '/' ? folder : folder + "/";
}

} // namespace

void SetEnv(const std::string& name, const std::string& value)
{
    setenv(name.c_str(), value.c_str(), 1);
}

void UnsetEnv(const std::string& name)
{
    unsetenv(name.c_str());
}

int ProcessId()
{
    return static_cast<int>(getpid());
}

std::string NewTempFile(const std::string& stem)
{
    std::string path = TempFolder() + stem + "-XXXXXX";
    int fd = mkstemp(&path[0]);
    if (fd < 0)
        return std::string();
    close(fd);
    return path;
}

std::string NewTempFolder(const std::string& stem)
{
    std::string path = TempFolder() + stem + "-XXXXXX";
    return mkdtemp(&path[0]) != nullptr ? path : std::string();
}

pid_t StartSelf(const std::vector<std::string>& arguments, const std::vector<std::string>& environment)
{
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e)
        env.emplace_back(*e);
    env.insert(env.end(), environment.begin(), environment.end());
    std::vector<char*> envp;
    for (auto& e : env)
        envp.push_back(&e[0]);
    envp.push_back(nullptr);
    std::string exe = "/proc/self/exe";
    std::vector<std::string> args = arguments;
    std::vector<char*> argv{&exe[0]};
    for (auto& a : args)
        argv.push_back(&a[0]);
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, exe.c_str(), nullptr, nullptr, argv.data(), envp.data()) != 0)
        return -1;
    return pid;
}

int WaitProcess(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1;
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

void KillProcess(pid_t pid)
{
    kill(pid, SIGKILL);
}

ShellResult RunShell(const std::string& command)
{
    ShellResult result;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return result;
    ReadAll(pipe, result.output);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::size_t OpenHandleCount()
{
    return W32pOpenHandleCount();
}

bool UnderWine()
{
    return false;
}

bool OnLinux()
{
    return true;
}

#endif

} // namespace kortest
