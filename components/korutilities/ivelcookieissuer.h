// IVeLCookieIssuer: hands out unused integer identifiers ("cookies") from a fixed range and takes them
// back for reuse. The order of the operations is fixed.
#pragma once

#include "velresult.h"
#include "velwin32.h"

class IVeLCookieIssuer
{
public:
    virtual ~IVeLCookieIssuer() {}
    // The lowest identifier of the range that is not issued now; a failed result when all are.
    virtual CVeLResult<ULONG> Issue() = 0;
    // Takes an issued identifier back; false for one that is not issued now (never issued, or returned).
    virtual bool Return(ULONG cookie) = 0;
    virtual bool IsIssued(ULONG cookie) const = 0;
};
