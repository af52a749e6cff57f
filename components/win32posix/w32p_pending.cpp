#include "w32p_pending.h"

#include <unistd.h>

namespace
{
BOOL Fail()
{
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return FALSE;
}
} // namespace

BOOL CreateProcessW(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID,
                    LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION)
{
    return Fail();
}
HANDLE OpenProcess(DWORD, BOOL, DWORD)
{
    return Fail(), nullptr;
}
BOOL GetExitCodeProcess(HANDLE, LPDWORD)
{
    return Fail();
}
BOOL TerminateProcess(HANDLE, UINT)
{
    return Fail();
}
DWORD WaitForInputIdle(HANDLE, DWORD)
{
    return Fail(), static_cast<DWORD>(-1);
}
DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR)
{
    return Fail(), nullptr;
}
BOOL SetEvent(HANDLE)
{
    return Fail();
}
BOOL ResetEvent(HANDLE)
{
    return Fail();
}
HANDLE CreateFileMappingW(HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCWSTR)
{
    return Fail(), nullptr;
}
HANDLE OpenFileMappingW(DWORD, BOOL, LPCWSTR)
{
    return Fail(), nullptr;
}
LPVOID MapViewOfFile(HANDLE, DWORD, DWORD, DWORD, SIZE_T)
{
    return Fail(), nullptr;
}
BOOL UnmapViewOfFile(LPCVOID)
{
    return Fail();
}
HMODULE LoadLibraryW(LPCWSTR)
{
    return Fail(), nullptr;
}
FARPROC GetProcAddress(HMODULE, LPCSTR)
{
    return Fail(), nullptr;
}
