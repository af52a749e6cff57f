#include "velcookieissuer.h"
#include "korutilitesbtracedef.h"

CVeLCookieIssuer::CVeLCookieIssuer() : CVeLCookieIssuer(1, 0xFFFFFFFFu) {}

CVeLCookieIssuer::CVeLCookieIssuer(ULONG first, ULONG last) : m_first(first), m_last(last), m_next(first) {}

CVeLCookieIssuer::~CVeLCookieIssuer() = default;

CVeLResult<ULONG> CVeLCookieIssuer::Issue()
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (!m_returned.empty())
    {
        const ULONG cookie = *m_returned.begin();
        m_returned.erase(m_returned.begin());
        return CVeLResult<ULONG>(true, cookie);
    }
    if (m_first > m_last || m_next > m_last)
    {
        VEL_TRACE(VEL_ERR, "No unused cookie left!");
        return CVeLResult<ULONG>();
    }
    return CVeLResult<ULONG>(true, static_cast<ULONG>(m_next++));
}

bool CVeLCookieIssuer::Return(ULONG cookie)
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (!IsIssuedLocked(cookie))
    {
        VEL_TRACE(VEL_ERR, "Cookie %u is not issued!", cookie);
        return false;
    }
    m_returned.insert(cookie);
    // Returned identifiers at the top of the issued range shrink it, so the set stays small when cookies
    // come back in any order.
    while (!m_returned.empty() && *m_returned.rbegin() + 1ull == m_next)
    {
        m_returned.erase(std::prev(m_returned.end()));
        --m_next;
    }
    return true;
}

bool CVeLCookieIssuer::IsIssued(ULONG cookie) const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return IsIssuedLocked(cookie);
}

bool CVeLCookieIssuer::IsIssuedLocked(ULONG cookie) const
{
    return cookie >= m_first && cookie < m_next && m_returned.count(cookie) == 0;
}
