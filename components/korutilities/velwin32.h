// The one place that chooses the system interface: the real Win32 headers on Windows, the win32posix
// subset elsewhere. Every source of the library includes this instead of <windows.h>.
#pragma once

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <bcrypt.h>
#include <restartmanager.h>
#include <shlwapi.h>
#include <tlhelp32.h>
#include <psapi.h>
#include <shlobj.h>
#include <knownfolders.h>
#else
#include "win32posix.h"
#endif
