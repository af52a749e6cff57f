#include "velwaithelper.h"
#include "korutilitesbtracedef.h"
#include "veltimeutilites.h"

#include <memory>
#include <new>

namespace
{

DWORD SleeperThread(LPVOID parameter)
{
    if (parameter == nullptr)
        return 1;
    WaitThreadStruct* record = static_cast<WaitThreadStruct*>(parameter);
    Sleep(record->m_milliseconds);
    SetEvent(record->m_event.GetHandle());
    return 0;
}

} // namespace

WaitThreadStruct::WaitThreadStruct(void* event, DWORD milliseconds)
    : m_event(event), m_milliseconds(milliseconds)
{
}

WaitThreadStruct::~WaitThreadStruct() {}

CVeLWaitHelper::CVeLWaitHelper(bool trace) : m_trace(trace), m_clock(&CVeLTimeUtilites::GetCorrectedTickCount)
{
}

CVeLWaitHelper::CVeLWaitHelper(bool trace, CVeLWaitHelperTimeSupport::TickSource clock)
    : m_trace(trace), m_clock(clock != nullptr ? clock : &CVeLTimeUtilites::GetCorrectedTickCount)
{
}

CVeLWaitHelper::~CVeLWaitHelper() {}

bool CVeLWaitHelper::WaitForEvent(void* event, DWORD timeout, WaitStatusEnum& status) const
{
    if (event == nullptr)
    {
        VEL_TRACE(VEL_ERR, "No Event!");
        status = WaitError;
        return false;
    }
    return WaitWithCalculatedTimeout(&event, 1, timeout, status, nullptr);
}

bool CVeLWaitHelper::WaitForEvent(std::wstring eventName, DWORD timeout, WaitStatusEnum& status) const
{
    CVeLHANDLE event(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, eventName.c_str()));
    if (event.GetHandle() == nullptr)
    {
        const DWORD error = GetLastError();
        VEL_TRACE(VEL_ERR, "OpenEvent failed (code= 0x%08X!", error);
        status = WaitError;
        return false;
    }
    return WaitWithCalculatedTimeout(&event, 1, timeout, status, nullptr);
}

bool CVeLWaitHelper::WaitForMultipleEvents(std::vector<void*> events, DWORD timeout, int& index,
                                           WaitStatusEnum& status) const
{
    const int count = static_cast<int>(events.size());
    std::unique_ptr<void*[]> handles(new (std::nothrow) void*[static_cast<std::size_t>(count)]);
    if (!handles)
    {
        VEL_TRACE(VEL_ERR, "Can't create handle list!");
        return false;
    }
    for (int i = 0; i < count; ++i)
        handles[static_cast<std::size_t>(i)] = events[static_cast<std::size_t>(i)];
    return WaitWithCalculatedTimeout(handles.get(), count, timeout, status, &index);
}

bool CVeLWaitHelper::WaitForProcessEnd(void* processOrThread, DWORD timeout, WaitStatusEnum& status) const
{
    VEL_TRACE(VEL_DBG1, "Wait for process / thread end of handle= 0x%08X...",
              static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(processOrThread)));
    return WaitWithCalculatedTimeout(&processOrThread, 1, timeout, status, nullptr);
}

void CVeLWaitHelper::WaitTime(DWORD milliseconds) const
{
    WaitThreadStruct record(CreateEventW(nullptr, FALSE, FALSE, nullptr), milliseconds);
    CVeLHANDLE thread(CreateThread(nullptr, 0, &SleeperThread, &record, 0, nullptr));
    if (thread.GetHandle() == nullptr)
    {
        VEL_TRACE(VEL_ERR, "CreateThread failed!");
        return;
    }
    WaitStatusEnum status = WaitError;
    WaitWithCalculatedTimeout(&record.m_event, 1, INFINITE, status, nullptr);
}

// The wait loop. Each pass waits for the remaining time and then asks the deadline (also after a
// successful wait): a signalled handle wins over everything; otherwise a passed deadline ends the wait
// as a time-out, even when the wait function failed; an early WAIT_TIMEOUT waits again for the rest;
// WAIT_FAILED before the deadline ends the wait with false and leaves the status alone; anything else
// (an abandoned mutex) is ignored and waited past.
bool CVeLWaitHelper::WaitWithCalculatedTimeout(void* const* handles, int count, DWORD timeout,
                                               WaitStatusEnum& status, int* index) const
{
    bool result = false;
    CVeLWaitHelperTimeSupport time(timeout, m_clock);
    for (;;)
    {
        const DWORD waitResult =
            WaitForMultipleObjects(static_cast<DWORD>(count), handles, FALSE, time.GetWaitTime());
        const DWORD lastError = GetLastError();
        const bool reached = time.IsCalcedTimeout();
        if (IsEventSignaled(waitResult, count))
        {
            if (m_trace)
                VEL_TRACE(VEL_DBG3, "Event %d signaled.", waitResult);
            if (index != nullptr)
                *index = static_cast<int>(waitResult);
            status = WaitSignaled;
            result = true;
            break;
        }
        if (reached)
        {
            if (m_trace)
                VEL_TRACE(VEL_WRN, "Calculated timeout reached! (%d)", waitResult);
            status = WaitTimeout;
            result = true;
            break;
        }
        if (waitResult == WAIT_TIMEOUT)
        {
            if (m_trace)
                VEL_TRACE(VEL_DBG1, "Timeout signaled, but not reached - continue waiting.");
            continue;
        }
        if (waitResult == WAIT_FAILED)
        {
            VEL_TRACE(VEL_ERR, "MsgWaitForMultipleObjects failed (code= 0x%08X)!", lastError);
            break;
        }
    }
    return result;
}

bool CVeLWaitHelper::IsEventSignaled(DWORD waitResult, int count) const
{
    return waitResult <= static_cast<DWORD>(count - 1);
}

bool CVeLWaitHelper::IsFullfilledWaitCondition(DWORD waitResult, bool calcedTimeoutReached, int count) const
{
    if (waitResult == WAIT_TIMEOUT)
        return !calcedTimeoutReached;
    return !IsEventSignaled(waitResult, count) && waitResult != WAIT_FAILED;
}
