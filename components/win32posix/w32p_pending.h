// Processes, events, sections and the module loader, as the facade declares them. Placeholder until the
// kernel-object area of this layer provides them: every call fails with ERROR_CALL_NOT_IMPLEMENTED (and
// GetCurrentProcessId answers the process id). Remove this file and its source when that area arrives.
#pragma once

#include "w32p_base.h"

typedef struct _STARTUPINFOW
{
    DWORD cb;
    LPWSTR lpReserved;
    LPWSTR lpDesktop;
    LPWSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    BYTE* lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
} STARTUPINFOW, *LPSTARTUPINFOW;

typedef struct _PROCESS_INFORMATION
{
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
} PROCESS_INFORMATION, *PPROCESS_INFORMATION, *LPPROCESS_INFORMATION;

W32P_API BOOL CreateProcessW(LPCWSTR applicationName, LPWSTR commandLine,
                             LPSECURITY_ATTRIBUTES processAttributes, LPSECURITY_ATTRIBUTES threadAttributes,
                             BOOL inheritHandles, DWORD creationFlags, LPVOID environment,
                             LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                             LPPROCESS_INFORMATION processInformation);
W32P_API HANDLE OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId);
W32P_API BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
W32P_API BOOL TerminateProcess(HANDLE process, UINT exitCode);
W32P_API DWORD WaitForInputIdle(HANDLE process, DWORD milliseconds);
W32P_API DWORD GetCurrentProcessId();
W32P_API HANDLE CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                             LPCWSTR name);
W32P_API BOOL SetEvent(HANDLE event);
W32P_API BOOL ResetEvent(HANDLE event);
W32P_API HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect,
                                   DWORD maximumSizeHigh, DWORD maximumSizeLow, LPCWSTR name);
W32P_API HANDLE OpenFileMappingW(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name);
W32P_API LPVOID MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                              SIZE_T bytesToMap);
W32P_API BOOL UnmapViewOfFile(LPCVOID baseAddress);
W32P_API HMODULE LoadLibraryW(LPCWSTR fileName);
W32P_API FARPROC GetProcAddress(HMODULE module, LPCSTR procName);
