// The open set of each file (see w32p_share.h).
//
// How an open is admitted. Each process holds one descriptor of the file's lock file; its bytes are:
//   byte 0      held (read lock) by every process with the descriptor open: the store's sweep and the last
//               leaver remove the lock file only when they can lock this byte exclusively;
//   bytes 1..6  held (read lock) by a process with an open holding or refusing to share one class of
//               access (kHoldsByte, kRefusesByte);
//   byte 7      the gate: held exclusively while one process checks and publishes new bytes, so that two
//               processes never both pass the check before either is seen.
// A new open is first checked against the counts of the process's own opens. Only the bytes the process
// does not publish yet are then checked against the other processes: a new hold of class c is refused when
// another descriptor holds the refusers' byte of c, a new refusal of c when another holds its holders' byte.
// The bytes already published were checked when they were first taken, and every other process checks its new
// bytes against them. F_OFD_GETLK answers exactly "does another open file description hold a lock here", so
// the process's own locks never count against it. A descriptor opened afresh is checked to be the lock file
// still named, because the last leaver of another process may have removed it meanwhile; then it starts over.
#include "w32p_share.h"

#include "w32p_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <deque>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr off_t kHolderByte = 0;
// Per class (0 read, 1 write, 2 delete): the byte of its holders and of its refusers. The order puts the
// bytes of the most common open, read access sharing read only, in one run (holds read, refuses write and
// delete: bytes 4..6) and the bytes it is checked against in another (1..3).
constexpr off_t kHoldsByte[3] = {4, 2, 3};
constexpr off_t kRefusesByte[3] = {1, 5, 6};
constexpr off_t kGateByte = 7;
constexpr int kClasses = 3;
constexpr int kMaxRounds = 100;
constexpr std::size_t kIdleMax = 16; // idle lock descriptors kept per process

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

// The byte mask of what an open holding the classes access and sharing shareMode publishes: its holds and
// its refusals.
unsigned BytesOf(DWORD access, DWORD shareMode)
{
    unsigned bytes = 0;
    for (int c = 0; c < kClasses; ++c)
    {
        if (access & (1u << c))
            bytes |= 1u << kHoldsByte[c];
        if (!(shareMode & (1u << c)))
            bytes |= 1u << kRefusesByte[c];
    }
    return bytes;
}

// The bytes whose holders refuse an open publishing bytes: a hold meets the refusal of its class, a refusal
// meets the hold.
unsigned ConflictsOf(unsigned bytes)
{
    unsigned conflicts = 0;
    for (int c = 0; c < kClasses; ++c)
    {
        if (bytes & (1u << kHoldsByte[c]))
            conflicts |= 1u << kRefusesByte[c];
        if (bytes & (1u << kRefusesByte[c]))
            conflicts |= 1u << kHoldsByte[c];
    }
    return conflicts;
}

// What this process knows of one file: its lock descriptor and, per published byte, how many of its opens
// need it.
struct Entry
{
    int fd = -1;
    unsigned counts[kGateByte] = {};
    unsigned opens = 0;
    std::string deletePath; // removed at the last close while it names the file (delete-on-close)

    unsigned Published() const
    {
        unsigned bytes = 0;
        for (int b = 0; b < kGateByte; ++b)
            if (counts[b] != 0)
                bytes |= 1u << b;
        return bytes;
    }
};

using Key = std::pair<dev_t, ino_t>;

// The process's open set: entries of files it has open, and the idle ones (no opens) oldest first.
struct Table
{
    std::mutex lock; // guards everything below
    std::map<Key, Entry> entries;
    std::deque<Key> idle;
    unsigned long generation = 1;
};

Table& TheTable()
{
    static Table* table = new Table; // never destroyed: handles may close during exit
    return *table;
}

// A child made by fork shares its parent's lock descriptors, and with them their locks: it forgets them, so
// that nothing it does changes what its parent publishes. Its inherited registrations end with nothing.
void ForkPrepare()
{
    TheTable().lock.lock();
}
void ForkParent()
{
    TheTable().lock.unlock();
}
void ForkChild()
{
    Table& table = TheTable();
    for (auto& entry : table.entries)
        close(entry.second.fd);
    table.entries.clear();
    table.idle.clear();
    ++table.generation;
    table.lock.unlock();
}
const int s_atFork = pthread_atfork(ForkPrepare, ForkParent, ForkChild);

// Removes the lock file of entry when nobody else holds it, and closes its descriptor. Nobody else
// registered: the whole record can be locked exclusively, and the lock file goes. It is still the one named:
// whoever removes it must first lock byte 0 exclusively, which our hold prevented.
void Discard(const Key& key, Entry& entry)
{
    const int dir = StoreDir();
    if (dir >= 0 && SetLock(entry.fd, F_WRLCK, kHolderByte, kGateByte + 1, false))
        unlinkat(dir, LockFileName(key.first, key.second).c_str(), 0);
    close(entry.fd);
    entry.fd = -1;
}

void DropIdleLocked(Table& table, std::size_t keep)
{
    while (table.idle.size() > keep)
    {
        const Key key = table.idle.front();
        table.idle.pop_front();
        auto found = table.entries.find(key);
        if (found == table.entries.end())
            continue;
        Discard(key, found->second);
        table.entries.erase(found);
    }
}

// Opens the lock file of key as the process's descriptor of it, holding byte 0. -1 with the last error set.
int OpenHeld(Table& table, const Key& key)
{
    const int dir = StoreDir();
    if (dir < 0)
        return -1;
    const std::string name = LockFileName(key.first, key.second);
    for (int round = 0; round < kMaxRounds; ++round)
    {
        struct stat st;
        int fd = OpenLockFile(dir, name, st);
        if (fd < 0 && GetLastError() == ERROR_TOO_MANY_OPEN_FILES && !table.idle.empty())
        {
            DropIdleLocked(table, 0); // descriptor pressure: the idle cache goes first
            fd = OpenLockFile(dir, name, st);
        }
        if (fd < 0)
            return -1;
        if (!SetLock(fd, F_RDLCK, kHolderByte, 1, true))
        {
            W32pSetLastErrorFromErrno();
            close(fd);
            return -1;
        }
        if (StillNamed(dir, name, st))
            return fd;
        close(fd); // removed by its last leaver meanwhile: start over with the current one
    }
    SetLastError(ERROR_SHARING_VIOLATION);
    return -1;
}

// Checks the bytes added (not published by this process yet) against the other processes and publishes
// them, under the gate. False with the last error set, nothing added.
bool PublishAdded(int fd, unsigned added)
{
    if (!SetLock(fd, F_WRLCK, kGateByte, 1, true))
    {
        W32pSetLastErrorFromErrno();
        return false;
    }
    bool admitted = ForEachRun(ConflictsOf(added),
                               [fd](off_t start, off_t length) { return !OthersHold(fd, start, length); });
    if (!admitted)
        SetLastError(ERROR_SHARING_VIOLATION);
    else if (!ForEachRun(added, [fd](off_t start, off_t length)
                         { return SetLock(fd, F_RDLCK, start, length, false); }))
    {
        W32pSetLastErrorFromErrno();
        ForEachRun(added,
                   [fd](off_t start, off_t length) { return SetLock(fd, F_UNLCK, start, length, false); });
        admitted = false;
    }
    SetLock(fd, F_UNLCK, kGateByte, 1, false);
    return admitted;
}

// The entry of key with its descriptor open, taken out of the idle cache; null with the last error set.
Entry* EntryOf(Table& table, const Key& key)
{
    auto found = table.entries.find(key);
    if (found != table.entries.end())
    {
        if (found->second.opens == 0)
            for (auto it = table.idle.begin(); it != table.idle.end(); ++it)
                if (*it == key)
                {
                    table.idle.erase(it);
                    break;
                }
        return &found->second;
    }
    const int fd = OpenHeld(table, key);
    if (fd < 0)
        return nullptr;
    Entry& entry = table.entries[key];
    entry.fd = fd;
    return &entry;
}

// Puts an entry without opens into the idle cache, or discards it at once when its file is gone.
void Retire(Table& table, const Key& key, bool fileGone)
{
    auto found = table.entries.find(key);
    if (fileGone)
    {
        Discard(key, found->second);
        table.entries.erase(found);
        return;
    }
    table.idle.push_back(key);
    DropIdleLocked(table, kIdleMax);
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

bool W32pShareAcquire(dev_t device, ino_t inode, DWORD access, DWORD shareMode,
                      W32pShareRegistration& registration)
{
    Table& table = TheTable();
    std::lock_guard<std::mutex> guard(table.lock);
    const Key key(device, inode);
    Entry* entry = EntryOf(table, key);
    if (entry == nullptr)
        return false;
    const unsigned bytes = BytesOf(access, shareMode);
    const unsigned published = entry->Published();
    bool admitted = (ConflictsOf(bytes) & published) == 0; // this process's own opens first
    if (!admitted)
        SetLastError(ERROR_SHARING_VIOLATION);
    else if ((bytes & ~published) != 0)
        admitted = PublishAdded(entry->fd, bytes & ~published);
    if (!admitted)
    {
        const DWORD error = GetLastError();
        if (entry->opens == 0)
            Retire(table, key, false);
        SetLastError(error);
        return false;
    }
    for (int b = 0; b < kGateByte; ++b)
        if (bytes & (1u << b))
            ++entry->counts[b];
    ++entry->opens;
    registration = W32pShareRegistration{device, inode, access, shareMode, table.generation};
    return true;
}

void W32pShareRelease(W32pShareRegistration& registration, bool fileGone)
{
    if (registration.generation == 0)
        return;
    Table& table = TheTable();
    std::lock_guard<std::mutex> guard(table.lock);
    const W32pShareRegistration ended = registration;
    registration = W32pShareRegistration{};
    const Key key(ended.device, ended.inode);
    auto found = table.entries.find(key);
    if (ended.generation != table.generation || found == table.entries.end())
        return; // inherited across fork: the parent's
    Entry& entry = found->second;
    const unsigned bytes = BytesOf(ended.access, ended.shareMode);
    unsigned withdrawn = 0;
    for (int b = 0; b < kGateByte; ++b)
        if ((bytes & (1u << b)) && --entry.counts[b] == 0)
            withdrawn |= 1u << b;
    const int fd = entry.fd;
    ForEachRun(withdrawn,
               [fd](off_t start, off_t length) { return SetLock(fd, F_UNLCK, start, length, false); });
    if (--entry.opens != 0)
        return;
    struct stat st;
    if (!entry.deletePath.empty() && lstat(entry.deletePath.c_str(), &st) == 0 && st.st_dev == key.first &&
        st.st_ino == key.second)
        fileGone = unlink(entry.deletePath.c_str()) == 0 || fileGone;
    entry.deletePath.clear();
    Retire(table, key, fileGone);
}

void W32pShareDeleteAtLastClose(const W32pShareRegistration& registration, const std::string& path)
{
    Table& table = TheTable();
    std::lock_guard<std::mutex> guard(table.lock);
    auto found = table.entries.find(Key(registration.device, registration.inode));
    if (registration.generation == table.generation && found != table.entries.end())
        found->second.deletePath = path;
}

void W32pShareDropIdle()
{
    Table& table = TheTable();
    std::lock_guard<std::mutex> guard(table.lock);
    DropIdleLocked(table, 0);
}
