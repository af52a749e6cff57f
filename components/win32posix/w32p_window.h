// Windows and window messages, on a system that has none: enumerating windows and asking for the foreground
// window fail with ERROR_NOT_SUPPORTED (50), so that a caller can tell a system without windows from a
// process without any; no handle names a window, and posting a message fails with
// ERROR_INVALID_WINDOW_HANDLE (1400). There is no message queue here, so a null window handle (the thread's
// own queue on Windows) fails the same way.
#pragma once

#include "w32p_base.h"

#ifndef CALLBACK
#define CALLBACK
#endif
#ifndef WINAPI
#define WINAPI
#endif
#ifndef NTAPI
#define NTAPI
#endif

#define WM_NULL 0x0000
#define WM_CLOSE 0x0010
#define WM_QUIT 0x0012
#define WM_USER 0x0400

typedef BOOL(CALLBACK* WNDENUMPROC)(HWND window, LPARAM parameter);

// FALSE with ERROR_NOT_SUPPORTED; the callback is never called.
W32P_API BOOL EnumWindows(WNDENUMPROC callback, LPARAM parameter);
// A null parent (all top-level windows): FALSE with ERROR_NOT_SUPPORTED; a window parent: FALSE with
// ERROR_INVALID_WINDOW_HANDLE.
W32P_API BOOL EnumChildWindows(HWND parent, WNDENUMPROC callback, LPARAM parameter);
W32P_API BOOL IsWindow(HWND window);
W32P_API BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Null with ERROR_NOT_SUPPORTED.
W32P_API HWND GetForegroundWindow();
// 0 with ERROR_INVALID_WINDOW_HANDLE; *processId (when given) is set to 0.
W32P_API DWORD GetWindowThreadProcessId(HWND window, LPDWORD processId);
