// CVeLStringConverter: the library's conversions between wide text and UTF-8 (code page 65001), used
// for trace arguments, paths and byte formats. Stateless; any thread may call it. Invalid input becomes
// U+FFFD, never a crash or a silent cut.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <boost/shared_ptr.hpp>

#include <string>

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
};
