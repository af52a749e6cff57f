// Files, directories, attributes and directory search over file descriptors.
// The contract, and where Linux differs from Windows, are in w32p_file.h.
#include "w32p_file.h"
#include "w32p_handles.h"
#include "w32p_path.h"
#include "w32p_share.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
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

// Whether path still names the file st describes (a link is not followed).
bool IsStill(const std::string& path, const struct stat& st)
{
    struct stat named;
    return lstat(path.c_str(), &named) == 0 && named.st_dev == st.st_dev && named.st_ino == st.st_ino;
}

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
        W32pShareRelease(share); // carries out a pending delete-on-close at the file's last handle
        struct stat st;
        if (!deletePath.empty() && fstat(fd, &st) == 0 && IsStill(deletePath, st))
            unlink(deletePath.c_str());
        if (ownsDescriptor)
            close(fd); // also releases the sharing lock of this open file description
    }
    const int fd;
    const bool ownsDescriptor; // false for the standard handles
    const bool readable;
    const bool writable;
    const bool regularFile; // reads loop until the count is met only on regular files
    // Set once before the handle is published: the registration in the file's open set (w32p_share.h), empty
    // for none.
    W32pShareRegistration share;
    std::string deletePath;    // delete-on-close without a registration: removed at this handle's close
    std::mutex attachmentLock; // guards attachment
    std::shared_ptr<void> attachment; // state another area keeps per handle (a directory-change watch)
};

// The result of one directory search, taken at FindFirstFileW; FindNextFileW walks it.
// It keeps the listed directory open, so that the calling thread's later calls on paths below it resolve
// from that descriptor (see ResolvePath).
struct FindObject : W32pObject
{
    FindObject() : W32pObject(W32pKind::FindFile) {}
    ~FindObject() override
    {
        if (directoryFd >= 0)
            close(directoryFd);
    }
    std::mutex lock;                       // guards next
    std::vector<WIN32_FIND_DATAW> entries; // fixed after construction
    std::size_t next = 0;
    int directoryFd = -1; // the listed directory; fixed after construction
    std::string prefix;   // its path as given, ending in "/"; fixed after construction
};

// The searches the calling thread opened, newest last. Only the opening thread resolves through them, so a
// search never changes what another thread's path names.
thread_local std::vector<std::weak_ptr<FindObject>> t_openSearches;

// An owned descriptor of an intermediate directory met while resolving a path.
struct OwnedFd
{
    OwnedFd() = default;
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;
    ~OwnedFd()
    {
        if (fd >= 0)
            close(fd);
    }
    int fd = -1;
};

// Where a path is, for the *at system calls: from the descriptor at (AT_FDCWD: the current directory), the
// relative or absolute path name. below is set when the path lies below a directory the calling thread
// is listing: name is then one element, and a search of it (FindFirstFileW) does not follow a link in it.
struct ResolvedPath
{
    int at = AT_FDCWD;
    std::string name;
    bool below = false;
    OwnedFd holder;
};

bool IsPlainElement(const char* element, std::size_t length)
{
    return length > 0 && !(length == 1 && element[0] == '.') &&
           !(length == 2 && element[0] == '.' && element[1] == '.');
}

bool IsDotOrDotDot(const char* name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

bool IsPlainElement(const std::string& element)
{
    return IsPlainElement(element.data(), element.size());
}

// Resolves path (Linux bytes). Below an open search of this thread, the path is walked from that search's
// descriptor, one element at a time, so it may be longer than PATH_MAX; the last element is then acted
// on relative to its folder's descriptor, and the calls that must not be redirected (deleting, removing,
// attributes, searching) do not follow a link there, so a directory that was listed can't be swapped for
// a link to somewhere else between listing and acting. Any other path is used as it is. False, with the
// last error set, when an element on the way is missing or not a directory.
bool ResolvePath(const std::string& path, ResolvedPath& out)
{
    out.at = AT_FDCWD;
    out.name = path;
    out.below = false;
    for (std::size_t i = t_openSearches.size(); i-- > 0;)
    {
        std::shared_ptr<FindObject> search = t_openSearches[i].lock();
        if (!search)
        {
            t_openSearches.erase(t_openSearches.begin() + static_cast<std::ptrdiff_t>(i));
            continue;
        }
        const std::string& prefix = search->prefix;
        if (path.size() <= prefix.size() || path.compare(0, prefix.size(), prefix) != 0)
            continue;
        std::size_t start = prefix.size();
        if (path.find('/', start) == std::string::npos)
        {
            // The common case, one element right below the search: no walk.
            if (!IsPlainElement(path.data() + start, path.size() - start))
                continue;
            out.at = search->directoryFd;
            out.name.erase(0, start);
            out.below = true;
            return true;
        }
        std::vector<std::string> elements;
        while (start <= path.size())
        {
            std::size_t end = path.find('/', start);
            if (end == std::string::npos)
                end = path.size();
            if (end > start)
                elements.push_back(path.substr(start, end - start));
            start = end + 1;
        }
        if (elements.empty() || !std::all_of(elements.begin(), elements.end(),
                                             [](const std::string& e) { return IsPlainElement(e); }))
            continue; // "." and ".." are left to the ordinary lookup
        int at = search->directoryFd;
        for (std::size_t k = 0; k + 1 < elements.size(); ++k)
        {
            const int next = openat(at, elements[k].c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (next < 0)
            {
                const int error = errno;
                SetLastError(error == ENOENT || error == ENOTDIR || error == ELOOP
                                 ? ERROR_PATH_NOT_FOUND
                                 : W32pErrorFromErrno(error));
                return false;
            }
            if (out.holder.fd >= 0)
                close(out.holder.fd);
            out.holder.fd = next;
            at = next;
        }
        out.at = at;
        out.name = elements.back();
        out.below = true;
        return true;
    }
    return true;
}

// The Win32 error for a failed operation on a resolved path.
DWORD ResolvedErrorFromErrno(const ResolvedPath& resolved, int error)
{
    if (resolved.below)
        return error == ENOENT ? ERROR_FILE_NOT_FOUND : W32pErrorFromErrno(error);
    return W32pPathErrorFromErrno(resolved.name, error);
}

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
bool DescribeAt(int directoryFd, const char* utf8Path, DWORD& attributes, struct stat& st, bool& isLink)
{
    if (fstatat(directoryFd, utf8Path, &st, AT_SYMLINK_NOFOLLOW) != 0)
    {
        const int error = errno;
        SetLastError(W32pPathErrorFromErrno(utf8Path, error));
        return false;
    }
    attributes = 0;
    isLink = S_ISLNK(st.st_mode);
    if (isLink)
    {
        attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        struct stat target;
        if (fstatat(directoryFd, utf8Path, &target, 0) == 0 && S_ISDIR(target.st_mode))
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

// Directory-search wildcards as Windows matches them, case-insensitively. The caller's pattern is first
// put in the file system's own form: "?" becomes DOS_QM, "*" before "." DOS_STAR, "." before "?" or "*"
// DOS_DOT ("<", ">" and "\"" may also be written directly). Then:
//   *        any run of characters;
//   DOS_STAR any run of characters that does not take the name's last ".";
//   DOS_QM   one character other than "."; at a "." or at the end of the name it matches nothing, along with
//            the DOS_QMs that follow it (so "abc?" matches "abc", "*.tx?" matches "b.tx");
//   DOS_DOT  a "." or, at the end of the name, nothing (so "name.*" matches "name").
enum class WildToken : wchar_t
{
    Star = 0xF8F0,
    DosStar,
    DosQm,
    DosDot,
};

std::wstring ToDosPattern(const std::wstring& pattern)
{
    std::wstring out;
    for (std::size_t k = 0; k < pattern.size(); ++k)
    {
        const wchar_t c = pattern[k];
        const wchar_t next = k + 1 < pattern.size() ? pattern[k + 1] : L'\0';
        if (c == L'?' || c == L'>')
            out += static_cast<wchar_t>(WildToken::DosQm);
        else if (c == L'<' || (c == L'*' && next == L'.'))
            out += static_cast<wchar_t>(WildToken::DosStar);
        else if (c == L'*')
            out += static_cast<wchar_t>(WildToken::Star);
        else if (c == L'"' || (c == L'.' && (next == L'?' || next == L'*')))
            out += static_cast<wchar_t>(WildToken::DosDot);
        else
            out += c;
    }
    return out;
}

// Whether name matches a pattern in the form ToDosPattern makes. matches[i * (n + 1) + j] answers whether
// the pattern from i matches the name from j; filled from the ends backwards.
bool WildcardMatch(const std::wstring& pattern, const wchar_t* name)
{
    const std::size_t m = pattern.size(), n = std::wcslen(name);
    const std::size_t lastDot = std::wstring(name, n).rfind(L'.');
    std::vector<char> matches((m + 1) * (n + 1), 0);
    auto at = [&](std::size_t i, std::size_t j) -> char& { return matches[i * (n + 1) + j]; };
    at(m, n) = 1;
    for (std::size_t i = m; i-- > 0;)
    {
        const wchar_t p = pattern[i];
        for (std::size_t j = n + 1; j-- > 0;)
        {
            const bool more = j < n;
            if (p == static_cast<wchar_t>(WildToken::Star))
                at(i, j) = at(i + 1, j) || (more && at(i, j + 1));
            else if (p == static_cast<wchar_t>(WildToken::DosStar))
                at(i, j) = at(i + 1, j) || (more && j != lastDot && at(i, j + 1));
            else if (p == static_cast<wchar_t>(WildToken::DosQm))
            {
                std::size_t end = i;
                while (end < m && pattern[end] == static_cast<wchar_t>(WildToken::DosQm))
                    ++end;
                at(i, j) = (more && name[j] != L'.') ? at(i + 1, j + 1) : at(end, j);
            }
            else if (p == static_cast<wchar_t>(WildToken::DosDot))
                at(i, j) = more ? (name[j] == L'.' && at(i + 1, j + 1)) : at(i + 1, j);
            else
                at(i, j) = more && std::towlower(p) == std::towlower(name[j]) && at(i + 1, j + 1);
        }
    }
    return at(0, 0) != 0;
}

// Whether text holds a character that is a wildcard or is never part of a name ("*?<>\"|"): the mapping of
// w32p_path.h carries such characters of Linux names as private-use characters, so here they are the
// caller's.
bool HasWildcardOrInvalid(const wchar_t* begin, const wchar_t* end)
{
    return std::find_if(begin, end,
                        [](wchar_t c) { return std::wcschr(L"*?<>\"|", c) != nullptr && c != 0; }) != end;
}

bool HasWildcardOrInvalid(LPCWSTR text)
{
    return text != nullptr && HasWildcardOrInvalid(text, text + std::wcslen(text));
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

// Runs act (answering true on success, false with the last error set) while the object st describes is
// held with delete access, as Windows' delete and rename open what they remove: while another open of it
// does not share delete, act is not run and the answer is false with ERROR_SHARING_VIOLATION. Links are
// acted on as links, which no handle of this layer holds.
// The object (at, name) is held open until the registration is released: an unlink or a rename over it
// would otherwise free its inode number while the registration still names it, and a file created at that
// moment with the reused number would meet the stale registration.
template <typename Act>
bool WithDeleteAccess(const struct stat& st, int at, const char* name, Act act)
{
    if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode))
        return act();
    const int pin = openat(at, name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    W32pShareRegistration registration;
    if (!W32pShareAcquire(st.st_dev, st.st_ino, FILE_SHARE_DELETE,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, registration) &&
        GetLastError() == ERROR_SHARING_VIOLATION)
    {
        if (pin >= 0)
            close(pin);
        return false;
    }
    const bool done = act();
    const DWORD error = GetLastError();
    W32pShareRelease(registration, done);
    if (pin >= 0)
        close(pin);
    SetLastError(error);
    return done;
}

} // namespace

namespace
{

// What a CreateFileW call asks for, worked out from its arguments before anything is touched.
struct OpenRequest
{
    DWORD disposition = 0;
    DWORD flagsAndAttributes = 0;
    DWORD shareMode = 0;
    DWORD sharingClasses = 0; // FILE_SHARE_* bits of the access asked for (see W32pSharingClassesOf)
    bool wantRead = false;
    bool wantWrite = false;
    bool appendOnly = false; // FILE_APPEND_DATA without the right to write anywhere: every write at the end
    bool create = false;
    bool truncate = false;
    bool deleteOnClose = false;
};

// The arguments as Windows checks them. False with ERROR_INVALID_PARAMETER for an unknown disposition,
// share bits other than FILE_SHARE_READ, FILE_SHARE_WRITE and FILE_SHARE_DELETE, or truncation without
// write access.
bool ParseOpenRequest(DWORD desiredAccess, DWORD shareMode, DWORD disposition, DWORD flagsAndAttributes,
                      OpenRequest& request)
{
    request.disposition = disposition;
    request.flagsAndAttributes = flagsAndAttributes;
    request.shareMode = shareMode;
    request.deleteOnClose = (flagsAndAttributes & FILE_FLAG_DELETE_ON_CLOSE) != 0;
    // Delete-on-close is delete access: other opens must share delete with it.
    // MAXIMUM_ALLOWED is granted as read access (see w32p_file.h).
    if (desiredAccess & MAXIMUM_ALLOWED)
        desiredAccess |= FILE_READ_DATA;
    request.sharingClasses = W32pSharingClassesOf(desiredAccess | (request.deleteOnClose ? DELETE : 0));
    request.wantRead = (desiredAccess & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA)) != 0;
    request.wantWrite =
        (desiredAccess & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0;
    request.appendOnly = (desiredAccess & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA)) == 0 &&
                         (desiredAccess & FILE_APPEND_DATA) != 0;
    request.create = disposition == CREATE_NEW || disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
    request.truncate = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    constexpr DWORD kShareBits = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING || (shareMode & ~kShareBits) != 0 ||
        (request.truncate && !request.wantWrite))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return true;
}

// Opens or creates the object; existed tells whether it was there before. -1 with the last error set.
int OpenDescriptor(const ResolvedPath& where, const OpenRequest& request, bool& existed)
{
    // O_NONBLOCK keeps the open itself from waiting (a FIFO without a peer, a device that is not ready);
    // MakeBlocking clears it again once the descriptor is there.
    int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    flags |= request.wantWrite ? (request.wantRead ? O_RDWR : O_WRONLY) : O_RDONLY;
    flags |= request.appendOnly ? O_APPEND : 0;
    const mode_t mode = (request.flagsAndAttributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;

    // Creation goes first with O_EXCL, so that "existed before" is known without a race.
    existed = true;
    int fd = -1;
    if (request.create)
    {
        fd = openat(where.at, where.name.c_str(), flags | O_CREAT | O_EXCL, mode);
        if (fd >= 0)
            existed = false;
        else if (errno != EEXIST || request.disposition == CREATE_NEW)
        {
            const int error = errno;
            SetLastError(error == EEXIST ? ERROR_FILE_EXISTS : ResolvedErrorFromErrno(where, error));
            return -1;
        }
    }
    if (fd < 0)
    {
        fd = openat(where.at, where.name.c_str(), flags, 0);
        if (fd < 0)
        {
            SetLastError(ResolvedErrorFromErrno(where, errno));
            return -1;
        }
    }
    return fd;
}

// Clears O_NONBLOCK again on what is not a regular file (for which Linux ignores it), so that transfers
// behave as on an ordinary handle.
void MakeBlocking(int fd, const struct stat& st)
{
    if (S_ISREG(st.st_mode))
        return;
    const int statusFlags = fcntl(fd, F_GETFL);
    if (statusFlags != -1)
        fcntl(fd, F_SETFL, statusFlags & ~O_NONBLOCK);
}

// Admits the open by the sharing rule: the exclusive or shared lock of the file itself (seen by every user)
// and the user's open set of the file (see w32p_share.h). Opens without data access take part in neither,
// as on Windows. False with the last error set; object.share holds the registration on success.
bool AdmitSharing(FileObject& object, const OpenRequest& request, const struct stat& st)
{
    if (request.sharingClasses == 0)
        return true;
    if (flock(object.fd, (request.shareMode == 0 ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0)
    {
        const int error = errno;
        SetLastError(error == EWOULDBLOCK ? ERROR_SHARING_VIOLATION : W32pErrorFromErrno(error));
        return false;
    }
    // An unreachable open set leaves the file lock as the only check, as before the open set existed.
    return W32pShareAcquire(st.st_dev, st.st_ino, request.sharingClasses, request.shareMode, object.share) ||
           GetLastError() != ERROR_SHARING_VIOLATION;
}

// Refusals that depend on what was opened. Root passes every permission check of Linux; the read-only
// attribute must hold for it as well.
bool CheckOpenedObject(const OpenRequest& request, const struct stat& st, bool existed)
{
    if ((existed && (request.wantWrite || request.deleteOnClose) && IsReadOnly(st)) ||
        (S_ISDIR(st.st_mode) && !(request.flagsAndAttributes & FILE_FLAG_BACKUP_SEMANTICS)))
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    return true;
}

// The steps after the open was admitted. Truncation waits for admission so that a refused open never
// destroys another holder's data.
bool FinishOpen(FileObject& object, const OpenRequest& request, const struct stat& st, bool existed)
{
    if (request.truncate && existed && st.st_size != 0 && ftruncate(object.fd, 0) != 0)
    {
        W32pSetLastErrorFromErrno();
        return false;
    }
    if ((request.disposition == OPEN_ALWAYS || request.disposition == CREATE_ALWAYS) && existed &&
        (request.flagsAndAttributes & FILE_ATTRIBUTE_READONLY))
        fchmod(object.fd, st.st_mode & ~kWriteBits);
    return true;
}

} // namespace

HANDLE CreateFileW(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode, LPSECURITY_ATTRIBUTES /*security*/,
                   DWORD creationDisposition, DWORD flagsAndAttributes, HANDLE /*templateFile*/)
{
    OpenRequest request;
    if (!ParseOpenRequest(desiredAccess, shareMode, creationDisposition, flagsAndAttributes, request))
        return INVALID_HANDLE_VALUE;
    std::string path;
    if (HasWildcardOrInvalid(fileName))
    {
        SetLastError(ERROR_INVALID_NAME);
        return INVALID_HANDLE_VALUE;
    }
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    ResolvedPath where;
    bool existed = true;
    int fd = -1;
    if (!ResolvePath(path, where) || (fd = OpenDescriptor(where, request, existed)) < 0)
        return INVALID_HANDLE_VALUE;
    struct stat st;
    if (fstat(fd, &st) != 0)
    {
        W32pSetLastErrorFromErrno();
        close(fd);
        return INVALID_HANDLE_VALUE;
    }
    MakeBlocking(fd, st);
    // From here the object owns the descriptor and whatever registration it makes.
    auto object =
        std::make_shared<FileObject>(fd, true, request.wantRead, request.wantWrite, S_ISREG(st.st_mode));
    if (!CheckOpenedObject(request, st, existed) || !AdmitSharing(*object, request, st) ||
        !FinishOpen(*object, request, st, existed))
        return INVALID_HANDLE_VALUE;
    if (request.deleteOnClose && !S_ISDIR(st.st_mode))
    {
        if (object->share.generation != 0)
            W32pShareDeleteAtLastClose(object->share, path);
        else
            object->deletePath = path; // the open set is out of reach: at this handle's close
    }
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

constexpr ULONGLONG kToEndOfFile = ~0ull; // an OVERLAPPED offset that writes at the end of the file
constexpr ULONG_PTR kStatusSuccess = 0;
constexpr ULONG_PTR kStatusUnsuccessful = 0xC0000001;
constexpr ULONG_PTR kStatusEndOfFile = 0xC0000011; // what Windows leaves in OVERLAPPED.Internal at the end

// The checks before any byte moves: the handle, its access, the buffer, the offset. A null count pointer is
// allowed, as Windows allows it.
// offset receives where the transfer starts: -1 for the file position. Null with the last error set.
std::shared_ptr<FileObject> PrepareTransfer(HANDLE file, bool reading, const void* buffer, DWORD size,
                                            LPOVERLAPPED overlapped, off_t& offset)
{
    std::shared_ptr<FileObject> object = LookupFile(file);
    if (!object)
        return nullptr;
    DWORD error = ERROR_SUCCESS;
    if (!(reading ? object->readable : object->writable))
        error = ERROR_ACCESS_DENIED;
    else if (buffer == nullptr && size > 0)
        error = reading ? ERROR_NOACCESS : ERROR_INVALID_USER_BUFFER; // Windows' two answers
    offset = -1;
    if (error == ERROR_SUCCESS && overlapped != nullptr)
    {
        const ULONGLONG at = (static_cast<ULONGLONG>(overlapped->OffsetHigh) << 32) | overlapped->Offset;
        if (!reading && at == kToEndOfFile)
            offset = lseek(object->fd, 0, SEEK_END);
        else if (at <= static_cast<ULONGLONG>(INT64_MAX))
            offset = static_cast<off_t>(at);
        else
            error = ERROR_INVALID_PARAMETER;
    }
    if (error != ERROR_SUCCESS)
    {
        SetLastError(error);
        return nullptr;
    }
    return object;
}

// Ends a transfer with an OVERLAPPED on this synchronous handle as Windows does: the file position moves
// past the bytes moved (to the offset itself for a read at or beyond the end, which then fails with
// ERROR_HANDLE_EOF), and the OVERLAPPED gets the status and count.
BOOL FinishAtOffset(const FileObject& object, bool reading, DWORD size, off_t offset, DWORD moved,
                    LPOVERLAPPED overlapped, BOOL result)
{
    if (result)
        lseek(object.fd, offset + moved, SEEK_SET);
    overlapped->InternalHigh = moved;
    overlapped->Internal = result ? kStatusSuccess : kStatusUnsuccessful;
    if (result && reading && moved == 0 && size > 0 && object.regularFile)
    {
        overlapped->Internal = kStatusEndOfFile;
        SetLastError(ERROR_HANDLE_EOF);
        return FALSE;
    }
    return result;
}

// The common part of ReadFile and WriteFile: after PrepareTransfer, moves size bytes with step(fd, at,
// count, offset) — at the overlapped offset when one is given, else at the file position — retrying after
// signals. A read from something other than a regular file, or one that reaches the end, returns what it
// got. done receives the bytes moved, also on failure.
template <typename Step>
BOOL Transfer(HANDLE file, bool reading, void* buffer, DWORD size, LPDWORD done, LPOVERLAPPED overlapped,
              Step step)
{
    if (done != nullptr)
        *done = 0;
    off_t offset = -1;
    const std::shared_ptr<FileObject> object =
        PrepareTransfer(file, reading, buffer, size, overlapped, offset);
    if (!object)
        return FALSE;
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
    if (overlapped != nullptr && offset >= 0)
        return FinishAtOffset(*object, reading, size, offset, moved, overlapped, result);
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

namespace
{

// The common start of the path-taking functions: the Linux form of a wide path, resolved. An empty or null
// path: ERROR_PATH_NOT_FOUND.
bool ResolveWide(LPCWSTR wide, std::string& path, ResolvedPath& where)
{
    if (HasWildcardOrInvalid(wide))
    {
        SetLastError(ERROR_INVALID_NAME);
        return false;
    }
    if (!W32pPathToUtf8(wide, path) || path.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    return ResolvePath(path, where);
}

// The status of a resolved path, links followed.
int StatResolved(const ResolvedPath& where, struct stat& st)
{
    return fstatat(where.at, where.name.c_str(), &st, 0);
}

} // namespace

BOOL CreateDirectoryW(LPCWSTR pathName, LPSECURITY_ATTRIBUTES /*securityAttributes*/)
{
    std::string path;
    ResolvedPath where;
    if (!ResolveWide(pathName, path, where))
        return FALSE;
    if (mkdirat(where.at, where.name.c_str(), 0777) != 0)
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
    ResolvedPath where;
    if (!ResolveWide(fileName, path, where))
        return INVALID_FILE_ATTRIBUTES;
    DWORD attributes;
    struct stat st;
    bool isLink;
    return DescribeAt(where.at, where.name.c_str(), attributes, st, isLink) ? attributes
                                                                            : INVALID_FILE_ATTRIBUTES;
}

BOOL GetFileAttributesExW(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS infoLevel, LPVOID information)
{
    if (infoLevel != GetFileExInfoStandard || information == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::string path;
    ResolvedPath where;
    if (!ResolveWide(fileName, path, where))
        return FALSE;
    DWORD attributes;
    struct stat st;
    bool isLink;
    if (!DescribeAt(where.at, where.name.c_str(), attributes, st, isLink))
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
    ResolvedPath where;
    if (!ResolveWide(fileName, path, where))
        return FALSE;
    struct stat st;
    if (fstatat(where.at, where.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    {
        SetLastError(ResolvedErrorFromErrno(where, errno));
        return FALSE;
    }
    if (S_ISLNK(st.st_mode))
        return TRUE; // the link's own attributes: a Linux link has no permissions to change
    mode_t mode = st.st_mode & 07777;
    if (attributes & FILE_ATTRIBUTE_READONLY)
        mode &= ~kWriteBits;
    else if (S_ISDIR(st.st_mode))
        mode |= S_IWUSR | S_IXUSR; // a normal folder lets its owner change its entries
    else if (IsReadOnly(st))
        mode |= S_IWUSR;
    // fchmodat can't refuse to follow a link; the object was just seen not to be one, and a link swapped in
    // below an open search is refused by O_NOFOLLOW on the way.
    if (mode != (st.st_mode & 07777) && fchmodat(where.at, where.name.c_str(), mode, 0) != 0)
    {
        W32pSetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}

BOOL DeleteFileW(LPCWSTR fileName)
{
    std::string path;
    ResolvedPath where;
    if (!ResolveWide(fileName, path, where))
        return FALSE;
    struct stat st;
    if (fstatat(where.at, where.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    {
        SetLastError(ResolvedErrorFromErrno(where, errno));
        return FALSE;
    }
    // Linux lets anyone with write access to the directory unlink a read-only file; Windows does not.
    if (S_ISDIR(st.st_mode) || (!S_ISLNK(st.st_mode) && IsReadOnly(st)))
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    return WithDeleteAccess(st, where.at, where.name.c_str(),
                            [&]
                            {
                                if (unlinkat(where.at, where.name.c_str(), 0) == 0)
                                    return true;
                                W32pSetLastErrorFromErrno();
                                return false;
                            })
               ? TRUE
               : FALSE;
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
    ResolvedPath where;
    if (!ResolvePath(path, where))
        return FALSE;
    DWORD attributes;
    struct stat st;
    bool isLink;
    if (!DescribeAt(where.at, where.name.c_str(), attributes, st, isLink))
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
    if (unlinkat(where.at, where.name.c_str(), isLink ? 0 : AT_REMOVEDIR) != 0)
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
    ResolvedPath where;
    struct stat st;
    const DWORD saved = GetLastError();
    const bool directory =
        ResolveWide(path, utf8, where) && StatResolved(where, st) == 0 && S_ISDIR(st.st_mode);
    SetLastError(saved);
    return directory ? FILE_ATTRIBUTE_DIRECTORY : FALSE;
}

namespace
{

// Opens the directory at a resolved path for reading; -1 with errno set on failure. A search below an open
// search does not follow a link (noFollowBelow).
int OpenDirectory(const ResolvedPath& where, bool noFollowBelow)
{
    return openat(where.at, where.name.c_str(),
                  O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK |
                      (where.below && noFollowBelow ? O_NOFOLLOW : 0));
}

// Reads the entries of the open directory fd (which stays open) and hands each name to visit until it
// answers false. False with errno set when the directory can't be read.
template <typename Visit>
bool ReadEntries(int fd, Visit visit)
{
    const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        return false;
    DIR* dir = fdopendir(copy);
    if (dir == nullptr)
    {
        const int error = errno;
        close(copy);
        errno = error;
        return false;
    }
    while (true)
    {
        errno = 0;
        struct dirent* entry = readdir(dir);
        if (entry == nullptr)
            break;
        if (!visit(entry->d_name))
            break;
    }
    const int error = errno;
    closedir(dir);
    errno = error;
    return error == 0;
}

} // namespace

BOOL PathIsDirectoryEmptyW(LPCWSTR path)
{
    std::string utf8;
    ResolvedPath where;
    if (!ResolveWide(path, utf8, where))
        return FALSE;
    OwnedFd directory;
    directory.fd = OpenDirectory(where, false);
    if (directory.fd < 0)
        return FALSE;
    bool empty = true;
    const bool read = ReadEntries(directory.fd,
                                  [&](const char* name)
                                  {
                                      if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
                                          return true;
                                      empty = false;
                                      return false;
                                  });
    return read && empty ? TRUE : FALSE;
}

namespace
{

// What a directory search asks for: the folder to list (Linux bytes) and the name pattern in the file
// system's wildcard form.
struct SearchRequest
{
    std::string directory;
    std::wstring namePattern;
};

// Splits the caller's search text into folder and name pattern. The name pattern is taken from the wide
// text as the caller wrote it, so "*" and "?" stay wildcards while names with those bytes are matched
// through their carried characters. False with the last error set for a text Windows refuses.
bool ParseSearch(LPCWSTR fileName, SearchRequest& request)
{
    std::string pattern;
    if (!W32pPathToUtf8(fileName, pattern))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (pattern.empty() || pattern.back() == '/')
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return false;
    }
    const std::size_t length = std::wcslen(fileName);
    std::size_t nameStart = length;
    while (nameStart > 0 && fileName[nameStart - 1] != L'\\' && fileName[nameStart - 1] != L'/')
        --nameStart;
    if (HasWildcardOrInvalid(fileName, fileName + nameStart))
    {
        SetLastError(ERROR_INVALID_NAME);
        return false;
    }
    // Windows drops trailing dots and spaces of the last element ("*.txt." is "*.txt").
    std::size_t nameEnd = length;
    while (nameEnd > nameStart && (fileName[nameEnd - 1] == L'.' || fileName[nameEnd - 1] == L' '))
        --nameEnd;
    if (nameEnd == nameStart)
        nameEnd = length; // "." and ".." stay what they are
    request.namePattern = ToDosPattern(std::wstring(fileName + nameStart, fileName + nameEnd));
    const std::size_t slash = pattern.rfind('/');
    request.directory = slash == std::string::npos ? "." : pattern.substr(0, slash == 0 ? 1 : slash);
    while (request.directory.size() > 1 && request.directory.back() == '/')
        request.directory.pop_back();
    return true;
}

// Opens the folder of a search and keeps it in the search object. False with the last error set.
bool OpenSearchFolder(const std::string& directory, FindObject& search)
{
    ResolvedPath where;
    if (!ResolvePath(directory, where))
        return false;
    search.directoryFd = OpenDirectory(where, true);
    if (search.directoryFd < 0)
    {
        const int error = errno;
        SetLastError(error == ENOENT || error == ENOTDIR || error == ELOOP ? ERROR_PATH_NOT_FOUND
                                                                           : W32pErrorFromErrno(error));
        return false;
    }
    search.prefix = directory == "/" ? directory : directory + "/";
    return true;
}

// Reads the folder's entries that match the pattern, "." and ".." first, the others in Windows' name
// order. Entries are examined relative to the open folder: no path walk per entry. False with the last
// error set when the folder can't be read.
bool CollectEntries(FindObject& search, const std::wstring& namePattern)
{
    std::vector<WIN32_FIND_DATAW> dots;
    const bool read =
        ReadEntries(search.directoryFd,
                    [&](const char* name)
                    {
                        const std::wstring wideName = W32pNativeToWide(name, std::strlen(name));
                        if (!WildcardMatch(namePattern, wideName.c_str()))
                            return true;
                        DWORD attributes;
                        struct stat st;
                        bool isLink;
                        if (!DescribeAt(search.directoryFd, name, attributes, st, isLink))
                            return true; // removed while we read the directory
                        const bool dot = IsDotOrDotDot(name);
                        (dot ? dots : search.entries).emplace_back();
                        FillFindData(wideName, attributes, st, isLink, (dot ? dots : search.entries).back());
                        return true;
                    });
    if (!read)
    {
        W32pSetLastErrorFromErrno();
        return false;
    }
    std::sort(search.entries.begin(), search.entries.end(), CaseInsensitiveLess);
    std::sort(dots.begin(), dots.end(), CaseInsensitiveLess); // "." before ".."
    search.entries.insert(search.entries.begin(), dots.begin(), dots.end());
    return true;
}

// Publishes a filled search as a handle and records it as open on this thread (see ResolvePath).
HANDLE PublishSearch(const std::shared_ptr<FindObject>& search)
{
    HANDLE handle = W32pInsertHandle(search);
    if (handle == nullptr)
        return INVALID_HANDLE_VALUE;
    t_openSearches.erase(std::remove_if(t_openSearches.begin(), t_openSearches.end(),
                                        [](const std::weak_ptr<FindObject>& open) { return open.expired(); }),
                         t_openSearches.end());
    t_openSearches.push_back(search);
    return handle;
}

} // namespace

HANDLE FindFirstFileW(LPCWSTR fileName, LPWIN32_FIND_DATAW findData)
{
    SearchRequest request;
    if (fileName == nullptr || findData == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    auto search = std::make_shared<FindObject>();
    if (!ParseSearch(fileName, request) || !OpenSearchFolder(request.directory, *search) ||
        !CollectEntries(*search, request.namePattern))
        return INVALID_HANDLE_VALUE;
    if (search->entries.empty())
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    *findData = search->entries[0];
    search->next = 1;
    HANDLE handle = PublishSearch(search);
    if (handle != INVALID_HANDLE_VALUE)
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

// Renaming a file over another and flushing a file to the disk.

#include <atomic>
#include <cstdio>
#include <string>

namespace
{

constexpr DWORD kKnownMoveFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED |
                                  MOVEFILE_DELAY_UNTIL_REBOOT | MOVEFILE_WRITE_THROUGH |
                                  MOVEFILE_CREATE_HARDLINK | MOVEFILE_FAIL_IF_NOT_TRACKABLE;

std::string FolderOf(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// fsync of the folder that holds path, so that a name change in it survives a crash. File systems that
// cannot sync a folder (EINVAL) have nothing more to do.
int SyncFolderOf(const std::string& path)
{
    const int fd = open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    const int error = fsync(fd) == 0 || errno == EINVAL ? 0 : errno;
    close(fd);
    return error;
}

// The name change itself; without replace it never removes what another process made in the meantime.
int RenameOnce(const std::string& from, const std::string& to, bool replace)
{
    if (replace)
        return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL)
        return errno;
    // A file system without RENAME_NOREPLACE: a hard link fails on an existing name just the same.
    if (link(from.c_str(), to.c_str()) != 0)
        return errno;
    unlink(from.c_str());
    return 0;
}

int CopyDescriptor(int in, int out)
{
    std::vector<char> buffer(1 << 16);
    for (;;)
    {
        const ssize_t got = read(in, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno;
        if (got == 0)
            return 0;
        for (ssize_t done = 0; done < got;)
        {
            const ssize_t put = write(out, buffer.data() + done, static_cast<std::size_t>(got - done));
            if (put < 0 && errno == EINTR)
                continue;
            if (put < 0)
                return errno;
            done += put;
        }
    }
}

// Moves a regular file to another file system: a complete, flushed copy appears under the new name in one
// step or not at all; the source is removed afterwards when it can be.
int CopyAcrossFileSystems(const std::string& from, const std::string& to, const struct stat& source,
                          bool replace)
{
    const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (in < 0)
        return errno;
    static std::atomic<unsigned> counter{0};
    const std::string temporary = FolderOf(to) + "/.w32p-move-" + std::to_string(getpid()) + "-" +
                                  std::to_string(counter.fetch_add(1)) + ".tmp";
    const int out = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, source.st_mode & 07777);
    if (out < 0)
    {
        const int error = errno;
        close(in);
        return error;
    }
    int error = CopyDescriptor(in, out);
    if (error == 0 && fsync(out) != 0)
        error = errno;
    close(in);
    if (close(out) != 0 && error == 0)
        error = errno;
    if (error == 0)
        error = RenameOnce(temporary, to, replace);
    if (error != 0)
    {
        unlink(temporary.c_str());
        return error;
    }
    unlink(from.c_str());
    return 0;
}

} // namespace

BOOL MoveFileExW(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags)
{
    if ((flags & ~kKnownMoveFlags) != 0 || newFileName == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (flags & MOVEFILE_DELAY_UNTIL_REBOOT)
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    std::string from, to;
    if (!W32pPathToUtf8(existingFileName, from) || from.empty() || !W32pPathToUtf8(newFileName, to) ||
        to.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    struct stat source, target;
    if (lstat(from.c_str(), &source) != 0)
    {
        SetLastError(W32pPathErrorFromErrno(from, errno));
        return FALSE;
    }
    const bool replace = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    if (lstat(to.c_str(), &target) == 0)
    {
        if (!replace)
        {
            SetLastError(ERROR_ALREADY_EXISTS);
            return FALSE;
        }
        // Windows never replaces a directory, and a read-only file keeps its content.
        if (S_ISDIR(target.st_mode) || (S_ISREG(target.st_mode) && IsReadOnly(target)))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
    }
    int error = 0;
    const bool admitted =
        WithDeleteAccess(source, AT_FDCWD, from.c_str(),
                         [&]
                         {
                             error = RenameOnce(from, to, replace);
                             if (error == EXDEV && (flags & MOVEFILE_COPY_ALLOWED) && S_ISREG(source.st_mode))
                                 error = CopyAcrossFileSystems(from, to, source, replace);
                             return true;
                         });
    if (!admitted)
        return FALSE;
    if (error == 0 && (flags & MOVEFILE_WRITE_THROUGH))
    {
        error = SyncFolderOf(to);
        if (error == 0 && FolderOf(from) != FolderOf(to))
            error = SyncFolderOf(from);
    }
    if (error != 0)
    {
        SetLastError(error == EEXIST      ? ERROR_ALREADY_EXISTS
                     : error == ENOTEMPTY ? ERROR_ACCESS_DENIED
                     : error == ENOENT    ? W32pPathErrorFromErrno(to, error)
                                          : W32pErrorFromErrno(error));
        return FALSE;
    }
    return TRUE;
}

BOOL FlushFileBuffers(HANDLE file)
{
    std::shared_ptr<FileObject> object = LookupFile(file);
    if (!object)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!object->writable)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (fsync(object->fd) != 0 && errno != EINVAL && errno != EROFS)
    {
        W32pSetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}
