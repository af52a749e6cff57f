// The store of named kernel objects in POSIX shared memory (see W32pNamedSegment in w32p_waitable.h).
#include "w32p_waitable.h"

#include "w32p_string.h"

#include <cerrno>
#include <cstring>
#include <cwctype>
#include <dirent.h>
#include <ctime>
#include <atomic>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const char kShmDir[] = "/dev/shm/";

// Locks byte 0 of fd's open file description; type F_RDLCK, F_WRLCK or F_UNLCK. wait blocks until granted.
bool LockByte0(int fd, short type, bool wait)
{
    struct flock fl;
    std::memset(&fl, 0, sizeof fl);
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = 0;
    fl.l_len = 1;
    for (;;)
    {
        if (fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &fl) == 0)
            return true;
        if (errno != EINTR)
            return false;
    }
}

// True when path names the file open at fd (it was not removed or replaced).
bool StillNamed(int fd, const std::string& path)
{
    struct stat a, b;
    return fstat(fd, &a) == 0 && stat(path.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
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

// The file name for an object name: prefix stripped, UTF-8, with '/', '%' and control bytes escaped.
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
    fileName = W32pNamedFilePrefix();
    static const char hex[] = "0123456789ABCDEF";
    for (unsigned char c : utf8)
    {
        if (c == '/' || c == '%' || c < 0x20)
        {
            fileName += '%';
            fileName += hex[c >> 4];
            fileName += hex[c & 15];
        }
        else
            fileName += static_cast<char>(c);
    }
    return fileName.size() <= 255;
}

// One segment per name in this process, so that every handle of the process sees one mapping of the state.
struct Registry
{
    std::mutex lock; // guards open and serialises opens of this process
    std::map<std::string, std::weak_ptr<W32pNamedSegment>> open;

    void Remember(const std::string& fileName, const std::shared_ptr<W32pNamedSegment>& segment)
    {
        for (auto it = open.begin(); it != open.end();)
            it = it->second.expired() ? open.erase(it) : std::next(it);
        open[fileName] = segment;
    }
};

Registry& TheRegistry()
{
    static Registry* registry = new Registry; // never destroyed: segments may be released during exit
    return *registry;
}

// Removes the files of this user's named objects whose holders were all killed, so that they do not stay in
// /dev/shm until their name is used again. A file anybody holds (or is setting up) cannot be locked
// exclusively and is left alone. Runs at most once a second per process, from the opens.
void SweepAbandoned()
{
    static std::atomic<std::int64_t> lastSweep{-1};
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::int64_t last = lastSweep.load();
    if ((last >= 0 && now.tv_sec - last < 1) || !lastSweep.compare_exchange_strong(last, now.tv_sec))
        return;
    const std::string prefix = W32pNamedFilePrefix();
    DIR* dir = opendir(kShmDir);
    if (dir == nullptr)
        return;
    while (dirent* entry = readdir(dir))
    {
        if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) != 0)
            continue;
        const int fd = openat(dirfd(dir), entry->d_name, O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0)
            continue;
        if (LockByte0(fd, F_WRLCK, false) && StillNamed(fd, kShmDir + std::string(entry->d_name)))
            shm_unlink(("/" + std::string(entry->d_name)).c_str());
        close(fd);
    }
    closedir(dir);
}

} // namespace

std::string W32pNamedFilePrefix()
{
    return "w32p." + std::to_string(getuid()) + ".";
}

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
    const std::string path = kShmDir + fileName;
    const std::string shmName = "/" + fileName;
    SweepAbandoned();

    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    auto known = registry.open.find(fileName);
    if (known != registry.open.end())
    {
        if (std::shared_ptr<W32pNamedSegment> segment = known->second.lock())
        {
            if (segment->Header().kind != static_cast<std::uint32_t>(kind))
            {
                SetLastError(ERROR_INVALID_HANDLE);
                return nullptr;
            }
            return segment;
        }
    }

    for (;;)
    {
        int fd = shm_open(shmName.c_str(), O_RDWR | (create ? O_CREAT : 0), 0600);
        if (fd < 0)
        {
            W32pSetLastErrorFromErrno();
            return nullptr;
        }
        struct stat st;
        if (LockByte0(fd, F_WRLCK, false))
        {
            // Nobody else holds this file: either we just made it, or every holder is gone.
            if (!StillNamed(fd, path))
            {
                close(fd);
                continue;
            }
            if (fstat(fd, &st) != 0)
            {
                W32pSetLastErrorFromErrno();
                close(fd);
                return nullptr;
            }
            if (st.st_size != 0 || !create)
            {
                // Left behind by holders that were killed: remove it, then act as if it never existed.
                shm_unlink(shmName.c_str());
                close(fd);
                if (!create)
                {
                    SetLastError(ERROR_FILE_NOT_FOUND);
                    return nullptr;
                }
                continue;
            }
            fchmod(fd, 0600); // owner-only whatever the umask made of it
            if (ftruncate(fd, static_cast<off_t>(kHeaderSize + dataSize)) != 0)
            {
                W32pSetLastErrorFromErrno();
                shm_unlink(shmName.c_str());
                close(fd);
                return nullptr;
            }
            void* page = mmap(nullptr, kHeaderSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (page == MAP_FAILED)
            {
                W32pSetLastErrorFromErrno();
                shm_unlink(shmName.c_str());
                close(fd);
                return nullptr;
            }
            auto* header = new (page) W32pNamedHeader();
            header->kind = static_cast<std::uint32_t>(kind);
            header->sectionSize = dataSize;
            if (init)
                init(*header);
            __atomic_store_n(&header->magic, kReadyMagic, __ATOMIC_RELEASE);
            LockByte0(fd, F_RDLCK, false); // downgrade: lets openers waiting for us in
            std::shared_ptr<W32pNamedSegment> segment(new W32pNamedSegment(fd, header, fileName));
            registry.Remember(fileName, segment);
            created = true;
            return segment;
        }
        // Held by someone: join as a holder once any creator or remover is done with it.
        if (!LockByte0(fd, F_RDLCK, true))
        {
            W32pSetLastErrorFromErrno();
            close(fd);
            return nullptr;
        }
        if (!StillNamed(fd, path) || fstat(fd, &st) != 0 || st.st_size < static_cast<off_t>(kHeaderSize))
        {
            close(fd); // removed meanwhile, or its creator died while setting it up: look again
            continue;
        }
        void* page = mmap(nullptr, kHeaderSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (page == MAP_FAILED)
        {
            W32pSetLastErrorFromErrno();
            close(fd);
            return nullptr;
        }
        auto* header = static_cast<W32pNamedHeader*>(page);
        if (__atomic_load_n(&header->magic, __ATOMIC_ACQUIRE) != kReadyMagic)
        {
            munmap(page, kHeaderSize);
            close(fd);
            continue;
        }
        std::shared_ptr<W32pNamedSegment> segment(new W32pNamedSegment(fd, header, fileName));
        if (header->kind != static_cast<std::uint32_t>(kind))
        {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr; // the segment's destructor drops our hold
        }
        registry.Remember(fileName, segment);
        return segment;
    }
}

W32pNamedSegment::~W32pNamedSegment()
{
    // Takes no registry lock (a segment may end while Open holds it); Open drops expired entries instead.
    munmap(m_header, kHeaderSize);
    // The last holder anywhere removes the name; the exclusive lock proves nobody else holds it.
    if (LockByte0(m_fd, F_WRLCK, false) && StillNamed(m_fd, kShmDir + m_fileName))
        shm_unlink(("/" + m_fileName).c_str());
    close(m_fd);
}
