// The directory and file watchers on real folders: every change kind once with its path, nested folders
// made after the start, bursts, stopping, a deleted folder, start/stop cycles without leftovers, and the
// injected waiting service.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "kortestsupport.h"
#include "veldirwatcher.h"
#include "velfilewatcher.h"
#include "velwaithelper.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <dirent.h>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace fs = boost::filesystem;

namespace
{

using Change = std::pair<DirChangeEnum, fs::path>;

// Gathers callbacks from the watcher's thread; the test thread waits for a condition with a watchdog.
class Changes
{
public:
    DirChangeCallback Callback()
    {
        return [this](DirChangeEnum kind, const fs::path& path)
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_seen.emplace_back(kind, path);
            m_changed.notify_all();
        };
    }
    // Waits (at most 20 s: a watchdog, not a time limit under test) until at least count changes arrived.
    std::vector<Change> WaitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(m_lock);
        m_changed.wait_for(guard, std::chrono::seconds(20), [&] { return m_seen.size() >= count; });
        return m_seen;
    }
    std::vector<Change> Now()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_seen;
    }

private:
    std::mutex m_lock; // guards m_seen
    std::condition_variable m_changed;
    std::vector<Change> m_seen;
};

int CountEntries(const char* folder)
{
    int n = 0;
    if (DIR* dir = opendir(folder))
    {
        while (readdir(dir))
            ++n;
        closedir(dir);
    }
    return n;
}

void Touch(const fs::path& path)
{
    std::ofstream(path.string()).close();
}

// A waiting service whose multiple-event wait fails, to show that the watcher waits only through it.
class FailingWaitHelper : public CVeLWaitHelper
{
public:
    FailingWaitHelper() : CVeLWaitHelper(false) {}
    bool WaitForMultipleEvents(std::vector<void*>, DWORD, int&, WaitStatusEnum&) const override
    {
        return false;
    }
};

using DirWatcherTest = kortest::FileSystemTest;

} // namespace

TEST_F(DirWatcherTest, ReportsEachKindOnceWithItsPathIncludingNewNestedFolders)
{
    Changes changes;
    CVeLDirWatcher watcher;
    ASSERT_TRUE(watcher.Start(Root(), true, DirChangeAll, changes.Callback()));
    EXPECT_TRUE(watcher.IsRunning());

    WriteFile(Root() / "a.txt", "x");
    fs::rename(Root() / "a.txt", Root() / "b.txt");
    fs::remove(Root() / "b.txt");
    fs::create_directories(Root() / "n1" / "n2");
    const fs::path deep = Root() / "n1" / "n2" / fs::path(u8"\u00e4rger-\u20ac.txt");
    Touch(deep);
    const std::vector<Change> expected = {
        {DirChangeAdded, Root() / "a.txt"},       {DirChangeModified, Root() / "a.txt"},
        {DirChangeRenamedFrom, Root() / "a.txt"}, {DirChangeRenamedTo, Root() / "b.txt"},
        {DirChangeRemoved, Root() / "b.txt"},     {DirChangeAdded, Root() / "n1"},
        {DirChangeAdded, Root() / "n1" / "n2"},   {DirChangeAdded, deep}};
    EXPECT_EQ(expected, changes.WaitFor(expected.size()));
    EXPECT_TRUE(watcher.Stop(5000));
    EXPECT_EQ(DirWatchStopped, watcher.GetEndReason());
    EXPECT_EQ(expected.size(), changes.Now().size()); // nothing twice, nothing after the stop
}

TEST_F(DirWatcherTest, MaskChoosesKindsAndSubtreeIsOptional)
{
    fs::create_directories(Root() / "sub");
    Changes changes;
    CVeLDirWatcher watcher;
    ASSERT_TRUE(watcher.Start(Root(), false, DirChangeRemoved, changes.Callback()));
    Touch(Root() / "sub" / "below"); // not watched without the subtree
    Touch(Root() / "kept");          // an addition, not chosen
    fs::remove(Root() / "sub" / "below");
    fs::remove(Root() / "kept");
    EXPECT_EQ((std::vector<Change>{{DirChangeRemoved, Root() / "kept"}}), changes.WaitFor(1));
    EXPECT_TRUE(watcher.Stop(5000));
    EXPECT_EQ(1u, changes.Now().size());
}

TEST_F(DirWatcherTest, BurstIsReportedCompletelyOrAsLostNeverPartlyAndSilently)
{
    const int count = 10000;
    std::mutex lock;
    std::set<fs::path> added;
    std::size_t duplicates = 0;
    bool lost = false;
    std::condition_variable changed;
    CVeLDirWatcher watcher;
    ASSERT_TRUE(watcher.Start(Root(), false, DirChangeAdded,
                              [&](DirChangeEnum kind, const fs::path& path)
                              {
                                  std::lock_guard<std::mutex> guard(lock);
                                  if (kind == DirChangeLost)
                                      lost = true;
                                  else if (!added.insert(path).second)
                                      ++duplicates;
                                  changed.notify_all();
                              }));
    for (int i = 0; i < count; ++i)
        Touch(Root() / ("f" + std::to_string(i)));
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, std::chrono::seconds(60), [&] { return lost || added.size() == count; });
    EXPECT_TRUE(lost || added.size() == static_cast<std::size_t>(count)) << added.size() << " of " << count;
    EXPECT_EQ(0u, duplicates);
    guard.unlock();
    EXPECT_TRUE(watcher.Stop(5000));
}

TEST_F(DirWatcherTest, DeletedFolderEndsTheWatchWithItsReason)
{
    const fs::path watched = Root() / "watched";
    WriteFile(watched / "inside" / "file", "x");
    Changes changes;
    CVeLDirWatcher watcher;
    ASSERT_TRUE(watcher.Start(watched, true, DirChangeAll, changes.Callback()));
    BTraceCapture capture;
    fs::remove_all(watched);
    std::vector<Change> seen;
    for (int i = 0; i < 200 && (seen.empty() || seen.back().first != DirChangeEnded); ++i)
        seen = changes.WaitFor(seen.size() + 1);
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(Change(DirChangeEnded, watched), seen.back());
    EXPECT_EQ(DirWatchFolderRemoved, watcher.GetEndReason());
    EXPECT_TRUE(watcher.Stop(5000));
    EXPECT_FALSE(watcher.IsRunning());
    EXPECT_EQ(1u, capture.CountContaining("was removed - watch ended"));
}

TEST_F(DirWatcherTest, StartStopCyclesLeaveNoThreadOrDescriptor)
{
    KORTEST_LINUX_ONLY("counts threads and descriptors in /proc/self");
    CVeLDirWatcher watcher;
    // One cycle first: a sanitizer starts a helper thread of its own with the first thread.
    ASSERT_TRUE(watcher.Start(Root(), true, DirChangeAll, [](DirChangeEnum, const fs::path&) {}));
    ASSERT_TRUE(watcher.Stop(10000));
    const int threads = CountEntries("/proc/self/task");
    const int descriptors = CountEntries("/proc/self/fd");
    for (int i = 0; i < 1000; ++i)
    {
        ASSERT_TRUE(watcher.Start(Root(), true, DirChangeAll, [](DirChangeEnum, const fs::path&) {}));
        ASSERT_TRUE(watcher.Stop(10000)); // a watchdog; the time it takes is measured in bench/
    }
    EXPECT_EQ(threads, CountEntries("/proc/self/task"));
    EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
}

TEST_F(DirWatcherTest, CallbackMayStopAndMayThrow)
{
    CVeLDirWatcher watcher;
    int calls = 0;
    ASSERT_TRUE(watcher.Start(Root(), false, DirChangeAdded,
                              [&](DirChangeEnum, const fs::path&)
                              {
                                  if (++calls == 1)
                                      throw std::runtime_error("host's mistake");
                                  EXPECT_TRUE(watcher.Stop(0));
                              }));
    Touch(Root() / "one");
    Touch(Root() / "two");
    EXPECT_TRUE(kortest::WaitUntil([&] { return !watcher.IsRunning(); }));
    EXPECT_EQ(2, calls);
    EXPECT_EQ(DirWatchStopped, watcher.GetEndReason());
}

TEST_F(DirWatcherTest, RefusalsAreTraced)
{
    BTraceCapture capture;
    CVeLDirWatcher watcher;
    const auto ignore = [](DirChangeEnum, const fs::path&) {};
    EXPECT_FALSE(watcher.Start(Root() / "missing", false, DirChangeAll, ignore));
    EXPECT_EQ(1u, capture.CountContaining("Can't open folder"));
    EXPECT_FALSE(watcher.Start(Root(), false, 0, ignore));
    EXPECT_FALSE(watcher.Start(Root(), false, DirChangeAll, DirChangeCallback()));
    ASSERT_TRUE(watcher.Start(Root(), false, DirChangeAll, ignore));
    EXPECT_FALSE(watcher.Start(Root(), false, DirChangeAll, ignore));
    EXPECT_TRUE(watcher.Stop(5000));

    CVeLDirWatcher withoutImpl(std::make_shared<CVeLWinAPIWrapper>(), nullptr);
    EXPECT_FALSE(withoutImpl.Start(Root(), false, DirChangeAll, ignore));
    EXPECT_FALSE(withoutImpl.Stop(0));
    CVeLFileWatcher fileWithoutImpl(nullptr);
    EXPECT_FALSE(fileWithoutImpl.Start(Root() / "f", DirChangeAll, ignore));
}

TEST_F(DirWatcherTest, WaitsThroughTheInjectedServiceAndFacade)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    Changes changes;
    {
        CVeLDirWatcher watcher(api, std::make_shared<FailingWaitHelper>());
        ASSERT_TRUE(watcher.Start(Root(), false, DirChangeAll, changes.Callback()));
        kortest::WaitUntil([&] { return !watcher.IsRunning(); });
        EXPECT_EQ(DirWatchFailed, watcher.GetEndReason());
    }
    EXPECT_EQ((std::vector<Change>{{DirChangeEnded, Root()}}), changes.Now());
    EXPECT_EQ(1u, api->CallCount("ReadDirectoryChangesW"));
    EXPECT_EQ(1u, api->CallCount("CancelIoEx")); // the pending request is cancelled before the handle closes
}

TEST_F(DirWatcherTest, FileWatcherFollowsOneNameAndSeesReplaceByRename)
{
    const fs::path file = Root() / "settings.xml";
    Changes changes;
    CVeLFileWatcher watcher;
    ASSERT_TRUE(watcher.Start(file, DirChangeAll, changes.Callback()));
    Touch(Root() / "other.xml");
    WriteFile(file, "<a/>");
    WriteFile(Root() / "settings.xml.tmp", "<b/>");
    fs::rename(Root() / "settings.xml.tmp", file);
    fs::remove(file);
    const std::vector<Change> expected = {{DirChangeAdded, file},
                                          {DirChangeModified, file},
                                          {DirChangeRenamedTo, file},
                                          {DirChangeRemoved, file}};
    EXPECT_EQ(expected, changes.WaitFor(expected.size()));
    EXPECT_TRUE(watcher.Stop(5000));
    EXPECT_EQ(expected, changes.Now());
}
