// Well-known folders: the program's file, the temporary folder and the known-folder query.
//
// Where Linux differs from Windows, and what this layer does:
// - Known folders follow the XDG base-directory rules with their defaults: roaming application data is
//   $XDG_CONFIG_HOME (~/.config), local application data $XDG_DATA_HOME (~/.local/share), machine-wide
//   program data the first entry of $XDG_DATA_DIRS (/usr/local/share) and documents XDG_DOCUMENTS_DIR
//   from ~/.config/user-dirs.dirs (~/Documents). A relative XDG value is ignored, as the XDG rules ask.
//   Paths come back without a trailing separator, as on Windows.
// - KF_FLAG_CREATE creates a missing per-user folder (with its parents, mode 0700); other flags are
//   accepted and ignored. The access token must be null (the calling user).
// - GetModuleFileNameW knows the program's own file only (module null); other modules fail with
//   ERROR_MOD_NOT_FOUND.
// - GetTempPathW: $TMPDIR, else /tmp, with a trailing "/".
#pragma once

#include "w32p_base.h"

typedef LONG HRESULT;
#ifndef S_OK
#define S_OK static_cast<HRESULT>(0x00000000L)
#endif
#ifndef E_FAIL
#define E_FAIL static_cast<HRESULT>(0x80004005L)
#endif
#ifndef E_INVALIDARG
#define E_INVALIDARG static_cast<HRESULT>(0x80070057L)
#endif
#ifndef HRESULT_FROM_WIN32
#define HRESULT_FROM_WIN32(x)                                                                                \
    (static_cast<HRESULT>(x) <= 0                                                                            \
         ? static_cast<HRESULT>(x)                                                                           \
         : static_cast<HRESULT>((static_cast<DWORD>(x) & 0x0000FFFFu) | 0x80070000u))
#endif
#ifndef SUCCEEDED
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#endif

// Guarded as in the Windows headers, so that another area of this layer may define it too.
#ifndef GUID_DEFINED
#define GUID_DEFINED
typedef struct _GUID
{
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
} GUID;
#endif
typedef GUID KNOWNFOLDERID;
typedef const GUID& REFKNOWNFOLDERID;

W32P_API extern const KNOWNFOLDERID FOLDERID_RoamingAppData;
W32P_API extern const KNOWNFOLDERID FOLDERID_LocalAppData;
W32P_API extern const KNOWNFOLDERID FOLDERID_ProgramData;
W32P_API extern const KNOWNFOLDERID FOLDERID_Documents;

#define KF_FLAG_DEFAULT 0x00000000
#define KF_FLAG_CREATE 0x00008000

// The full path of the program's executable (module null). Truncated to size - 1 characters and
// terminated when the buffer is too small: returns size with ERROR_INSUFFICIENT_BUFFER.
W32P_API DWORD GetModuleFileNameW(HMODULE module, LPWSTR fileName, DWORD size);
// The temporary folder with a trailing separator: its length without the terminator, or the size needed
// with the terminator when the buffer is too small (nothing written then).
W32P_API DWORD GetTempPathW(DWORD size, LPWSTR buffer);
// S_OK and a path in memory from CoTaskMemFree's allocator; on failure *path is null and the result is
// E_INVALIDARG (an unknown folder, a non-null token) or E_FAIL (the folder does not exist and
// KF_FLAG_CREATE was not given, or the home folder is unknown).
W32P_API HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID folderId, DWORD flags, HANDLE token, PWSTR* path);
W32P_API void CoTaskMemFree(LPVOID memory);
