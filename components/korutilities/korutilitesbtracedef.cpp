#include "korutilitesbtracedef.h"

// Constant-initialised, so the level byte exists before any constructor of the library runs.
BTraceModule g_korutilitiesTraceModule("korutilities", BTRACE_WRN);

namespace
{
// Hands the record to the back-end at load time, which gives it the configured starting level.
struct ModuleAttacher
{
    ModuleAttacher() { BTraceAttachModule(&g_korutilitiesTraceModule); }
} g_attacher;
} // namespace
