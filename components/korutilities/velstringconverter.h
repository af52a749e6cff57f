// CVeLStringConverter: the library's conversions between wide text and UTF-8 (code page 65001), used
// for trace arguments, paths and byte formats, and the UTF-16 codec of 16-bit code units. Stateless; any
// thread may call it. Invalid input to or from UTF-8 becomes U+FFFD, never a crash or a silent cut; 16-bit
// code units are kept as they are, lone surrogates included, so such data round-trips on every platform.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLStringConverter
{
public:
    // A newly allocated zero-terminated UTF-8 copy of text in buffer (an empty text gives a buffer
    // holding only the terminator). False, with buffer reset, when the conversion fails.
    static bool ConvertStdWString2UTF8Chars(const std::wstring& text, boost::shared_ptr<char>& buffer);
    // The same UTF-8 bytes as a narrow string; empty when the text is empty or cannot be converted.
    static std::string ConvertStdWStringToStdString(const std::wstring& text);
    // Wide text of a zero-terminated UTF-8 string. False (text cleared) for a null pointer.
    static bool ConvertUTF8Chars2StdWString(const char* utf8, std::wstring& text);
    // Wide text of length UTF-8 bytes (embedded zeros are kept). False (text cleared) for a null pointer
    // with a non-zero length or a length beyond what one conversion can take (2^31 - 1 bytes).
    static bool ConvertUTF8Chars2StdWString(const char* utf8, unsigned __int64 length, std::wstring& text);

    // UTF-16 code units of wide text, the form text takes wherever it is defined as 16-bit units (XML
    // strings, wide-string file contents, keys). Where wchar_t is 16 bits the units are copied; where it
    // holds UTF-32, characters beyond U+FFFF become surrogate pairs and a surrogate value is written as
    // the unit it is. Only a value beyond U+10FFFF becomes U+FFFD.
    static std::u16string ConvertStdWStringToUTF16(const std::wstring& text);
    // Wide text of count UTF-16 code units (embedded zeros kept): pairs are joined where wchar_t holds
    // UTF-32, a lone surrogate is kept as the wchar_t of its value. Empty for a null pointer.
    static std::wstring ConvertUTF16ToStdWString(const char16_t* units, std::size_t count);
    // The same code units as little-endian bytes, the byte order of files and keys on every platform.
    static std::vector<unsigned char> ConvertStdWStringToUTF16LE(const std::wstring& text);
    // Wide text of UTF-16LE bytes; an odd last byte is ignored.
    static std::wstring ConvertUTF16LEToStdWString(const unsigned char* bytes, std::size_t size);
};
