// CVeLWaitHelper: the library's waiting service. Every wait runs one loop on WaitForMultipleObjects
// (wait for any) that keeps to the time-out as a deadline even when a wait returns early. Holds only its
// trace switch (which governs the chatty lines of the loop; error lines are always written), so one
// instance may be used by several threads at once. WaitTime starts one short-lived sleeper thread.
#pragma once

#include "korutilities_export.h"
#include "ivelwaithelper.h"
#include "velhandle.h"
#include "velwaithelpertimesupport.h"

// The record handed to WaitTime's sleeper thread; it lives on the caller's stack, which outlives the
// thread because the caller waits for the event.
struct KORUTILITIES_API WaitThreadStruct
{
    WaitThreadStruct(void* event, DWORD milliseconds);
    virtual ~WaitThreadStruct();

    CVeLHANDLE m_event;
    DWORD m_milliseconds;
};

class KORUTILITIES_API CVeLWaitHelper : public IVeLWaitHelper
{
public:
    explicit CVeLWaitHelper(bool trace);
    // For tests: deadlines read from clock instead of the corrected tick count.
    CVeLWaitHelper(bool trace, CVeLWaitHelperTimeSupport::TickSource clock);
    CVeLWaitHelper(const CVeLWaitHelper&) = default;
    CVeLWaitHelper& operator=(const CVeLWaitHelper&) = default;
    ~CVeLWaitHelper() override;

    // Waits for one event. A null event: status WaitError, false.
    bool WaitForEvent(void* event, DWORD timeout, WaitStatusEnum& status) const override;
    // Opens the named event for the wait and closes it afterwards; an unknown name: traced, status
    // WaitError, false.
    bool WaitForEvent(std::wstring eventName, DWORD timeout, WaitStatusEnum& status) const override;
    // Waits for any of the events; on WaitSignaled index is the lowest signalled place in the vector.
    // An empty vector makes the wait function fail, which the unsigned index test counts as "signalled"
    // with index -1: true, WaitSignaled, index -1.
    bool WaitForMultipleEvents(std::vector<void*> events, DWORD timeout, int& index,
                               WaitStatusEnum& status) const override;
    // Waits for a process or thread handle to be signalled at its end.
    bool WaitForProcessEnd(void* processOrThread, DWORD timeout, WaitStatusEnum& status) const override;
    // Waits milliseconds on an event that a sleeper thread sets; returns at once (traced) when the thread
    // cannot be started.
    void WaitTime(DWORD milliseconds) const override;

private:
    bool WaitWithCalculatedTimeout(void* const* handles, int count, DWORD timeout, WaitStatusEnum& status,
                                   int* index) const;
    bool IsEventSignaled(DWORD waitResult, int count) const;
    bool IsFullfilledWaitCondition(DWORD waitResult, bool calcedTimeoutReached, int count) const;

    bool m_trace;
    CVeLWaitHelperTimeSupport::TickSource m_clock;
};
