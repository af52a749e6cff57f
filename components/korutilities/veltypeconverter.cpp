#include "veltypeconverter.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cwctype>
#include <locale>
#include <sstream>

namespace
{

std::wstring Trimmed(const std::wstring& text)
{
    const std::size_t first = text.find_first_not_of(L" \t\r\n");
    if (first == std::wstring::npos)
        return std::wstring();
    const std::size_t last = text.find_last_not_of(L" \t\r\n");
    return text.substr(first, last - first + 1);
}

std::wstring Lower(const std::wstring& text)
{
    std::wstring lower(text);
    for (wchar_t& c : lower)
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return lower;
}

// Answers a failed result after keeping the reason for the caller and the trace.
template <typename T>
CVeLResult<T> Refuse(std::wstring* reason, const std::wstring& why)
{
    VEL_TRACE(VEL_DBG1, "CVeLTypeConverter: %s",
              CVeLStringConverter::ConvertStdWStringToStdString(why).c_str());
    if (reason != nullptr)
        *reason = why;
    return CVeLResult<T>();
}

std::wstring Quoted(const std::wstring& text)
{
    return L"'" + text + L"'";
}

// The magnitude of an unsigned decimal or "0x" hexadecimal number. False for an empty text, another
// character, or a value beyond 2^64 - 1 (overflow set).
bool ParseMagnitude(const std::wstring& digits, std::uint64_t& value, bool& overflow)
{
    value = 0;
    overflow = false;
    std::size_t i = 0;
    unsigned base = 10;
    if (digits.size() > 2 && digits[0] == L'0' && (digits[1] == L'x' || digits[1] == L'X'))
    {
        base = 16;
        i = 2;
    }
    if (i >= digits.size())
        return false;
    for (; i < digits.size(); ++i)
    {
        const wchar_t c = digits[i];
        unsigned digit;
        if (c >= L'0' && c <= L'9')
            digit = static_cast<unsigned>(c - L'0');
        else if (base == 16 && c >= L'a' && c <= L'f')
            digit = static_cast<unsigned>(c - L'a' + 10);
        else if (base == 16 && c >= L'A' && c <= L'F')
            digit = static_cast<unsigned>(c - L'A' + 10);
        else
            return false;
        if (value > (std::numeric_limits<std::uint64_t>::max() - digit) / base)
            overflow = true;
        else
            value = value * base + digit;
    }
    return true;
}

} // namespace

CVeLResult<std::int64_t> CVeLTypeConverter::ToInteger(const std::wstring& text, std::int64_t minimum,
                                                      std::int64_t maximum, std::wstring* reason)
{
    const std::wstring body = Trimmed(text);
    const bool negative = !body.empty() && body[0] == L'-';
    const std::wstring digits =
        (!body.empty() && (body[0] == L'-' || body[0] == L'+')) ? body.substr(1) : body;
    std::uint64_t magnitude = 0;
    bool overflow = false;
    if (!ParseMagnitude(digits, magnitude, overflow))
        return Refuse<std::int64_t>(reason, Quoted(text) + L" is not an integer");
    const std::uint64_t limit = negative ? std::uint64_t(1) << 63 : (std::uint64_t(1) << 63) - 1;
    const std::wstring range = L" is out of range " + FromInteger(minimum) + L".." + FromInteger(maximum);
    if (overflow || magnitude > limit)
        return Refuse<std::int64_t>(reason, Quoted(text) + range);
    const std::int64_t value =
        negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
    if (value < minimum || value > maximum)
        return Refuse<std::int64_t>(reason, Quoted(text) + range);
    return CVeLResult<std::int64_t>(true, value);
}

CVeLResult<std::uint64_t> CVeLTypeConverter::ToUnsigned(const std::wstring& text, std::uint64_t maximum,
                                                        std::wstring* reason)
{
    const std::wstring body = Trimmed(text);
    const std::wstring digits = (!body.empty() && body[0] == L'+') ? body.substr(1) : body;
    std::uint64_t value = 0;
    bool overflow = false;
    if (!ParseMagnitude(digits, value, overflow))
        return Refuse<std::uint64_t>(reason, Quoted(text) + L" is not an unsigned integer");
    if (overflow || value > maximum)
        return Refuse<std::uint64_t>(reason, Quoted(text) + L" is out of range 0.." + FromUnsigned(maximum));
    return CVeLResult<std::uint64_t>(true, value);
}

CVeLResult<double> CVeLTypeConverter::ToReal(const std::wstring& text, double minimum, double maximum,
                                             std::wstring* reason)
{
    const std::wstring body = Trimmed(text);
    // Only the characters of a decimal number reach the parser, which also keeps "inf", "nan" and
    // hexadecimal reals out.
    if (body.empty() || body.find_first_not_of(L"0123456789+-.eE") != std::wstring::npos)
        return Refuse<double>(reason, Quoted(text) + L" is not a number");
    const std::string narrow(body.begin(), body.end());
    // Parsed with the classic locale so that "." is the separator whatever the host process set.
    std::istringstream stream(narrow);
    stream.imbue(std::locale::classic());
    double value = 0;
    stream >> value;
    if (stream.fail() || stream.peek() != std::char_traits<char>::eof())
    {
        // The stream refuses values beyond the range of double; tell that apart from bad text.
        char* end = nullptr;
        errno = 0;
        const double probe = std::strtod(narrow.c_str(), &end);
        if (end != nullptr && *end == '\0' && errno == ERANGE && std::isinf(probe))
            return Refuse<double>(reason, Quoted(text) + L" is out of range");
        return Refuse<double>(reason, Quoted(text) + L" is not a number");
    }
    if (!std::isfinite(value) || value < minimum || value > maximum)
        return Refuse<double>(reason, Quoted(text) + L" is out of range " + FromReal(minimum) + L".." +
                                          FromReal(maximum));
    return CVeLResult<double>(true, value);
}

CVeLResult<bool> CVeLTypeConverter::ToBoolean(const std::wstring& text, std::wstring* reason)
{
    const std::wstring lower = Lower(Trimmed(text));
    if (lower == L"true" || lower == L"yes" || lower == L"on" || lower == L"1")
        return CVeLResult<bool>(true, true);
    if (lower == L"false" || lower == L"no" || lower == L"off" || lower == L"0")
        return CVeLResult<bool>(true, false);
    return Refuse<bool>(reason, Quoted(text) + L" is not a boolean (true or false)");
}

CVeLResult<std::size_t> CVeLTypeConverter::ToEnumeration(const std::wstring& text,
                                                         const std::vector<std::wstring>& names,
                                                         bool ignoreCase, std::wstring* reason)
{
    const std::wstring wanted = ignoreCase ? Lower(Trimmed(text)) : Trimmed(text);
    std::wstring choices;
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        if ((ignoreCase ? Lower(names[i]) : names[i]) == wanted)
            return CVeLResult<std::size_t>(true, i);
        choices += (i ? L", " : L"") + names[i];
    }
    return Refuse<std::size_t>(reason, Quoted(text) + L" is not one of " + choices);
}

std::wstring CVeLTypeConverter::FromInteger(std::int64_t value)
{
    return std::to_wstring(value);
}

std::wstring CVeLTypeConverter::FromUnsigned(std::uint64_t value)
{
    return std::to_wstring(value);
}

std::wstring CVeLTypeConverter::FromReal(double value)
{
    if (std::isnan(value))
        return L"nan";
    if (std::isinf(value))
        return value < 0 ? L"-inf" : L"inf";
    // The shortest of 15, 16 or 17 significant digits that reads back exactly.
    for (int precision = 15; precision <= 17; ++precision)
    {
        std::ostringstream stream;
        stream.imbue(std::locale::classic());
        stream.precision(precision);
        stream << value;
        const std::string text = stream.str();
        std::istringstream back(text);
        back.imbue(std::locale::classic());
        double parsed = 0;
        back >> parsed;
        if ((!back.fail() && parsed == value) || precision == 17)
            return std::wstring(text.begin(), text.end());
    }
    return std::wstring();
}

std::wstring CVeLTypeConverter::FromBoolean(bool value)
{
    return value ? L"true" : L"false";
}
