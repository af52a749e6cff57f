#include "w32p_toolhelp.h"
#include "w32p_module.h"
#include "w32p_handles.h"
#include "w32p_path.h"
#include "w32p_process.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <dirent.h>
#include <fstream>
#include <mutex>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace
{

struct SnapshotObject : W32pObject
{
    SnapshotObject() : W32pObject(W32pKind::Snapshot) {}
    std::mutex lock;                      // guards next
    std::vector<PROCESSENTRY32W> entries; // fixed after construction
    std::size_t next = 0;
};

// The fields of /proc/<pid>/stat after the parenthesised name (which may itself hold spaces and ')').
bool ReadStat(DWORD pid, std::string& name, std::vector<std::string>& fields)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(in, line))
        return false;
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open)
        return false;
    name = line.substr(open + 1, close - open - 1);
    std::istringstream rest(line.substr(close + 1));
    fields.clear();
    for (std::string field; rest >> field;)
        fields.push_back(field); // fields[0] is the state (field 3 of the file)
    return true;
}

// The process that a handle names; 0 with ERROR_INVALID_HANDLE when it names none known here.
DWORD ProcessIdOf(HANDLE process)
{
    return GetProcessId(process);
}

std::string BaseName(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void CopyName(const std::string& name, WCHAR (&out)[MAX_PATH])
{
    const std::wstring wide = W32pNativeToWide(name);
    const std::size_t n = std::min<std::size_t>(wide.size(), MAX_PATH - 1);
    std::wmemcpy(out, wide.data(), n);
    out[n] = L'\0';
}

} // namespace

std::string W32pProcessImagePath(DWORD processId)
{
    char buffer[PATH_MAX];
    const std::string link = "/proc/" + std::to_string(processId) + "/exe";
    const ssize_t n = readlink(link.c_str(), buffer, sizeof buffer);
    if (n <= 0)
        return std::string();
    return std::string(buffer, static_cast<std::size_t>(n));
}

std::string W32pProcessImageName(DWORD processId)
{
    const std::string path = W32pProcessImagePath(processId);
    if (!path.empty())
        return BaseName(path);
    std::string name;
    std::vector<std::string> fields;
    return ReadStat(processId, name, fields) ? name : std::string();
}

FILETIME W32pProcessStartTime(DWORD processId)
{
    FILETIME result = {0, 0};
    std::string name;
    std::vector<std::string> fields;
    if (!ReadStat(processId, name, fields) || fields.size() < 20)
        return result;
    // Field 22 of the file: start time in clock ticks after boot; boot time is "btime" of /proc/stat.
    const unsigned long long ticks = std::strtoull(fields[19].c_str(), nullptr, 10);
    unsigned long long bootSeconds = 0;
    std::ifstream stat("/proc/stat");
    for (std::string key; stat >> key;)
    {
        if (key == "btime")
        {
            stat >> bootSeconds;
            break;
        }
    }
    const long hz = sysconf(_SC_CLK_TCK);
    const ULONGLONG hundredNs =
        (bootSeconds + 11644473600ull) * 10000000ull + ticks * (10000000ull / static_cast<ULONGLONG>(hz));
    result.dwLowDateTime = static_cast<DWORD>(hundredNs);
    result.dwHighDateTime = static_cast<DWORD>(hundredNs >> 32);
    return result;
}

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD /*processId*/)
{
    if ((flags & TH32CS_SNAPPROCESS) == 0)
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return INVALID_HANDLE_VALUE;
    }
    auto snapshot = std::make_shared<SnapshotObject>();
    DIR* proc = opendir("/proc");
    if (proc == nullptr)
    {
        W32pSetLastErrorFromErrno();
        return INVALID_HANDLE_VALUE;
    }
    while (struct dirent* entry = readdir(proc))
    {
        char* end = nullptr;
        const unsigned long pid = std::strtoul(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0')
            continue;
        std::string name;
        std::vector<std::string> fields;
        if (!ReadStat(static_cast<DWORD>(pid), name, fields) || fields.size() < 18)
            continue; // ended while we looked
        if (fields[0] == "Z" || fields[0] == "X")
            continue; // ended, not yet reaped: Windows lists no process that has ended
        PROCESSENTRY32W data;
        std::memset(&data, 0, sizeof data);
        data.dwSize = sizeof data;
        data.th32ProcessID = static_cast<DWORD>(pid);
        data.th32ParentProcessID = static_cast<DWORD>(std::strtoul(fields[1].c_str(), nullptr, 10));
        data.cntThreads = static_cast<DWORD>(std::strtoul(fields[17].c_str(), nullptr, 10));
        data.pcPriClassBase = 8; // normal priority class
        const std::string path = W32pProcessImagePath(data.th32ProcessID);
        CopyName(path.empty() ? name : BaseName(path), data.szExeFile);
        snapshot->entries.push_back(data);
    }
    closedir(proc);
    HANDLE handle = W32pInsertHandle(snapshot);
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
}

static BOOL NextEntry(HANDLE snapshot, LPPROCESSENTRY32W entry, bool first)
{
    std::shared_ptr<SnapshotObject> found = W32pLookupHandleAs<SnapshotObject>(snapshot, W32pKind::Snapshot);
    if (!found)
        return FALSE;
    if (entry == nullptr || entry->dwSize < sizeof(PROCESSENTRY32W))
    {
        SetLastError(ERROR_BAD_LENGTH);
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(found->lock);
    if (first)
        found->next = 0;
    if (found->next >= found->entries.size())
    {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    *entry = found->entries[found->next++];
    return TRUE;
}

BOOL Process32FirstW(HANDLE snapshot, LPPROCESSENTRY32W entry)
{
    return NextEntry(snapshot, entry, true);
}

BOOL Process32NextW(HANDLE snapshot, LPPROCESSENTRY32W entry)
{
    return NextEntry(snapshot, entry, false);
}

BOOL QueryFullProcessImageNameW(HANDLE process, DWORD /*flags*/, LPWSTR exeName, PDWORD size)
{
    if (exeName == nullptr || size == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const DWORD pid = ProcessIdOf(process);
    if (pid == 0)
        return FALSE;
    const std::string path = W32pProcessImagePath(pid);
    if (path.empty())
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    const std::wstring wide = W32pNativeToWide(path);
    if (wide.size() + 1 > *size)
    {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    *size = W32pCopyToBuffer(wide, exeName, *size);
    return TRUE;
}

DWORD GetModuleFileNameExW(HANDLE process, HMODULE module, LPWSTR fileName, DWORD size)
{
    if (fileName == nullptr || size == 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const DWORD pid = ProcessIdOf(process);
    if (pid == 0)
        return 0;
    std::string path;
    if (module != nullptr)
    {
        // Module handles are addresses in this process: another process's modules can't be named by them.
        if (pid != GetCurrentProcessId() || !W32pModulePath(module, path))
        {
            SetLastError(ERROR_INVALID_HANDLE);
            return 0;
        }
    }
    else
        path = W32pProcessImagePath(pid);
    if (path.empty())
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return 0;
    }
    std::wstring wide = W32pNativeToWide(path);
    if (wide.size() >= size)
        wide.resize(size - 1);
    return W32pCopyToBuffer(wide, fileName, size);
}
