// CVeLWorkerThread and CVeLAsyncJobSynchronizer.
#include "tracedtest.h"
#include "korutilitesbtracedef.h"
#include "velasyncjobsynchronizer.h"
#include "velworkerthread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace
{

class CountingWorker : public CVeLWorkerThread
{
public:
    ~CountingWorker() override { Stop(5000); }
    bool prepare = true, ready = true;
    int missionsBeforeFailure = -1; // -1: never fails
    std::atomic<int> missions{0};

protected:
    bool PrepareForThreadStart() override { return prepare; }
    bool IsReadyToRun() override { return ready; }
    bool ThreadMission() override
    {
        const int done = ++missions;
        if (missionsBeforeFailure >= 0 && done > missionsBeforeFailure)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        return true;
    }
};

using WorkerTest = kortest::TracedTest;

} // namespace

TEST_F(WorkerTest, StartConfirmsThenStopEnds)
{
    BTraceCapture capture;
    CountingWorker worker;
    EXPECT_FALSE(worker.IsRunning());
    ASSERT_TRUE(worker.Start(5000));
    EXPECT_TRUE(worker.IsRunning());
    EXPECT_FALSE(worker.Start(5000));
    EXPECT_FALSE(worker.RequestStart());
    EXPECT_EQ(capture.Count(VEL_ERR, "thread already running"), 2u);
    while (worker.missions < 5)
        std::this_thread::yield();
    EXPECT_TRUE(worker.Stop(5000));
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_TRUE(capture.Contains(VEL_DBG3, ">>> WaitForEnd start"));
    EXPECT_TRUE(capture.Contains(VEL_DBG3, "... WaitForEnd end"));
    // It can be started again.
    ASSERT_TRUE(worker.Start(5000));
    EXPECT_TRUE(worker.Stop(5000));
}

TEST_F(WorkerTest, FailingMissionEndsTheThread)
{
    BTraceCapture capture;
    CountingWorker worker;
    worker.missionsBeforeFailure = 3;
    ASSERT_TRUE(worker.RequestStart());
    EXPECT_TRUE(worker.WaitForEnd(5000));
    EXPECT_EQ(worker.missions.load(), 4);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_TRUE(capture.Contains(VEL_DBG1, "thread mission returns false  --> leave thread main loop"));
}

TEST_F(WorkerTest, NotReadyToRunReturnsPromptlyWithoutRunning)
{
    BTraceCapture capture;
    CountingWorker worker;
    worker.ready = false;
    EXPECT_FALSE(worker.Start(5000));
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.missions.load(), 0);
    EXPECT_TRUE(worker.WaitForEnd(5000)); // the thread traces after releasing the start lock
    EXPECT_TRUE(capture.Contains(VEL_ERR, "Thread not ready to run  --> leave thread main loop"));
}

TEST_F(WorkerTest, FailedPreparationStopsTheStart)
{
    BTraceCapture capture;
    CountingWorker worker;
    worker.prepare = false;
    EXPECT_FALSE(worker.Start(100));
    EXPECT_TRUE(capture.Contains(VEL_ERR, "PrepareForThreadStart failed"));
    EXPECT_TRUE(capture.Contains(VEL_ERR, "RequestStart failed"));
    EXPECT_FALSE(worker.WaitForEnd(0)); // there is no thread
    EXPECT_TRUE(capture.Contains(VEL_ERR, "wait for thread end FAILED! Error 2"));
}

TEST_F(WorkerTest, StartWithZeroTimeoutMayNotWaitButTheThreadRuns)
{
    BTraceCapture capture;
    CountingWorker worker;
    if (!worker.Start(0))
    {
        EXPECT_TRUE(capture.Contains(VEL_ERR, "wait for thread start finish failed"));
    }
    while (worker.missions == 0)
        std::this_thread::yield();
    EXPECT_TRUE(worker.Stop(5000));
}

TEST_F(WorkerTest, JobKeptAliveByProgressPastItsTimeout)
{
    BTraceCapture capture;
    CVeLAsyncJobSynchronizer sync;
    std::thread job(
        [&]
        {
            for (int i = 0; i < 6; ++i)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(25));
                sync.ResetTimeout();
            }
            sync.SetJobFinished();
        });
    // 150 ms of work with a 100 ms time-out: the signs of life keep the wait going.
    EXPECT_TRUE(sync.WaitForJobFinish(100));
    job.join();
    EXPECT_GE(capture.Count(VEL_DBG1, "progress triggered => job still alive"), 1u);
    EXPECT_TRUE(capture.Contains(VEL_DBG1, "job finished in time"));
}

TEST_F(WorkerTest, CancelledAndSilentJobs)
{
    BTraceCapture capture;
    CVeLAsyncJobSynchronizer sync;
    sync.SetJobFinished(); // before the wait: discarded
    std::thread job(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            sync.SetJobCanceled();
        });
    EXPECT_FALSE(sync.WaitForJobFinish(5000));
    job.join();
    EXPECT_TRUE(capture.Contains(VEL_ERR, "an error occured => stop job!"));

    EXPECT_FALSE(sync.WaitForJobFinish(30));
    EXPECT_TRUE(capture.Contains(VEL_WRN, "timeout occured => job not finished yet"));
}
