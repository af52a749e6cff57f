// Profile (INI) files with the Windows rules: sections and keys match case-insensitively, values lose
// surrounding blanks and one pair of matching quotes, ";" starts a comment line, the first of duplicate
// sections or keys wins, and the return counts follow the Win32 conventions below.
//
// Linux differences and choices:
// - Encoding: a file starting with the UTF-16LE byte-order mark is read and written back as UTF-16LE
//   with its mark; any other file is read as UTF-8 (a UTF-8 mark is skipped and kept). Windows reads a
//   file without a mark in the ANSI code page; here that is UTF-8.
// - Lines may end in CR, LF or CRLF. A changed file keeps the ending of its first line; a new file gets
//   CRLF, as Windows writes.
// - A file name without a folder ("app.ini") stands for a file in the Windows folder; here that folder is
//   the per-user settings folder ($XDG_CONFIG_HOME, else ~/.config), the known folder RoamingAppData.
//   Names with a folder, relative or absolute, are used as they are.
// - A null or empty file name reads as a missing file (the default is answered); a write to it fails
//   with ERROR_INVALID_PARAMETER (there is no win.ini).
// - Writers replace the file atomically (a new file renamed over the old one, permissions kept) and are
//   serialised within the process, not between processes.
// - Reads keep the parsed file of the last few paths and parse again only when the file's identity,
//   size or modification time changed (one stat per read); a change by any writer, here or in another
//   process, is therefore seen by the next read.
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
