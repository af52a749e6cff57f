// MultiByteToWideChar / WideCharToMultiByte (CP_UTF8) and wcscpy_s with the Windows contract.
#include "w32p_test_util.h"
#include "win32posix.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

namespace
{
std::wstring Decode(const std::string& bytes, DWORD flags = 0)
{
    int n = MultiByteToWideChar(CP_UTF8, flags, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
    std::wstring out(static_cast<std::size_t>(n), L'\0');
    if (n > 0)
        MultiByteToWideChar(CP_UTF8, flags, bytes.data(), static_cast<int>(bytes.size()), &out[0], n);
    return out;
}
} // namespace

TEST(MultiByteToWideChar, SizesTerminatorAndShortBuffers)
{
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, nullptr, 0), 4); // with the terminator
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, nullptr, 0), 3);
    wchar_t buffer[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_W32_FAILS(MultiByteToWideChar(CP_UTF8, 0, "abcd", 4, buffer, 3), 0, ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA4\xF0\x9F\x98\x80", -1, buffer, 4), 3);
    EXPECT_EQ(std::wstring(buffer), L"\u00e4\U0001F600");
}

// One row per parameter rule, for both directions: lengths, null and shared buffers, code pages and flags.
TEST(CodePageConversion, ParameterTable)
{
    enum Input
    {
        kText,
        kNull,
        kSameAsOutput
    };
    struct
    {
        UINT codePage;
        DWORD flags;
        Input input;
        int length;
        bool output;
        int size;
        int result;
        DWORD error; // checked when result is 0
    } rows[] = {
        {CP_UTF8, 0, kText, 3, true, 8, 3, 0},
        {CP_UTF8, 0, kText, -1, true, 8, 4, 0},
        {CP_UTF8, 0, kText, -2, true, 8, 4, 0}, // any negative length reads up to the terminator
        {CP_UTF8, 0, kText, 3, false, 0, 3, 0}, // size query
        {CP_UTF8, 0, kText, 0, true, 8, 0, ERROR_INVALID_PARAMETER},
        {CP_UTF8, 0, kNull, 3, true, 8, 0, ERROR_INVALID_PARAMETER},
        {CP_UTF8, 0, kText, 3, false, 8, 0, ERROR_INVALID_PARAMETER},
        {CP_UTF8, 0, kText, 3, true, -1, 0, ERROR_INVALID_PARAMETER},
        {CP_UTF8, 0, kText, 3, true, 2, 0, ERROR_INSUFFICIENT_BUFFER},
        {CP_UTF8, 0, kSameAsOutput, 3, true, 8, 0, ERROR_INVALID_PARAMETER},
        {CP_ACP, 0, kText, 3, true, 8, 0, ERROR_INVALID_PARAMETER},
        {12345, 0, kText, 3, true, 8, 0, ERROR_INVALID_PARAMETER},
        {CP_UTF8, 0x1, kText, 3, true, 8, 0, ERROR_INVALID_FLAGS},   // MB_PRECOMPOSED
        {CP_UTF8, 0x400, kText, 3, true, 8, 0, ERROR_INVALID_FLAGS}, // WC_NO_BEST_FIT_CHARS
        {CP_UTF8, 0x1000, kText, 3, true, 8, 0, ERROR_INVALID_FLAGS},
    };
    for (const auto& row : rows)
    {
        wchar_t wide[8] = {L'a', L'b', L'c', 0};
        char narrow[32] = "abc";
        const char* mbIn = row.input == kNull           ? nullptr
                           : row.input == kSameAsOutput ? reinterpret_cast<char*>(wide)
                                                        : narrow;
        const wchar_t* wcIn = row.input == kNull           ? nullptr
                              : row.input == kSameAsOutput ? reinterpret_cast<wchar_t*>(narrow)
                                                           : wide;
        SetLastError(0);
        EXPECT_EQ(MultiByteToWideChar(row.codePage, row.flags, mbIn, row.length, row.output ? wide : nullptr,
                                      row.size),
                  row.result)
            << "MultiByteToWideChar row " << (&row - rows);
        EXPECT_EQ(GetLastError(), row.result ? 0 : row.error) << "MultiByteToWideChar row " << (&row - rows);
        SetLastError(0);
        EXPECT_EQ(WideCharToMultiByte(row.codePage, row.flags, wcIn, row.length,
                                      row.output ? narrow : nullptr, row.size, nullptr, nullptr),
                  row.result)
            << "WideCharToMultiByte row " << (&row - rows);
        EXPECT_EQ(GetLastError(), row.result ? 0 : row.error) << "WideCharToMultiByte row " << (&row - rows);
    }
}

TEST(MultiByteToWideChar, OneReplacementPerInvalidSequence)
{
    EXPECT_EQ(Decode("a\xFF"
                     "b"),
              L"a\uFFFDb");                   // invalid byte
    EXPECT_EQ(Decode("\xE2\x82"), L"\uFFFD"); // truncated sequence: one replacement
    EXPECT_EQ(Decode("\xE2\x82"
                     "A"),
              L"\uFFFDA");
    EXPECT_EQ(Decode("\xC0\xAF"), L"\uFFFD\uFFFD");                     // overlong lead, stray continuation
    EXPECT_EQ(Decode("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD");           // encoded surrogate
    EXPECT_EQ(Decode("\xF4\x90\x80\x80"), L"\uFFFD\uFFFD\uFFFD\uFFFD"); // beyond U+10FFFF
    EXPECT_EQ(Decode("\x80\x80"), L"\uFFFD\uFFFD");
    EXPECT_EQ(Decode("\xF0\x9F\x98"), L"\uFFFD");
}

TEST(MultiByteToWideChar, StrictModeFailsWith1113)
{
    wchar_t buffer[8];
    EXPECT_W32_FAILS(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "a\xFF", 2, buffer, 8), 0,
                     ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "ok", 2, buffer, 8), 2);
}

TEST(WideCharToMultiByte, EncodesAndReplaces)
{
    char buffer[16];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u00e4\U0001F600", -1, nullptr, 0, nullptr, nullptr), 7);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u00e4\U0001F600", -1, buffer, 16, nullptr, nullptr), 7);
    EXPECT_STREQ(buffer, "\xC3\xA4\xF0\x9F\x98\x80");
    EXPECT_W32_FAILS(WideCharToMultiByte(CP_UTF8, 0, L"abc", 3, buffer, 2, nullptr, nullptr), 0,
                     ERROR_INSUFFICIENT_BUFFER);
    const wchar_t invalid[] = {wchar_t(0xDC00), wchar_t(0x110000), 0};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, invalid, -1, buffer, 16, nullptr, nullptr), 7);
    EXPECT_STREQ(buffer, "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_W32_FAILS(
        WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, invalid, -1, buffer, 16, nullptr, nullptr), 0,
        ERROR_NO_UNICODE_TRANSLATION);
    BOOL used = FALSE;
    EXPECT_W32_FAILS(WideCharToMultiByte(CP_UTF8, 0, L"a", 1, buffer, 16, nullptr, &used), 0,
                     ERROR_INVALID_PARAMETER);
}

TEST(wcscpy_s, WindowsErrorNumbersAndEmptyBufferOnFailure)
{
    wchar_t buffer[5] = L"old";
    EXPECT_EQ(wcscpy_s(buffer, 5, L"abcd"), 0);
    EXPECT_EQ(std::wstring(buffer), L"abcd");
    EXPECT_EQ(wcscpy_s(buffer, 5, L"abcde"), ERANGE);
    EXPECT_EQ(ERANGE, 34);
    EXPECT_EQ(buffer[0], L'\0');
    wcscpy_s(buffer, 5, L"ab");
    EXPECT_EQ(wcscpy_s(buffer, 5, nullptr), EINVAL);
    EXPECT_EQ(EINVAL, 22);
    EXPECT_EQ(buffer[0], L'\0');
    EXPECT_EQ(wcscpy_s(nullptr, 5, L"a"), EINVAL);
    EXPECT_EQ(wcscpy_s(buffer, 0, L"a"), EINVAL);
}

TEST(LastError, IsPerThread)
{
    SetLastError(5);
    DWORD seen = 1;
    std::thread([&] { seen = GetLastError(); }).join();
    EXPECT_EQ(seen, 0u);
    EXPECT_EQ(GetLastError(), 5u);
}
