// Path and text helpers shared by the file, profile, restart-manager and process areas of this layer.
//
// Windows accepts both "\" and "/" between path elements; Linux knows only "/". Every wide path that
// enters this layer goes through W32pPathToUtf8, which turns each "\" into "/" and encodes the text as
// UTF-8, so Windows-style paths such as "dir\\sub\\file.txt" work unchanged. A consequence is that a
// Linux file name containing a backslash cannot be named through this layer (Windows forbids such names
// too). Internal to win32posix: the library sees only the Win32 functions.
#pragma once

#include "w32p_base.h"

#include <string>

// The UTF-8 form of a wide path with "\" turned into "/". False for a null path or text that cannot be
// converted.
W32P_API bool W32pPathToUtf8(LPCWSTR path, std::string& utf8);
// Plain wide-to-UTF-8 and back (no separator change). Invalid input becomes U+FFFD.
W32P_API std::string W32pWideToUtf8(const std::wstring& text);
W32P_API std::wstring W32pUtf8ToWide(const std::string& text);
// The Win32 error for a failed path operation: ENOENT becomes ERROR_PATH_NOT_FOUND (3) when the
// directory part of path is missing too, ERROR_FILE_NOT_FOUND (2) when only the last element is; every
// other errno goes through the one mapping table.
W32P_API DWORD W32pPathErrorFromErrno(const std::string& utf8Path, int error);
// Copies text with its terminator into buffer of size wide characters when it fits; the number of
// characters copied without the terminator, or 0 when buffer is null or too small.
W32P_API DWORD W32pCopyToBuffer(const std::wstring& text, LPWSTR buffer, DWORD size);
