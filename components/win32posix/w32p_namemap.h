// The one lossless mapping between Linux file names (any bytes but "/" and NUL) and Windows names (UTF-16
// without "\ / : * ? \" < > |" and the control characters):
// - valid UTF-8 becomes the characters it encodes;
// - a character Windows forbids in a name ("\ : * ? \" < > |" and U+0001-U+001F) is carried as the
//   private-use character U+F000 + the character, so a name never holds a separator on the Windows side;
// - a byte that is not part of valid UTF-8 is carried as the lone surrogate U+DC00 + the byte
//   (U+DC80-U+DCFF);
// - a valid UTF-8 sequence that itself decodes to U+F000-U+F0FF or U+DC80-U+DCFF is carried byte by byte as
//   U+DCxx, so no two Linux names share one wide form.
// Going back, U+DC80-U+DCFF become their bytes, U+F000 + a forbidden character becomes that character, and in
// a path both "\" and "/" separate elements. Every Linux name thus has exactly one wide form, and that form
// turns back into the same bytes. Other lone surrogates, which no Linux name produces, are written as the
// three bytes of their generalised UTF-8 form: a name of their own, never one that already has a wide form
// with U+FFFD.
//
// Header-only and free of system calls: win32posix maps every name it takes or returns with it; the
// library's path converter and the trace formatter's UTF-8 writer include the same copy, also where
// win32posix is not built. Pure functions, safe
// from any thread. Not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace w32p_namemap
{

constexpr std::uint32_t kCarriedByte = 0xDC00; // U+DC80-U+DCFF: one byte that is not UTF-8
constexpr std::uint32_t kCarriedChar = 0xF000; // U+F001-U+F07C: a character Windows forbids in names

inline bool IsForbiddenInName(std::uint32_t c)
{
    return (c >= 1 && c < 0x20) || c == '\\' || c == ':' || c == '*' || c == '?' || c == '"' || c == '<' ||
           c == '>' || c == '|';
}

// Decodes the well-formed UTF-8 sequence at bytes[i] (shortest form, no surrogates, at most U+10FFFF) into
// c; its length, or 0 when the byte at i does not start one.
inline std::size_t DecodeUtf8(const unsigned char* bytes, std::size_t length, std::size_t i, std::uint32_t& c)
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
        if (b0 == 0xE0)
            low = 0xA0;
        else if (b0 == 0xED)
            high = 0x9F;
    }
    else if (b0 >= 0xF0 && b0 <= 0xF4)
    {
        n = 4;
        if (b0 == 0xF0)
            low = 0x90;
        else if (b0 == 0xF4)
            high = 0x8F;
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
inline void AppendUtf8(std::uint32_t c, std::string& out)
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

// The wide form of a native name into out, whose storage is reused.
inline void AssignNativeToWide(const char* text, std::size_t length, std::wstring& out)
{
    out.clear();
    out.reserve(length);
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
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
}

inline std::wstring NativeToWide(const char* text, std::size_t length)
{
    std::wstring out;
    AssignNativeToWide(text, length, out);
    return out;
}

inline std::string WideToNative(const wchar_t* text, std::size_t length)
{
    std::string out;
    out.reserve(length);
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

} // namespace w32p_namemap
