// Windows side of the trace back-end: segment files in %LOCALAPPDATA%\korbtrace (the user's profile, closed
// to other users by its inherited ACL), mapped with CreateFileMapping over the file, and the crash hook as
// an unhandled-exception filter chained to the one installed before. Only Win32 calls live here; the rest
// of btrace is the same on every platform. Paths are UTF-8 here and converted to UTF-16 for the system.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "btraceplatform.h"

#include <atomic>
#include <cstring>
#include <ctime>

namespace btrace_platform
{

namespace
{

std::wstring Wide(const std::string& text)
{
    if (text.empty())
        return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<std::size_t>(n > 0 ? n : 0), L'\0');
    if (n > 0)
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], n);
    return out;
}

std::string Narrow(const wchar_t* text)
{
    const int n = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 1)
        return std::string();
    std::string out(static_cast<std::size_t>(n - 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], n, nullptr, nullptr);
    return out;
}

std::string Reason(const char* what, DWORD error)
{
    return std::string(what) + ": error " + std::to_string(error);
}

// Owns one file handle so every early return closes it.
struct File
{
    HANDLE h;
    explicit File(HANDLE handle) : h(handle) {}
    ~File()
    {
        if (h != INVALID_HANDLE_VALUE)
            CloseHandle(h);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
};

// A segment file must be a plain file: reparse points (links) are refused, never followed.
HANDLE OpenSegment(const std::string& path, DWORD access, DWORD disposition, std::string& error)
{
    HANDLE h =
        CreateFileW(Wide(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, disposition, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE)
    {
        error = Reason(("open " + path).c_str(), GetLastError());
        return h;
    }
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(h, &info) ||
        (info.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) != 0)
    {
        CloseHandle(h);
        error = "not a segment file";
        return INVALID_HANDLE_VALUE;
    }
    return h;
}

bool TransferAt(const std::string& path, std::uint64_t offset, void* data, std::size_t size, bool write,
                std::string& error)
{
    File file(OpenSegment(path, write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ, OPEN_EXISTING, error));
    if (file.h == INVALID_HANDLE_VALUE)
        return false;
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD done = 0;
    const BOOL ok = write ? WriteFile(file.h, data, static_cast<DWORD>(size), &done, &at)
                          : ReadFile(file.h, data, static_cast<DWORD>(size), &done, &at);
    if (!ok || done != size)
    {
        error = write ? "short write to the segment" : "short read of the segment";
        return false;
    }
    return true;
}

} // namespace

bool SegmentFolder(std::string& folder, std::string& error)
{
    wchar_t base[MAX_PATH];
    const DWORD n = GetEnvironmentVariableW(L"LOCALAPPDATA", base, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
    {
        error = "LOCALAPPDATA is not set";
        return false;
    }
    folder = Narrow(base) + "\\korbtrace";
    if (!CreateDirectoryW(Wide(folder).c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
    {
        error = Reason(("create " + folder).c_str(), GetLastError());
        return false;
    }
    const DWORD attributes = GetFileAttributesW(Wide(folder).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
        (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
    {
        error = folder + " is not a folder of this user";
        return false;
    }
    return true;
}

void* MapSegment(const std::string& path, std::uint64_t bytes, std::string& error)
{
    File file(OpenSegment(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS, error));
    if (file.h == INVALID_HANDLE_VALUE)
        return nullptr;
    // Cutting the file to 0 first drops the previous process's ring, so the new one starts zero-filled.
    LARGE_INTEGER zero{};
    LARGE_INTEGER size;
    size.QuadPart = static_cast<LONGLONG>(bytes);
    if (!SetFilePointerEx(file.h, zero, nullptr, FILE_BEGIN) || !SetEndOfFile(file.h) ||
        !SetFilePointerEx(file.h, size, nullptr, FILE_BEGIN) || !SetEndOfFile(file.h))
    {
        error = Reason("resize", GetLastError());
        return nullptr;
    }
    HANDLE mapping = CreateFileMappingW(file.h, nullptr, PAGE_READWRITE, static_cast<DWORD>(bytes >> 32),
                                        static_cast<DWORD>(bytes), nullptr);
    if (mapping == nullptr)
    {
        error = Reason("CreateFileMapping", GetLastError());
        return nullptr;
    }
    void* view = MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, static_cast<SIZE_T>(bytes));
    const DWORD failure = GetLastError();
    CloseHandle(mapping); // the view keeps the mapping
    if (view == nullptr)
        error = Reason("MapViewOfFile", failure);
    return view;
}

bool ReadSegmentFile(const std::string& path, std::uint64_t limit, std::vector<unsigned char>& data,
                     std::string& error)
{
    File file(OpenSegment(path, GENERIC_READ, OPEN_EXISTING, error));
    if (file.h == INVALID_HANDLE_VALUE)
        return false;
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file.h, &size) || static_cast<std::uint64_t>(size.QuadPart) > limit)
    {
        error = "file too large for a segment";
        return false;
    }
    data.resize(static_cast<std::size_t>(size.QuadPart));
    std::size_t done = 0;
    while (done < data.size())
    {
        const DWORD chunk =
            static_cast<DWORD>(data.size() - done < (1u << 30) ? data.size() - done : (1u << 30));
        DWORD n = 0;
        if (!ReadFile(file.h, data.data() + done, chunk, &n, nullptr) || n == 0)
            break; // shrunk while reading: the header check refuses the short image
        done += n;
    }
    data.resize(done);
    return true;
}

bool ReadSegmentAt(const std::string& path, std::uint64_t offset, void* data, std::size_t size,
                   std::string& error)
{
    return TransferAt(path, offset, data, size, false, error);
}

bool WriteSegmentAt(const std::string& path, std::uint64_t offset, const void* data, std::size_t size,
                    std::string& error)
{
    return TransferAt(path, offset, const_cast<void*>(data), size, true, error);
}

bool RemoveSegmentFile(const std::string& path, std::string& error)
{
    if (!DeleteFileW(Wide(path).c_str()))
    {
        error = Reason(("delete " + path).c_str(), GetLastError());
        return false;
    }
    return true;
}

std::vector<std::string> ListSegmentFiles(const std::string& folder)
{
    std::vector<std::string> names;
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(Wide(folder + "\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return names;
    do
        if (found.cFileName[0] != L'.' && (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            names.push_back(Narrow(found.cFileName));
    while (FindNextFileW(search, &found));
    FindClose(search);
    return names;
}

bool WriteTextFile(const std::string& path, const std::string& text, std::string& error)
{
    const std::string temporary = path + ".tmp" + std::to_string(GetCurrentProcessId());
    {
        File file(CreateFileW(Wide(temporary).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file.h == INVALID_HANDLE_VALUE)
        {
            error = Reason(("create " + temporary).c_str(), GetLastError());
            return false;
        }
        std::size_t done = 0;
        while (done < text.size())
        {
            const DWORD chunk =
                static_cast<DWORD>(text.size() - done < (1u << 30) ? text.size() - done : (1u << 30));
            DWORD n = 0;
            if (!WriteFile(file.h, text.data() + done, chunk, &n, nullptr) || n == 0)
            {
                error = Reason(("write " + temporary).c_str(), GetLastError());
                DeleteFileW(Wide(temporary).c_str());
                return false;
            }
            done += n;
        }
    }
    if (!MoveFileExW(Wide(temporary).c_str(), Wide(path).c_str(), MOVEFILE_REPLACE_EXISTING))
    {
        error = Reason(("rename to " + path).c_str(), GetLastError());
        DeleteFileW(Wide(temporary).c_str());
        return false;
    }
    return true;
}

std::uint32_t ProcessId()
{
    return GetCurrentProcessId();
}

std::uint32_t ThreadId()
{
    return GetCurrentThreadId();
}

bool ProcessAlive(std::uint32_t pid)
{
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, pid);
    if (process == nullptr)
        return GetLastError() == ERROR_ACCESS_DENIED;
    const bool alive = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return alive;
}

std::int64_t RealTimeNs()
{
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    const std::int64_t ticks = (static_cast<std::int64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return (ticks - 116444736000000000LL) * 100; // 100 ns units since 1601 to ns since 1970
}

void LocalTime(std::int64_t seconds, struct tm& out)
{
    const time_t t = static_cast<time_t>(seconds);
    localtime_s(&out, &t);
}

void UtcTime(std::int64_t seconds, struct tm& out)
{
    const time_t t = static_cast<time_t>(seconds);
    gmtime_s(&out, &t);
}

std::uint64_t MonotonicNs()
{
    static const LONGLONG frequency = []
    {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f.QuadPart;
    }();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<std::uint64_t>(counter.QuadPart / frequency * 1000000000LL +
                                      counter.QuadPart % frequency * 1000000000LL / frequency);
}

void SleepMs(unsigned ms)
{
    Sleep(ms);
}

// The crash hook: an unhandled-exception filter that runs onCrash once and then hands the exception to
// the filter the host had installed (or lets the process end as it would have).
namespace
{

void (*g_onCrash)(int) = nullptr;
LPTOP_LEVEL_EXCEPTION_FILTER g_previousFilter = nullptr;
std::atomic<bool> g_inCrash{false};

LONG WINAPI CrashFilter(EXCEPTION_POINTERS* info)
{
    if (!g_inCrash.exchange(true) && g_onCrash != nullptr)
        g_onCrash(info != nullptr && info->ExceptionRecord != nullptr
                      ? static_cast<int>(info->ExceptionRecord->ExceptionCode & 0xFF)
                      : 0);
    return g_previousFilter != nullptr ? g_previousFilter(info) : EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

bool InstallCrashHook(void (*onCrash)(int code))
{
    static std::atomic<bool> installed{false};
    if (installed.exchange(true))
        return true;
    g_onCrash = onCrash;
    g_previousFilter = SetUnhandledExceptionFilter(CrashFilter);
    return true;
}

std::intptr_t CrashOpen(const char* path)
{
    HANDLE h = CreateFileW(Wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    return h == INVALID_HANDLE_VALUE ? -1 : reinterpret_cast<std::intptr_t>(h);
}

void CrashWrite(std::intptr_t file, const char* data, std::size_t size)
{
    while (size > 0)
    {
        DWORD n = 0;
        if (!WriteFile(reinterpret_cast<HANDLE>(file), data, static_cast<DWORD>(size), &n, nullptr) || n == 0)
            return;
        data += n;
        size -= n;
    }
}

void CrashClose(std::intptr_t file)
{
    CloseHandle(reinterpret_cast<HANDLE>(file));
}

} // namespace btrace_platform
