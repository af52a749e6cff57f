#include "w32p_string.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>

namespace
{

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one UTF-8 sequence at p (n bytes left). Returns the number of bytes consumed (at least 1)
// and sets cp, or sets valid = false for an invalid sequence: the maximal subpart of a well-formed
// sequence (or the single bad byte) is consumed and stands for one U+FFFD.
std::size_t DecodeUtf8(const unsigned char* p, std::size_t n, char32_t& cp, bool& valid)
{
    valid = true;
    unsigned char b0 = p[0];
    if (b0 < 0x80)
    {
        cp = b0;
        return 1;
    }
    std::size_t need;
    unsigned char lo = 0x80, hi = 0xBF;
    if (b0 >= 0xC2 && b0 <= 0xDF)
    {
        need = 1;
        cp = b0 & 0x1F;
    }
    else if (b0 >= 0xE0 && b0 <= 0xEF)
    {
        need = 2;
        cp = b0 & 0x0F;
        if (b0 == 0xE0)
            lo = 0xA0;
        else if (b0 == 0xED)
            hi = 0x9F;
    }
    else if (b0 >= 0xF0 && b0 <= 0xF4)
    {
        need = 3;
        cp = b0 & 0x07;
        if (b0 == 0xF0)
            lo = 0x90;
        else if (b0 == 0xF4)
            hi = 0x8F;
    }
    else
    {
        valid = false;
        return 1;
    }
    std::size_t i = 1;
    for (; i <= need; ++i)
    {
        if (i >= n)
        {
            valid = false;
            return i;
        }
        unsigned char b = p[i];
        if (b < lo || b > hi)
        {
            valid = false;
            return i;
        }
        lo = 0x80;
        hi = 0xBF;
        cp = (cp << 6) | (b & 0x3F);
    }
    return i;
}

std::size_t EncodeUtf8(char32_t c, char* out)
{
    if (c < 0x80)
    {
        out[0] = static_cast<char>(c);
        return 1;
    }
    if (c < 0x800)
    {
        out[0] = static_cast<char>(0xC0 | (c >> 6));
        out[1] = static_cast<char>(0x80 | (c & 0x3F));
        return 2;
    }
    if (c < 0x10000)
    {
        out[0] = static_cast<char>(0xE0 | (c >> 12));
        out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (c & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (c >> 18));
    out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (c & 0x3F));
    return 4;
}

} // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH multiByte, int multiByteLength, LPWSTR wideChars,
                        int wideCharCount)
{
    if (codePage != CP_UTF8 || multiByte == nullptr || multiByteLength == 0 || multiByteLength < -1 ||
        wideCharCount < 0 || (wideChars == nullptr && wideCharCount != 0) ||
        (wideChars != nullptr && static_cast<const void*>(wideChars) == static_cast<const void*>(multiByte)))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if ((flags & ~static_cast<DWORD>(MB_ERR_INVALID_CHARS)) != 0)
    {
        SetLastError(ERROR_INVALID_FLAGS);
        return 0;
    }
    const std::size_t n =
        multiByteLength == -1 ? std::strlen(multiByte) + 1 : static_cast<std::size_t>(multiByteLength);
    const auto* p = reinterpret_cast<const unsigned char*>(multiByte);
    std::size_t produced = 0;
    for (std::size_t i = 0; i < n;)
    {
        char32_t cp = 0;
        bool valid = true;
        i += DecodeUtf8(p + i, n - i, cp, valid);
        if (!valid)
        {
            if (flags & MB_ERR_INVALID_CHARS)
            {
                SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                return 0;
            }
            cp = kReplacement;
        }
        if (wideCharCount != 0)
        {
            if (produced >= static_cast<std::size_t>(wideCharCount))
            {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return 0;
            }
            wideChars[produced] = static_cast<wchar_t>(cp);
        }
        ++produced;
    }
    return static_cast<int>(produced);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wideChars, int wideCharCount, LPSTR multiByte,
                        int multiByteLength, LPCCH defaultChar, LPBOOL usedDefaultChar)
{
    if (codePage != CP_UTF8 || wideChars == nullptr || wideCharCount == 0 || wideCharCount < -1 ||
        multiByteLength < 0 || (multiByte == nullptr && multiByteLength != 0) || defaultChar != nullptr ||
        usedDefaultChar != nullptr ||
        (multiByte != nullptr && static_cast<const void*>(wideChars) == static_cast<const void*>(multiByte)))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if ((flags & ~static_cast<DWORD>(WC_ERR_INVALID_CHARS)) != 0)
    {
        SetLastError(ERROR_INVALID_FLAGS);
        return 0;
    }
    const std::size_t n =
        wideCharCount == -1 ? std::wcslen(wideChars) + 1 : static_cast<std::size_t>(wideCharCount);
    std::size_t produced = 0;
    char buffer[4];
    for (std::size_t i = 0; i < n; ++i)
    {
        char32_t c = static_cast<char32_t>(wideChars[i]);
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && static_cast<char32_t>(wideChars[i + 1]) >= 0xDC00 &&
            static_cast<char32_t>(wideChars[i + 1]) <= 0xDFFF)
        {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(wideChars[i + 1]) - 0xDC00);
            ++i;
        }
        else if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
        {
            if (flags & WC_ERR_INVALID_CHARS)
            {
                SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                return 0;
            }
            c = kReplacement;
        }
        std::size_t len = EncodeUtf8(c, buffer);
        if (multiByteLength != 0)
        {
            if (produced + len > static_cast<std::size_t>(multiByteLength))
            {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return 0;
            }
            std::memcpy(multiByte + produced, buffer, len);
        }
        produced += len;
    }
    return static_cast<int>(produced);
}

errno_t wcscpy_s(wchar_t* destination, rsize_t size, const wchar_t* source)
{
    constexpr rsize_t kMaxSize = SIZE_MAX >> 1;
    if (destination == nullptr || size == 0 || size > kMaxSize)
        return EINVAL;
    if (source == nullptr)
    {
        destination[0] = L'\0';
        return EINVAL;
    }
    for (rsize_t i = 0; i < size; ++i)
    {
        destination[i] = source[i];
        if (source[i] == L'\0')
            return 0;
    }
    destination[0] = L'\0';
    return ERANGE;
}
