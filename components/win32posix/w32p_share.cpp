// The open set of each file (see w32p_share.h).
//
// How an open is admitted. Each registration holds its own descriptor of the file's lock file; its bytes are:
//   byte 0      held (read lock) by every registration for its whole life: the store's sweep and the last
//               leaver remove the lock file only when they can lock this byte exclusively;
//   bytes 1..3  held (read lock) by a registration holding read, write, delete access;
//   bytes 4..6  held (read lock) by a registration refusing to share read, write, delete;
//   byte 7      the gate: held exclusively while one open checks and registers, so that two opens never
//               both pass the check before either is seen.
// A new open asking for class c is refused when another descriptor holds byte 4+c; one refusing to share c
// is refused when another holds byte 1+c. F_OFD_GETLK answers exactly "does another open file description
// hold a lock here", so the opener's own locks never count against it. After taking the gate the opener
// checks that the lock file it holds is still the one named, because the last leaver may have removed it
// meanwhile; then it starts over with a fresh one.
#include "w32p_share.h"

#include "w32p_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr off_t kHolderByte = 0;
constexpr off_t kHoldsByte = 1;   // + class index (0 read, 1 write, 2 delete)
constexpr off_t kRefusesByte = 4; // + class index
constexpr off_t kGateByte = 7;
constexpr int kClasses = 3;
constexpr int kMaxRounds = 100;

// A lock request of type on length bytes from start.
struct flock Range(short type, off_t start, off_t length)
{
    struct flock fl;
    std::memset(&fl, 0, sizeof fl);
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = start;
    fl.l_len = length;
    return fl;
}

// Sets (type F_RDLCK, F_WRLCK) or clears (F_UNLCK) a lock on length bytes from start of fd's open file
// description; wait blocks until it is granted.
bool SetLock(int fd, short type, off_t start, off_t length, bool wait)
{
    struct flock fl = Range(type, start, length);
    while (fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &fl) != 0)
        if (errno != EINTR)
            return false;
    return true;
}

// Whether another open file description holds a lock on any of length bytes from start.
bool OthersHold(int fd, off_t start, off_t length)
{
    struct flock fl = Range(F_WRLCK, start, length);
    return fcntl(fd, F_OFD_GETLK, &fl) != 0 || fl.l_type != F_UNLCK;
}

// Calls act(start, length) for each run of consecutive set bits of mask (bit i is byte i), stopping at the
// first call that answers false; returns whether every call answered true.
template <typename Act>
bool ForEachRun(unsigned mask, Act act)
{
    for (off_t start = 0; mask >> start != 0;)
    {
        if (!((mask >> start) & 1u))
        {
            ++start;
            continue;
        }
        off_t end = start;
        while ((mask >> end) & 1u)
            ++end;
        if (!act(start, end - start))
            return false;
        start = end;
    }
    return true;
}

uid_t Me()
{
    static const uid_t me = geteuid(); // this layer never changes its user
    return me;
}

// The folder of the store, opened once per process and kept: an open must not pay for a folder walk.
int StoreDir()
{
    static std::mutex lock; // guards dir
    static int dir = -1;
    std::lock_guard<std::mutex> guard(lock);
    if (dir < 0)
        dir = W32pOpenNamedObjectDir(true);
    return dir;
}

std::string LockFileName(dev_t device, ino_t inode)
{
    char name[64];
    std::snprintf(name, sizeof name, ".share-%llx-%llx", static_cast<unsigned long long>(device),
                  static_cast<unsigned long long>(inode));
    return name;
}

// True when name in dir still leads to the file st describes.
bool StillNamed(int dir, const std::string& name, const struct stat& st)
{
    struct stat named;
    return fstatat(dir, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && named.st_dev == st.st_dev &&
           named.st_ino == st.st_ino;
}

// Opens (making it on first use) the lock file name as one of the store's own files: a regular file of the
// caller, closed to everybody else, described in st. -1 with the last error set otherwise.
int OpenLockFile(int dir, const std::string& name, struct stat& st)
{
    const int fd = openat(dir, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0)
    {
        W32pSetLastErrorFromErrno();
        return -1;
    }
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != Me() || (st.st_mode & 077) != 0 ||
        ((st.st_mode & 0600) != 0600 && fchmod(fd, 0600) != 0))
    {
        close(fd);
        SetLastError(ERROR_ACCESS_DENIED);
        return -1;
    }
    return fd;
}

// Checks a new registration against the others and takes its locks. Caller holds the gate of fd.
bool AdmitLocked(int fd, DWORD access, DWORD shareMode)
{
    unsigned test = 0; // bytes whose holders refuse this open
    unsigned take = 0; // bytes this open holds
    for (int c = 0; c < kClasses; ++c)
    {
        const DWORD bit = 1u << c;
        if (access & bit)
        {
            test |= 1u << (kRefusesByte + c);
            take |= 1u << (kHoldsByte + c);
        }
        if (!(shareMode & bit))
        {
            test |= 1u << (kHoldsByte + c);
            take |= 1u << (kRefusesByte + c);
        }
    }
    if (!ForEachRun(test, [fd](off_t start, off_t length) { return !OthersHold(fd, start, length); }))
    {
        SetLastError(ERROR_SHARING_VIOLATION);
        return false;
    }
    if (!ForEachRun(take,
                    [fd](off_t start, off_t length) { return SetLock(fd, F_RDLCK, start, length, false); }))
    {
        W32pSetLastErrorFromErrno();
        return false;
    }
    return true;
}

} // namespace

DWORD W32pSharingClassesOf(DWORD desiredAccess)
{
    constexpr DWORD kExecute = 0x0020; // FILE_EXECUTE
    DWORD classes = 0;
    if (desiredAccess & (FILE_READ_DATA | kExecute | GENERIC_READ | GENERIC_EXECUTE | GENERIC_ALL))
        classes |= FILE_SHARE_READ;
    if (desiredAccess & (FILE_WRITE_DATA | FILE_APPEND_DATA | GENERIC_WRITE | GENERIC_ALL))
        classes |= FILE_SHARE_WRITE;
    if (desiredAccess & (DELETE | GENERIC_ALL))
        classes |= FILE_SHARE_DELETE;
    return classes;
}

int W32pShareAcquire(dev_t device, ino_t inode, DWORD access, DWORD shareMode)
{
    const int dir = StoreDir();
    if (dir < 0)
        return -1;
    const std::string name = LockFileName(device, inode);
    for (int round = 0; round < kMaxRounds; ++round)
    {
        struct stat st;
        const int fd = OpenLockFile(dir, name, st);
        if (fd < 0)
            return -1;
        if (!SetLock(fd, F_RDLCK, kHolderByte, 1, true) || !SetLock(fd, F_WRLCK, kGateByte, 1, true))
        {
            W32pSetLastErrorFromErrno();
            close(fd);
            return -1;
        }
        if (!StillNamed(dir, name, st))
        {
            close(fd); // removed by its last leaver meanwhile: start over with the current one
            continue;
        }
        const bool admitted = AdmitLocked(fd, access, shareMode);
        SetLock(fd, F_UNLCK, kGateByte, 1, false);
        if (admitted)
            return fd;
        const DWORD error = GetLastError();
        close(fd);
        SetLastError(error);
        return -1;
    }
    SetLastError(ERROR_SHARING_VIOLATION);
    return -1;
}

void W32pShareRelease(int descriptor, dev_t device, ino_t inode)
{
    if (descriptor < 0)
        return;
    // Nobody else registered: the whole record can be locked exclusively, and the lock file goes. It is
    // still the one named: whoever removes it must first lock byte 0 exclusively, which our hold prevented.
    const int dir = StoreDir();
    if (dir >= 0 && SetLock(descriptor, F_WRLCK, kHolderByte, kGateByte + 1, false))
        unlinkat(dir, LockFileName(device, inode).c_str(), 0);
    close(descriptor);
}
