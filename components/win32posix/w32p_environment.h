// Environment variables of the calling process, with the Win32 return conventions. Names and values are
// stored in the process environment as UTF-8. The functions are serialised among themselves; a thread
// that calls setenv() directly while another uses them races as it would with getenv().
//
// Names are compared ignoring ASCII case, as on Windows: an exact spelling is found first, then any other
// case, setting a name updates a variable spelt in another case (which keeps its spelling), and
// deleting one removes every spelling. Differences from Windows: names
// beginning with '=' (Windows' per-drive current directories, "=C:") cannot be held by the Linux
// environment and fail with ERROR_INVALID_PARAMETER like any name containing '='; case is folded for
// ASCII letters only; two variables differing only in case that another program put in the environment
// stay two, and the exact spelling wins.
#pragma once

#include "w32p_base.h"

// Success: the value's length without the terminator. A missing variable (or a null or empty name): 0 and
// ERROR_ENVVAR_NOT_FOUND (203). An empty value: 0 with the last error unchanged, or 1 when size is 0. A
// buffer too small (or null): the size needed including the terminator; the buffer is not touched.
W32P_API DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size);
// A null value deletes the variable. An empty name or one containing '=' fails with
// ERROR_INVALID_PARAMETER.
W32P_API BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);
// The whole environment as one block of "NAME=VALUE" strings, each ended by a zero, with an empty string at
// the end (two zeros for an empty environment); null with ERROR_NOT_ENOUGH_MEMORY. Free it with
// FreeEnvironmentStringsW.
W32P_API LPWCH GetEnvironmentStringsW();
W32P_API BOOL FreeEnvironmentStringsW(LPWCH block);
// source with each %NAME% of a set variable replaced by its value; a name that is not set, and a lone
// "%", stay as written. Returns the size needed including the terminator; the text is copied only when
// buffer holds that many characters. A null source: 0 with ERROR_INVALID_PARAMETER.
W32P_API DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR buffer, DWORD size);
