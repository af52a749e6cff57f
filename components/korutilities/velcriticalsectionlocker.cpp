#include "velcriticalsectionlocker.h"

CVeLCriticalSectionLocker::CVeLCriticalSectionLocker(CRITICAL_SECTION& section) : m_section(&section)
{
    EnterCriticalSection(m_section);
}

CVeLCriticalSectionLocker::CVeLCriticalSectionLocker(const CVeLCriticalSectionLocker& other)
    : m_section(other.m_section)
{
}

CVeLCriticalSectionLocker::~CVeLCriticalSectionLocker()
{
    LeaveCriticalSection(m_section);
}
