// IVeLWaitHelper: the waiting service (events, process or thread ends, plain time), so that a class's
// waiting can be replaced in tests. Every time-out is a deadline in milliseconds; INFINITE waits forever.
#pragma once

#include "velwin32.h"

#include <string>
#include <vector>

// The outcome of a wait, written through a reference argument.
enum WaitStatusEnum
{
    WaitSignaled = 0, // one of the awaited objects was signalled
    WaitTimeout = 1,  // the time-out elapsed by the deadline clock
    WaitError = 2,    // nothing could be waited on
};

class IVeLWaitHelper
{
public:
    virtual ~IVeLWaitHelper() {}
    // Each returns true when the wait ended in a way status describes (signalled or time-out), false
    // when it could not wait or the wait function failed (status then untouched unless noted).
    virtual bool WaitForEvent(void* event, DWORD timeout, WaitStatusEnum& status) const = 0;
    virtual bool WaitForEvent(std::wstring eventName, DWORD timeout, WaitStatusEnum& status) const = 0;
    virtual bool WaitForMultipleEvents(std::vector<void*> events, DWORD timeout, int& index,
                                       WaitStatusEnum& status) const = 0;
    virtual bool WaitForProcessEnd(void* processOrThread, DWORD timeout, WaitStatusEnum& status) const = 0;
    virtual void WaitTime(DWORD milliseconds) const = 0;
};
