// Directory-change notification over inotify; the header lists where Linux differs from Windows.
//
// One watch per directory handle, kept with the handle (W32pFileAttachment) as a WatchToken that owns the
// service thread; the thread and every request share the WatchCore. All state of the core is guarded by its
// lock, which the service thread takes while it turns one batch of inotify events into records and completes
// the pending request. A request completes at the first of: records queued, overflow, the folder deleted,
// cancellation, the handle closed.
#include "w32p_notify.h"
#include "w32p_handles.h"
#include "w32p_path.h"
#include "w32p_sync.h"

#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <set>
#include <string>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr DWORD kKnownFilterBits = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                   FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                                   FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_LAST_ACCESS |
                                   FILE_NOTIFY_CHANGE_CREATION | FILE_NOTIFY_CHANGE_SECURITY;
constexpr DWORD kRecordHeader = offsetof(FILE_NOTIFY_INFORMATION, FileName);

DWORD RecordSize(const std::wstring& name)
{
    const DWORD raw = kRecordHeader + static_cast<DWORD>(name.size() * sizeof(WCHAR));
    return (raw + 3u) & ~3u;
}

struct Record
{
    DWORD action;
    std::wstring name; // relative to the watched folder, elements joined with "\"
};

// Where a synchronous caller waits for its request's outcome.
struct SyncOutcome
{
    bool done = false;
    NTSTATUS status = STATUS_PENDING;
    DWORD bytes = 0;
};

struct Pending
{
    LPVOID buffer = nullptr;
    DWORD length = 0;
    LPOVERLAPPED overlapped = nullptr; // null for a synchronous request
    SyncOutcome* sync = nullptr;       // the synchronous caller's outcome
};

// A rename's first half, held until its second half shows whether the object stayed in the tree.
struct HeldMove
{
    uint32_t cookie;
    std::string path; // relative UTF-8 path
    bool isDirectory;
};

HANDLE EventOf(LPOVERLAPPED overlapped)
{
    // The low bit of hEvent asks Windows not to post to a completion port; it is not part of the handle.
    return reinterpret_cast<HANDLE>(reinterpret_cast<ULONG_PTR>(overlapped->hEvent) & ~ULONG_PTR(1));
}

NTSTATUS LoadStatus(LPOVERLAPPED overlapped)
{
    return static_cast<NTSTATUS>(__atomic_load_n(&overlapped->Internal, __ATOMIC_ACQUIRE));
}

class WatchCore
{
public:
    explicit WatchCore(int directoryFd) : m_directoryFd(directoryFd) {}
    ~WatchCore()
    {
        for (int fd : {m_inotifyFd, m_wakeFd, m_directoryFd})
            if (fd >= 0)
                close(fd);
    }

    // Starts watching on the first request (caller holds m_lock). False with the last error set.
    bool StartLocked(bool subtree, DWORD filter, DWORD capacity);
    // Reads inotify until woken through m_wakeFd.
    void ServiceLoop();
    // Completes the pending request if there is something to report (caller holds m_lock).
    void TryCompleteLocked();
    void CompleteLocked(NTSTATUS status, DWORD bytes);
    // Records or an overflow wait to be reported (caller holds m_lock).
    bool HasNewsLocked() const { return m_overflow || !m_queue.empty(); }
    void WakeService()
    {
        const uint64_t one = 1;
        ssize_t ignored = write(m_wakeFd, &one, sizeof one);
        (void)ignored;
    }

    std::mutex m_lock;                 // guards every field below
    std::condition_variable m_changed; // signalled when a request completes
    bool m_started = false;
    bool m_rootGone = false; // the watched folder was deleted
    bool m_closing = false;  // the handle was closed
    bool m_havePending = false;
    Pending m_pending;

private:
    void AddTreeLocked(const std::string& relative, bool reportEntries);
    void ForgetTreeLocked(const std::string& relative);
    void RenameTreeLocked(const std::string& from, const std::string& to);
    void HandleEventLocked(const inotify_event& event);
    // Overflow and the ends of watches (the root's, its parent's, a sub-folder's); true when event was one.
    bool HandleWatchEventLocked(const inotify_event& event);
    void HandleMovedToLocked(const std::string& path, bool isDirectory);
    void HandleChangeLocked(std::uint32_t mask, const std::string& path, bool isDirectory);
    // Watches a folder that appeared below the root (subtree watches only) and the folders within it.
    void WatchNewFolderLocked(const std::string& path, bool reportEntries);
    void FlushHeldMoveLocked();
    void EmitLocked(DWORD action, const std::string& relative, bool isDirectory);
    void ProcessBatchLocked(const std::vector<char>& bytes);
    DWORD PackLocked(LPVOID buffer, DWORD length);

    const int m_directoryFd;              // our own duplicate of the handle's descriptor
    int m_inotifyFd = -1;                 // fixed once started
    int m_wakeFd = -1;                    // fixed once started
    bool m_subtree = false;               // fixed once started
    DWORD m_filter = 0;                   // fixed once started
    DWORD m_capacity = 0;                 // fixed once started: bytes kept between requests
    uint32_t m_mask = 0;                  // fixed once started
    int m_rootWatch = -1;                 // fixed once started
    int m_parentWatch = -1;               // watch on the folder's parent; -1 when it could not be placed
    std::map<int, std::string> m_folders; // watch descriptor -> relative UTF-8 path ("" for the root)
    std::set<std::string> m_reported;     // entries reported when their folder's watch was placed
    std::deque<Record> m_queue;
    DWORD m_queuedBytes = 0;
    bool m_overflow = false;
    bool m_haveHeld = false;
    HeldMove m_held;
};

std::string Join(const std::string& folder, const std::string& name)
{
    return folder.empty() ? name : folder + "/" + name;
}

std::wstring WideName(const std::string& relative)
{
    std::wstring wide;
    std::size_t start = 0;
    while (start <= relative.size())
    {
        const std::size_t end = relative.find('/', start);
        const std::string element =
            relative.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!wide.empty())
            wide += L'\\';
        wide += W32pUtf8ToWide(element);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return wide;
}

bool WatchCore::StartLocked(bool subtree, DWORD filter, DWORD capacity)
{
    m_inotifyFd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    m_wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_inotifyFd < 0 || m_wakeFd < 0)
    {
        SetLastError(errno == EMFILE || errno == ENFILE ? ERROR_TOO_MANY_OPEN_FILES
                                                        : W32pErrorFromErrno(errno));
        return false;
    }
    m_subtree = subtree;
    m_filter = filter;
    m_capacity = capacity;
    m_mask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF |
             IN_EXCL_UNLINK | IN_ONLYDIR;
    if (filter & FILE_NOTIFY_CHANGE_LAST_ACCESS)
        m_mask |= IN_ACCESS;
    const std::string root = "/proc/self/fd/" + std::to_string(m_directoryFd);
    m_rootWatch = inotify_add_watch(m_inotifyFd, root.c_str(), m_mask);
    if (m_rootWatch < 0)
    {
        SetLastError(errno == ENOSPC || errno == EMFILE ? ERROR_TOO_MANY_OPEN_FILES
                                                        : W32pErrorFromErrno(errno));
        return false;
    }
    m_folders[m_rootWatch] = std::string();
    // While a handle holds the folder open, inotify reports its deletion only at the last close; the
    // parent's watch tells when a folder there was removed, and the link count whether it was this one.
    m_parentWatch = inotify_add_watch(m_inotifyFd, (root + "/..").c_str(), IN_DELETE | IN_ONLYDIR);
    if (m_subtree)
        AddTreeLocked(std::string(), false);
    m_started = true;
    return true;
}

// Places watches on the sub-folders of relative (which is watched already), recursively. With
// reportEntries, every entry found is reported as added: it appeared before its folder was watched.
void WatchCore::AddTreeLocked(const std::string& relative, bool reportEntries)
{
    const std::string base = "/proc/self/fd/" + std::to_string(m_directoryFd);
    const std::string folder = relative.empty() ? base : base + "/" + relative;
    DIR* dir = opendir(folder.c_str());
    if (!dir)
        return; // gone again already; its removal is reported by the parent's watch
    std::vector<std::pair<std::string, bool>> entries;
    while (const dirent* entry = readdir(dir))
    {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        bool isDirectory = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN)
        {
            struct stat st;
            isDirectory =
                fstatat(dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
        }
        entries.emplace_back(name, isDirectory);
    }
    closedir(dir);
    for (const auto& entry : entries)
    {
        const std::string path = Join(relative, entry.first);
        if (reportEntries)
        {
            EmitLocked(FILE_ACTION_ADDED, path, entry.second);
            m_reported.insert(path);
        }
        if (!entry.second)
            continue;
        const int watch = inotify_add_watch(m_inotifyFd, (base + "/" + path).c_str(), m_mask);
        if (watch < 0)
            continue; // removed meanwhile, or the watch limit reached: the folder's own changes are missed
        m_folders[watch] = path;
        AddTreeLocked(path, reportEntries);
    }
}

void WatchCore::ForgetTreeLocked(const std::string& relative)
{
    for (auto it = m_folders.begin(); it != m_folders.end();)
    {
        if (it->first != m_rootWatch &&
            (it->second == relative || it->second.compare(0, relative.size() + 1, relative + "/") == 0))
        {
            inotify_rm_watch(m_inotifyFd, it->first);
            it = m_folders.erase(it);
        }
        else
            ++it;
    }
}

void WatchCore::RenameTreeLocked(const std::string& from, const std::string& to)
{
    for (auto& folder : m_folders)
    {
        if (folder.second == from)
            folder.second = to;
        else if (folder.second.compare(0, from.size() + 1, from + "/") == 0)
            folder.second = to + folder.second.substr(from.size());
    }
}

void WatchCore::EmitLocked(DWORD action, const std::string& relative, bool isDirectory)
{
    const bool naming = action != FILE_ACTION_MODIFIED;
    if (naming && !(m_filter & (isDirectory ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME)))
        return;
    if (m_overflow)
        return; // everything is lost until the overflow is reported
    Record record{action, WideName(relative)};
    const DWORD size = RecordSize(record.name);
    if (m_queuedBytes + size > m_capacity)
    {
        m_overflow = true;
        m_queue.clear();
        m_queuedBytes = 0;
        return;
    }
    m_queuedBytes += size;
    m_queue.push_back(std::move(record));
}

void WatchCore::FlushHeldMoveLocked()
{
    if (!m_haveHeld)
        return;
    m_haveHeld = false;
    EmitLocked(FILE_ACTION_REMOVED, m_held.path, m_held.isDirectory);
    if (m_subtree && m_held.isDirectory)
        ForgetTreeLocked(m_held.path);
}

bool WatchCore::HandleWatchEventLocked(const inotify_event& event)
{
    if (event.mask & IN_Q_OVERFLOW)
    {
        m_overflow = true;
        m_queue.clear();
        m_queuedBytes = 0;
        return true;
    }
    if (event.wd == m_parentWatch && event.wd != m_rootWatch)
    {
        struct stat st;
        if (event.mask & IN_IGNORED)
            m_parentWatch = -1;
        else if ((event.mask & IN_DELETE) && fstat(m_directoryFd, &st) == 0 && st.st_nlink == 0)
            m_rootGone = true;
        return true;
    }
    if (event.wd == m_rootWatch && (event.mask & (IN_DELETE_SELF | IN_IGNORED | IN_UNMOUNT)))
    {
        FlushHeldMoveLocked();
        m_rootGone = true;
        return true;
    }
    if (event.mask & IN_IGNORED)
    {
        m_folders.erase(event.wd);
        return true;
    }
    return false;
}

void WatchCore::HandleEventLocked(const inotify_event& event)
{
    if (HandleWatchEventLocked(event))
        return;
    const auto folder = m_folders.find(event.wd);
    if (folder == m_folders.end() || event.len == 0 || event.name[0] == '\0')
        return; // a folder's own events come from its parent's watch, with its name
    const std::string path = Join(folder->second, event.name);
    const bool isDirectory = (event.mask & IN_ISDIR) != 0;
    if (m_haveHeld && !((event.mask & IN_MOVED_TO) && event.cookie == m_held.cookie))
        FlushHeldMoveLocked();

    if (event.mask & IN_CREATE)
    {
        if (m_reported.erase(path) != 0)
            return; // reported when its folder's watch was placed
        EmitLocked(FILE_ACTION_ADDED, path, isDirectory);
        if (m_subtree && isDirectory)
            WatchNewFolderLocked(path, true);
    }
    else if (event.mask & IN_DELETE)
    {
        m_reported.erase(path);
        EmitLocked(FILE_ACTION_REMOVED, path, isDirectory);
    }
    else if (event.mask & IN_MOVED_FROM)
    {
        m_reported.erase(path);
        m_haveHeld = true;
        m_held = HeldMove{event.cookie, path, isDirectory};
    }
    else if (event.mask & IN_MOVED_TO)
        HandleMovedToLocked(path, isDirectory);
    else
        HandleChangeLocked(event.mask, path, isDirectory);
}

void WatchCore::HandleMovedToLocked(const std::string& path, bool isDirectory)
{
    m_reported.erase(path);
    if (m_haveHeld)
    {
        m_haveHeld = false;
        EmitLocked(FILE_ACTION_RENAMED_OLD_NAME, m_held.path, isDirectory);
        EmitLocked(FILE_ACTION_RENAMED_NEW_NAME, path, isDirectory);
        if (m_subtree && isDirectory)
            RenameTreeLocked(m_held.path, path);
        return;
    }
    EmitLocked(FILE_ACTION_ADDED, path, isDirectory);
    if (m_subtree && isDirectory)
        WatchNewFolderLocked(path, false);
}

void WatchCore::HandleChangeLocked(std::uint32_t mask, const std::string& path, bool isDirectory)
{
    if (mask & IN_MODIFY)
    {
        if (m_filter & (FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE))
            EmitLocked(FILE_ACTION_MODIFIED, path, isDirectory);
    }
    else if (mask & IN_ATTRIB)
    {
        if (m_filter & (FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SECURITY |
                        FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION))
            EmitLocked(FILE_ACTION_MODIFIED, path, isDirectory);
    }
    else if (mask & IN_ACCESS)
    {
        if (m_filter & FILE_NOTIFY_CHANGE_LAST_ACCESS)
            EmitLocked(FILE_ACTION_MODIFIED, path, isDirectory);
    }
}

void WatchCore::WatchNewFolderLocked(const std::string& path, bool reportEntries)
{
    const int watch = inotify_add_watch(
        m_inotifyFd, ("/proc/self/fd/" + std::to_string(m_directoryFd) + "/" + path).c_str(), m_mask);
    if (watch < 0)
        return;
    m_folders[watch] = path;
    AddTreeLocked(path, reportEntries);
}

void WatchCore::ProcessBatchLocked(const std::vector<char>& bytes)
{
    std::size_t offset = 0;
    while (offset + sizeof(inotify_event) <= bytes.size())
    {
        inotify_event event;
        std::memcpy(&event, bytes.data() + offset, sizeof event);
        const char* name = bytes.data() + offset + sizeof(inotify_event);
        // The name follows the fixed part; copy the event with its name into aligned storage.
        std::vector<char> whole(sizeof(inotify_event) + event.len + 1, '\0');
        std::memcpy(whole.data(), bytes.data() + offset, sizeof(inotify_event));
        std::memcpy(whole.data() + sizeof(inotify_event), name, event.len);
        HandleEventLocked(*reinterpret_cast<const inotify_event*>(whole.data()));
        offset += sizeof(inotify_event) + event.len;
    }
}

// Reads everything inotify has now. When the batch ends in the first half of a rename, waits a moment for
// its second half, which the kernel queues right after it.
bool ReadAvailable(int fd, std::vector<char>& bytes)
{
    char chunk[64 * 1024] __attribute__((aligned(__alignof__(struct inotify_event))));
    for (;;)
    {
        const ssize_t n = read(fd, chunk, sizeof chunk);
        if (n > 0)
        {
            bytes.insert(bytes.end(), chunk, chunk + n);
            continue;
        }
        return n == 0 || errno == EAGAIN || errno == EINTR;
    }
}

bool EndsInMovedFrom(const std::vector<char>& bytes)
{
    std::size_t offset = 0;
    uint32_t lastMask = 0;
    while (offset + sizeof(inotify_event) <= bytes.size())
    {
        inotify_event event;
        std::memcpy(&event, bytes.data() + offset, sizeof event);
        lastMask = event.mask;
        offset += sizeof(inotify_event) + event.len;
    }
    return (lastMask & IN_MOVED_FROM) != 0;
}

void WatchCore::ServiceLoop()
{
    pollfd fds[2] = {{m_inotifyFd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
    for (;;)
    {
        if (poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[1].revents)
            return;
        if (!(fds[0].revents & POLLIN))
            continue;
        std::vector<char> bytes;
        ReadAvailable(m_inotifyFd, bytes);
        if (EndsInMovedFrom(bytes))
        {
            pollfd one = {m_inotifyFd, POLLIN, 0};
            if (poll(&one, 1, 2) > 0)
                ReadAvailable(m_inotifyFd, bytes);
        }
        std::lock_guard<std::mutex> guard(m_lock);
        ProcessBatchLocked(bytes);
        FlushHeldMoveLocked(); // the other half never came: the object left the tree
        TryCompleteLocked();
    }
}

DWORD WatchCore::PackLocked(LPVOID buffer, DWORD length)
{
    BYTE* out = static_cast<BYTE*>(buffer);
    DWORD offset = 0;
    FILE_NOTIFY_INFORMATION* previous = nullptr;
    for (const Record& record : m_queue)
    {
        const DWORD size = RecordSize(record.name);
        auto* info = reinterpret_cast<FILE_NOTIFY_INFORMATION*>(out + offset);
        std::memset(info, 0, size);
        info->Action = record.action;
        info->FileNameLength = static_cast<DWORD>(record.name.size() * sizeof(WCHAR));
        std::memcpy(info->FileName, record.name.data(), info->FileNameLength);
        if (previous)
            previous->NextEntryOffset =
                static_cast<DWORD>(reinterpret_cast<BYTE*>(info) - reinterpret_cast<BYTE*>(previous));
        previous = info;
        offset += size;
    }
    (void)length;
    return offset;
}

void WatchCore::TryCompleteLocked()
{
    if (!m_havePending)
        return;
    if (m_overflow || (!m_queue.empty() && m_queuedBytes > m_pending.length))
    {
        m_overflow = false;
        m_queue.clear();
        m_queuedBytes = 0;
        CompleteLocked(STATUS_NOTIFY_ENUM_DIR, 0);
    }
    else if (!m_queue.empty())
    {
        const DWORD bytes = PackLocked(m_pending.buffer, m_pending.length);
        m_queue.clear();
        m_queuedBytes = 0;
        CompleteLocked(STATUS_SUCCESS, bytes);
    }
    else if (m_rootGone)
        CompleteLocked(STATUS_DELETE_PENDING, 0);
    else if (m_closing)
        CompleteLocked(STATUS_NOTIFY_CLEANUP, 0);
}

void WatchCore::CompleteLocked(NTSTATUS status, DWORD bytes)
{
    m_havePending = false;
    if (m_pending.sync)
    {
        m_pending.sync->status = status;
        m_pending.sync->bytes = bytes;
        m_pending.sync->done = true;
    }
    else
    {
        LPOVERLAPPED overlapped = m_pending.overlapped;
        overlapped->InternalHigh = bytes;
        __atomic_store_n(&overlapped->Internal, static_cast<ULONG_PTR>(static_cast<DWORD>(status)),
                         __ATOMIC_RELEASE);
        if (HANDLE event = EventOf(overlapped))
            SetEvent(event);
    }
    m_pending = Pending();
    m_changed.notify_all();
}

// Kept with the directory handle: the handle's last reference ends the watch and its thread.
struct WatchToken
{
    std::shared_ptr<WatchCore> core;
    std::thread service; // started with the first request; guarded by core->m_lock until then

    ~WatchToken()
    {
        {
            std::lock_guard<std::mutex> guard(core->m_lock);
            core->m_closing = true;
            core->TryCompleteLocked();
            if (core->m_started)
                core->WakeService();
        }
        if (service.joinable())
            service.join();
    }
};

std::shared_ptr<void> MakeToken(int fd)
{
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISDIR(st.st_mode))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const int own = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (own < 0)
    {
        W32pSetLastErrorFromErrno();
        return nullptr;
    }
    auto token = std::make_shared<WatchToken>();
    token->core = std::make_shared<WatchCore>(own);
    return token;
}

std::shared_ptr<WatchToken> ExistingToken(HANDLE file)
{
    return std::static_pointer_cast<WatchToken>(W32pFileAttachment(file,
                                                                   [](int)
                                                                   {
                                                                       SetLastError(ERROR_NOT_FOUND);
                                                                       return std::shared_ptr<void>();
                                                                   }));
}

BOOL FinishSynchronous(const SyncOutcome& outcome, LPDWORD bytesReturned)
{
    *bytesReturned = outcome.bytes;
    switch (outcome.status)
    {
    case STATUS_SUCCESS:
        SetLastError(ERROR_SUCCESS);
        return TRUE;
    case STATUS_NOTIFY_ENUM_DIR:
        SetLastError(ERROR_NOTIFY_ENUM_DIR);
        return TRUE;
    case STATUS_NOTIFY_CLEANUP:
        SetLastError(ERROR_NOTIFY_CLEANUP);
        return TRUE;
    case STATUS_CANCELLED:
        SetLastError(ERROR_OPERATION_ABORTED);
        return FALSE;
    default:
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
}

// Starts the watch on the first request and makes this request the pending one; completes it at once when
// changes are queued already. Caller holds token.core->m_lock. False with the last error set.
bool RegisterLocked(WatchToken& token, bool subtree, DWORD filter, LPVOID buffer, DWORD length,
                    LPOVERLAPPED overlapped, SyncOutcome* sync)
{
    WatchCore& core = *token.core;
    if (core.m_havePending)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (!core.m_started)
    {
        if (!core.StartLocked(subtree, filter, length))
            return false;
        std::shared_ptr<WatchCore> shared = token.core;
        token.service = std::thread([shared] { shared->ServiceLoop(); });
    }
    else if (core.m_rootGone && !core.HasNewsLocked())
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    core.m_pending.buffer = buffer;
    core.m_pending.length = length;
    core.m_pending.overlapped = overlapped;
    core.m_pending.sync = sync;
    if (overlapped)
    {
        if (HANDLE event = EventOf(overlapped))
            ResetEvent(event);
        overlapped->InternalHigh = 0;
        __atomic_store_n(&overlapped->Internal, static_cast<ULONG_PTR>(STATUS_PENDING), __ATOMIC_RELEASE);
    }
    core.m_havePending = true;
    core.TryCompleteLocked();
    return true;
}

} // namespace

BOOL ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD bufferLength, BOOL watchSubtree,
                           DWORD notifyFilter, LPDWORD bytesReturned, LPOVERLAPPED overlapped,
                           LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)
{
    if (completionRoutine)
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    if (notifyFilter == 0 || (notifyFilter & ~kKnownFilterBits) || (!overlapped && !bytesReturned) ||
        (!buffer && bufferLength != 0))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (reinterpret_cast<ULONG_PTR>(buffer) % 4 != 0)
    {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    std::shared_ptr<WatchToken> token =
        std::static_pointer_cast<WatchToken>(W32pFileAttachment(directory, MakeToken));
    if (!token)
        return FALSE;
    const std::shared_ptr<WatchCore> core = token->core;
    SyncOutcome outcome;
    {
        std::lock_guard<std::mutex> guard(core->m_lock);
        if (!RegisterLocked(*token, watchSubtree != FALSE, notifyFilter, buffer, bufferLength, overlapped,
                            overlapped ? nullptr : &outcome))
            return FALSE;
    }
    // Released before waiting: a synchronous wait must not keep the watch alive past CloseHandle (the
    // token's end completes the request).
    token.reset();
    if (overlapped)
        return TRUE;
    std::unique_lock<std::mutex> guard(core->m_lock);
    core->m_changed.wait(guard, [&] { return outcome.done; });
    return FinishSynchronous(outcome, bytesReturned);
}

BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait)
{
    if (!overlapped || !transferred)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    NTSTATUS status = LoadStatus(overlapped);
    if (status == STATUS_PENDING)
    {
        if (!wait)
        {
            SetLastError(ERROR_IO_INCOMPLETE);
            return FALSE;
        }
        if (HANDLE event = EventOf(overlapped))
        {
            if (WaitForSingleObject(event, INFINITE) != WAIT_OBJECT_0)
                return FALSE;
        }
        else if (std::shared_ptr<WatchToken> token = ExistingToken(file))
        {
            const std::shared_ptr<WatchCore> core = token->core;
            token.reset();
            std::unique_lock<std::mutex> guard(core->m_lock);
            core->m_changed.wait(guard, [&] { return LoadStatus(overlapped) != STATUS_PENDING; });
        }
        status = LoadStatus(overlapped);
        if (status == STATUS_PENDING)
        {
            SetLastError(ERROR_IO_INCOMPLETE);
            return FALSE;
        }
    }
    SyncOutcome outcome;
    outcome.status = status;
    outcome.bytes = static_cast<DWORD>(overlapped->InternalHigh);
    return FinishSynchronous(outcome, transferred);
}

BOOL CancelIoEx(HANDLE file, LPOVERLAPPED overlapped)
{
    if (!W32pLookupHandle(file))
        return FALSE;
    const std::shared_ptr<WatchToken> token = ExistingToken(file);
    if (!token)
    {
        SetLastError(ERROR_NOT_FOUND);
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(token->core->m_lock);
    WatchCore& core = *token->core;
    if (!core.m_havePending || (overlapped && core.m_pending.overlapped != overlapped))
    {
        SetLastError(ERROR_NOT_FOUND);
        return FALSE;
    }
    core.CompleteLocked(STATUS_CANCELLED, 0);
    return TRUE;
}
