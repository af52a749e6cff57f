// Formatting of trace messages: printf conventions over 64-bit argument slots. Each conversion takes
// the type its length modifier names out of the slot (so "%d" reads the low 32 bits as a signed int,
// "%lld" the whole slot), which keeps a 32-bit conversion fed with a sign-extended value well defined.
#include "btrace.h"
#include "btraceinternal.h"

#include <cstdio>
#include <cstring>
#include <cwchar>

namespace
{

void AppendUtf8(std::string& out, char32_t c)
{
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
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
    size_t next = 0;
    auto take = [&](bool& ok) -> std::uint64_t
    {
        if (next < count)
            return args[next++];
        ok = false;
        return 0;
    };

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
        std::string flags;
        while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr)
            flags += *p++;
        bool ok = true;
        int width = -1;
        if (*p == '*')
        {
            width = ClampWidth(static_cast<std::int32_t>(take(ok)));
            ++p;
        }
        else if (*p >= '0' && *p <= '9')
        {
            width = 0;
            while (*p >= '0' && *p <= '9')
                width = width < 100000 ? width * 10 + (*p++ - '0')
                                       : (++p, width); // no overflow on hostile formats
        }
        int precision = -1;
        if (*p == '.')
        {
            ++p;
            precision = 0;
            if (*p == '*')
            {
                precision = ClampWidth(static_cast<std::int32_t>(take(ok)));
                ++p;
            }
            else
                while (*p >= '0' && *p <= '9')
                    precision = precision < 100000 ? precision * 10 + (*p++ - '0') : (++p, precision);
        }
        // Length modifiers: none, h and hh read 32 bits or less; l, ll, j, z, t and I64 read the whole
        // slot (the library's "long" is the Windows 32-bit long, sign-extended into the slot, so reading
        // 64 bits gives the same number). "I32" reads 32 bits.
        int bits = 32;
        bool wide = false;
        if (p[0] == 'h' && p[1] == 'h')
        {
            bits = 8;
            p += 2;
        }
        else if (*p == 'h')
        {
            bits = 16;
            ++p;
        }
        else if (p[0] == 'l' && p[1] == 'l')
        {
            bits = 64;
            p += 2;
        }
        else if (*p == 'l' || *p == 'j' || *p == 'z' || *p == 't' || *p == 'L')
        {
            bits = 64;
            wide = *p == 'l';
            ++p;
        }
        else if (p[0] == 'I' && p[1] == '6' && p[2] == '4')
        {
            bits = 64;
            p += 3;
        }
        else if (p[0] == 'I' && p[1] == '3' && p[2] == '2')
        {
            p += 3;
        }
        char conv = *p;
        if (conv == '\0')
        {
            out.append(start);
            break;
        }
        std::string conversion = "%" + flags;
        if (width >= 0)
            conversion += std::to_string(width);
        if (precision >= 0)
            conversion += "." + std::to_string(precision);

        std::uint64_t v = 0;
        if (std::strchr("diuxXocCsSpaAeEfFgGn", conv) != nullptr)
            v = take(ok);
        if (!ok)
        {
            out += "<missing argument>";
            continue;
        }
        switch (conv)
        {
        case 'd':
        case 'i':
            if (bits == 64)
                AppendFormatted(out, conversion + "lld", static_cast<long long>(v));
            else if (bits == 16)
                AppendFormatted(out, conversion + "d", static_cast<int>(static_cast<std::int16_t>(v)));
            else if (bits == 8)
                AppendFormatted(out, conversion + "d", static_cast<int>(static_cast<std::int8_t>(v)));
            else
                AppendFormatted(out, conversion + "d", static_cast<int>(static_cast<std::int32_t>(v)));
            break;
        case 'u':
        case 'x':
        case 'X':
        case 'o':
        {
            std::uint64_t u = bits == 64   ? v
                              : bits == 16 ? (v & 0xFFFFu)
                              : bits == 8  ? (v & 0xFFu)
                                           : (v & 0xFFFFFFFFu);
            AppendFormatted(out, conversion + "ll" + conv, static_cast<unsigned long long>(u));
            break;
        }
        case 'c':
        case 'C':
        {
            std::string ch;
            if (wide || conv == 'C')
                AppendUtf8(ch, static_cast<char32_t>(v & 0x1FFFFF));
            else
                ch = static_cast<char>(v & 0xFF);
            AppendString(out, ch, flags.find('-') != std::string::npos, width, -1);
            break;
        }
        case 's':
        case 'S':
        {
            std::string text;
            if (stringArguments != nullptr)
                stringArguments->push_back(
                    StringArgument{static_cast<unsigned>(next - 1), wide || conv == 'S'});
            if (v == 0)
                text = "(null)";
            else if (copiedStrings != nullptr)
                text = next - 1 < copiedStrings->size() ? (*copiedStrings)[next - 1] : std::string();
            else if (wide || conv == 'S')
                AppendWide(text, reinterpret_cast<const wchar_t*>(static_cast<std::uintptr_t>(v)));
            else
                text = reinterpret_cast<const char*>(static_cast<std::uintptr_t>(v));
            AppendString(out, text, flags.find('-') != std::string::npos, width, precision);
            break;
        }
        case 'p':
            AppendFormatted(out, conversion + "p", reinterpret_cast<void*>(static_cast<std::uintptr_t>(v)));
            break;
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        {
            double d;
            std::memcpy(&d, &v, sizeof d);
            AppendFormatted(out, conversion + conv, d);
            break;
        }
        case 'n':
            break; // never writes through an argument
        default:
            out.append(start, static_cast<size_t>(p - start + 1));
            break;
        }
    }
    return out;
}
