// CVeLCookieIssuer: the identifier issuer over the range [first, last] (see IVeLCookieIssuer). It keeps the
// next never-issued identifier and the set of returned ones below it, so memory grows only with the
// number of identifiers returned out of order. All operations may be called from several threads at once;
// one lock guards the state. It makes no system calls. Failures are traced at ERR.
#pragma once

#include "korutilities_export.h"
#include "ivelcookieissuer.h"

#include <mutex>
#include <set>

class KORUTILITIES_API CVeLCookieIssuer : public IVeLCookieIssuer
{
public:
    // The range 1 to 0xFFFFFFFF: 0 stays free to mean "no cookie".
    CVeLCookieIssuer();
    // An empty range (first > last) issues nothing.
    CVeLCookieIssuer(ULONG first, ULONG last);
    ~CVeLCookieIssuer() override;
    CVeLCookieIssuer(const CVeLCookieIssuer&) = delete;
    CVeLCookieIssuer& operator=(const CVeLCookieIssuer&) = delete;

    CVeLResult<ULONG> Issue() override;
    bool Return(ULONG cookie) override;
    bool IsIssued(ULONG cookie) const override;

private:
    bool IsIssuedLocked(ULONG cookie) const;

    const ULONG m_first;
    const ULONG m_last;
    mutable std::mutex m_lock;  // guards m_next and m_returned
    unsigned long long m_next;  // the lowest identifier never issued (m_last + 1 when all were)
    std::set<ULONG> m_returned; // returned identifiers below m_next, free for reuse
};
