// Processes over posix_spawn and pidfds.
// The contract, and where Linux differs from Windows, are in w32p_process.h.
#include "w32p_process.h"
#include "w32p_path.h"

#include "w32p_file.h"
#include "w32p_string.h"
#include "w32p_sync.h"
#include "w32p_waitable.h"

#include <cerrno>
#include <cwchar>
#include <csignal>
#include <map>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

extern char** environ;

namespace
{

std::string Utf8(const std::wstring& wide)
{
    const int length = WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), static_cast<int>(wide.size()), nullptr,
                                           0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    if (length > 0)
        WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), static_cast<int>(wide.size()), &narrow[0], length,
                            nullptr, nullptr);
    return narrow;
}

// What is known of one process; shared by every handle to it and by its watcher thread.
struct ProcessState
{
    std::atomic<std::uint32_t> ended{0};    // futex word: 1 once the process has ended
    std::atomic<std::uint32_t> sleepers{0}; // see W32pWaitable
    std::atomic<DWORD> exitCode{0};         // valid once ended when exitKnown
    std::atomic<bool> exitKnown{false};
    std::atomic<bool> terminated{false}; // TerminateProcess sent the kill; its code is in terminateCode
    std::atomic<DWORD> terminateCode{0};
    int pidfd = -1; // owned; fixed at creation
    pid_t pid = 0;
    bool reap = false; // started here: the watcher reaps it; else its status is only read, never taken
    ~ProcessState()
    {
        if (pidfd >= 0)
            close(pidfd);
    }

    void Finish(bool known, DWORD code)
    {
        if (terminated.load())
            code = terminateCode.load(), known = true;
        exitCode.store(code);
        exitKnown.store(known);
        ended.store(1);
        W32pFutexWakeAll(&ended, false);
    }
};

// Children started here, so that OpenProcess of their id shares what the watcher learns.
struct Children
{
    std::mutex lock; // guards byPid
    std::map<pid_t, std::weak_ptr<ProcessState>> byPid;
};

Children& TheChildren()
{
    static Children* children = new Children; // never destroyed: watchers may finish during exit
    return *children;
}

DWORD CodeFromStatus(const siginfo_t& info)
{
    if (info.si_code == CLD_EXITED)
        return static_cast<DWORD>(info.si_status);
    return 128u + static_cast<DWORD>(info.si_status);
}

// Waits for the process to end, then records it and wakes the waiters. A child is reaped here.
void* Watch(void* argument)
{
    auto* holder = static_cast<std::shared_ptr<ProcessState>*>(argument);
    std::shared_ptr<ProcessState> state = std::move(*holder);
    delete holder;
    siginfo_t info = {};
    for (;;)
    {
        const int options = WEXITED | (state->reap ? 0 : WNOWAIT);
        if (syscall(SYS_waitid, P_PIDFD, state->pidfd, &info, options, nullptr) == 0)
        {
            state->Finish(true, CodeFromStatus(info));
            break;
        }
        if (errno == EINTR)
            continue;
        // Not our child: its end shows as the pidfd becoming readable; its status is not ours to read.
        struct pollfd p = {state->pidfd, POLLIN, 0};
        while (poll(&p, 1, -1) < 0 && errno == EINTR)
        {
        }
        state->Finish(false, 0);
        break;
    }
    {
        Children& children = TheChildren();
        std::lock_guard<std::mutex> guard(children.lock);
        auto known = children.byPid.find(state->pid);
        if (known != children.byPid.end() && known->second.lock() == state)
            children.byPid.erase(known);
    }
    return nullptr;
}

bool StartWatcher(const std::shared_ptr<ProcessState>& state)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, 64 * 1024);
    auto* argument = new std::shared_ptr<ProcessState>(state);
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, &Watch, argument);
    pthread_attr_destroy(&attributes);
    if (error != 0)
    {
        delete argument;
        return false;
    }
    return true;
}

class Process : public W32pEndable
{
public:
    // kind is Process for the process handle, Thread for the handle of its main thread.
    Process(std::shared_ptr<ProcessState> state, W32pKind kind)
        : W32pEndable(kind, &state->ended, &state->sleepers), m_state(std::move(state))
    {
    }
    bool ExitCode(DWORD& code) const override
    {
        if (!m_state->ended.load())
        {
            code = STILL_ACTIVE;
            return true;
        }
        if (!m_state->exitKnown.load())
        {
            SetLastError(ERROR_NOT_SUPPORTED);
            return false;
        }
        code = m_state->exitCode.load();
        return true;
    }
    const std::shared_ptr<ProcessState>& State() const { return m_state; }

private:
    const std::shared_ptr<ProcessState> m_state;
};

int PidfdOpen(pid_t pid)
{
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

// The "NAME=VALUE" strings of an environment block.
std::vector<std::string> EnvironmentStrings(LPVOID block, bool wide)
{
    std::vector<std::string> strings;
    if (wide)
    {
        for (auto* p = static_cast<const WCHAR*>(block); *p != L'\0';)
        {
            std::wstring entry(p);
            p += entry.size() + 1;
            strings.push_back(Utf8(entry));
        }
    }
    else
    {
        for (auto* p = static_cast<const char*>(block); *p != '\0';)
        {
            std::string entry(p);
            p += entry.size() + 1;
            strings.push_back(entry);
        }
    }
    return strings;
}

DWORD SpawnError(int error)
{
    switch (error)
    {
    case ENOEXEC:
        return ERROR_BAD_EXE_FORMAT;
    case ENOENT:
    case ENOTDIR:
        return ERROR_FILE_NOT_FOUND;
    default:
        return W32pErrorFromErrno(error);
    }
}

} // namespace

namespace
{

bool IsBlank(WCHAR c)
{
    return c == L' ' || c == L'\t';
}

// The program name at p, p moved past it: quotes group, backslashes are plain characters.
std::wstring ReadProgramName(const WCHAR*& p)
{
    std::wstring program;
    bool quoted = false;
    for (; *p != L'\0' && (quoted || !IsBlank(*p)); ++p)
    {
        if (*p == L'"')
            quoted = !quoted;
        else
            program += *p;
    }
    return program;
}

// A run of backslashes at p, p moved past it: before a quote, each pair is one backslash and an odd one
// escapes the quote; elsewhere they are plain characters.
void ReadBackslashes(const WCHAR*& p, std::wstring& word)
{
    std::size_t backslashes = 0;
    while (*p == L'\\')
        ++backslashes, ++p;
    if (*p != L'"')
    {
        word.append(backslashes, L'\\');
        return;
    }
    word.append(backslashes / 2, L'\\');
    if (backslashes % 2 == 1)
    {
        word += L'"';
        ++p;
    }
}

// One argument at p (not blank), p moved past it: quotes group, "" inside quotes is a quote.
std::wstring ReadArgument(const WCHAR*& p)
{
    std::wstring word;
    bool quoted = false;
    while (*p != L'\0' && (quoted || !IsBlank(*p)))
    {
        if (*p == L'\\')
            ReadBackslashes(p, word);
        else if (*p == L'"' && quoted && p[1] == L'"')
        {
            word += L'"';
            p += 2;
        }
        else if (*p == L'"')
        {
            quoted = !quoted;
            ++p;
        }
        else
            word += *p++;
    }
    return word;
}

} // namespace

std::vector<std::wstring> W32pSplitCommandLine(LPCWSTR commandLine)
{
    std::vector<std::wstring> words;
    if (commandLine == nullptr)
        return words;
    const WCHAR* p = commandLine;
    words.push_back(ReadProgramName(p));
    for (;;)
    {
        while (IsBlank(*p))
            ++p;
        if (*p == L'\0')
            break;
        words.push_back(ReadArgument(p));
    }
    return words;
}

namespace
{

// What posix_spawn needs for one start: the program, its argument and environment vectors (pointing into
// the owned strings), and the file actions (working folder, standard handles).
struct SpawnRequest
{
    std::string program;
    bool search = false; // look the program up in PATH
    std::vector<std::string> arguments;
    std::vector<char*> argv;
    std::vector<std::string> environmentStrings;
    std::vector<char*> envp; // empty: this process's environment
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnRequest()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnRequest()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnRequest(const SpawnRequest&) = delete;
    SpawnRequest& operator=(const SpawnRequest&) = delete;
};

// Step 1: the program and its arguments from the application name and the command line.
bool ComposeArguments(LPCWSTR applicationName, LPWSTR commandLine, SpawnRequest& request)
{
    std::vector<std::wstring> words = W32pSplitCommandLine(commandLine);
    if (words.empty())
        words.push_back(applicationName);
    const std::wstring programWide = applicationName != nullptr ? std::wstring(applicationName) : words[0];
    request.program = W32pWideToNative(programWide.data(), programWide.size());
    if (request.program.empty())
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    request.search = applicationName == nullptr && request.program.find('/') == std::string::npos;
    for (const std::wstring& word : words)
        request.arguments.push_back(Utf8(word));
    for (std::string& argument : request.arguments)
        request.argv.push_back(&argument[0]);
    request.argv.push_back(nullptr);
    return true;
}

// Step 2: the environment block, when one is given.
void ComposeEnvironment(LPVOID environment, DWORD creationFlags, SpawnRequest& request)
{
    if (environment == nullptr)
        return;
    request.environmentStrings =
        EnvironmentStrings(environment, (creationFlags & CREATE_UNICODE_ENVIRONMENT) != 0);
    for (std::string& entry : request.environmentStrings)
        request.envp.push_back(&entry[0]);
    request.envp.push_back(nullptr);
}

// Step 3: the working folder, which must be an existing directory.
bool ComposeDirectory(LPCWSTR currentDirectory, SpawnRequest& request)
{
    if (currentDirectory == nullptr)
        return true;
    const std::string directory = W32pWideToNative(currentDirectory, std::wcslen(currentDirectory));
    struct stat st;
    if (directory.empty() || stat(directory.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    {
        SetLastError(ERROR_DIRECTORY);
        return false;
    }
    posix_spawn_file_actions_addchdir_np(&request.actions, directory.c_str());
    return true;
}

// Step 4: standard handles (STARTF_USESTDHANDLES) and the process group (CREATE_NEW_PROCESS_GROUP). A null
// standard handle leaves that stream as this process has it; a handle that is no file fails the start.
bool ComposeStartup(DWORD creationFlags, LPSTARTUPINFOW startupInfo, SpawnRequest& request)
{
    if (startupInfo != nullptr && (startupInfo->dwFlags & STARTF_USESTDHANDLES) != 0)
    {
        const HANDLE handles[3] = {startupInfo->hStdInput, startupInfo->hStdOutput, startupInfo->hStdError};
        for (int target = 0; target < 3; ++target)
        {
            if (handles[target] == nullptr || handles[target] == INVALID_HANDLE_VALUE)
                continue;
            const int fd = W32pFileDescriptorOfHandle(handles[target]);
            if (fd < 0)
                return false; // ERROR_INVALID_HANDLE is set
            posix_spawn_file_actions_adddup2(&request.actions, fd, target);
        }
    }
    if (creationFlags & CREATE_NEW_PROCESS_GROUP)
    {
        posix_spawnattr_setpgroup(&request.attributes, 0);
        posix_spawnattr_setflags(&request.attributes, POSIX_SPAWN_SETPGROUP);
    }
    return true;
}

// Step 5: the start itself; the pid, or 0 with the last error set.
pid_t Spawn(SpawnRequest& request)
{
    pid_t pid = 0;
    char** childEnvironment = request.envp.empty() ? environ : request.envp.data();
    const int error = request.search
                          ? posix_spawnp(&pid, request.program.c_str(), &request.actions, &request.attributes,
                                         request.argv.data(), childEnvironment)
                          : posix_spawn(&pid, request.program.c_str(), &request.actions, &request.attributes,
                                        request.argv.data(), childEnvironment);
    if (error != 0)
    {
        SetLastError(SpawnError(error));
        return 0;
    }
    return pid;
}

// Step 6: the shared state of a started child, its watcher and its two handles.
BOOL AdoptChild(pid_t pid, LPPROCESS_INFORMATION processInformation)
{
    auto state = std::make_shared<ProcessState>();
    state->pid = pid;
    state->reap = true;
    state->pidfd = PidfdOpen(pid); // cannot fail for an unreaped child short of descriptors
    if (state->pidfd < 0 || !StartWatcher(state))
    {
        W32pSetLastErrorFromErrno();
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return FALSE;
    }
    {
        Children& children = TheChildren();
        std::lock_guard<std::mutex> guard(children.lock);
        children.byPid[pid] = state;
    }
    processInformation->hProcess = W32pInsertHandle(std::make_shared<Process>(state, W32pKind::Process));
    processInformation->hThread = W32pInsertHandle(std::make_shared<Process>(state, W32pKind::Thread));
    processInformation->dwProcessId = static_cast<DWORD>(pid);
    processInformation->dwThreadId = static_cast<DWORD>(pid);
    SetLastError(ERROR_SUCCESS);
    return TRUE;
}

} // namespace

BOOL CreateProcessW(LPCWSTR applicationName, LPWSTR commandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES,
                    BOOL, DWORD creationFlags, LPVOID environment, LPCWSTR currentDirectory,
                    LPSTARTUPINFOW startupInfo, LPPROCESS_INFORMATION processInformation)
{
    if (processInformation == nullptr || (applicationName == nullptr && commandLine == nullptr))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (creationFlags & CREATE_SUSPENDED)
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    SpawnRequest request;
    if (!ComposeArguments(applicationName, commandLine, request))
        return FALSE;
    ComposeEnvironment(environment, creationFlags, request);
    if (!ComposeDirectory(currentDirectory, request) || !ComposeStartup(creationFlags, startupInfo, request))
        return FALSE;
    const pid_t pid = Spawn(request);
    return pid != 0 ? AdoptChild(pid, processInformation) : FALSE;
}

HANDLE OpenProcess(DWORD, BOOL, DWORD processId)
{
    if (processId == 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const pid_t pid = static_cast<pid_t>(processId);
    std::shared_ptr<ProcessState> state;
    {
        Children& children = TheChildren();
        std::lock_guard<std::mutex> guard(children.lock);
        auto known = children.byPid.find(pid);
        if (known != children.byPid.end())
            state = known->second.lock();
    }
    if (!state)
    {
        const int pidfd = PidfdOpen(pid);
        if (pidfd < 0)
        {
            SetLastError(errno == ESRCH ? ERROR_INVALID_PARAMETER : W32pErrorFromErrno(errno));
            return nullptr;
        }
        state = std::make_shared<ProcessState>();
        state->pid = pid;
        state->pidfd = pidfd;
        if (pid != getpid() && !StartWatcher(state)) // this process never ends while it waits on itself
        {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
    }
    return W32pInsertHandle(std::make_shared<Process>(state, W32pKind::Process));
}

DWORD GetProcessId(HANDLE process)
{
    if (process == GetCurrentProcess())
        return GetCurrentProcessId();
    std::shared_ptr<Process> object = W32pLookupHandleAs<Process>(process, W32pKind::Process);
    return object ? static_cast<DWORD>(object->State()->pid) : 0;
}

BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode)
{
    if (exitCode == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (process == GetCurrentProcess())
    {
        *exitCode = STILL_ACTIVE;
        return TRUE;
    }
    std::shared_ptr<Process> object = W32pLookupHandleAs<Process>(process, W32pKind::Process);
    if (!object)
        return FALSE;
    DWORD code = 0;
    if (!object->ExitCode(code))
        return FALSE;
    *exitCode = code;
    return TRUE;
}

BOOL TerminateProcess(HANDLE process, UINT exitCode)
{
    if (process == GetCurrentProcess())
        _exit(static_cast<int>(exitCode));
    std::shared_ptr<Process> object = W32pLookupHandleAs<Process>(process, W32pKind::Process);
    if (!object)
        return FALSE;
    const std::shared_ptr<ProcessState>& state = object->State();
    if (state->ended.load())
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    state->terminateCode.store(exitCode);
    state->terminated.store(true);
    if (syscall(SYS_pidfd_send_signal, state->pidfd, SIGKILL, nullptr, 0) != 0)
    {
        const int error = errno;
        state->terminated.store(false);
        SetLastError(error == ESRCH ? ERROR_ACCESS_DENIED : W32pErrorFromErrno(error));
        return FALSE;
    }
    return TRUE;
}

DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}

DWORD WaitForInputIdle(HANDLE process, DWORD)
{
    if (process != GetCurrentProcess() && !W32pLookupHandleAs<Process>(process, W32pKind::Process))
        return WAIT_FAILED;
    return 0;
}

BOOL GenerateConsoleCtrlEvent(DWORD ctrlEvent, DWORD processGroupId)
{
    if (ctrlEvent != CTRL_C_EVENT && ctrlEvent != CTRL_BREAK_EVENT)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int signal = ctrlEvent == CTRL_C_EVENT ? SIGINT : SIGTERM;
    const pid_t target = static_cast<pid_t>(processGroupId);
    if (target <= 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER); // group 0 (every process on the console) has no meaning here
        return FALSE;
    }
    if (kill(-target, signal) == 0 || (errno == ESRCH && kill(target, signal) == 0))
        return TRUE;
    SetLastError(errno == ESRCH ? ERROR_INVALID_PARAMETER : W32pErrorFromErrno(errno));
    return FALSE;
}

DWORD W32pStartDetached(const std::string& program, const std::vector<std::string>& arguments,
                        const std::vector<std::string>& environment, const std::string& directory)
{
    if (program.empty() || arguments.empty())
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    SpawnRequest request;
    request.program = program;
    request.arguments = arguments;
    for (std::string& argument : request.arguments)
        request.argv.push_back(&argument[0]);
    request.argv.push_back(nullptr);
    request.environmentStrings = environment;
    for (std::string& entry : request.environmentStrings)
        request.envp.push_back(&entry[0]);
    if (!request.envp.empty())
        request.envp.push_back(nullptr);
    if (!directory.empty())
        posix_spawn_file_actions_addchdir_np(&request.actions, directory.c_str());
    const pid_t pid = Spawn(request);
    PROCESS_INFORMATION information = {};
    if (pid == 0 || !AdoptChild(pid, &information))
        return 0;
    CloseHandle(information.hThread); // the watcher still reaps the child when it ends
    CloseHandle(information.hProcess);
    return static_cast<DWORD>(pid);
}
