#include "w32p_window.h"

BOOL EnumWindows(WNDENUMPROC /*callback*/, LPARAM /*parameter*/)
{
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
}

BOOL EnumChildWindows(HWND parent, WNDENUMPROC /*callback*/, LPARAM /*parameter*/)
{
    SetLastError(parent == nullptr ? ERROR_NOT_SUPPORTED : ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
}

BOOL IsWindow(HWND /*window*/)
{
    return FALSE;
}

BOOL PostMessageW(HWND /*window*/, UINT /*message*/, WPARAM /*wParam*/, LPARAM /*lParam*/)
{
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
}

HWND GetForegroundWindow()
{
    SetLastError(ERROR_NOT_SUPPORTED);
    return nullptr;
}

DWORD GetWindowThreadProcessId(HWND /*window*/, LPDWORD processId)
{
    if (processId != nullptr)
        *processId = 0;
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
}
