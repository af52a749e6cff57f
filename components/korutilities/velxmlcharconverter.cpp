#include "velxmlcharconverter.h"
#include "velwin32.h"

namespace
{

constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t c)
{
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(char32_t c)
{
    return c >= 0xDC00 && c <= 0xDFFF;
}

} // namespace

XMLChString CVeLXMLCharConverter::ToXMLCh(const std::wstring& text)
{
    return ToXMLCh(text.data(), text.size());
}

XMLChString CVeLXMLCharConverter::ToXMLCh(const wchar_t* text, std::size_t length)
{
    XMLChString result;
    if (text == nullptr || length == 0)
        return result;
    result.reserve(length);
    if constexpr (sizeof(wchar_t) == sizeof(XMLCh))
    {
        // Both sides are UTF-16 code units already; pairs pass through as they are.
        result.assign(reinterpret_cast<const XMLCh*>(text), length);
    }
    else
    {
        for (std::size_t i = 0; i < length; ++i)
        {
            char32_t c = static_cast<char32_t>(text[i]);
            if (c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c))
                c = kReplacement;
            if (c >= 0x10000)
            {
                c -= 0x10000;
                result.push_back(static_cast<XMLCh>(0xD800 + (c >> 10)));
                result.push_back(static_cast<XMLCh>(0xDC00 + (c & 0x3FF)));
            }
            else
                result.push_back(static_cast<XMLCh>(c));
        }
    }
    return result;
}

std::wstring CVeLXMLCharConverter::ToWString(const XMLCh* text)
{
    if (text == nullptr)
        return std::wstring();
    std::size_t length = 0;
    while (text[length] != 0)
        ++length;
    return ToWString(text, length);
}

std::wstring CVeLXMLCharConverter::ToWString(const XMLCh* text, std::size_t length)
{
    std::wstring result;
    if (text == nullptr || length == 0)
        return result;
    result.reserve(length);
    if constexpr (sizeof(wchar_t) == sizeof(XMLCh))
    {
        result.assign(reinterpret_cast<const wchar_t*>(text), length);
    }
    else
    {
        for (std::size_t i = 0; i < length; ++i)
        {
            char32_t c = static_cast<char32_t>(text[i]);
            if (IsHighSurrogate(c))
            {
                if (i + 1 < length && IsLowSurrogate(static_cast<char32_t>(text[i + 1])))
                {
                    c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[i + 1]) - 0xDC00);
                    ++i;
                }
                else
                    c = kReplacement;
            }
            else if (IsLowSurrogate(c))
                c = kReplacement;
            result.push_back(static_cast<wchar_t>(c));
        }
    }
    return result;
}
