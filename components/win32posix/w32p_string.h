// Code-page conversion and the bounds-checked wide-string copy.
//
// MultiByteToWideChar / WideCharToMultiByte support CP_UTF8 only (other code pages fail with
// ERROR_INVALID_PARAMETER). wchar_t is UTF-32 here, so one wide character is one code point; on the way
// to UTF-8 a UTF-16 surrogate pair held in two wchar_t is joined into its code point. Each invalid input
// sequence becomes one U+FFFD, unless MB_ERR_INVALID_CHARS / WC_ERR_INVALID_CHARS is given, in which case
// the call fails with ERROR_NO_UNICODE_TRANSLATION (1113). Both functions are thread-safe.
//
// Parameter rules, as Windows: a length of -1 (or any negative length, which Windows treats alike) means
// "up to and including the terminator"; a zero input length, a null input, a negative output size, a null
// output with a non-zero size, and input and output at the same address fail with ERROR_INVALID_PARAMETER;
// an output size of 0 asks for the size needed; an output too small fails with ERROR_INSUFFICIENT_BUFFER
// (the part written is unspecified). For UTF-8 the only flags are the two above (others:
// ERROR_INVALID_FLAGS), and the default-character arguments of WideCharToMultiByte must be null
// (ERROR_INVALID_PARAMETER).
// Differences from Windows: there is no ANSI or OEM code page here, so CP_ACP, CP_OEMCP, CP_UTF7 and the
// single-byte code pages fail (ERROR_INVALID_PARAMETER); buffers that overlap without starting at the same
// address are not detected and give garbage, as on Windows, but never write outside the output. Wine accepts
// MB_PRECOMPOSED, WC_NO_BEST_FIT_CHARS and a default character for UTF-8 where Microsoft documents a failure;
// this layer follows the documentation.
#pragma once

#include "w32p_base.h"

#define CP_ACP 0
#define CP_UTF8 65001
#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_ERR_INVALID_CHARS 0x00000080

W32P_API int MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH multiByte, int multiByteLength,
                                 LPWSTR wideChars, int wideCharCount);
W32P_API int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wideChars, int wideCharCount,
                                 LPSTR multiByte, int multiByteLength, LPCCH defaultChar,
                                 LPBOOL usedDefaultChar);

// The C11 Annex K / MSVC wcscpy_s, which glibc lacks: 0 on success; EINVAL (22) for a null destination,
// a zero or oversized size or a null source; ERANGE (34) when the text with its terminator does not fit.
// On failure the destination (when there is one) holds an empty string.
W32P_API errno_t wcscpy_s(wchar_t* destination, rsize_t size, const wchar_t* source);
