// CVeLCriticalSectionLocker: enters a CRITICAL_SECTION (not owned) for the life of a scope. A copy
// stores the address without entering, and both leave on destruction: do not copy a locker in use.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

class KORUTILITIES_API CVeLCriticalSectionLocker
{
public:
    explicit CVeLCriticalSectionLocker(CRITICAL_SECTION& section);
    CVeLCriticalSectionLocker(const CVeLCriticalSectionLocker& other);
    virtual ~CVeLCriticalSectionLocker();

private:
    CRITICAL_SECTION* m_section;
};
