// CRC-32 kernel for x86-64: folds 64 bytes per round with carry-less multiplication (PCLMULQDQ), then
// reduces to 32 bits with Barrett reduction. The constants are x^n mod P for the reflected polynomial
// 0x04C11DB7 (from "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction", Intel):
// k1 = x^(4*128+32), k2 = x^(4*128-32), k3 = x^(128+32), k4 = x^(128-32), k5 = x^64, each mod P, bit-
// reflected and shifted; mu = floor(x^64 / P). Compiled with -mpclmul -msse4.1; used only when the
// processor reports both.
#include "velcrc32kernel.h"

#include <immintrin.h>

namespace korcrc32
{

bool FoldAvailable()
{
    static const bool available = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return available;
}

std::uint32_t Fold(std::uint32_t crc, const unsigned char* data, std::size_t length)
{
    const __m128i k1k2 = _mm_set_epi64x(0x01c6e41596LL, 0x0154442bd4LL);
    const __m128i k3k4 = _mm_set_epi64x(0x00ccaa009eLL, 0x01751997d0LL);
    const __m128i k5k0 = _mm_set_epi64x(0, 0x0163cd6124LL);
    const __m128i poly = _mm_set_epi64x(0x01f7011641LL, 0x01db710641LL);

    auto load = [](const unsigned char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
    // x := x * k (low halves) ^ x * k (high halves) ^ next
    auto fold = [](__m128i x, __m128i k, __m128i next)
    {
        __m128i lo = _mm_clmulepi64_si128(x, k, 0x00);
        __m128i hi = _mm_clmulepi64_si128(x, k, 0x11);
        return _mm_xor_si128(_mm_xor_si128(hi, lo), next);
    };

    __m128i x1 = _mm_xor_si128(load(data), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x2 = load(data + 16);
    __m128i x3 = load(data + 32);
    __m128i x4 = load(data + 48);
    data += 64;
    length -= 64;

    while (length >= 64)
    {
        x1 = fold(x1, k1k2, load(data));
        x2 = fold(x2, k1k2, load(data + 16));
        x3 = fold(x3, k1k2, load(data + 32));
        x4 = fold(x4, k1k2, load(data + 48));
        data += 64;
        length -= 64;
    }

    x1 = fold(x1, k3k4, x2);
    x1 = fold(x1, k3k4, x3);
    x1 = fold(x1, k3k4, x4);
    while (length >= 16)
    {
        x1 = fold(x1, k3k4, load(data));
        data += 16;
        length -= 16;
    }

    // 128 bits to 64 bits.
    __m128i x2b = _mm_clmulepi64_si128(x1, k3k4, 0x10);
    const __m128i mask32 = _mm_setr_epi32(~0, 0, ~0, 0);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), x2b);
    x2b = _mm_srli_si128(x1, 4);
    x1 = _mm_and_si128(x1, mask32);
    x1 = _mm_clmulepi64_si128(x1, k5k0, 0x00);
    x1 = _mm_xor_si128(x1, x2b);

    // Barrett reduction to 32 bits.
    x2b = _mm_and_si128(x1, mask32);
    x2b = _mm_clmulepi64_si128(x2b, poly, 0x10);
    x2b = _mm_and_si128(x2b, mask32);
    x2b = _mm_clmulepi64_si128(x2b, poly, 0x00);
    x1 = _mm_xor_si128(x1, x2b);
    return static_cast<std::uint32_t>(_mm_extract_epi32(x1, 1));
}

} // namespace korcrc32
