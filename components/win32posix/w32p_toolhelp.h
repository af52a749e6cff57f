// Process information over /proc: the tool-help process snapshot, the image name of a process, and the
// /proc readers that the restart manager shares.
//
// Linux differences: a snapshot lists the processes of /proc (kernel threads included, no "System Idle
// Process" with id 0; processes that have ended and wait to be reaped are left out, as Windows lists none);
// szExeFile is the file name of the executable, or of the process's own name when the executable can't be
// read (another user's process without privileges, a kernel thread). Only TH32CS_SNAPPROCESS is offered.
// Process handles are those of CreateProcessW and OpenProcess, and GetCurrentProcess().
#pragma once

#include "w32p_base.h"

#include <string>

typedef DWORD* PDWORD; // repeated typedefs of the same type are allowed

#define TH32CS_SNAPHEAPLIST 0x00000001
#define TH32CS_SNAPPROCESS 0x00000002
#define TH32CS_SNAPTHREAD 0x00000004
#define TH32CS_SNAPMODULE 0x00000008
#define TH32CS_SNAPMODULE32 0x00000010
#define TH32CS_SNAPALL 0x0000000F
#define TH32CS_INHERIT 0x80000000u
#define PROCESS_NAME_NATIVE 0x00000001
#ifndef ERROR_BAD_LENGTH
#define ERROR_BAD_LENGTH 24L
#endif

typedef struct tagPROCESSENTRY32W
{
    DWORD dwSize;
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    WCHAR szExeFile[MAX_PATH];
} PROCESSENTRY32W, *PPROCESSENTRY32W, *LPPROCESSENTRY32W;

// A snapshot of the running processes (TH32CS_SNAPPROCESS; the process id is ignored, as on Windows).
// Without that flag: INVALID_HANDLE_VALUE with ERROR_NOT_SUPPORTED. Closed with CloseHandle.
W32P_API HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId);
// The first / next entry. dwSize below sizeof(PROCESSENTRY32W): ERROR_BAD_LENGTH; past the end:
// ERROR_NO_MORE_FILES.
W32P_API BOOL Process32FirstW(HANDLE snapshot, LPPROCESSENTRY32W entry);
W32P_API BOOL Process32NextW(HANDLE snapshot, LPPROCESSENTRY32W entry);

// The full path of the process's executable. *size: the buffer size in characters on entry, the length
// without the terminator on success. Too small: ERROR_INSUFFICIENT_BUFFER. The path can't be read (another
// user's process): ERROR_ACCESS_DENIED.
W32P_API BOOL QueryFullProcessImageNameW(HANDLE process, DWORD flags, LPWSTR exeName, PDWORD size);
// The executable's path for a null module; for a module of LoadLibraryW in this process, that module's file
// (any other module: 0 with ERROR_INVALID_HANDLE). The result is truncated to size characters including
// the terminator; the return value is the length copied.
W32P_API DWORD GetModuleFileNameExW(HANDLE process, HMODULE module, LPWSTR fileName, DWORD size);

// For other areas of this layer. The executable's path of a process ("" when it can't be read).
W32P_API std::string W32pProcessImagePath(DWORD processId);
// The executable's file name, else the process's own name from /proc ("" for a process that is gone).
W32P_API std::string W32pProcessImageName(DWORD processId);
// The process's start time as a FILETIME value (0 when the process is gone).
W32P_API FILETIME W32pProcessStartTime(DWORD processId);
