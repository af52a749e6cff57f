// CVeLTimeUtilites: the library's millisecond clock for deadlines. Stateless; any thread may call it.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

class KORUTILITIES_API CVeLTimeUtilites
{
public:
    // The unbiased interrupt time (which does not advance while the machine sleeps) in milliseconds,
    // truncated to 32 bits: it wraps about every 49.7 days. 0, traced, when the clock cannot be read.
    static DWORD GetCorrectedTickCount();
};
