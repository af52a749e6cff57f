// Path and name conversion shared by every area of this layer that takes or returns a file name or path.
//
// Names are mapped between Linux bytes and wide text by the one lossless mapping of w32p_namemap.h.
// Internal to win32posix: the library sees only the Win32 functions.
#pragma once

#include "w32p_base.h"

#include <string>

// The Linux bytes of a wide path ("\" and "/" both become "/"). False for a null path.
W32P_API bool W32pPathToUtf8(LPCWSTR path, std::string& utf8);
// The Linux bytes of a wide path or name of the given length (separators as above).
W32P_API std::string W32pWideToNative(const wchar_t* text, std::size_t length);
// The wide form of Linux bytes: a name, or a path whose "/" stay separators.
W32P_API std::wstring W32pNativeToWide(const char* bytes, std::size_t length);
inline std::wstring W32pNativeToWide(const std::string& bytes)
{
    return W32pNativeToWide(bytes.data(), bytes.size());
}
// Plain wide-to-UTF-8 and back for text that is not a name (no mapping). Invalid input becomes U+FFFD.
W32P_API std::string W32pWideToUtf8(const std::wstring& text);
W32P_API std::wstring W32pUtf8ToWide(const std::string& text);
// The Win32 error for a failed path operation: ENOENT becomes ERROR_PATH_NOT_FOUND (3) when the
// directory part of path is missing too, ERROR_FILE_NOT_FOUND (2) when only the last element is; every
// other errno goes through the one mapping table.
W32P_API DWORD W32pPathErrorFromErrno(const std::string& utf8Path, int error);
// Copies text with its terminator into buffer of size wide characters when it fits; the number of
// characters copied without the terminator, or 0 when buffer is null or too small.
W32P_API DWORD W32pCopyToBuffer(const std::wstring& text, LPWSTR buffer, DWORD size);
