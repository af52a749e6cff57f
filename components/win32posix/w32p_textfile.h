// Text-file decoding shared by the profile and registry areas of this layer: UTF-16LE with its byte-order
// mark, or UTF-8 with or without one. Internal to win32posix: the library sees only the Win32 functions.
#pragma once

#include "w32p_base.h"

#include <string>

enum class W32pTextEncoding
{
    Utf8,
    Utf8Bom,
    Utf16Bom,
};

// The text of a file's bytes and the encoding found by its byte-order mark. UTF-16 surrogate pairs are
// joined, a lone surrogate is kept as its own character, an odd last byte is dropped; invalid UTF-8
// becomes U+FFFD.
W32P_API std::wstring W32pDecodeText(const std::string& bytes, W32pTextEncoding& encoding);
// text in encoding, with the byte-order mark the encoding names.
W32P_API std::string W32pEncodeText(const std::wstring& text, W32pTextEncoding encoding);
