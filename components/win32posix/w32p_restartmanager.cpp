#include "w32p_restartmanager.h"
#include "w32p_path.h"
#include "w32p_process.h"
#include "w32p_toolhelp.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <dirent.h>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <sys/random.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace
{

constexpr std::size_t kMaxSessions = 64;

// What is needed to start a stopped application again, read from /proc before it was asked to end.
struct StoppedApplication
{
    RM_PROCESS_INFO info;                 // as RmGetList reported it; AppStatus tells what became of it
    std::string program;                  // the executable's path
    std::vector<std::string> arguments;   // its command line, argv[0] first
    std::vector<std::string> environment; // its environment strings
    std::string directory;                // its working folder
};

struct Session
{
    std::vector<std::string> files; // UTF-8 paths as registered
    std::vector<RM_UNIQUE_PROCESS> applications;
    std::vector<StoppedApplication> stopped; // every application RmShutdown asked to end, in that order
};

std::mutex g_lock;                   // guards g_sessions and g_nextSession
std::map<DWORD, Session> g_sessions; // open sessions by handle
DWORD g_nextSession = 0;

using FileId = std::pair<dev_t, ino_t>;

// Every process with a descriptor on one of files, in ascending process id.
std::set<DWORD> Holders(const std::set<FileId>& files)
{
    std::set<DWORD> holders;
    if (files.empty())
        return holders;
    DIR* proc = opendir("/proc");
    if (proc == nullptr)
        return holders;
    while (struct dirent* entry = readdir(proc))
    {
        char* end = nullptr;
        const unsigned long pid = std::strtoul(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0')
            continue;
        const std::string fdDir = std::string("/proc/") + entry->d_name + "/fd";
        DIR* fds = opendir(fdDir.c_str());
        if (fds == nullptr)
            continue; // another user's process, or gone
        while (struct dirent* fd = readdir(fds))
        {
            if (fd->d_name[0] == '.')
                continue;
            struct stat st;
            if (stat((fdDir + "/" + fd->d_name).c_str(), &st) == 0 &&
                files.count(FileId(st.st_dev, st.st_ino)))
            {
                holders.insert(static_cast<DWORD>(pid));
                break;
            }
        }
        closedir(fds);
    }
    closedir(proc);
    return holders;
}

// The zero-separated strings of a /proc file (cmdline, environ); false when it can't be read.
bool ReadStrings(const std::string& file, std::vector<std::string>& strings)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return false;
    const std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    strings.clear();
    for (std::size_t start = 0; start < all.size();)
    {
        std::size_t end = all.find('\0', start);
        if (end == std::string::npos)
            end = all.size();
        strings.push_back(all.substr(start, end - start));
        start = end + 1;
    }
    return true;
}

// The command line, environment and working folder of a running process; false when they can't be read
// (another user's process, a kernel thread, a process that is gone).
bool ReadRestartData(DWORD pid, StoppedApplication& application)
{
    const std::string base = "/proc/" + std::to_string(pid);
    char buffer[PATH_MAX];
    const ssize_t n = readlink((base + "/cwd").c_str(), buffer, sizeof buffer);
    application.program = W32pProcessImagePath(pid);
    if (n <= 0 || application.program.empty() || !ReadStrings(base + "/cmdline", application.arguments) ||
        application.arguments.empty() || !ReadStrings(base + "/environ", application.environment))
        return false;
    application.directory.assign(buffer, static_cast<std::size_t>(n));
    return true;
}

void Fill(DWORD pid, RM_PROCESS_INFO& info)
{
    std::memset(&info, 0, sizeof info);
    info.Process.dwProcessId = pid;
    info.Process.ProcessStartTime = W32pProcessStartTime(pid);
    const std::wstring name = W32pNativeToWide(W32pProcessImageName(pid));
    const std::size_t n = std::min<std::size_t>(name.size(), CCH_RM_MAX_APP_NAME);
    std::wmemcpy(info.strAppName, name.data(), n);
    info.ApplicationType = RmConsole;
    info.AppStatus = RmStatusRunning;
    info.TSSessionId = 0;
    StoppedApplication probe;
    info.bRestartable = ReadRestartData(pid, probe) ? TRUE : FALSE;
}

} // namespace

DWORD RmStartSession(DWORD* sessionHandle, DWORD /*sessionFlags*/, WCHAR sessionKey[])
{
    if (sessionHandle == nullptr || sessionKey == nullptr)
        return ERROR_INVALID_PARAMETER;
    unsigned char random[CCH_RM_SESSION_KEY / 2] = {};
    if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random))
        return ERROR_OUTOFMEMORY;
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_sessions.size() >= kMaxSessions)
        return ERROR_MAX_SESSIONS_REACHED;
    DWORD handle = g_nextSession;
    while (g_sessions.count(handle))
        ++handle;
    g_nextSession = handle + 1;
    g_sessions[handle] = Session();
    static const wchar_t digits[] = L"0123456789abcdef";
    for (std::size_t i = 0; i < sizeof random; ++i)
    {
        sessionKey[2 * i] = digits[random[i] >> 4];
        sessionKey[2 * i + 1] = digits[random[i] & 15];
    }
    sessionKey[CCH_RM_SESSION_KEY] = L'\0';
    *sessionHandle = handle;
    return ERROR_SUCCESS;
}

DWORD RmRegisterResources(DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[], UINT applicationCount,
                          RM_UNIQUE_PROCESS applications[], UINT serviceCount, LPCWSTR serviceNames[])
{
    if ((fileCount != 0 && fileNames == nullptr) || (applicationCount != 0 && applications == nullptr) ||
        (serviceCount != 0 && serviceNames == nullptr))
        return ERROR_BAD_ARGUMENTS;
    std::vector<std::string> paths;
    for (UINT i = 0; i < fileCount; ++i)
    {
        std::string path;
        if (!W32pPathToUtf8(fileNames[i], path))
            return ERROR_BAD_ARGUMENTS;
        paths.push_back(path);
    }
    std::lock_guard<std::mutex> guard(g_lock);
    auto it = g_sessions.find(sessionHandle);
    if (it == g_sessions.end())
        return ERROR_INVALID_HANDLE;
    it->second.files.insert(it->second.files.end(), paths.begin(), paths.end());
    it->second.applications.insert(it->second.applications.end(), applications,
                                   applications + applicationCount);
    return ERROR_SUCCESS;
}

namespace
{

// A copy of the session, or false for an unknown handle.
bool CopySession(DWORD sessionHandle, Session& session)
{
    std::lock_guard<std::mutex> guard(g_lock);
    auto it = g_sessions.find(sessionHandle);
    if (it == g_sessions.end())
        return false;
    session = it->second;
    return true;
}

// The running processes affected by the session: holders of its files and its registered applications.
std::set<DWORD> Affected(const Session& session)
{
    std::set<FileId> files;
    for (const std::string& path : session.files)
    {
        struct stat st;
        if (stat(path.c_str(), &st) == 0)
            files.insert(FileId(st.st_dev, st.st_ino));
    }
    std::set<DWORD> holders = Holders(files);
    for (const RM_UNIQUE_PROCESS& application : session.applications)
    {
        const FILETIME started = W32pProcessStartTime(application.dwProcessId);
        if (started.dwLowDateTime == application.ProcessStartTime.dwLowDateTime &&
            started.dwHighDateTime == application.ProcessStartTime.dwHighDateTime &&
            (started.dwLowDateTime != 0 || started.dwHighDateTime != 0))
            holders.insert(application.dwProcessId);
    }
    return holders;
}

// The records RmGetList reports: the affected processes that run, then those RmShutdown stopped (their
// AppStatus says whether they stopped, resisted or were restarted).
std::vector<RM_PROCESS_INFO> Records(const Session& session)
{
    std::vector<RM_PROCESS_INFO> records;
    std::set<DWORD> listed;
    for (const StoppedApplication& application : session.stopped)
        listed.insert(application.info.Process.dwProcessId);
    for (DWORD pid : Affected(session))
    {
        if (listed.count(pid))
            continue;
        records.emplace_back();
        Fill(pid, records.back());
    }
    for (const StoppedApplication& application : session.stopped)
        records.push_back(application.info);
    return records;
}

} // namespace

DWORD RmGetList(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo, RM_PROCESS_INFO affectedApps[],
                LPDWORD rebootReasons)
{
    if (procInfoNeeded == nullptr || procInfo == nullptr || rebootReasons == nullptr ||
        (*procInfo != 0 && affectedApps == nullptr))
        return ERROR_INVALID_PARAMETER;
    Session session;
    if (!CopySession(sessionHandle, session))
        return ERROR_INVALID_HANDLE;
    const std::vector<RM_PROCESS_INFO> records = Records(session);
    *rebootReasons = RmRebootReasonNone;
    *procInfoNeeded = static_cast<UINT>(records.size());
    if (*procInfo < records.size())
        return ERROR_MORE_DATA;
    std::copy(records.begin(), records.end(), affectedApps);
    *procInfo = static_cast<UINT>(records.size());
    return ERROR_SUCCESS;
}

DWORD RmEndSession(DWORD sessionHandle)
{
    std::lock_guard<std::mutex> guard(g_lock);
    return g_sessions.erase(sessionHandle) != 0 ? static_cast<DWORD>(ERROR_SUCCESS)
                                                : static_cast<DWORD>(ERROR_INVALID_HANDLE);
}

namespace
{

// How long RmShutdown lets the applications end after SIGTERM before it forces them or gives up, and how long
// it waits for a forced end.
constexpr int kPoliteMilliseconds = 5000;
constexpr int kForcedMilliseconds = 2000;

long long NowMilliseconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Sends signal to every process of pidfds that still runs, then waits up to milliseconds for all of them to
// end, on their pidfds (a pidfd turns readable when its process ends). A pidfd of -1 counts as ended.
void SignalAndWait(const std::vector<int>& pidfds, int signal, int milliseconds)
{
    for (int pidfd : pidfds)
        if (pidfd >= 0)
            syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0);
    const long long deadline = NowMilliseconds() + milliseconds;
    for (;;)
    {
        std::vector<struct pollfd> running;
        for (int pidfd : pidfds)
        {
            struct pollfd p = {pidfd, POLLIN, 0};
            if (pidfd >= 0 && poll(&p, 1, 0) == 0)
                running.push_back(p);
        }
        const long long left = deadline - NowMilliseconds();
        if (running.empty() || left <= 0)
            return;
        poll(running.data(), running.size(), static_cast<int>(left)); // wakes at the first end
    }
}

bool HasEnded(int pidfd)
{
    struct pollfd p = {pidfd, POLLIN, 0};
    return pidfd < 0 || poll(&p, 1, 0) == 1;
}

} // namespace

DWORD RmShutdown(DWORD sessionHandle, ULONG actionFlags, RM_WRITE_STATUS_CALLBACK status)
{
    Session session;
    if (!CopySession(sessionHandle, session))
        return ERROR_INVALID_HANDLE;
    std::vector<StoppedApplication> applications;
    std::vector<int> pidfds;
    for (DWORD pid : Affected(session))
    {
        if (pid == static_cast<DWORD>(getpid()))
            continue; // the caller does not end itself
        StoppedApplication application;
        Fill(pid, application.info);
        ReadRestartData(pid, application);
        applications.push_back(application);
        pidfds.push_back(static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0)));
    }
    SignalAndWait(pidfds, SIGTERM, kPoliteMilliseconds);
    if (actionFlags & RmForceShutdown)
        SignalAndWait(pidfds, SIGKILL, kForcedMilliseconds);
    bool allStopped = true;
    for (std::size_t i = 0; i < applications.size(); ++i)
    {
        const bool ended = HasEnded(pidfds[i]);
        applications[i].info.AppStatus = ended ? RmStatusStopped : RmStatusErrorOnStop;
        allStopped = allStopped && ended;
        if (pidfds[i] >= 0)
            close(pidfds[i]);
    }
    {
        std::lock_guard<std::mutex> guard(g_lock);
        auto it = g_sessions.find(sessionHandle);
        if (it == g_sessions.end())
            return ERROR_INVALID_HANDLE; // ended meanwhile
        it->second.stopped.insert(it->second.stopped.end(), applications.begin(), applications.end());
    }
    if (status != nullptr)
        status(100);
    return allStopped ? static_cast<DWORD>(ERROR_SUCCESS) : static_cast<DWORD>(ERROR_FAIL_SHUTDOWN);
}

DWORD RmRestart(DWORD sessionHandle, DWORD /*restartFlags*/, RM_WRITE_STATUS_CALLBACK status)
{
    Session session;
    if (!CopySession(sessionHandle, session))
        return ERROR_INVALID_HANDLE;
    bool anyStopped = false, allRestarted = true;
    for (StoppedApplication& application : session.stopped)
    {
        if (application.info.AppStatus != RmStatusStopped)
            continue;
        anyStopped = true;
        const bool restarted = application.info.bRestartable &&
                               W32pStartDetached(application.program, application.arguments,
                                                 application.environment, application.directory) != 0;
        application.info.AppStatus = restarted ? RmStatusRestarted : RmStatusErrorOnRestart;
        allRestarted = allRestarted && restarted;
    }
    {
        std::lock_guard<std::mutex> guard(g_lock);
        auto it = g_sessions.find(sessionHandle);
        if (it == g_sessions.end())
            return ERROR_INVALID_HANDLE;
        it->second.stopped = session.stopped;
    }
    if (status != nullptr)
        status(100);
    if (!anyStopped)
        return ERROR_REQUEST_OUT_OF_SEQUENCE;
    return allRestarted ? static_cast<DWORD>(ERROR_SUCCESS) : static_cast<DWORD>(ERROR_FAIL_RESTART);
}
