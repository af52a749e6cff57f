#include "velworkerthread.h"
#include "korutilitesbtracedef.h"
#include "velatomiclock.h"
#include "velwaithelper.h"

CVeLWorkerThread::CVeLWorkerThread()
    : m_stopSemaphore(1, 0), m_running(false), m_stopRequested(false),
      m_startLock(std::make_shared<CVeLAtomicLock>()), m_threadId(0)
{
    m_startLock->Lock();
}

CVeLWorkerThread::~CVeLWorkerThread()
{
    m_startLock.reset();
}

bool CVeLWorkerThread::LockStartLock()
{
    return m_startLock && m_startLock->Lock();
}

bool CVeLWorkerThread::Start(unsigned int timeout)
{
    if (m_running)
    {
        VEL_TRACE(VEL_ERR, "thread already running");
        return false;
    }
    m_startLock = std::make_shared<CVeLAtomicLock>(timeout);
    if (!LockStartLock())
    {
        VEL_TRACE(VEL_ERR, "lock failed");
        return false;
    }
    if (!RequestStart())
    {
        VEL_TRACE(VEL_ERR, "RequestStart failed");
        return false;
    }
    // Spins until the new thread releases the start lock, or until timeout ms have passed.
    if (!LockStartLock())
    {
        VEL_TRACE(VEL_ERR, "wait for thread start finish failed");
        return false;
    }
    return m_running;
}

bool CVeLWorkerThread::RequestStart()
{
    if (m_running)
    {
        VEL_TRACE(VEL_ERR, "thread already running");
        return false;
    }
    m_stopRequested = false;
    if (!PrepareForThreadStart())
    {
        VEL_TRACE(VEL_ERR, "PrepareForThreadStart failed");
        return false;
    }
    m_thread = CreateThread(nullptr, 0, &CVeLWorkerThread::ThreadMain, this, 0, &m_threadId);
    if (!m_thread.IsValid())
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "CreateThread failed with last error %d", error);
        return false;
    }
    return true;
}

void CVeLWorkerThread::RequestStop()
{
    m_stopRequested = true;
    m_stopSemaphore.Release();
}

bool CVeLWorkerThread::Stop(unsigned int timeout)
{
    RequestStop();
    return WaitForEnd(timeout);
}

bool CVeLWorkerThread::WaitForEnd(unsigned int timeout) const
{
    VEL_TRACE(VEL_DBG3, ">>> WaitForEnd start");
    CVeLWaitHelper waitHelper(true);
    WaitStatusEnum status = WaitError;
    if (waitHelper.WaitForEvent(m_thread.GetHandle(), timeout, status) && status == WaitSignaled)
    {
        VEL_TRACE(VEL_DBG3, "... WaitForEnd end");
        return true;
    }
    VEL_TRACE(VEL_ERR, "wait for thread end FAILED! Error %d", status);
    return false;
}

bool CVeLWorkerThread::IsRunning() const
{
    return m_running;
}

DWORD CVeLWorkerThread::ThreadMain(void* self)
{
    if (self != nullptr)
        static_cast<CVeLWorkerThread*>(self)->ThreadMainLoop();
    return 0;
}

void CVeLWorkerThread::ThreadMainLoop()
{
    // The start lock is shared, so the one this thread releases stays alive even if Start replaces it.
    std::shared_ptr<IVeLLockObject> startLock = m_startLock;
    if (!IsReadyToRun() || !startLock)
    {
        m_running = false;
        if (startLock)
            startLock->Release();
        VEL_TRACE(VEL_ERR, "Thread not ready to run  --> leave thread main loop");
        return;
    }
    m_running = true;
    startLock->Release();
    if (m_stopRequested)
    {
        m_running = false;
        return;
    }
    for (;;)
    {
        if (!ThreadMission())
        {
            VEL_TRACE(VEL_DBG1, "thread mission returns false  --> leave thread main loop");
            m_running = false;
            return;
        }
        if (m_stopRequested)
        {
            m_running = false;
            return;
        }
    }
}
