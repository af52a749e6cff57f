// CVeLWaitHelperTimeSupport: the deadline of one wait loop. Fixes the start tick at construction and
// answers, on each pass, how long the next wait may take and whether the deadline has passed. The
// decision is taken on 32-bit wrapping differences, so it holds across the wrap of the tick counter.
// Lives for one wait on one thread.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

class KORUTILITIES_API CVeLWaitHelperTimeSupport
{
public:
    // Where the ticks come from. Production code always uses CVeLTimeUtilites::GetCorrectedTickCount;
    // tests hand in a controllable clock through the second constructor.
    typedef DWORD (*TickSource)();

    explicit CVeLWaitHelperTimeSupport(DWORD timeout);
    CVeLWaitHelperTimeSupport(DWORD timeout, TickSource clock);
    CVeLWaitHelperTimeSupport(const CVeLWaitHelperTimeSupport&) = default;
    CVeLWaitHelperTimeSupport& operator=(const CVeLWaitHelperTimeSupport&) = default;
    virtual ~CVeLWaitHelperTimeSupport();

    // The time for the next wait: 0 and INFINITE unchanged; otherwise the rest up to the deadline, or 1
    // when the clock failed, the deadline has passed, or the deadline lies beyond the tick wrap.
    DWORD GetWaitTime() const;
    // Whether the deadline has passed (true, traced, when the clock failed).
    bool IsCalcedTimeout() const;

private:
    DWORD m_timeout;
    DWORD m_startTick;
    TickSource m_clock;
};
