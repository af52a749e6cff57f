// Directory watching: the time from a file's creation to the callback, with CVeLDirWatcher beside a bare
// inotify loop on a thread of its own (what a user would write without the library), both handing the
// change to the waiting thread the same way; and the time Stop takes on an idle watcher beside ending a
// bare inotify thread through an eventfd.
#include "veldirwatcher.h"

#include <benchmark/benchmark.h>

#include <boost/filesystem.hpp>

#include <atomic>
#include <climits>
#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace
{

// The hand-over from the watching thread to the benchmark thread, the same for both sides.
struct Arrivals
{
    std::mutex lock;
    std::condition_variable arrived;
    unsigned long count = 0; // guarded by lock
    void Signal()
    {
        std::lock_guard<std::mutex> guard(lock);
        ++count;
        arrived.notify_one();
    }
    void WaitFor(unsigned long target)
    {
        std::unique_lock<std::mutex> guard(lock);
        arrived.wait(guard, [&] { return count >= target; });
    }
};

struct Folder
{
    Folder() : path(fs::temp_directory_path() / fs::unique_path("korwatchbench-%%%%-%%%%"))
    {
        fs::create_directories(path);
    }
    ~Folder()
    {
        boost::system::error_code ignored;
        fs::remove_all(path, ignored);
    }
    void Create(unsigned long i) const
    {
        close(open((path / std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0644));
    }
    fs::path path;
};

// A bare inotify loop: one watch, IN_CREATE, read and signal until the eventfd says stop.
class BareInotify
{
public:
    BareInotify(const fs::path& folder, Arrivals& arrivals) : m_arrivals(arrivals)
    {
        m_inotify = inotify_init1(IN_CLOEXEC);
        m_stop = eventfd(0, EFD_CLOEXEC);
        inotify_add_watch(m_inotify, folder.c_str(), IN_CREATE);
        m_thread = std::thread([this] { Loop(); });
    }
    ~BareInotify()
    {
        const uint64_t one = 1;
        if (write(m_stop, &one, sizeof one) < 0)
            return;
        m_thread.join();
        close(m_inotify);
        close(m_stop);
    }

private:
    void Loop()
    {
        alignas(inotify_event) char buffer[16 * 1024];
        pollfd fds[2] = {{m_inotify, POLLIN, 0}, {m_stop, POLLIN, 0}};
        for (;;)
        {
            poll(fds, 2, -1);
            if (fds[1].revents)
                return;
            const ssize_t n = read(m_inotify, buffer, sizeof buffer);
            for (ssize_t at = 0; at < n;)
            {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                m_arrivals.Signal();
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
    }
    Arrivals& m_arrivals;
    int m_inotify;
    int m_stop;
    std::thread m_thread;
};

void BM_CreateToCallback_DirWatcher(benchmark::State& state)
{
    Folder folder;
    Arrivals arrivals;
    CVeLDirWatcher watcher;
    watcher.Start(folder.path, false, DirChangeAdded,
                  [&](DirChangeEnum, const fs::path&) { arrivals.Signal(); });
    unsigned long i = 0;
    for (auto _ : state)
    {
        folder.Create(++i);
        arrivals.WaitFor(i);
    }
    watcher.Stop(INFINITE);
}
BENCHMARK(BM_CreateToCallback_DirWatcher)->UseRealTime();

void BM_CreateToCallback_BareInotify(benchmark::State& state)
{
    Folder folder;
    Arrivals arrivals;
    BareInotify loop(folder.path, arrivals);
    unsigned long i = 0;
    for (auto _ : state)
    {
        folder.Create(++i);
        arrivals.WaitFor(i);
    }
}
BENCHMARK(BM_CreateToCallback_BareInotify)->UseRealTime();

void BM_StopIdle_DirWatcher(benchmark::State& state)
{
    Folder folder;
    for (auto _ : state)
    {
        state.PauseTiming();
        CVeLDirWatcher watcher;
        watcher.Start(folder.path, true, DirChangeAll, [](DirChangeEnum, const fs::path&) {});
        state.ResumeTiming();
        watcher.Stop(INFINITE);
    }
}
BENCHMARK(BM_StopIdle_DirWatcher)->UseRealTime();

void BM_StopIdle_BareInotify(benchmark::State& state)
{
    Folder folder;
    Arrivals arrivals;
    for (auto _ : state)
    {
        state.PauseTiming();
        auto* loop = new BareInotify(folder.path, arrivals);
        state.ResumeTiming();
        delete loop;
    }
}
BENCHMARK(BM_StopIdle_BareInotify)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
