#include "velpathconverter.h"
#include "velstringconverter.h"
#include "velwin32.h"

#include <cstdint>
#include <type_traits>

namespace
{

// True where the path's native text is bytes rather than wide characters.
constexpr bool kNarrowNative = std::is_same<boost::filesystem::path::value_type, char>::value;

constexpr std::uint32_t kCarriedByte = 0xDC00; // U+DC80-U+DCFF: one byte that is not UTF-8
constexpr std::uint32_t kCarriedChar = 0xF000; // U+F001-U+F07C: a character Windows forbids in names

bool IsForbiddenInName(std::uint32_t c)
{
    return (c >= 1 && c < 0x20) || c == '\\' || c == ':' || c == '*' || c == '?' || c == '"' || c == '<' ||
           c == '>' || c == '|';
}

// Decodes the well-formed UTF-8 sequence at bytes[i] (shortest form, no surrogates, at most U+10FFFF);
// its length, or 0 when the byte at i does not start one.
std::size_t DecodeUtf8(const unsigned char* bytes, std::size_t length, std::size_t i, std::uint32_t& c)
{
    const unsigned char b0 = bytes[i];
    if (b0 < 0x80)
    {
        c = b0;
        return 1;
    }
    std::size_t n;
    unsigned char low = 0x80, high = 0xBF; // allowed range of the second byte
    if (b0 >= 0xC2 && b0 <= 0xDF)
        n = 2;
    else if (b0 >= 0xE0 && b0 <= 0xEF)
    {
        n = 3;
        low = b0 == 0xE0 ? 0xA0 : low;
        high = b0 == 0xED ? 0x9F : high;
    }
    else if (b0 >= 0xF0 && b0 <= 0xF4)
    {
        n = 4;
        low = b0 == 0xF0 ? 0x90 : low;
        high = b0 == 0xF4 ? 0x8F : high;
    }
    else
        return 0;
    if (length - i < n || bytes[i + 1] < low || bytes[i + 1] > high)
        return 0;
    std::uint32_t value = b0 & (0xFFu >> (n + 1));
    for (std::size_t k = 1; k < n; ++k)
    {
        if ((bytes[i + k] & 0xC0) != 0x80)
            return 0;
        value = (value << 6) | (bytes[i + k] & 0x3Fu);
    }
    c = value;
    return n;
}

// Appends c in UTF-8; a surrogate code point gets its generalised three-byte form.
void AppendUtf8(std::uint32_t c, std::string& out)
{
    if (c > 0x10FFFF)
        c = 0xFFFD;
    if (c < 0x80)
        out += static_cast<char>(c);
    else if (c < 0x800)
    {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    else if (c < 0x10000)
    {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    else
    {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

} // namespace

std::wstring CVeLPathConverter::NativeBytesToWide(const std::string& text)
{
    std::wstring out;
    out.reserve(text.size());
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t length = text.size();
    for (std::size_t i = 0; i < length;)
    {
        std::uint32_t c = 0;
        const std::size_t n = DecodeUtf8(bytes, length, i, c);
        if (n == 0 || (c >= kCarriedChar && c <= kCarriedChar + 0xFF) ||
            (c >= kCarriedByte + 0x80 && c <= kCarriedByte + 0xFF))
        {
            // Not UTF-8, or a character that would read as a carried one: each byte is carried on its own.
            const std::size_t count = n == 0 ? 1 : n;
            for (std::size_t k = 0; k < count; ++k)
                out += static_cast<wchar_t>(kCarriedByte + bytes[i + k]);
            i += count;
            continue;
        }
        out += static_cast<wchar_t>(IsForbiddenInName(c) ? kCarriedChar + c : c);
        i += n;
    }
    return out;
}

std::string CVeLPathConverter::WideToNativeBytes(const std::wstring& text)
{
    std::string out;
    out.reserve(text.size());
    const std::size_t length = text.size();
    for (std::size_t i = 0; i < length; ++i)
    {
        std::uint32_t c = static_cast<std::uint32_t>(text[i]);
        if (c == '\\' || c == '/')
            out += '/';
        else if (c >= kCarriedByte + 0x80 && c <= kCarriedByte + 0xFF)
            out += static_cast<char>(c - kCarriedByte);
        else if (c > kCarriedChar && c <= kCarriedChar + 0x7F && IsForbiddenInName(c - kCarriedChar))
            out += static_cast<char>(c - kCarriedChar);
        else
        {
            // A UTF-16 surrogate pair, as text that came through 16-bit units may hold it.
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < length)
            {
                const std::uint32_t next = static_cast<std::uint32_t>(text[i + 1]);
                if (next >= 0xDC00 && next <= 0xDFFF)
                {
                    c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
                    ++i;
                }
            }
            AppendUtf8(c, out);
        }
    }
    return out;
}

std::wstring CVeLPathConverter::ToWide(const boost::filesystem::path& path)
{
    if constexpr (kNarrowNative)
        return NativeBytesToWide(std::string(path.native().begin(), path.native().end()));
    else
        return std::wstring(path.native().begin(), path.native().end());
}

std::string CVeLPathConverter::ToUtf8(const boost::filesystem::path& path)
{
    if constexpr (kNarrowNative)
        return std::string(path.native().begin(), path.native().end());
    else
        return CVeLStringConverter::ConvertStdWStringToStdString(ToWide(path));
}

boost::filesystem::path CVeLPathConverter::FromWide(const std::wstring& text)
{
    if constexpr (kNarrowNative)
        return boost::filesystem::path(WideToNativeBytes(text));
    else
        return boost::filesystem::path(text);
}
