// Warnings of this layer itself (a registry file it skips, and the like): they are handed to a hook that a
// higher layer installs, so they reach that layer's trace; the trace back-end installs one when it is
// loaded. Without a hook a warning goes to stderr. Thread-safe: the hook is swapped atomically and may be
// called from any thread.
#pragma once

#include "w32p_base.h"

// Receives one warning as a complete line of UTF-8 text (no line end).
typedef void (*W32pWarningHook)(const char* message);

// Installs hook (null: back to stderr); answers the hook it replaces.
W32P_API W32pWarningHook W32pSetWarningHook(W32pWarningHook hook);
// Hands a warning, printf-style, to the hook.
W32P_API void W32pWarn(const char* format, ...) __attribute__((format(printf, 1, 2)));
