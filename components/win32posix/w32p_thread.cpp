// Threads over detached pthreads.
// The contract, and where Linux differs from Windows, are in w32p_thread.h.
#include "w32p_thread.h"

#include "w32p_sync.h"
#include "w32p_waitable.h"

#include <climits>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

class Thread : public W32pEndable
{
public:
    Thread(LPTHREAD_START_ROUTINE routine, LPVOID parameter, bool suspended)
        : W32pEndable(W32pKind::Thread, &m_ended, &m_sleepers), m_routine(routine), m_parameter(parameter),
          m_suspended(suspended ? 1 : 0)
    {
    }
    bool ExitCode(DWORD& code) const override
    {
        code = m_ended.load() ? m_exitCode.load() : STILL_ACTIVE;
        return true;
    }
    DWORD Resume()
    {
        const DWORD previous = m_suspended.exchange(0);
        if (previous != 0)
            W32pFutexWakeAll(&m_suspended, false);
        return previous;
    }

    // The thread's body; owns a reference to the record until the end.
    static void* Run(void* argument)
    {
        auto* self = static_cast<std::shared_ptr<Thread>*>(argument);
        std::shared_ptr<Thread> thread = std::move(*self);
        delete self;
        thread->m_id.store(W32pThreadId());
        W32pFutexWakeAll(&thread->m_id, false);
        while (thread->m_suspended.load() != 0)
            syscall(SYS_futex, &thread->m_suspended, FUTEX_WAIT_PRIVATE, 1, nullptr, nullptr, 0);
        const DWORD code = thread->m_routine(thread->m_parameter);
        thread->m_exitCode.store(code);
        thread->m_ended.store(1);
        thread->WakeAll();
        return nullptr;
    }

    // Waits until the new thread has published its id.
    DWORD Id()
    {
        std::uint32_t id;
        while ((id = m_id.load()) == 0)
            syscall(SYS_futex, &m_id, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
        return id;
    }

private:
    const LPTHREAD_START_ROUTINE m_routine;
    const LPVOID m_parameter;
    std::atomic<std::uint32_t> m_ended{0};    // futex word: 1 once the routine returned
    std::atomic<std::uint32_t> m_sleepers{0}; // see W32pWaitable
    std::atomic<DWORD> m_exitCode{0};         // the routine's result, stored before m_ended
    std::atomic<std::uint32_t> m_id{0};       // kernel thread id, set by the thread itself
    std::atomic<std::uint32_t> m_suspended;   // futex word: 1 until ResumeThread
};

} // namespace

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T stackSize, LPTHREAD_START_ROUTINE startAddress,
                    LPVOID parameter, DWORD creationFlags, LPDWORD threadId)
{
    if (startAddress == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto thread = std::make_shared<Thread>(startAddress, parameter, (creationFlags & CREATE_SUSPENDED) != 0);
    HANDLE handle = W32pInsertHandle(thread);
    if (handle == nullptr)
        return nullptr;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0)
        pthread_attr_setstacksize(
            &attributes, stackSize < static_cast<SIZE_T>(PTHREAD_STACK_MIN) ? PTHREAD_STACK_MIN : stackSize);
    pthread_t id;
    auto* argument = new std::shared_ptr<Thread>(thread);
    const int error = pthread_create(&id, &attributes, &Thread::Run, argument);
    pthread_attr_destroy(&attributes);
    if (error != 0)
    {
        delete argument;
        W32pRemoveHandle(handle);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (threadId != nullptr)
        *threadId = thread->Id();
    return handle;
}

DWORD ResumeThread(HANDLE thread)
{
    std::shared_ptr<Thread> object = std::dynamic_pointer_cast<Thread>(W32pLookupHandle(thread));
    if (!object)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return static_cast<DWORD>(-1);
    }
    return object->Resume();
}

DWORD GetCurrentThreadId()
{
    return W32pThreadId();
}

BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode)
{
    std::shared_ptr<W32pEndable> object = W32pLookupHandleAs<W32pEndable>(thread, W32pKind::Thread);
    if (!object)
        return FALSE;
    if (exitCode == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    DWORD code = 0;
    if (!object->ExitCode(code))
        return FALSE;
    *exitCode = code;
    return TRUE;
}
