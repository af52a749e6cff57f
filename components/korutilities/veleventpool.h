// CVeLEventPool: a small pool of reusable auto-reset events. Owns every event it ever created and
// closes them all on destruction, handed out or not. GetFreeEventHandle and ReleaseEventHandle are
// serialised by a critical section and may be called from any thread; destruction is not guarded.
// Copies are member-wise (the critical-section record too) and are not meant to be used side by side.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <vector>

class KORUTILITIES_API CVeLEventPool
{
public:
    CVeLEventPool();
    CVeLEventPool(const CVeLEventPool&) = default;
    CVeLEventPool& operator=(const CVeLEventPool&) = default;
    virtual ~CVeLEventPool();

    // An unsignalled auto-reset event: the last one given back, reset, or a new one (null when the
    // system cannot create one; the null is kept in the pool's list).
    void* GetFreeEventHandle();
    // Gives an event back; false for an event the pool did not create. Releasing twice makes it free
    // twice, so two later calls may receive the same event.
    bool ReleaseEventHandle(void* event);

private:
    void DestroyEvents();
    bool IsKnownEvent(void* event) const;

    std::vector<HANDLE> m_freeEvents; // guarded by m_lock
    std::vector<HANDLE> m_allEvents;  // guarded by m_lock
    CRITICAL_SECTION m_lock;
};
