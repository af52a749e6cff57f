#include "velstringconverter.h"

#include <climits>
#include <cstdint>
#include <cstring>

namespace
{

constexpr char16_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t c)
{
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(char32_t c)
{
    return c >= 0xDC00 && c <= 0xDFFF;
}

// Appends the UTF-16 code units of text[i]; returns how many wide characters were used (always 1). Where
// wchar_t has 32 bits, a character beyond U+FFFF becomes a surrogate pair and a surrogate value, paired or
// lone, is written as the code unit it is, so 16-bit data round-trips unchanged through a wide string on
// every platform. Only values beyond U+10FFFF, which no code unit can hold, become U+FFFD.
template <typename Put>
std::size_t PutUtf16(const std::wstring& text, std::size_t i, Put put)
{
    const char32_t c = static_cast<char32_t>(text[i]);
    if (c > 0x10FFFF)
        put(kReplacement);
    else if (c >= 0x10000)
    {
        put(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
        put(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
    else
        put(static_cast<char16_t>(c));
    return 1;
}

// Wide text of count code units that unit(i) reads. Where wchar_t has 32 bits a surrogate pair becomes one
// character and a lone surrogate the wchar_t of the same value; where it has 16 bits every unit is kept.
template <typename Unit>
std::wstring FromUtf16(std::size_t count, Unit unit)
{
    std::wstring text;
    text.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        char32_t c = unit(i);
        if (sizeof(wchar_t) == 4 && IsHighSurrogate(c) && i + 1 < count && IsLowSurrogate(unit(i + 1)))
            c = 0x10000 + ((c - 0xD800) << 10) + (unit(++i) - 0xDC00);
        text.push_back(static_cast<wchar_t>(c));
    }
    return text;
}

// Most text is ASCII. These loops take it in blocks of kAsciiRun characters without decoding: a block is
// first tested (one OR over it) and then copied with a plain narrowing or widening loop, which the
// compiler turns into vector instructions. Both stop at the first block that holds anything else and
// leave the rest to the full codec; since the blocks before that are ASCII, no sequence or surrogate
// pair is ever split.
constexpr std::size_t kAsciiRun = 64;

// Narrows the leading ASCII blocks of count wide characters into out; returns how many it narrowed.
std::size_t NarrowAsciiPrefix(const wchar_t* text, std::size_t count, char* out)
{
    std::size_t i = 0;
    for (; i + kAsciiRun <= count; i += kAsciiRun)
    {
        std::uint32_t any = 0;
        for (std::size_t k = 0; k < kAsciiRun; ++k)
            any |= static_cast<std::uint32_t>(text[i + k]);
        if (any >= 0x80)
            break;
        for (std::size_t k = 0; k < kAsciiRun; ++k)
            out[i + k] = static_cast<char>(text[i + k]);
    }
    return i;
}

// The length of the leading ASCII blocks of count UTF-8 bytes.
std::size_t AsciiPrefixLength(const char* utf8, std::size_t count)
{
    std::size_t i = 0;
    for (; i + kAsciiRun <= count; i += kAsciiRun)
    {
        unsigned char any = 0;
        for (std::size_t k = 0; k < kAsciiRun; ++k)
            any |= static_cast<unsigned char>(utf8[i + k]);
        if (any >= 0x80)
            break;
    }
    return i;
}

// Converts text to UTF-8 into storage that allocate(size) provides (size bytes plus one for a terminator,
// which is written). Most text is ASCII, one byte per character, so the first attempt converts into room
// for that in one pass; only text that needs more is measured and converted again. The number of bytes
// written, or -1 when the system conversion fails.
template <typename Allocate>
int ToUtf8(const std::wstring& text, Allocate allocate)
{
    if (text.empty())
    {
        *allocate(0) = '\0';
        return 0;
    }
    if (text.size() > static_cast<std::size_t>(INT_MAX))
        return -1;
    char* out = allocate(text.size());
    const std::size_t ascii = NarrowAsciiPrefix(text.data(), text.size(), out);
    if (ascii == text.size())
    {
        out[ascii] = '\0';
        return static_cast<int>(ascii);
    }
    const wchar_t* rest = text.data() + ascii;
    const int count = static_cast<int>(text.size() - ascii);
    int written = WideCharToMultiByte(CP_UTF8, 0, rest, count, out + ascii, count, nullptr, nullptr);
    if (written == 0 && GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        const int needed = WideCharToMultiByte(CP_UTF8, 0, rest, count, nullptr, 0, nullptr, nullptr);
        if (needed <= 0 || static_cast<std::size_t>(needed) > static_cast<std::size_t>(INT_MAX) - ascii)
            return -1;
        // The new storage need not keep the ASCII prefix, so it is narrowed again.
        out = allocate(ascii + static_cast<std::size_t>(needed));
        NarrowAsciiPrefix(text.data(), ascii, out);
        written = WideCharToMultiByte(CP_UTF8, 0, rest, count, out + ascii, needed, nullptr, nullptr);
    }
    if (written <= 0)
        return -1;
    out[ascii + static_cast<std::size_t>(written)] = '\0';
    return static_cast<int>(ascii) + written;
}

} // namespace

bool CVeLStringConverter::ConvertStdWString2UTF8Chars(const std::wstring& text,
                                                      boost::shared_ptr<char>& buffer)
{
    boost::shared_ptr<char> converted;
    const bool ok = ToUtf8(text,
                           [&](std::size_t size)
                           {
                               converted.reset(new char[size + 1], [](char* p) { delete[] p; });
                               return converted.get();
                           }) >= 0;
    if (ok)
        buffer = converted;
    else
        buffer.reset();
    return ok;
}

std::string CVeLStringConverter::ConvertStdWStringToStdString(const std::wstring& text)
{
    std::string utf8;
    const int written = ToUtf8(text,
                               [&](std::size_t size)
                               {
                                   utf8.resize(size + 1);
                                   return &utf8[0];
                               });
    utf8.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
    return utf8;
}

bool CVeLStringConverter::ConvertUTF8Chars2StdWString(const char* utf8, std::wstring& text)
{
    if (utf8 == nullptr)
    {
        text.clear();
        return false;
    }
    return ConvertUTF8Chars2StdWString(utf8, std::strlen(utf8), text);
}

bool CVeLStringConverter::ConvertUTF8Chars2StdWString(const char* utf8, unsigned __int64 length,
                                                      std::wstring& text)
{
    text.clear();
    if (length == 0)
        return true;
    if (utf8 == nullptr || length > static_cast<unsigned __int64>(INT_MAX))
        return false;
    const std::size_t size = static_cast<std::size_t>(length);
    const std::size_t ascii = AsciiPrefixLength(utf8, size);
    text.assign(utf8, utf8 + ascii);
    if (ascii == size)
        return true;
    // UTF-8 never has fewer bytes than characters, so one pass into room for the rest's bytes does it.
    const int count = static_cast<int>(size - ascii);
    text.resize(ascii + static_cast<std::size_t>(count));
    const int written = MultiByteToWideChar(CP_UTF8, 0, utf8 + ascii, count, &text[ascii], count);
    text.resize(written > 0 ? ascii + static_cast<std::size_t>(written) : 0);
    return written > 0;
}

std::u16string CVeLStringConverter::ConvertStdWStringToUTF16(const std::wstring& text)
{
    std::u16string units;
    units.reserve(text.size());
    for (std::size_t i = 0; i < text.size();)
        i += PutUtf16(text, i, [&](char16_t unit) { units.push_back(unit); });
    return units;
}

std::wstring CVeLStringConverter::ConvertUTF16ToStdWString(const char16_t* units, std::size_t count)
{
    if (units == nullptr)
        return std::wstring();
    return FromUtf16(count, [units](std::size_t i) { return static_cast<char32_t>(units[i]); });
}

std::vector<unsigned char> CVeLStringConverter::ConvertStdWStringToUTF16LE(const std::wstring& text)
{
    std::vector<unsigned char> bytes;
    bytes.reserve(text.size() * 2);
    for (std::size_t i = 0; i < text.size();)
        i += PutUtf16(text, i,
                      [&](char16_t unit)
                      {
                          bytes.push_back(static_cast<unsigned char>(unit & 0xFF));
                          bytes.push_back(static_cast<unsigned char>(unit >> 8));
                      });
    return bytes;
}

std::wstring CVeLStringConverter::ConvertUTF16LEToStdWString(const unsigned char* bytes, std::size_t size)
{
    if (bytes == nullptr)
        return std::wstring();
    return FromUtf16(
        size / 2, [bytes](std::size_t i)
        { return static_cast<char32_t>(bytes[2 * i] | (static_cast<unsigned>(bytes[2 * i + 1]) << 8)); });
}
