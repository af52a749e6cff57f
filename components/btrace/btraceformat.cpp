// Formatting of trace messages: printf conventions over 64-bit argument slots. Each conversion takes
// the type its length modifier names out of the slot (so "%d" reads the low 32 bits as a signed int,
// "%lld" the whole slot), which keeps a 32-bit conversion fed with a sign-extended value well defined.
#include "btrace.h"
#include "btraceinternal.h"
#include "w32p_namemap.h"

#include <cstdio>
#include <cstring>
#include <cwchar>

namespace
{

// Trace text is always valid UTF-8: a surrogate code point, which the name mapping writes in its
// generalised three-byte form so that no file name is lost, prints here as U+FFFD, as does anything beyond
// U+10FFFF.
void AppendUtf8(std::string& out, char32_t c)
{
    w32p_namemap::AppendUtf8(c >= 0xD800 && c <= 0xDFFF ? 0xFFFD : static_cast<std::uint32_t>(c), out);
}

// A wide string is UTF-16 where wchar_t has 16 bits (a surrogate pair is one character) and UTF-32
// elsewhere; a lone surrogate prints as U+FFFD.
void AppendWide(std::string& out, const wchar_t* w)
{
    constexpr bool utf16 = sizeof(wchar_t) == 2;
    for (; *w; ++w)
    {
        char32_t c = static_cast<char32_t>(*w);
        if (utf16 && c >= 0xD800 && c <= 0xDBFF && w[1] >= 0xDC00 && w[1] <= 0xDFFF)
        {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(w[1]) - 0xDC00);
            ++w;
        }
        AppendUtf8(out, c);
    }
}

template <typename T>
void AppendFormatted(std::string& out, const std::string& conversion, T value)
{
    char buffer[128];
    int n = std::snprintf(buffer, sizeof buffer, conversion.c_str(), value);
    if (n < 0)
        return;
    if (static_cast<size_t>(n) < sizeof buffer)
    {
        out.append(buffer, static_cast<size_t>(n));
        return;
    }
    std::string big(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(&big[0], big.size(), conversion.c_str(), value);
    big.resize(static_cast<size_t>(n));
    out += big;
}

// Applies width, precision and '-' of a %s conversion to an already converted UTF-8 text. Precision
// counts bytes, as printf does for narrow strings.
void AppendString(std::string& out, const std::string& text, bool leftAlign, int width, int precision)
{
    std::string s = precision >= 0 && static_cast<size_t>(precision) < text.size()
                        ? text.substr(0, static_cast<size_t>(precision))
                        : text;
    size_t pad =
        width > 0 && static_cast<size_t>(width) > s.size() ? static_cast<size_t>(width) - s.size() : 0;
    if (!leftAlign)
        out.append(pad, ' ');
    out += s;
    if (leftAlign)
        out.append(pad, ' ');
}

// Widths and precisions taken from arguments stay within what a line can sensibly hold, so a hostile
// argument cannot make the formatter allocate gigabytes.
int ClampWidth(std::int32_t value)
{
    return value > 100000 ? 100000 : value < -100000 ? -100000 : static_cast<int>(value);
}

// Hands out the argument slots in order; a conversion that asks beyond the last slot marks the reader short.
struct ArgumentReader
{
    const std::uint64_t* args;
    std::size_t count;
    std::size_t next = 0;
    bool ok = true; // every slot the current conversion asked for was there

    std::uint64_t Take()
    {
        if (next < count)
            return args[next++];
        ok = false;
        return 0;
    }
};

// One conversion directive between its '%' and its conversion character.
struct Conversion
{
    std::string flags;
    int width = -1;
    int precision = -1;
    int bits = 32;     // the size the length modifier names
    bool wide = false; // the 'l' modifier: a wide character or string

    bool LeftAlign() const { return flags.find('-') != std::string::npos; }
    // The conversion rebuilt for snprintf, without length modifier and conversion character.
    std::string Prefix() const
    {
        std::string prefix = "%" + flags;
        if (width >= 0)
            prefix += std::to_string(width);
        if (precision >= 0)
            prefix += "." + std::to_string(precision);
        return prefix;
    }
};

// A decimal number of the format; stops growing at 100000 so that a hostile format cannot overflow it.
int ReadNumber(const char*& p)
{
    int value = 0;
    while (*p >= '0' && *p <= '9')
        value = value < 100000 ? value * 10 + (*p++ - '0') : (++p, value);
    return value;
}

// Flags, width and precision ("*" takes them from the arguments).
void ParseFlagsWidthPrecision(const char*& p, ArgumentReader& reader, Conversion& c)
{
    while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr)
        c.flags += *p++;
    if (*p == '*')
    {
        c.width = ClampWidth(static_cast<std::int32_t>(reader.Take()));
        ++p;
    }
    else if (*p >= '0' && *p <= '9')
        c.width = ReadNumber(p);
    if (*p != '.')
        return;
    ++p;
    if (*p == '*')
    {
        c.precision = ClampWidth(static_cast<std::int32_t>(reader.Take()));
        ++p;
    }
    else
        c.precision = ReadNumber(p);
}

// Length modifiers: none, h and hh read 32 bits or less; l, ll, j, z, t and I64 read the whole slot (the
// library's "long" is the Windows 32-bit long, sign-extended into the slot, so reading 64 bits gives the
// same number). "I32" reads 32 bits.
void ParseLength(const char*& p, Conversion& c)
{
    if (p[0] == 'h' && p[1] == 'h')
    {
        c.bits = 8;
        p += 2;
    }
    else if (*p == 'h')
    {
        c.bits = 16;
        ++p;
    }
    else if (p[0] == 'l' && p[1] == 'l')
    {
        c.bits = 64;
        p += 2;
    }
    else if (*p == 'l' || *p == 'j' || *p == 'z' || *p == 't' || *p == 'L')
    {
        c.bits = 64;
        c.wide = *p == 'l';
        ++p;
    }
    else if ((p[0] == 'I' && p[1] == '6' && p[2] == '4') || (p[0] == 'I' && p[1] == '3' && p[2] == '2'))
    {
        c.bits = p[1] == '6' ? 64 : 32;
        p += 3;
    }
}

void AppendSigned(std::string& out, const Conversion& c, std::uint64_t v)
{
    const std::string prefix = c.Prefix();
    if (c.bits == 64)
        AppendFormatted(out, prefix + "lld", static_cast<long long>(v));
    else if (c.bits == 16)
        AppendFormatted(out, prefix + "d", static_cast<int>(static_cast<std::int16_t>(v)));
    else if (c.bits == 8)
        AppendFormatted(out, prefix + "d", static_cast<int>(static_cast<std::int8_t>(v)));
    else
        AppendFormatted(out, prefix + "d", static_cast<int>(static_cast<std::int32_t>(v)));
}

void AppendUnsigned(std::string& out, const Conversion& c, char conv, std::uint64_t v)
{
    const std::uint64_t u = c.bits == 64   ? v
                            : c.bits == 16 ? (v & 0xFFFFu)
                            : c.bits == 8  ? (v & 0xFFu)
                                           : (v & 0xFFFFFFFFu);
    AppendFormatted(out, c.Prefix() + "ll" + conv, static_cast<unsigned long long>(u));
}

void AppendCharacter(std::string& out, const Conversion& c, char conv, std::uint64_t v)
{
    std::string ch;
    if (c.wide || conv == 'C')
        AppendUtf8(ch, static_cast<char32_t>(v & 0x1FFFFF));
    else
        ch = static_cast<char>(v & 0xFF);
    AppendString(out, ch, c.LeftAlign(), c.width, -1);
}

void AppendFloating(std::string& out, const Conversion& c, char conv, std::uint64_t v)
{
    double d;
    std::memcpy(&d, &v, sizeof d);
    AppendFormatted(out, c.Prefix() + conv, d);
}

// A %s or %S argument: the copy made when the message was recorded where there is one, else the text at
// the argument's address.
void AppendStringArgument(std::string& out, const Conversion& c, char conv, std::uint64_t v,
                          std::size_t index, const std::vector<std::string>* copiedStrings,
                          std::vector<btrace_detail::StringArgument>* stringArguments)
{
    const bool wide = c.wide || conv == 'S';
    std::string text;
    if (stringArguments != nullptr)
        stringArguments->push_back(btrace_detail::StringArgument{static_cast<unsigned>(index), wide});
    if (v == 0)
        text = "(null)";
    else if (copiedStrings != nullptr)
        text = index < copiedStrings->size() ? (*copiedStrings)[index] : std::string();
    else if (wide)
        AppendWide(text, reinterpret_cast<const wchar_t*>(static_cast<std::uintptr_t>(v)));
    else
        text = reinterpret_cast<const char*>(static_cast<std::uintptr_t>(v));
    AppendString(out, text, c.LeftAlign(), c.width, c.precision);
}

} // namespace

std::string BTraceFormat(const char* format, const std::uint64_t* args, std::size_t count)
{
    return btrace_detail::FormatMessage(format, args, count, nullptr, nullptr);
}

std::string btrace_detail::FormatMessage(const char* format, const std::uint64_t* args, std::size_t count,
                                         const std::vector<std::string>* copiedStrings,
                                         std::vector<StringArgument>* stringArguments)
{
    std::string out;
    if (format == nullptr)
        return out;
    ArgumentReader reader{args, count};
    for (const char* p = format; *p != '\0'; ++p)
    {
        if (*p != '%')
        {
            out += *p;
            continue;
        }
        const char* start = p++;
        if (*p == '%')
        {
            out += '%';
            continue;
        }
        reader.ok = true;
        Conversion c;
        ParseFlagsWidthPrecision(p, reader, c);
        ParseLength(p, c);
        const char conv = *p;
        if (conv == '\0')
        {
            out.append(start);
            break;
        }
        const std::uint64_t v = std::strchr("diuxXocCsSpaAeEfFgGn", conv) != nullptr ? reader.Take() : 0;
        if (!reader.ok)
            out += "<missing argument>";
        else if (conv == 'd' || conv == 'i')
            AppendSigned(out, c, v);
        else if (std::strchr("uxXo", conv) != nullptr)
            AppendUnsigned(out, c, conv, v);
        else if (conv == 'c' || conv == 'C')
            AppendCharacter(out, c, conv, v);
        else if (conv == 's' || conv == 'S')
            AppendStringArgument(out, c, conv, v, reader.next - 1, copiedStrings, stringArguments);
        else if (conv == 'p')
            AppendFormatted(out, c.Prefix() + "p", reinterpret_cast<void*>(static_cast<std::uintptr_t>(v)));
        else if (std::strchr("aAeEfFgG", conv) != nullptr)
            AppendFloating(out, c, conv, v);
        else if (conv != 'n') // %n never writes through an argument
            out.append(start, static_cast<size_t>(p - start + 1));
    }
    return out;
}
