// Basic Win32 types, special values and error codes, and the thread's last-error value.
// Types have the Windows widths: DWORD and LONG are 32 bits also where the C long is 64 bits.
#pragma once

#include "win32posix_export.h"

#include <cstddef>
#include <cstdint>

#ifndef __int64
#define __int64 long long
#endif

typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::int32_t LONG;
typedef std::uint32_t ULONG;
typedef std::int32_t INT;
typedef std::uint32_t UINT;
typedef int BOOL;
typedef unsigned char BOOLEAN;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG;
typedef ULONGLONG* PULONGLONG;
typedef std::uint64_t DWORD64;
typedef std::intptr_t LONG_PTR;
typedef std::uintptr_t ULONG_PTR;
typedef std::uintptr_t DWORD_PTR;
typedef std::size_t SIZE_T;
typedef wchar_t WCHAR;
typedef char CHAR;
typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef HANDLE* LPHANDLE;
typedef void* HMODULE;
typedef void* HINSTANCE;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* PBYTE;
typedef BYTE* LPBYTE;
typedef BYTE* PUCHAR;
typedef ULONG* PULONG;
typedef DWORD* LPDWORD;
typedef BOOL* LPBOOL;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef WCHAR* PWSTR;
typedef const WCHAR* PCWSTR;
typedef CHAR* LPSTR;
typedef const CHAR* LPCSTR;
typedef const CHAR* LPCCH;
typedef const WCHAR* LPCWCH;
typedef WCHAR* LPWCH;
typedef LONG NTSTATUS;
typedef int errno_t;
typedef std::size_t rsize_t;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#ifndef MAX_PATH
#define MAX_PATH 260
#endif

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#define INFINITE 0xFFFFFFFFu

typedef void* PVOID;
typedef void* HWND;
typedef void* HKEY;
typedef HKEY* PHKEY;
typedef std::uintptr_t WPARAM;
typedef std::intptr_t LPARAM;
typedef std::intptr_t (*FARPROC)();
typedef DWORD ACCESS_MASK;
typedef DWORD REGSAM;

// Structures shared by several areas of the API.
typedef struct _SECURITY_ATTRIBUTES
{
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

typedef struct _OVERLAPPED
{
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    union
    {
        struct
        {
            DWORD Offset;
            DWORD OffsetHigh;
        };
        PVOID Pointer;
    };
    HANDLE hEvent;
} OVERLAPPED, *LPOVERLAPPED;

typedef struct _FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef struct _SYSTEMTIME
{
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

typedef union _LARGE_INTEGER
{
    struct
    {
        DWORD LowPart;
        LONG HighPart;
    };
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef union _ULARGE_INTEGER
{
    struct
    {
        DWORD LowPart;
        DWORD HighPart;
    };
    ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;

#define MAXIMUM_WAIT_OBJECTS 64
#define SYNCHRONIZE 0x00100000L
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#define GENERIC_READ 0x80000000L
#define GENERIC_WRITE 0x40000000L
#define GENERIC_EXECUTE 0x20000000L
#define GENERIC_ALL 0x10000000L
#define MAXIMUM_ALLOWED 0x02000000L

// Error codes (GetLastError values).
#define ERROR_SUCCESS 0L
#define NO_ERROR 0L
#define ERROR_INVALID_FUNCTION 1L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_TOO_MANY_OPEN_FILES 4L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_DATA 13L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_CURRENT_DIRECTORY 16L
#define ERROR_NOT_SAME_DEVICE 17L
#define ERROR_NO_MORE_FILES 18L
#define ERROR_WRITE_PROTECT 19L
#define ERROR_NOT_READY 21L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_LOCK_VIOLATION 33L
#define ERROR_HANDLE_EOF 38L
#define ERROR_HANDLE_DISK_FULL 39L
#define ERROR_NOT_SUPPORTED 50L
#define ERROR_FILE_EXISTS 80L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_BROKEN_PIPE 109L
#define ERROR_DISK_FULL 112L
#define ERROR_CALL_NOT_IMPLEMENTED 120L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_MOD_NOT_FOUND 126L
#define ERROR_PROC_NOT_FOUND 127L
#define ERROR_INVALID_NAME 123L
#define ERROR_NEGATIVE_SEEK 131L
#define ERROR_DIR_NOT_EMPTY 145L
#define ERROR_BAD_PATHNAME 161L
#define ERROR_BAD_EXE_FORMAT 193L
#define ERROR_BUSY 170L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_ENVVAR_NOT_FOUND 203L
#define ERROR_FILENAME_EXCED_RANGE 206L
#define ERROR_MORE_DATA 234L
#define ERROR_WAIT_NO_CHILDREN 128L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_DIRECTORY 267L
#define ERROR_TOO_MANY_POSTS 298L
#define ERROR_NOT_OWNER 288L
#define ERROR_PARTIAL_COPY 299L
#define ERROR_INVALID_ADDRESS 487L
#define ERROR_NOACCESS 998L
#define ERROR_INVALID_FLAGS 1004L
#define ERROR_FILE_INVALID 1006L
#define ERROR_NO_UNICODE_TRANSLATION 1113L
#define ERROR_IO_DEVICE 1117L
#define ERROR_PRIVILEGE_NOT_HELD 1314L
#define ERROR_INVALID_WINDOW_HANDLE 1400L
#define ERROR_TIMEOUT 1460L
#define ERROR_INVALID_USER_BUFFER 1784L
#define ERROR_CANT_RESOLVE_FILENAME 1921L

// The calling thread's last-error value (thread-local, as on Windows).
W32P_API DWORD GetLastError();
W32P_API void SetLastError(DWORD error);

// The Win32 error code nearest to a POSIX errno value (the one mapping table of this layer).
W32P_API DWORD W32pErrorFromErrno(int error);
// SetLastError(W32pErrorFromErrno(errno)); for the failure paths of this layer.
W32P_API void W32pSetLastErrorFromErrno();
