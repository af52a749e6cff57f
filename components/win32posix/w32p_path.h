// Path and name conversion shared by every area of this layer that takes or returns a file name or path.
//
// A Linux file name is any sequence of bytes other than "/" and NUL; a Windows name is UTF-16 text without
// "\ / : * ? \" < > |" and the control characters. Between the two this layer uses one lossless mapping:
// - valid UTF-8 becomes the characters it encodes;
// - a character Windows forbids in a name ("\ : * ? \" < > |" and U+0001-U+001F) is carried as the
//   private-use character U+F000 + the character, so a name never holds a separator on the Windows side;
// - a byte that is not part of valid UTF-8 is carried as the lone surrogate U+DC00 + the byte
//   (U+DC80-U+DCFF);
// - a valid UTF-8 sequence that itself decodes to U+F000-U+F0FF or U+DC80-U+DCFF is carried byte by byte as
//   U+DCxx, so no two Linux names share one wide form.
// Going back, U+DC80-U+DCFF become their bytes, U+F000 + a forbidden character becomes that character, and in
// a path both "\" and "/" separate elements. Every Linux name thus has exactly one wide form, and that form
// turns back into the same bytes. Other lone surrogates, which no Linux name produces, are written as the
// three bytes of their generalised UTF-8 form: a name of their own, never one that already has a wide form
// with U+FFFD. Internal to win32posix: the library sees only the Win32 functions.
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
