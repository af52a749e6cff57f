// CVeLTypeConverter: text to and from integers, reals, booleans and enumerations, the conversions that
// command lines, profile values and command parameters need. Parsing is strict: the whole text must be
// the value (surrounding blanks are allowed, nothing else), a number must fit the range the caller gives,
// and a real must be finite. Formatting is locale-independent and a real is printed so that it parses back
// to the same value. Stateless; any thread may call it.
// Failures: a failed parse answers a failed CVeLResult and, when reason is given, a one-line reason for
// the user that names the text and the rule it broke; it is traced at debug level 1,
// since bad text is the caller's input, not a fault of the library. Nothing throws.
#pragma once

#include "korutilities_export.h"
#include "velresult.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLTypeConverter
{
public:
    // A decimal integer with an optional sign, or hexadecimal with "0x"/"0X" prefix, within min..max.
    static CVeLResult<std::int64_t> ToInteger(const std::wstring& text,
                                              std::int64_t minimum = std::numeric_limits<std::int64_t>::min(),
                                              std::int64_t maximum = std::numeric_limits<std::int64_t>::max(),
                                              std::wstring* reason = nullptr);
    // The same for unsigned values up to 2^64 - 1; a sign is refused.
    static CVeLResult<std::uint64_t>
    ToUnsigned(const std::wstring& text, std::uint64_t maximum = std::numeric_limits<std::uint64_t>::max(),
               std::wstring* reason = nullptr);
    // A finite real in decimal or exponent notation ("1.5", "-2e-3"), within minimum..maximum; "." is the
    // decimal separator whatever the locale.
    static CVeLResult<double> ToReal(const std::wstring& text,
                                     double minimum = -std::numeric_limits<double>::max(),
                                     double maximum = std::numeric_limits<double>::max(),
                                     std::wstring* reason = nullptr);
    // "true"/"false", "yes"/"no", "on"/"off", "1"/"0", any letter case.
    static CVeLResult<bool> ToBoolean(const std::wstring& text, std::wstring* reason = nullptr);
    // The index of text among names (exact spelling, or any letter case when ignoreCase).
    static CVeLResult<std::size_t> ToEnumeration(const std::wstring& text,
                                                 const std::vector<std::wstring>& names,
                                                 bool ignoreCase = false, std::wstring* reason = nullptr);

    static std::wstring FromInteger(std::int64_t value);
    static std::wstring FromUnsigned(std::uint64_t value);
    // The shortest text that parses back to the same value ("0.1", "1e+300"); "nan"/"inf" for the
    // non-finite values, which ToReal refuses.
    static std::wstring FromReal(double value);
    // "true" or "false".
    static std::wstring FromBoolean(bool value);
};
