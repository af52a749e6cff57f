// The store of named kernel objects in POSIX shared memory (see W32pNamedSegment in w32p_waitable.h).
//
// Every object of a user is a file in that user's own folder "/dev/shm/w32p-2.<euid>" (mode 0700), so no
// other user can create, replace or read a name in it. The folder and each file are checked on every open:
// the folder must be a real folder (not a link) owned by the caller and closed to everybody else; a file must
// be a regular file owned by the caller, closed to everybody else, opened without following a link, and its
// header must describe an object that fits the file. Anything else was not made by this code for this user
// and is refused with ERROR_ACCESS_DENIED; it is never used, written to or waited for.
// The contract, and where Linux differs from Windows, are in w32p_waitable.h.
#include "w32p_waitable.h"

#include "w32p_share.h"
#include "w32p_string.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <cwctype>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Opens of one name give up after this many rounds (a round ends when the file was removed, abandoned or
// half set up under our hands) ...
constexpr int kMaxRounds = 1000;
// ... or after this many rounds that found a header that is not ready while someone holds the file: that
// is a creator killed while setting up (its lock is gone, so this clears within moments) or a damaged file.
constexpr int kMaxMalformedRounds = 20;
// Rounds after which a retry first sleeps a millisecond, so that a retry never spins.
constexpr int kQuickRounds = 4;

// Owns one file descriptor.
class UniqueFd
{
public:
    explicit UniqueFd(int fd = -1) : m_fd(fd) {}
    ~UniqueFd()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    int Get() const { return m_fd; }
    int Release()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }
    explicit operator bool() const { return m_fd >= 0; }

private:
    int m_fd;
};

// Locks the byte at offset of fd's open file description; type F_RDLCK, F_WRLCK or F_UNLCK. wait blocks
// until granted.
bool LockByte(int fd, off_t offset, short type, bool wait)
{
    struct flock fl;
    std::memset(&fl, 0, sizeof fl);
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = offset;
    fl.l_len = 1;
    for (;;)
    {
        if (fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &fl) == 0)
            return true;
        if (errno != EINTR)
            return false;
    }
}

// True when name in dir leads to the file open at fd (it was not removed or replaced).
bool StillNamed(int dir, int fd, const std::string& name)
{
    struct stat a, b;
    return fstat(fd, &a) == 0 && fstatat(dir, name.c_str(), &b, AT_SYMLINK_NOFOLLOW) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Only the caller may have made st: it is owned by the caller and nobody else may read, write or enter it.
bool OwnedAndPrivate(const struct stat& st)
{
    return st.st_uid == geteuid() && (st.st_mode & 077) == 0;
}

// The refusal of a name that this code did not make for this user.
std::nullptr_t Refuse()
{
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

// Whether errno after opening an entry means that the entry is something we never make (a link, a folder,
// a file of another user).
bool IsForeignEntryError(int error)
{
    return error == ELOOP || error == EISDIR || error == ENOTDIR || error == EACCES || error == EPERM ||
           error == ENXIO || error == ETXTBSY || error == EMLINK;
}

bool StartsWith(const std::wstring& s, const wchar_t* prefix)
{
    const std::size_t n = std::wcslen(prefix);
    if (s.size() < n)
        return false;
    for (std::size_t i = 0; i < n; ++i)
        if (std::towlower(s[i]) != std::towlower(prefix[i]))
            return false;
    return true;
}

// The file name for an object name: prefix stripped, UTF-8, with '/', '%', control bytes and a leading '.'
// escaped (so that "." and ".." are ordinary names); the empty name is "%".
bool FileNameOf(LPCWSTR name, std::string& fileName)
{
    std::wstring wide(name);
    if (StartsWith(wide, L"Local\\"))
        wide.erase(0, 6);
    else if (StartsWith(wide, L"Global\\"))
        wide.erase(0, 7);
    const int length = WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), static_cast<int>(wide.size()), nullptr,
                                           0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(length), '\0');
    if (length > 0)
        WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), static_cast<int>(wide.size()), &utf8[0], length,
                            nullptr, nullptr);
    fileName.clear();
    static const char hex[] = "0123456789ABCDEF";
    for (unsigned char c : utf8)
    {
        if (c == '/' || c == '%' || c < 0x20 || (c == '.' && fileName.empty()))
        {
            fileName += '%';
            fileName += hex[c >> 4];
            fileName += hex[c & 15];
        }
        else
            fileName += static_cast<char>(c);
    }
    if (fileName.empty())
        fileName = "%";
    return fileName.size() <= 255;
}

// Opens the calling user's folder of named objects, with create making it on first use. Null (-1) with
// ERROR_ACCESS_DENIED when that name is anything but a folder of the caller closed to everybody else (made
// beforehand by another user, a link, a file), ERROR_FILE_NOT_FOUND when it is missing and create is false.
int OpenUserDir(bool create)
{
    const std::string path = W32pNamedObjectDir();
    if (create && mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
    {
        W32pSetLastErrorFromErrno();
        return -1;
    }
    UniqueFd dir(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir)
    {
        if (IsForeignEntryError(errno))
            Refuse();
        else
            W32pSetLastErrorFromErrno();
        return -1;
    }
    struct stat st;
    if (fstat(dir.Get(), &st) != 0 || !S_ISDIR(st.st_mode) || !OwnedAndPrivate(st))
    {
        Refuse();
        return -1;
    }
    // Ours and closed to others: give the owner back what a restrictive umask took at creation.
    if ((st.st_mode & 0700) != 0700 && fchmod(dir.Get(), 0700) != 0)
    {
        W32pSetLastErrorFromErrno();
        return -1;
    }
    return dir.Release();
}

// Opens the object file name in the user's folder dir (creating it empty with create) and checks that it is
// one of ours. -1 with the Win32 error set otherwise: ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED (not ours,
// or not a regular file), or the error of the system call.
int OpenObjectFile(int dir, const std::string& name, bool create)
{
    // O_NONBLOCK: a device or FIFO found under the name must not block the open; it is refused below.
    UniqueFd fd(openat(dir, name.c_str(),
                       O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | (create ? O_CREAT : 0), 0600));
    if (!fd)
    {
        if (IsForeignEntryError(errno))
            Refuse();
        else
            W32pSetLastErrorFromErrno();
        return -1;
    }
    struct stat st;
    if (fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode) || !OwnedAndPrivate(st))
    {
        Refuse();
        return -1;
    }
    return fd.Release();
}

// Whether a ready header describes an object that fits a file of fileSize bytes: a known kind, and a
// section of whole pages that ends within the file (sync objects and the wake word of waits have none).
bool HeaderFits(const W32pNamedHeader& header, std::uint64_t fileSize)
{
    if (header.kind == static_cast<std::uint32_t>(W32pKind::FileMapping))
        return header.sectionSize != 0 && header.sectionSize % W32pNamedSegment::kHeaderSize == 0 &&
               header.sectionSize <= fileSize - W32pNamedSegment::kHeaderSize;
    return (header.kind <= static_cast<std::uint32_t>(W32pKind::Mutex) ||
            header.kind == static_cast<std::uint32_t>(W32pKind::Other)) &&
           header.sectionSize == 0;
}

// The file of the holders of the user's objects. A process that holds an object keeps a shared lock on the
// byte of this file at the object file's inode number, all through one descriptor per process, so holding
// an object costs no descriptor of its own; the kernel drops the locks when the process ends, however it
// ends. Byte 0 is locked shared by every process that has the file open, so that no sweep removes it. Its
// name starts with '.', which no object file's name does.
constexpr char kHoldersName[] = ".holders";

// The lock offset of an object file's inode (tmpfs numbers are far smaller; a larger one is folded).
off_t HoldOffset(ino_t inode)
{
    return static_cast<off_t>(static_cast<std::uint64_t>(inode) & 0x3FFFFFFFFFFFFFFFull);
}

// An object this process holds: how many of its segments refer to it.
struct Hold
{
    int count;
    std::string fileName;
    int holders;  // the descriptor of the holders file that carries the lock
    dev_t device; // of the object file
};

// One segment per name in this process, so that every handle of the process sees one mapping of the state,
// and the objects this process holds.
struct Registry
{
    // Guards everything here and serialises opens and releases of this process (all its locks are on one
    // open file description, where they do not exclude each other). Recursive: a segment may end while an
    // open holds it.
    std::recursive_mutex lock;
    std::map<std::string, std::weak_ptr<W32pNamedSegment>> open;
    std::map<ino_t, Hold> holds;
    int holders = -1;         // the holders file, opened by process pid
    pid_t pid = 0;            // a child made by fork shares its parent's descriptor, not its holds
    bool exitHandled = false; // the exit handler is installed
    std::size_t tidyAt = 64;  // open is cleared of expired entries when it grows to this size

    void Remember(const std::string& fileName, const std::shared_ptr<W32pNamedSegment>& segment)
    {
        if (open.size() >= tidyAt)
        {
            for (auto it = open.begin(); it != open.end();)
                it = it->second.expired() ? open.erase(it) : std::next(it);
            tidyAt = 2 * std::max<std::size_t>(32, open.size()); // amortised: a constant cost per open
        }
        open[fileName] = segment;
    }
};

// The registry of this process, locked by the caller. In a child made by fork it starts empty: the child
// inherited its parent's segments and lock descriptor, but holds nothing through them.
Registry& TheRegistry()
{
    static Registry* registry = new Registry; // never destroyed: segments may be released during exit
    if (registry->pid != getpid())
    {
        registry->open.clear();
        registry->holds.clear();
        registry->holders =
            -1; // the parent's; closing our copy would not drop its locks, keeping it costs one
        registry->pid = getpid();
    }
    return *registry;
}

// The descriptor of the holders file of the user's folder dir, opened once per process (again when the
// folder was replaced); -1 with the Win32 error set when it is not one of ours.
int HoldersOf(Registry& registry, int dir)
{
    struct stat named, known;
    if (registry.holders >= 0 && fstatat(dir, kHoldersName, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        fstat(registry.holders, &known) == 0 && named.st_dev == known.st_dev && named.st_ino == known.st_ino)
        return registry.holders;
    UniqueFd fd(OpenObjectFile(dir, kHoldersName, true));
    if (!fd || !LockByte(fd.Get(), 0, F_RDLCK, true))
        return -1;
    // A replaced file keeps its descriptor: the holds taken through it are released through it.
    registry.holders = fd.Release();
    return registry.holders;
}

// Whether name in dir leads to the file with inode (it was not removed or replaced).
bool NamesInode(int dir, const std::string& name, dev_t device, ino_t inode)
{
    struct stat st;
    return fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && st.st_dev == device &&
           st.st_ino == inode;
}

// Removes the file name in dir when no process holds the object (this one included); the lock that proves
// it is dropped again.
void RemoveIfUnheld(Registry& registry, int dir, const std::string& name)
{
    UniqueFd fd(OpenObjectFile(dir, name, false));
    struct stat st;
    if (!fd || fstat(fd.Get(), &st) != 0 || registry.holds.count(st.st_ino) != 0)
        return;
    const off_t offset = HoldOffset(st.st_ino);
    if (!LockByte(registry.holders, offset, F_WRLCK, false))
        return;
    if (StillNamed(dir, fd.Get(), name))
        unlinkat(dir, name.c_str(), 0);
    LockByte(registry.holders, offset, F_UNLCK, false);
}

// Removes the files of this user's named objects whose holders were all killed, so that they do not stay in
// /dev/shm until their name is used again. A file anybody holds (or is setting up) is left alone; entries
// that are not our files are not touched. The files of the sharing registry (".share-") are held by a lock
// on their byte 0. Runs at most once a second per process, from the opens.
void SweepAbandoned(Registry& registry, int userDir)
{
    static std::atomic<std::int64_t> lastSweep{-1};
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::int64_t last = lastSweep.load();
    if ((last >= 0 && now.tv_sec - last < 1) || !lastSweep.compare_exchange_strong(last, now.tv_sec))
        return;
    const int listed = fcntl(userDir, F_DUPFD_CLOEXEC, 0);
    DIR* entries = listed >= 0 ? fdopendir(listed) : nullptr;
    if (entries == nullptr)
    {
        if (listed >= 0)
            close(listed);
        return;
    }
    while (dirent* entry = readdir(entries))
    {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || name == kHoldersName)
            continue;
        if (name.compare(0, 7, ".share-") != 0)
        {
            if (registry.holds.count(entry->d_ino) == 0) // what this process holds is not abandoned
                RemoveIfUnheld(registry, userDir, name);
            continue;
        }
        UniqueFd fd(OpenObjectFile(userDir, name, false));
        if (fd && LockByte(fd.Get(), 0, F_WRLCK, false) && StillNamed(userDir, fd.Get(), name))
            unlinkat(userDir, name.c_str(), 0);
    }
    closedir(entries);
}

// Releases this process's hold of the object with inode; the last holder anywhere removes its file.
void ReleaseHold(Registry& registry, ino_t inode)
{
    auto hold = registry.holds.find(inode);
    if (hold == registry.holds.end() || --hold->second.count > 0)
        return;
    const off_t offset = HoldOffset(inode);
    // The exclusive lock proves that nobody else holds it.
    if (LockByte(hold->second.holders, offset, F_WRLCK, false))
    {
        UniqueFd dir(OpenUserDir(false));
        if (dir && NamesInode(dir.Get(), hold->second.fileName, hold->second.device, inode))
            unlinkat(dir.Get(), hold->second.fileName.c_str(), 0);
    }
    LockByte(hold->second.holders, offset, F_UNLCK, false);
    registry.holds.erase(hold);
}

// At an orderly exit the process gives up every object it still holds, as its handles close on Windows:
// what nobody else holds is removed now, not at some later sweep.
void ReleaseAllAtExit()
{
    Registry& registry = TheRegistry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    while (!registry.holds.empty())
    {
        auto hold = registry.holds.begin();
        hold->second.count = 1; // segments that outlive this keep their mapping, not the name
        ReleaseHold(registry, hold->first);
    }
}

// What one round of an open found.
enum class Round
{
    Done,      // the object is open (header set), or the open failed with the Win32 error set
    Retry,     // the file was removed, replaced or abandoned meanwhile: look again
    Malformed, // held by someone, but its header is not ready: look again, a limited number of times
};

// What one open works on: the user's folder, this process's holders file, and the object's file.
struct Target
{
    int dir;
    int holders;
    const std::string& fileName;
    int fd;
    struct stat st; // of fd
    off_t Offset() const { return HoldOffset(st.st_ino); }
};

// Sets up the object in the file, which this process holds exclusively and has just found empty; keeps the
// shared lock of a holder afterwards.
Round CreateLocked(const Target& target, W32pKind kind, std::uint64_t dataSize,
                   const std::function<void(W32pNamedHeader&)>& init, W32pNamedHeader*& header)
{
    constexpr std::size_t kHeaderSize = W32pNamedSegment::kHeaderSize;
    // Owner-only whatever the umask made of it; the file is ours, so only a failing system can refuse.
    void* page = MAP_FAILED;
    if (fchmod(target.fd, 0600) == 0 && ftruncate(target.fd, static_cast<off_t>(kHeaderSize + dataSize)) == 0)
        page = mmap(nullptr, kHeaderSize, PROT_READ | PROT_WRITE, MAP_SHARED, target.fd, 0);
    if (page == MAP_FAILED)
    {
        W32pSetLastErrorFromErrno();
        unlinkat(target.dir, target.fileName.c_str(), 0);
        return Round::Done;
    }
    header = new (page) W32pNamedHeader();
    header->kind = static_cast<std::uint32_t>(kind);
    header->sectionSize = dataSize;
    if (init)
        init(*header);
    __atomic_store_n(&header->magic, W32pNamedSegment::kReadyMagic, __ATOMIC_RELEASE);
    LockByte(target.holders, target.Offset(), F_RDLCK, false); // downgrade: lets openers waiting for us in
    return Round::Done;
}

// Maps the header of a file that some process holds and checks that it is ready and fits the file.
Round MapReadyHeader(const Target& target, W32pNamedHeader*& header)
{
    constexpr std::size_t kHeaderSize = W32pNamedSegment::kHeaderSize;
    if (target.st.st_size < static_cast<off_t>(kHeaderSize))
        return Round::Malformed; // its creator died while setting it up, or it is damaged
    void* page = mmap(nullptr, kHeaderSize, PROT_READ | PROT_WRITE, MAP_SHARED, target.fd, 0);
    if (page == MAP_FAILED)
    {
        W32pSetLastErrorFromErrno();
        return Round::Done;
    }
    auto* mapped = static_cast<W32pNamedHeader*>(page);
    if (__atomic_load_n(&mapped->magic, __ATOMIC_ACQUIRE) != W32pNamedSegment::kReadyMagic)
    {
        munmap(page, kHeaderSize);
        return Round::Malformed;
    }
    if (!HeaderFits(*mapped, static_cast<std::uint64_t>(target.st.st_size)))
    {
        munmap(page, kHeaderSize);
        Refuse(); // a ready header that does not describe the file: never map beyond its end
        return Round::Done;
    }
    header = mapped;
    return Round::Done;
}

// Joins the object as a holder once any creator or remover is done with it.
Round JoinHeld(Target& target, W32pNamedHeader*& header)
{
    if (!LockByte(target.holders, target.Offset(), F_RDLCK, true))
    {
        W32pSetLastErrorFromErrno();
        return Round::Done;
    }
    if (!StillNamed(target.dir, target.fd, target.fileName) || fstat(target.fd, &target.st) != 0)
        return Round::Retry; // removed meanwhile
    return MapReadyHeader(target, header);
}

} // namespace

std::string W32pNamedObjectDir()
{
    // The "2" is the layout: processes built on the earlier one (a lock on byte 0 of each file) would take
    // the files of this one for abandoned ones and remove them, so the two never share a folder.
    return "/dev/shm/w32p-2." + std::to_string(geteuid());
}

namespace
{

// The user's folder (-1 with the Win32 error set when it is unusable).
int OpenFolderFor(bool create)
{
    const int dir = OpenUserDir(create);
    if (dir < 0 && (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND))
        SetLastError(ERROR_FILE_NOT_FOUND); // no folder yet: no object of this user exists
    return dir;
}

// The segment this process already has for fileName (found tells whether there is one); null with
// ERROR_INVALID_HANDLE when it is of another kind.
std::shared_ptr<W32pNamedSegment> OpenedHere(Registry& registry, const std::string& fileName, W32pKind kind,
                                             bool& found)
{
    auto known = registry.open.find(fileName);
    std::shared_ptr<W32pNamedSegment> segment = known != registry.open.end() ? known->second.lock() : nullptr;
    found = segment != nullptr;
    if (found && segment->Header().kind != static_cast<std::uint32_t>(kind))
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return segment;
}

// One round of an open of the target file: sets it up when this process holds it alone and it is new,
// removes it when holders that were killed left it behind, and joins it otherwise. creating tells which.
Round OpenRound(Target& target, W32pKind kind, bool create, std::uint64_t dataSize,
                const std::function<void(W32pNamedHeader&)>& init, W32pNamedHeader*& header, bool& creating)
{
    creating = false;
    if (!LockByte(target.holders, target.Offset(), F_WRLCK, false))
        return JoinHeld(target, header);
    // Nobody else holds this file: either we just made it, or every holder is gone.
    if (!StillNamed(target.dir, target.fd, target.fileName) || fstat(target.fd, &target.st) != 0)
        return Round::Retry;
    if (target.st.st_size == 0 && create)
    {
        creating = true;
        return CreateLocked(target, kind, dataSize, init, header);
    }
    // Left behind by holders that were killed: remove it, then act as if it never existed.
    unlinkat(target.dir, target.fileName.c_str(), 0);
    if (create)
        return Round::Retry;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return Round::Done;
}

// One round over the object file fd: header is set when this process now holds the object (registered in
// registry.holds); otherwise no lock of this round is left behind.
Round HoldRound(Registry& registry, Target& target, W32pKind kind, bool create, std::uint64_t dataSize,
                const std::function<void(W32pNamedHeader&)>& init, W32pNamedHeader*& header, bool& creating)
{
    creating = false;
    if (fstat(target.fd, &target.st) != 0)
    {
        W32pSetLastErrorFromErrno();
        return Round::Done;
    }
    auto held = registry.holds.find(target.st.st_ino);
    if (held != registry.holds.end())
    {
        // Still held by a segment of this process that is ending: share its hold.
        const Round outcome = MapReadyHeader(target, header);
        if (header != nullptr)
            ++held->second.count;
        return outcome;
    }
    const Round outcome = OpenRound(target, kind, create, dataSize, init, header, creating);
    if (header == nullptr)
        LockByte(target.holders, target.Offset(), F_UNLCK, false);
    else
        registry.holds[target.st.st_ino] = Hold{1, target.fileName, target.holders, target.st.st_dev};
    return outcome;
}

} // namespace

std::shared_ptr<W32pNamedSegment> W32pNamedSegment::Open(LPCWSTR name, W32pKind kind, bool create,
                                                         std::uint64_t dataSize,
                                                         const std::function<void(W32pNamedHeader&)>& init,
                                                         bool& created)
{
    created = false;
    std::string fileName;
    if (!FileNameOf(name, fileName))
    {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return nullptr;
    }
    return OpenFileNamed(fileName, kind, create, dataSize, init, created);
}

std::shared_ptr<W32pNamedSegment>
W32pNamedSegment::OpenInternal(const char* fileName, W32pKind kind, std::uint64_t dataSize,
                               const std::function<void(W32pNamedHeader&)>& init)
{
    const bool internal = fileName[0] == '.' && std::strncmp(fileName, ".share-", 7) != 0 &&
                          std::strcmp(fileName, kHoldersName) != 0;
    if (!internal)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    bool created = false;
    return OpenFileNamed(fileName, kind, true, dataSize, init, created);
}

std::shared_ptr<W32pNamedSegment>
W32pNamedSegment::OpenFileNamed(const std::string& fileName, W32pKind kind, bool create,
                                std::uint64_t dataSize, const std::function<void(W32pNamedHeader&)>& init,
                                bool& created)
{
    UniqueFd dir(OpenFolderFor(create));
    if (!dir)
        return nullptr;
    Registry& registry = TheRegistry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    Target target{dir.Get(), HoldersOf(registry, dir.Get()), fileName, -1, {}};
    if (target.holders < 0)
        return nullptr;
    if (!registry.exitHandled)
        registry.exitHandled = std::atexit(ReleaseAllAtExit) == 0;
    SweepAbandoned(registry, dir.Get());
    bool found = false;
    std::shared_ptr<W32pNamedSegment> known = OpenedHere(registry, fileName, kind, found);
    if (found)
        return known;

    int malformed = 0;
    for (int round = 0; round < kMaxRounds && malformed < kMaxMalformedRounds; ++round)
    {
        if (round >= kQuickRounds)
            usleep(1000);
        UniqueFd fd(OpenObjectFile(dir.Get(), fileName, create));
        if (!fd)
            return nullptr;
        target.fd = fd.Get();
        W32pNamedHeader* header = nullptr;
        bool creating = false;
        const Round outcome = HoldRound(registry, target, kind, create, dataSize, init, header, creating);
        malformed += outcome == Round::Malformed ? 1 : 0;
        if (outcome != Round::Done)
            continue;
        if (header == nullptr)
            return nullptr;
        std::shared_ptr<W32pNamedSegment> segment(
            new W32pNamedSegment(header, fileName, target.st.st_dev, target.st.st_ino));
        if (header->kind != static_cast<std::uint32_t>(kind))
        {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr; // the segment's destructor drops our hold
        }
        registry.Remember(fileName, segment);
        created = creating;
        return segment;
    }
    // Still half set up or damaged after every round: a file we cannot trust.
    return Refuse();
}

W32pNamedSegment::~W32pNamedSegment()
{
    munmap(m_header, kHeaderSize);
    Registry& registry = TheRegistry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    ReleaseHold(registry, m_inode);
}

int W32pNamedSegment::OpenFile() const
{
    UniqueFd dir(OpenUserDir(false));
    if (!dir)
        return -1;
    UniqueFd fd(OpenObjectFile(dir.Get(), m_fileName, false));
    struct stat st;
    if (!fd)
        return -1;
    if (fstat(fd.Get(), &st) != 0 || st.st_dev != m_device || st.st_ino != m_inode)
    {
        Refuse(); // removed or replaced by hand under our feet
        return -1;
    }
    return fd.Release();
}

int W32pOpenNamedObjectDir(bool create)
{
    return OpenUserDir(create);
}
