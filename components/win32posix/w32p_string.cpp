// Code-page conversion (UTF-8) and the bounds-checked wide-string copy.
// The contract, and where Linux differs from Windows, are in w32p_string.h.
#include "w32p_string.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace
{

constexpr char32_t kReplacement = 0xFFFD;

// Text is mostly ASCII: blocks of that many characters without a byte or character above 0x7F are
// converted without decoding, with vector instructions where the processor has them.
constexpr std::size_t kAsciiBlock = 16;

// Widens 16 bytes to 16 wide characters when none is above 0x7F; false (nothing written) otherwise.
// out may be null to test only.
bool WidenAsciiBlock(const unsigned char* p, wchar_t* out)
{
#if defined(__SSE2__)
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    if (_mm_movemask_epi8(bytes) != 0)
        return false;
    if (out != nullptr)
    {
        const __m128i zero = _mm_setzero_si128();
        const __m128i low = _mm_unpacklo_epi8(bytes, zero);
        const __m128i high = _mm_unpackhi_epi8(bytes, zero);
        __m128i* target = reinterpret_cast<__m128i*>(out);
        _mm_storeu_si128(target, _mm_unpacklo_epi16(low, zero));
        _mm_storeu_si128(target + 1, _mm_unpackhi_epi16(low, zero));
        _mm_storeu_si128(target + 2, _mm_unpacklo_epi16(high, zero));
        _mm_storeu_si128(target + 3, _mm_unpackhi_epi16(high, zero));
    }
    return true;
#else
    std::uint64_t low, high;
    std::memcpy(&low, p, sizeof low);
    std::memcpy(&high, p + sizeof low, sizeof high);
    if (((low | high) & 0x8080808080808080ull) != 0)
        return false;
    if (out != nullptr)
        for (std::size_t k = 0; k < kAsciiBlock; ++k)
            out[k] = static_cast<wchar_t>(p[k]);
    return true;
#endif
}

// Narrows 16 wide characters to 16 bytes when none is above 0x7F; false (nothing written) otherwise.
bool NarrowAsciiBlock(const wchar_t* p, char* out)
{
#if defined(__SSE2__)
    static_assert(sizeof(wchar_t) == 4, "four wide characters per vector");
    const __m128i* source = reinterpret_cast<const __m128i*>(p);
    const __m128i a = _mm_loadu_si128(source), b = _mm_loadu_si128(source + 1);
    const __m128i c = _mm_loadu_si128(source + 2), d = _mm_loadu_si128(source + 3);
    const __m128i any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
    const __m128i above = _mm_and_si128(any, _mm_set1_epi32(~0x7F));
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(above, _mm_setzero_si128())) != 0xFFFF)
        return false;
    if (out != nullptr)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                         _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d)));
    return true;
#else
    std::uint32_t any = 0;
    for (std::size_t k = 0; k < kAsciiBlock; ++k)
        any |= static_cast<std::uint32_t>(p[k]);
    if (any >= 0x80)
        return false;
    if (out != nullptr)
        for (std::size_t k = 0; k < kAsciiBlock; ++k)
            out[k] = static_cast<char>(p[k]);
    return true;
#endif
}

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
    if (codePage != CP_UTF8 || multiByte == nullptr || multiByteLength == 0 || wideCharCount < 0 ||
        (wideChars == nullptr && wideCharCount != 0) ||
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
        multiByteLength < 0 ? std::strlen(multiByte) + 1 : static_cast<std::size_t>(multiByteLength);
    const auto* p = reinterpret_cast<const unsigned char*>(multiByte);
    std::size_t produced = 0;
    for (std::size_t i = 0; i < n;)
    {
        if (i + kAsciiBlock <= n)
        {
            const bool room =
                wideCharCount == 0 || produced + kAsciiBlock <= static_cast<std::size_t>(wideCharCount);
            if (WidenAsciiBlock(p + i, wideCharCount != 0 && room ? wideChars + produced : nullptr))
            {
                if (!room)
                {
                    SetLastError(ERROR_INSUFFICIENT_BUFFER);
                    return 0;
                }
                produced += kAsciiBlock;
                i += kAsciiBlock;
                continue;
            }
        }
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
    if (codePage != CP_UTF8 || wideChars == nullptr || wideCharCount == 0 || multiByteLength < 0 ||
        (multiByte == nullptr && multiByteLength != 0) || defaultChar != nullptr ||
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
        wideCharCount < 0 ? std::wcslen(wideChars) + 1 : static_cast<std::size_t>(wideCharCount);
    std::size_t produced = 0;
    char buffer[4];
    for (std::size_t i = 0; i < n; ++i)
    {
        if (i + kAsciiBlock <= n)
        {
            const bool room =
                multiByteLength == 0 || produced + kAsciiBlock <= static_cast<std::size_t>(multiByteLength);
            if (NarrowAsciiBlock(wideChars + i,
                                 multiByteLength != 0 && room ? multiByte + produced : nullptr))
            {
                if (!room)
                {
                    SetLastError(ERROR_INSUFFICIENT_BUFFER);
                    return 0;
                }
                produced += kAsciiBlock;
                i += kAsciiBlock - 1;
                continue;
            }
        }
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
