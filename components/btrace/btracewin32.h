// Internal to btrace: the one place that chooses the system interface for the named kernel objects of
// the trace commands: the real Win32 headers on Windows, the win32posix subset (the same contract over
// Linux) elsewhere.
#pragma once

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include "win32posix.h"
#endif
