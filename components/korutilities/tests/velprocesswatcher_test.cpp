#include "kortestsupport.h"
#include "procchild.h"
#include "velprocesswatcher.h"

#include <condition_variable>
#include <map>
#include <mutex>

using kortest::HelperStart;

namespace
{

// What the callback saw: how often each process was reported and with which exit code.
struct Ends
{
    std::mutex lock; // guards calls and codes
    std::condition_variable changed;
    std::map<DWORD, int> calls;
    std::map<DWORD, DWORD> codes;

    ProcessEndCallback Callback()
    {
        return [this](DWORD id, bool known, DWORD code)
        {
            std::lock_guard<std::mutex> guard(lock);
            ++calls[id];
            codes[id] = known ? code : 0xFFFFFFFF;
            changed.notify_all();
        };
    }
    bool WaitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, std::chrono::seconds(10), [&] { return calls.size() >= count; });
    }
};

TEST(ProcessWatcher, ReportsEachEndOnceWithItsCodeAlsoForSignals)
{
    CVeLProcessHelper helper;
    Ends ends;
    CVeLProcessWatcher watcher;
    ASSERT_TRUE(watcher.Start(ends.Callback()));
    std::shared_ptr<CVeLProcess> three = helper.Start(HelperStart({L"exit", L"3"}));
    std::shared_ptr<CVeLProcess> five =
        helper.Start(HelperStart({L"sleep", L"2000"})); // still runs when opened by id
    std::shared_ptr<CVeLProcess> killed = helper.Start(HelperStart({L"sleep", L"60000"}));
    std::shared_ptr<CVeLProcess> ended = helper.Start(HelperStart({L"exit", L"5"}));
    ASSERT_TRUE(three && five && killed && ended);
    ASSERT_EQ(ProcessStatusEnded, ended->Wait(10000).GetValue()); // already over when it is watched
    EXPECT_TRUE(watcher.Watch(three));
    EXPECT_TRUE(watcher.Watch(five->GetId()));
    EXPECT_TRUE(watcher.Watch(killed));
    EXPECT_TRUE(watcher.Watch(ended));
    kortest::KillProcess(static_cast<pid_t>(killed->GetId()));
    ASSERT_TRUE(ends.WaitFor(4));
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // a second report would show up now
    std::lock_guard<std::mutex> guard(ends.lock);
    EXPECT_EQ((std::map<DWORD, int>{
                  {three->GetId(), 1}, {five->GetId(), 1}, {killed->GetId(), 1}, {ended->GetId(), 1}}),
              ends.calls);
    EXPECT_EQ(3u, ends.codes[three->GetId()]);
    EXPECT_EQ(0u, ends.codes[five->GetId()]);
    EXPECT_EQ(DWORD(kortest::KilledExitCode), ends.codes[killed->GetId()]);
    EXPECT_EQ(5u, ends.codes[ended->GetId()]);
    EXPECT_EQ(0u, watcher.GetWatchedCount());
}

TEST(ProcessWatcher, StopsWhileProcessesRunAndRefusesBadInput)
{
    CVeLProcessHelper helper;
    Ends ends;
    CVeLProcessWatcher watcher;
    EXPECT_FALSE(watcher.Start(ProcessEndCallback()));
    EXPECT_FALSE(watcher.Watch(std::shared_ptr<CVeLProcess>()));
    EXPECT_FALSE(watcher.Watch(0x3FFFFFF0));
    ASSERT_TRUE(watcher.Start(ends.Callback()));
    EXPECT_FALSE(watcher.Start(ends.Callback()));
    std::shared_ptr<CVeLProcess> sleeper = helper.Start(HelperStart({L"sleep", L"60000"}));
    ASSERT_TRUE(sleeper && watcher.Watch(sleeper));
    EXPECT_TRUE(watcher.Stop(5000));
    EXPECT_FALSE(watcher.IsRunning());
    EXPECT_TRUE(sleeper->End(0, 1));
    std::lock_guard<std::mutex> guard(ends.lock);
    EXPECT_TRUE(ends.calls.empty()); // nothing reported after Stop
}

} // namespace
