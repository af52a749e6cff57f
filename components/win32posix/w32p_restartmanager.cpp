// Restart Manager sessions over /proc.
// The contract, and where Linux differs from Windows, are in w32p_restartmanager.h.
#include "w32p_restartmanager.h"
#include "w32p_path.h"
#include "w32p_toolhelp.h"

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

struct Session
{
    std::vector<std::string> files; // UTF-8 paths as registered
    std::vector<RM_UNIQUE_PROCESS> applications;
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
    info.bRestartable = FALSE;
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

DWORD RmGetList(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo, RM_PROCESS_INFO affectedApps[],
                LPDWORD rebootReasons)
{
    if (procInfoNeeded == nullptr || procInfo == nullptr || rebootReasons == nullptr ||
        (*procInfo != 0 && affectedApps == nullptr))
        return ERROR_INVALID_PARAMETER;
    Session session;
    {
        std::lock_guard<std::mutex> guard(g_lock);
        auto it = g_sessions.find(sessionHandle);
        if (it == g_sessions.end())
            return ERROR_INVALID_HANDLE;
        session = it->second;
    }
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
    *rebootReasons = RmRebootReasonNone;
    *procInfoNeeded = static_cast<UINT>(holders.size());
    if (*procInfo < holders.size())
        return ERROR_MORE_DATA;
    UINT i = 0;
    for (DWORD pid : holders)
        Fill(pid, affectedApps[i++]);
    *procInfo = i;
    return ERROR_SUCCESS;
}

DWORD RmEndSession(DWORD sessionHandle)
{
    std::lock_guard<std::mutex> guard(g_lock);
    return g_sessions.erase(sessionHandle) != 0 ? static_cast<DWORD>(ERROR_SUCCESS)
                                                : static_cast<DWORD>(ERROR_INVALID_HANDLE);
}
