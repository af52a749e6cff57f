// File position and size of an open file handle: SetFilePointerEx and GetFileSizeEx over lseek and fstat on
// the descriptor behind the handle (w32p_file). The position is the descriptor's own, shared with ReadFile
// and WriteFile without an OVERLAPPED offset, as on Windows. Any thread may call these; two threads moving
// the same handle's position race exactly as they do on Windows.
#pragma once

#include "w32p_base.h"

#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2

// FALSE with ERROR_INVALID_HANDLE for an unknown handle, ERROR_INVALID_PARAMETER for an unknown move method,
// ERROR_NEGATIVE_SEEK for a position before the start; a position past the end is allowed.
W32P_API BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                               DWORD moveMethod);
// FALSE with ERROR_INVALID_HANDLE for an unknown handle.
W32P_API BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);

#ifndef ERROR_WRITE_FAULT
#define ERROR_WRITE_FAULT 29L
#endif
