// Linux side of the trace back-end: segment files in /dev/shm/korbtrace-<uid> (a tmpfs folder of mode
// 0700 owned by the user, so other users can neither read a ring nor plant one), mapped with mmap, and the
// fatal-signal hook, and the hook that turns warnings of the Win32 layer below into trace lines. Only POSIX
// calls live here; the rest of btrace is the same on every platform.
#include "btrace.h"
#include "btraceplatform.h"
#include "w32p_warning.h"

#include <atomic>
#include <mutex>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace btrace_platform
{

namespace
{

std::string Reason(const char* what, int error)
{
    return std::string(what) + ": " + std::strerror(error);
}

// Owns one descriptor so every early return closes it.
struct Fd
{
    int fd;
    explicit Fd(int f) : fd(f) {}
    ~Fd()
    {
        if (fd >= 0)
            ::close(fd);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
};

// A segment file must be a regular file of ours: anything else at that name is refused, never followed.
bool CheckOwnRegular(int fd, struct stat& st, std::string& error)
{
    if (::fstat(fd, &st) != 0)
    {
        error = Reason("fstat", errno);
        return false;
    }
    if (!S_ISREG(st.st_mode) || st.st_uid != ::geteuid())
    {
        error = "not a segment file of this user";
        return false;
    }
    return true;
}

int OpenSegment(const std::string& path, int flags, std::string& error)
{
    int fd = ::open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600);
    if (fd < 0)
        error = Reason(("open " + path).c_str(), errno);
    return fd;
}

} // namespace

bool SegmentFolder(std::string& folder, std::string& error)
{
    folder = "/dev/shm/korbtrace-" + std::to_string(::geteuid());
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
    {
        error = Reason(("mkdir " + folder).c_str(), errno);
        return false;
    }
    struct stat st;
    if (::lstat(folder.c_str(), &st) != 0)
    {
        error = Reason(("lstat " + folder).c_str(), errno);
        return false;
    }
    if (!S_ISDIR(st.st_mode) || st.st_uid != ::geteuid() || (st.st_mode & 0077) != 0)
    {
        error = folder + " is not a private folder of this user";
        return false;
    }
    return true;
}

void* MapSegment(const std::string& path, std::uint64_t bytes, std::string& error)
{
    Fd file(OpenSegment(path, O_RDWR | O_CREAT, error));
    struct stat st;
    if (file.fd < 0 || !CheckOwnRegular(file.fd, st, error))
        return nullptr;
    // Truncating to 0 first drops the previous process's ring, so the new one starts zero-filled.
    if (::ftruncate(file.fd, 0) != 0 || ::ftruncate(file.fd, static_cast<off_t>(bytes)) != 0)
    {
        error = Reason("ftruncate", errno);
        return nullptr;
    }
    void* view = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.fd, 0);
    if (view == MAP_FAILED)
    {
        error = Reason("mmap", errno);
        return nullptr;
    }
    return view;
}

bool ReadSegmentFile(const std::string& path, std::uint64_t limit, std::vector<unsigned char>& data,
                     std::string& error)
{
    Fd file(OpenSegment(path, O_RDONLY, error));
    struct stat st;
    if (file.fd < 0 || !CheckOwnRegular(file.fd, st, error))
        return false;
    if (static_cast<std::uint64_t>(st.st_size) > limit)
    {
        error = "file too large for a segment";
        return false;
    }
    data.resize(static_cast<std::size_t>(st.st_size));
    std::size_t done = 0;
    while (done < data.size())
    {
        ssize_t n = ::pread(file.fd, data.data() + done, data.size() - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break; // shrunk while reading: the header check refuses the short image
        done += static_cast<std::size_t>(n);
    }
    data.resize(done);
    return true;
}

bool ReadSegmentAt(const std::string& path, std::uint64_t offset, void* data, std::size_t size,
                   std::string& error)
{
    Fd file(OpenSegment(path, O_RDONLY, error));
    struct stat st;
    if (file.fd < 0 || !CheckOwnRegular(file.fd, st, error))
        return false;
    if (::pread(file.fd, data, size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size))
    {
        error = "short read of the segment";
        return false;
    }
    return true;
}

bool WriteSegmentAt(const std::string& path, std::uint64_t offset, const void* data, std::size_t size,
                    std::string& error)
{
    Fd file(OpenSegment(path, O_RDWR, error));
    struct stat st;
    if (file.fd < 0 || !CheckOwnRegular(file.fd, st, error))
        return false;
    if (offset + size > static_cast<std::uint64_t>(st.st_size) ||
        ::pwrite(file.fd, data, size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size))
    {
        error = "short write to the segment";
        return false;
    }
    return true;
}

bool RemoveSegmentFile(const std::string& path, std::string& error)
{
    if (::unlink(path.c_str()) != 0)
    {
        error = Reason(("unlink " + path).c_str(), errno);
        return false;
    }
    return true;
}

std::vector<std::string> ListSegmentFiles(const std::string& folder)
{
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr)
        return names;
    while (dirent* entry = ::readdir(dir))
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    ::closedir(dir);
    return names;
}

bool WriteTextFile(const std::string& path, const std::string& text, std::string& error)
{
    const std::string temporary = path + ".tmp" + std::to_string(::getpid());
    {
        Fd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (file.fd < 0)
        {
            error = Reason(("open " + temporary).c_str(), errno);
            return false;
        }
        std::size_t done = 0;
        while (done < text.size())
        {
            ssize_t n = ::write(file.fd, text.data() + done, text.size() - done);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
            {
                error = Reason(("write " + temporary).c_str(), errno);
                ::unlink(temporary.c_str());
                return false;
            }
            done += static_cast<std::size_t>(n);
        }
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0)
    {
        error = Reason(("rename to " + path).c_str(), errno);
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

std::uint32_t ProcessId()
{
    return static_cast<std::uint32_t>(::getpid());
}

std::uint32_t ThreadId()
{
    return static_cast<std::uint32_t>(::syscall(SYS_gettid));
}

bool ProcessAlive(std::uint32_t pid)
{
    return pid != 0 && (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

std::int64_t RealTimeNs()
{
    timespec ts;
    ::clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

void LocalTime(std::int64_t seconds, struct tm& out)
{
    const time_t t = static_cast<time_t>(seconds);
    ::localtime_r(&t, &out);
}

void UtcTime(std::int64_t seconds, struct tm& out)
{
    const time_t t = static_cast<time_t>(seconds);
    ::gmtime_r(&t, &out);
}

std::uint64_t MonotonicNs()
{
    timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::uint64_t>(ts.tv_sec) * 1000000000u + static_cast<std::uint64_t>(ts.tv_nsec);
}

void SleepMs(unsigned ms)
{
    timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (::nanosleep(&ts, &ts) != 0 && errno == EINTR)
    {
    }
}

// The fatal-signal hook. The handler runs onCrash once (a second fault while dumping goes straight to
// the previous disposition), then restores the handler the host had and, for the default disposition,
// re-raises the signal so the process still ends with it (and dumps core where the host allows).
namespace
{

const int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};
struct sigaction g_previous[sizeof kFatalSignals / sizeof kFatalSignals[0]];
void (*g_onCrash)(int) = nullptr;
std::atomic<bool> g_inCrash{false};

void CrashHandler(int sig, siginfo_t* info, void* context)
{
    if (!g_inCrash.exchange(true) && g_onCrash != nullptr)
        g_onCrash(sig);
    for (std::size_t i = 0; i < sizeof kFatalSignals / sizeof kFatalSignals[0]; ++i)
    {
        if (kFatalSignals[i] != sig)
            continue;
        const struct sigaction& previous = g_previous[i];
        if ((previous.sa_flags & SA_SIGINFO) != 0 && previous.sa_sigaction != nullptr)
        {
            previous.sa_sigaction(sig, info, context);
            return;
        }
        if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN)
        {
            previous.sa_handler(sig);
            return;
        }
        ::sigaction(sig, &previous, nullptr);
        if (previous.sa_handler == SIG_IGN)
            ::signal(sig, SIG_DFL);
        // A fault re-executes the instruction and now meets the default action; abort and raised
        // signals need raising again.
        ::raise(sig);
        return;
    }
}

} // namespace

bool InstallCrashHook(void (*onCrash)(int code))
{
    static std::atomic<bool> installed{false};
    if (installed.exchange(true))
        return true;
    g_onCrash = onCrash;
    for (std::size_t i = 0; i < sizeof kFatalSignals / sizeof kFatalSignals[0]; ++i)
    {
        struct sigaction action;
        std::memset(&action, 0, sizeof action);
        action.sa_sigaction = CrashHandler;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        ::sigaction(kFatalSignals[i], &action, &g_previous[i]);
    }
    return true;
}

std::intptr_t CrashOpen(const char* path)
{
    return ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
}

void CrashWrite(std::intptr_t file, const char* data, std::size_t size)
{
    while (size > 0)
    {
        ssize_t n = ::write(static_cast<int>(file), data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
}

void CrashClose(std::intptr_t file)
{
    ::close(static_cast<int>(file));
}

} // namespace btrace_platform

namespace
{

// Warnings of the Win32 layer below (a registry file it skips, and the like) become trace lines of the
// module "win32posix" at WRN, so they land where the program's other traces go instead of on stderr.
BTraceModule g_win32posixModule("win32posix", BTRACE_WRN);

void TraceLayerWarning(const char* message)
{
    static std::once_flag attached;
    std::call_once(attached, [] { BTraceAttachModule(&g_win32posixModule); });
    if (g_win32posixModule.level.load(std::memory_order_relaxed) < BTRACE_WRN)
        return;
    static const BTraceDescriptor descriptor = {&g_win32posixModule, __FILE__, "%s",
                                                static_cast<std::uint32_t>(__LINE__) << 16,
                                                BTraceMakeFlags(BTRACE_WRN, 1)};
    BTracePrint(&descriptor, 0, static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(message)));
}

// Installed when the back-end is loaded; the hook attaches its module on first use, so the order of
// static construction does not matter.
struct LayerWarningHook
{
    LayerWarningHook() { W32pSetWarningHook(&TraceLayerWarning); }
} g_layerWarningHook;

} // namespace
