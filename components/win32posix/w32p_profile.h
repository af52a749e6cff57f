// Profile (INI) files with the Windows rules: sections and keys match case-insensitively, values lose
// surrounding blanks and one pair of matching quotes, ";" starts a comment line, and the return counts
// follow the Win32 conventions below.
//
// Linux differences: the file is read and written as UTF-8 (a UTF-8 byte-order mark is skipped); a name
// without a directory is taken relative to the current directory, not the Windows directory; line endings
// of an existing file are kept (new files get "\n"). Writers replace the file atomically (a new file
// renamed over the old one) and are serialised within the process, not between processes.
#pragma once

#include "w32p_base.h"

// The value of key in section, else defaultValue (null means ""; its trailing blanks are dropped) with
// ERROR_FILE_NOT_FOUND. A null section lists all section names, a null key all keys of section: each
// name terminated, the list ended by one more terminator. Returns the characters copied without the final
// terminator; a value that does not fit is cut and the result is size - 1 (size - 2 for a list).
W32P_API DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer,
                                        DWORD size, LPCWSTR fileName);
// The value as an integer (decimal, or hexadecimal after "0x"; an optional minus sign; reading stops at
// the first other character; no digits gives 0), or defaultValue when the key is missing.
W32P_API UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT defaultValue, LPCWSTR fileName);
// Sets key=value in section, creating the file and the section as needed. A null value deletes the key, a
// null key the whole section. A read-only file: FALSE with ERROR_ACCESS_DENIED.
W32P_API BOOL WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR fileName);
