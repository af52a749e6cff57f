// The version resource of a Windows executable or DLL, read from the file on Linux: the Win32 version
// functions over the PE resource reader (w32p_peimage.h).
//
// Linux differences: only PE files have version resources; a Linux shared object, any other file, and a PE
// file that is damaged or truncated fail with ERROR_RESOURCE_TYPE_NOT_FOUND (a missing file with its own
// error). The block GetFileVersionInfoW fills is this layer's own layout: the resource as
// stored (UTF-16) followed by room where its texts are kept as WCHAR units of this platform, so
// VerQueryValueW can hand out wide strings; callers treat the block as opaque, as Windows asks them to.
// Thread-safe (no state).
#pragma once

#include "w32p_base.h"

typedef UINT* PUINT; // repeated typedefs of the same type are allowed

typedef struct tagVS_FIXEDFILEINFO
{
    DWORD dwSignature; // 0xFEEF04BD
    DWORD dwStrucVersion;
    DWORD dwFileVersionMS;
    DWORD dwFileVersionLS;
    DWORD dwProductVersionMS;
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
} VS_FIXEDFILEINFO;

#ifndef ERROR_RESOURCE_TYPE_NOT_FOUND
#define ERROR_RESOURCE_TYPE_NOT_FOUND 1813L
#endif
#ifndef ERROR_RESOURCE_NAME_NOT_FOUND
#define ERROR_RESOURCE_NAME_NOT_FOUND 1814L
#endif

// The size GetFileVersionInfoW needs; 0 with the last error when there is no usable version resource.
// handle is set to 0 when given.
W32P_API DWORD GetFileVersionInfoSizeW(LPCWSTR fileName, LPDWORD handle);
// Fills data (size bytes, at least what GetFileVersionInfoSizeW answered) with the version block.
W32P_API BOOL GetFileVersionInfoW(LPCWSTR fileName, DWORD handle, DWORD size, LPVOID data);
// subBlock "\" gives the VS_FIXEDFILEINFO (length in bytes); "\VarFileInfo\Translation" the language and
// code-page pairs (bytes); "\StringFileInfo\<lang+codepage>\<Name>" a text (length in characters with the
// terminator). Names compare without regard to case. FALSE when the block or the entry is missing.
W32P_API BOOL VerQueryValueW(LPCVOID block, LPCWSTR subBlock, LPVOID* buffer, PUINT length);
