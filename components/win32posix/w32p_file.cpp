#include "w32p_file.h"
#include "w32p_handles.h"
#include "w32p_path.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwctype>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr mode_t kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;

// One open file or directory. The descriptor is fixed for the object's life; the kernel serialises
// concurrent reads and writes on it.
struct FileObject : W32pObject
{
    FileObject(int descriptor, bool owns, bool canRead, bool canWrite, bool regular)
        : W32pObject(W32pKind::File), fd(descriptor), ownsDescriptor(owns), readable(canRead),
          writable(canWrite), regularFile(regular)
    {
    }
    ~FileObject() override
    {
        if (ownsDescriptor)
            close(fd); // also releases the sharing lock of this open file description
    }
    const int fd;
    const bool ownsDescriptor; // false for the standard handles
    const bool readable;
    const bool writable;
    const bool regularFile;           // reads loop until the count is met only on regular files
    std::mutex attachmentLock;        // guards attachment
    std::shared_ptr<void> attachment; // state another area keeps per handle (a directory-change watch)
};

// The result of one directory search, taken at FindFirstFileW; FindNextFileW walks it.
struct FindObject : W32pObject
{
    FindObject() : W32pObject(W32pKind::FindFile) {}
    std::mutex lock;                       // guards next
    std::vector<WIN32_FIND_DATAW> entries; // fixed after construction
    std::size_t next = 0;
};

bool IsReadOnly(const struct stat& st)
{
    return (st.st_mode & kWriteBits) == 0;
}

FILETIME ToFileTime(const struct timespec& ts)
{
    // 100 ns intervals since 1601-01-01; 11644473600 s lie between 1601 and 1970.
    const ULONGLONG ticks = (static_cast<ULONGLONG>(ts.tv_sec) + 11644473600ull) * 10000000ull +
                            static_cast<ULONGLONG>(ts.tv_nsec) / 100u;
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(ticks);
    ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return ft;
}

// Attributes of the object at utf8Path (relative to the directory directoryFd, or to the current directory
// with AT_FDCWD) as Windows reports them, from lstat (so a link is described as a link). False with the last
// error set when the object can't be examined.
bool DescribeAt(int directoryFd, const std::string& utf8Path, DWORD& attributes, struct stat& st,
                bool& isLink)
{
    if (fstatat(directoryFd, utf8Path.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    {
        SetLastError(W32pPathErrorFromErrno(utf8Path, errno));
        return false;
    }
    attributes = 0;
    isLink = S_ISLNK(st.st_mode);
    if (isLink)
    {
        attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        struct stat target;
        if (fstatat(directoryFd, utf8Path.c_str(), &target, 0) == 0 && S_ISDIR(target.st_mode))
            attributes |= FILE_ATTRIBUTE_DIRECTORY;
    }
    else
    {
        if (S_ISDIR(st.st_mode))
            attributes |= FILE_ATTRIBUTE_DIRECTORY;
        if (IsReadOnly(st))
            attributes |= FILE_ATTRIBUTE_READONLY;
    }
    if (attributes == 0)
        attributes = FILE_ATTRIBUTE_NORMAL;
    return true;
}

bool Describe(const std::string& utf8Path, DWORD& attributes, struct stat& st, bool& isLink)
{
    return DescribeAt(AT_FDCWD, utf8Path, attributes, st, isLink);
}

void FillFindData(const std::wstring& wide, DWORD attributes, const struct stat& st, bool isLink,
                  WIN32_FIND_DATAW& data)
{
    std::memset(&data, 0, sizeof data);
    data.dwFileAttributes = attributes;
    data.ftCreationTime = ToFileTime(st.st_ctim); // Linux keeps no portable birth time
    data.ftLastAccessTime = ToFileTime(st.st_atim);
    data.ftLastWriteTime = ToFileTime(st.st_mtim);
    if (!S_ISDIR(st.st_mode) && !isLink)
    {
        const ULONGLONG size = static_cast<ULONGLONG>(st.st_size);
        data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
        data.nFileSizeLow = static_cast<DWORD>(size);
    }
    if (isLink)
        data.dwReserved0 = IO_REPARSE_TAG_SYMLINK;
    const std::size_t n = std::min<std::size_t>(wide.size(), MAX_PATH - 1);
    std::wmemcpy(data.cFileName, wide.data(), n);
    data.cFileName[n] = L'\0';
}

// Windows wildcard matching, case-insensitive: '*' any run, '?' exactly one character.
bool WildcardMatch(const wchar_t* pattern, const wchar_t* name)
{
    const wchar_t* star = nullptr;
    const wchar_t* resume = nullptr;
    while (*name != L'\0')
    {
        if (*pattern == L'*')
        {
            star = pattern++;
            resume = name;
        }
        else if (*pattern == L'?' || std::towlower(*pattern) == std::towlower(*name))
        {
            ++pattern;
            ++name;
        }
        else if (star != nullptr)
        {
            pattern = star + 1;
            name = ++resume;
        }
        else
            return false;
    }
    while (*pattern == L'*')
        ++pattern;
    return *pattern == L'\0';
}

bool CaseInsensitiveLess(const WIN32_FIND_DATAW& a, const WIN32_FIND_DATAW& b)
{
    for (std::size_t i = 0;; ++i)
    {
        const wint_t ca = std::towlower(a.cFileName[i]);
        const wint_t cb = std::towlower(b.cFileName[i]);
        if (ca != cb || ca == 0)
            return ca < cb;
    }
}

std::shared_ptr<FileObject> LookupFile(HANDLE file)
{
    return W32pLookupHandleAs<FileObject>(file, W32pKind::File);
}

} // namespace

HANDLE CreateFileW(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode, LPSECURITY_ATTRIBUTES /*security*/,
                   DWORD creationDisposition, DWORD flagsAndAttributes, HANDLE /*templateFile*/)
{
    std::string path;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const bool wantRead = (desiredAccess & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA)) != 0;
    const bool wantWrite =
        (desiredAccess & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0;
    const bool create = creationDisposition == CREATE_NEW || creationDisposition == CREATE_ALWAYS ||
                        creationDisposition == OPEN_ALWAYS;
    const bool truncate = creationDisposition == CREATE_ALWAYS || creationDisposition == TRUNCATE_EXISTING;
    if (creationDisposition < CREATE_NEW || creationDisposition > TRUNCATE_EXISTING ||
        (truncate && !wantWrite))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }

    int flags = O_CLOEXEC | O_NOCTTY;
    flags |= wantWrite ? (wantRead ? O_RDWR : O_WRONLY) : O_RDONLY;
    const mode_t mode = (flagsAndAttributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;

    // Creation goes first with O_EXCL, so that "existed before" is known without a race.
    bool existed = true;
    int fd = -1;
    if (create)
    {
        fd = open(path.c_str(), flags | O_CREAT | O_EXCL, mode);
        if (fd >= 0)
            existed = false;
        else if (errno != EEXIST || creationDisposition == CREATE_NEW)
        {
            const int error = errno;
            SetLastError(error == EEXIST ? ERROR_FILE_EXISTS : W32pPathErrorFromErrno(path, error));
            return INVALID_HANDLE_VALUE;
        }
    }
    if (fd < 0)
    {
        fd = open(path.c_str(), flags, 0);
        if (fd < 0)
        {
            SetLastError(W32pPathErrorFromErrno(path, errno));
            return INVALID_HANDLE_VALUE;
        }
    }

    struct stat st;
    if (fstat(fd, &st) != 0)
    {
        W32pSetLastErrorFromErrno();
        close(fd);
        return INVALID_HANDLE_VALUE;
    }
    // Root passes every permission check of Linux; the read-only attribute must hold for it as well.
    if ((existed && wantWrite && IsReadOnly(st)) ||
        (S_ISDIR(st.st_mode) && !(flagsAndAttributes & FILE_FLAG_BACKUP_SEMANTICS)))
    {
        close(fd);
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    if (flock(fd, (shareMode == 0 ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0)
    {
        const int error = errno;
        close(fd);
        SetLastError(error == EWOULDBLOCK ? ERROR_SHARING_VIOLATION : W32pErrorFromErrno(error));
        return INVALID_HANDLE_VALUE;
    }
    // Truncation waits for the lock so that a refused open never destroys another holder's data.
    if (truncate && existed && st.st_size != 0 && ftruncate(fd, 0) != 0)
    {
        W32pSetLastErrorFromErrno();
        close(fd);
        return INVALID_HANDLE_VALUE;
    }
    if (creationDisposition == OPEN_ALWAYS || creationDisposition == CREATE_ALWAYS)
    {
        if (existed && (flagsAndAttributes & FILE_ATTRIBUTE_READONLY))
            fchmod(fd, st.st_mode & ~kWriteBits);
    }

    auto object = std::make_shared<FileObject>(fd, true, wantRead, wantWrite, S_ISREG(st.st_mode));
    HANDLE handle = W32pInsertHandle(object);
    if (handle == nullptr)
        return INVALID_HANDLE_VALUE; // the object closes the descriptor
    SetLastError((existed && (creationDisposition == CREATE_ALWAYS || creationDisposition == OPEN_ALWAYS))
                     ? ERROR_ALREADY_EXISTS
                     : ERROR_SUCCESS);
    return handle;
}

namespace
{

// The common part of ReadFile and WriteFile: checks the handle, its access and the buffer, then moves size
// bytes with step(fd, at, count, offset) — at the overlapped offset when one is given, else at the file
// position — retrying after signals. A read from something other than a regular file, or one that reaches
// the end, returns what it got. done receives the bytes moved, also on failure.
template <typename Step>
BOOL Transfer(HANDLE file, bool reading, void* buffer, DWORD size, LPDWORD done, LPOVERLAPPED overlapped,
              Step step)
{
    if (done != nullptr)
        *done = 0;
    std::shared_ptr<FileObject> object = LookupFile(file);
    if (!object)
        return FALSE;
    if (!(reading ? object->readable : object->writable))
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (buffer == nullptr && size > 0)
    {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    const off_t offset =
        overlapped
            ? static_cast<off_t>((static_cast<ULONGLONG>(overlapped->OffsetHigh) << 32) | overlapped->Offset)
            : -1;
    DWORD moved = 0;
    BOOL result = TRUE;
    while (moved < size)
    {
        const ssize_t n = step(object->fd, static_cast<char*>(buffer) + moved, size - moved,
                               offset < 0 ? offset : offset + moved);
        if (n < 0)
        {
            if (errno == EINTR)
                continue;
            W32pSetLastErrorFromErrno();
            result = FALSE;
            break;
        }
        moved += static_cast<DWORD>(n);
        if (reading && (n == 0 || !object->regularFile))
            break;
    }
    if (done != nullptr)
        *done = moved;
    return result;
}

} // namespace

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped)
{
    return Transfer(file, true, buffer, toRead, read, overlapped,
                    [](int fd, char* at, std::size_t count, off_t offset)
                    { return offset < 0 ? ::read(fd, at, count) : pread(fd, at, count, offset); });
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped)
{
    return Transfer(file, false, const_cast<void*>(buffer), toWrite, written, overlapped,
                    [](int fd, const char* at, std::size_t count, off_t offset)
                    { return offset < 0 ? ::write(fd, at, count) : pwrite(fd, at, count, offset); });
}

HANDLE GetStdHandle(DWORD which)
{
    int fd;
    switch (which)
    {
    case STD_INPUT_HANDLE:
        fd = 0;
        break;
    case STD_OUTPUT_HANDLE:
        fd = 1;
        break;
    case STD_ERROR_HANDLE:
        fd = 2;
        break;
    default:
        SetLastError(ERROR_INVALID_HANDLE);
        return INVALID_HANDLE_VALUE;
    }
    static std::mutex lock;        // guards handles
    static HANDLE handles[3] = {}; // the value handed out for each descriptor while it stays open
    std::lock_guard<std::mutex> guard(lock);
    const DWORD saved = GetLastError();
    if (handles[fd] != nullptr && W32pLookupHandleAs<FileObject>(handles[fd], W32pKind::File))
    {
        SetLastError(saved);
        return handles[fd];
    }
    SetLastError(saved);
    struct stat st;
    const bool regular = fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    HANDLE handle = W32pInsertHandle(std::make_shared<FileObject>(fd, false, fd == 0, fd != 0, regular));
    if (handle == nullptr)
        return INVALID_HANDLE_VALUE;
    handles[fd] = handle;
    return handle;
}

int W32pFileDescriptorOfHandle(HANDLE file)
{
    std::shared_ptr<FileObject> object = LookupFile(file);
    return object ? object->fd : -1;
}

BOOL CreateDirectoryW(LPCWSTR pathName, LPSECURITY_ATTRIBUTES /*securityAttributes*/)
{
    std::string path;
    if (!W32pPathToUtf8(pathName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    if (mkdir(path.c_str(), 0777) != 0)
    {
        const int error = errno;
        SetLastError(error == ENOENT ? ERROR_PATH_NOT_FOUND : W32pErrorFromErrno(error));
        return FALSE;
    }
    return TRUE;
}

DWORD GetFileAttributesW(LPCWSTR fileName)
{
    std::string path;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_FILE_ATTRIBUTES;
    }
    DWORD attributes;
    struct stat st;
    bool isLink;
    return Describe(path, attributes, st, isLink) ? attributes : INVALID_FILE_ATTRIBUTES;
}

BOOL GetFileAttributesExW(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS infoLevel, LPVOID information)
{
    if (infoLevel != GetFileExInfoStandard || information == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::string path;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    DWORD attributes;
    struct stat st;
    bool isLink;
    if (!Describe(path, attributes, st, isLink))
        return FALSE;
    WIN32_FIND_DATAW data;
    FillFindData(std::wstring(), attributes, st, isLink, data);
    auto* out = static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(information);
    out->dwFileAttributes = data.dwFileAttributes;
    out->ftCreationTime = data.ftCreationTime;
    out->ftLastAccessTime = data.ftLastAccessTime;
    out->ftLastWriteTime = data.ftLastWriteTime;
    out->nFileSizeHigh = data.nFileSizeHigh;
    out->nFileSizeLow = data.nFileSizeLow;
    return TRUE;
}

BOOL SetFileAttributesW(LPCWSTR fileName, DWORD attributes)
{
    std::string path;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
    {
        SetLastError(W32pPathErrorFromErrno(path, errno));
        return FALSE;
    }
    mode_t mode = st.st_mode & 07777;
    if (attributes & FILE_ATTRIBUTE_READONLY)
        mode &= ~kWriteBits;
    else if (IsReadOnly(st))
        mode |= S_IWUSR;
    if (mode != (st.st_mode & 07777) && chmod(path.c_str(), mode) != 0)
    {
        W32pSetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}

BOOL DeleteFileW(LPCWSTR fileName)
{
    std::string path;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    struct stat st;
    if (lstat(path.c_str(), &st) != 0)
    {
        SetLastError(W32pPathErrorFromErrno(path, errno));
        return FALSE;
    }
    // Linux lets anyone with write access to the directory unlink a read-only file; Windows does not.
    if (S_ISDIR(st.st_mode) || (!S_ISLNK(st.st_mode) && IsReadOnly(st)))
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (unlink(path.c_str()) != 0)
    {
        W32pSetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}

BOOL RemoveDirectoryW(LPCWSTR pathName)
{
    std::string path;
    if (!W32pPathToUtf8(pathName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    DWORD attributes;
    struct stat st;
    bool isLink;
    if (!Describe(path, attributes, st, isLink))
        return FALSE;
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY))
    {
        SetLastError(ERROR_DIRECTORY);
        return FALSE;
    }
    if (attributes & FILE_ATTRIBUTE_READONLY)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if ((isLink ? unlink(path.c_str()) : rmdir(path.c_str())) != 0)
    {
        const int error = errno;
        SetLastError(error == EEXIST ? ERROR_DIR_NOT_EMPTY : W32pErrorFromErrno(error));
        return FALSE;
    }
    return TRUE;
}

BOOL PathIsDirectoryW(LPCWSTR path)
{
    std::string utf8;
    struct stat st;
    if (!W32pPathToUtf8(path, utf8) || utf8.empty() || stat(utf8.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return FALSE;
    return FILE_ATTRIBUTE_DIRECTORY;
}

BOOL PathIsDirectoryEmptyW(LPCWSTR path)
{
    std::string utf8;
    if (!W32pPathToUtf8(path, utf8) || utf8.empty())
        return FALSE;
    DIR* dir = opendir(utf8.c_str());
    if (dir == nullptr)
        return FALSE;
    bool empty = true;
    while (struct dirent* entry = readdir(dir))
    {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
        {
            empty = false;
            break;
        }
    }
    closedir(dir);
    return empty ? TRUE : FALSE;
}

HANDLE FindFirstFileW(LPCWSTR fileName, LPWIN32_FIND_DATAW findData)
{
    std::string pattern;
    if (!W32pPathToUtf8(fileName, pattern) || findData == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    if (pattern.empty() || pattern.back() == '/')
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const std::size_t slash = pattern.rfind('/');
    std::string directory = slash == std::string::npos ? "." : pattern.substr(0, slash == 0 ? 1 : slash);
    std::wstring namePattern =
        W32pUtf8ToWide(slash == std::string::npos ? pattern : pattern.substr(slash + 1));
    if (namePattern == L"*.*")
        namePattern = L"*"; // Windows matches names without a dot too

    DIR* dir = opendir(directory.c_str());
    if (dir == nullptr)
    {
        const int error = errno;
        SetLastError(error == ENOENT || error == ENOTDIR ? ERROR_PATH_NOT_FOUND : W32pErrorFromErrno(error));
        return INVALID_HANDLE_VALUE;
    }
    auto search = std::make_shared<FindObject>();
    std::vector<WIN32_FIND_DATAW> dots;
    // Entries are examined relative to the open directory: no path walk per entry.
    const int directoryFd = dirfd(dir);
    while (struct dirent* entry = readdir(dir))
    {
        const std::string name = entry->d_name;
        const std::wstring wideName = W32pUtf8ToWide(name);
        if (!WildcardMatch(namePattern.c_str(), wideName.c_str()))
            continue;
        DWORD attributes;
        struct stat st;
        bool isLink;
        if (!DescribeAt(directoryFd, name, attributes, st, isLink))
            continue; // removed while we read the directory
        WIN32_FIND_DATAW data;
        FillFindData(wideName, attributes, st, isLink, data);
        (name == "." || name == ".." ? dots : search->entries).push_back(data);
    }
    closedir(dir);
    std::sort(search->entries.begin(), search->entries.end(), CaseInsensitiveLess);
    std::sort(dots.begin(), dots.end(), CaseInsensitiveLess); // "." before ".."
    search->entries.insert(search->entries.begin(), dots.begin(), dots.end());
    if (search->entries.empty())
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    *findData = search->entries[0];
    search->next = 1;
    HANDLE handle = W32pInsertHandle(search);
    if (handle == nullptr)
        return INVALID_HANDLE_VALUE;
    SetLastError(ERROR_SUCCESS);
    return handle;
}

BOOL FindNextFileW(HANDLE findFile, LPWIN32_FIND_DATAW findData)
{
    std::shared_ptr<FindObject> search = W32pLookupHandleAs<FindObject>(findFile, W32pKind::FindFile);
    if (!search)
        return FALSE;
    if (findData == nullptr)
    {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(search->lock);
    if (search->next >= search->entries.size())
    {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    *findData = search->entries[search->next++];
    return TRUE;
}

BOOL FindClose(HANDLE findFile)
{
    if (!W32pLookupHandleAs<FindObject>(findFile, W32pKind::FindFile))
        return FALSE;
    return CloseHandle(findFile);
}

std::shared_ptr<void> W32pFileAttachment(HANDLE file, const std::function<std::shared_ptr<void>(int)>& make)
{
    const std::shared_ptr<FileObject> object = LookupFile(file);
    if (!object)
        return nullptr;
    std::lock_guard<std::mutex> guard(object->attachmentLock);
    if (!object->attachment)
        object->attachment = make(object->fd);
    return object->attachment;
}
