// Loading libraries and finding their functions, with a built-in "ntdll.dll".
//
// LoadLibraryW("ntdll.dll") (any case, with or without ".dll") gives a module built into this layer; it
// offers NtQuerySection, so code that looks the section size up at run time is the same on both platforms.
// Any other name is handed to dlopen as a UTF-8 path or library name (a Linux shared object, not a DLL).
// Handles are counted per load as on Windows: FreeLibrary unloads after as many calls as LoadLibraryW made,
// and a handle this layer did not hand out is refused (ERROR_INVALID_HANDLE), never passed to dlclose.
// Thread-safe.
#pragma once

#include "w32p_base.h"

#include <string>

#ifndef STATUS_SUCCESS
#define STATUS_SUCCESS (static_cast<NTSTATUS>(0x00000000L))
#endif
#ifndef STATUS_INVALID_INFO_CLASS
#define STATUS_INVALID_INFO_CLASS (static_cast<NTSTATUS>(0xC0000003L))
#endif
#ifndef STATUS_INFO_LENGTH_MISMATCH
#define STATUS_INFO_LENGTH_MISMATCH (static_cast<NTSTATUS>(0xC0000004L))
#endif
#ifndef STATUS_INVALID_HANDLE
#define STATUS_INVALID_HANDLE (static_cast<NTSTATUS>(0xC0000008L))
#endif
#ifndef STATUS_INVALID_PARAMETER
#define STATUS_INVALID_PARAMETER (static_cast<NTSTATUS>(0xC000000DL))
#endif

typedef enum _SECTION_INFORMATION_CLASS
{
    SectionBasicInformation = 0,
    SectionImageInformation = 1,
} SECTION_INFORMATION_CLASS;

// 24 bytes, as on 64-bit Windows.
typedef struct _SECTION_BASIC_INFORMATION
{
    PVOID BaseAddress;
    ULONG AllocationAttributes;
    LARGE_INTEGER MaximumSize;
} SECTION_BASIC_INFORMATION, *PSECTION_BASIC_INFORMATION;

typedef NTSTATUS (*PFN_NtQuerySection)(HANDLE, SECTION_INFORMATION_CLASS, PVOID, ULONG, PULONG);

// The module; null with ERROR_INVALID_PARAMETER (null name) or ERROR_MOD_NOT_FOUND (empty name, dlopen
// failed).
W32P_API HMODULE LoadLibraryW(LPCWSTR fileName);
// The function named procName; null with ERROR_PROC_NOT_FOUND, or ERROR_INVALID_HANDLE for a null or
// unknown module.
W32P_API FARPROC GetProcAddress(HMODULE module, LPCSTR procName);
// Unloads a module from dlopen (the built-in one stays); FALSE with ERROR_INVALID_HANDLE for a null module or
// one that is not loaded.
W32P_API BOOL FreeLibrary(HMODULE module);

// Basic information of a section: BaseAddress 0 (it is no image), AllocationAttributes SEC_COMMIT,
// MaximumSize the section size (the created size rounded up to the page). STATUS_INVALID_HANDLE for anything
// but a file-mapping handle, STATUS_INVALID_INFO_CLASS for another class, STATUS_INFO_LENGTH_MISMATCH unless
// length is sizeof(SECTION_BASIC_INFORMATION), STATUS_INVALID_PARAMETER for a null buffer.
W32P_API NTSTATUS NtQuerySection(HANDLE section, SECTION_INFORMATION_CLASS informationClass,
                                 PVOID information, ULONG length, PULONG resultLength);

// For other areas of this layer: the file of a module handed out by LoadLibraryW (the built-in ntdll names
// this layer's library); false for any other handle.
W32P_API bool W32pModulePath(HMODULE module, std::string& path);
