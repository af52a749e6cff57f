// Get/SetEnvironmentVariableW return conventions.
#include "w32p_test_util.h"
#include "win32posix.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

TEST(EnvironmentVariables, MissingEmptyShortAndFittingBuffers)
{
    ASSERT_TRUE(SetEnvironmentVariableW(L"W32P_ENV", L"value\u00e4"));
    wchar_t buffer[16] = L"untouched";
    EXPECT_EQ(GetEnvironmentVariableW(L"W32P_ENV", buffer, 16), 6u);
    EXPECT_EQ(std::wstring(buffer), L"value\u00e4");
    EXPECT_STREQ(std::getenv("W32P_ENV"), "value\xC3\xA4");

    wchar_t small[4] = L"abc";
    EXPECT_EQ(GetEnvironmentVariableW(L"W32P_ENV", small, 4), 7u); // needed size with the terminator
    EXPECT_EQ(std::wstring(small), L"abc");                        // untouched
    EXPECT_EQ(GetEnvironmentVariableW(L"W32P_ENV", nullptr, 0), 7u);

    ASSERT_TRUE(SetEnvironmentVariableW(L"W32P_ENV", nullptr));
    EXPECT_W32_FAILS(GetEnvironmentVariableW(L"W32P_ENV", buffer, 16), 0u, ERROR_ENVVAR_NOT_FOUND);

    ASSERT_TRUE(SetEnvironmentVariableW(L"W32P_ENV", L""));
    SetLastError(1234);
    EXPECT_EQ(GetEnvironmentVariableW(L"W32P_ENV", buffer, 16), 0u);
    EXPECT_EQ(GetLastError(), 1234u);
    SetEnvironmentVariableW(L"W32P_ENV", nullptr);
}

TEST(EnvironmentVariables, InvalidNames)
{
    EXPECT_W32_FAILS(SetEnvironmentVariableW(L"", L"x"), FALSE, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(SetEnvironmentVariableW(L"A=B", L"x"), FALSE, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(GetEnvironmentVariableW(nullptr, nullptr, 0), 0u, ERROR_ENVVAR_NOT_FOUND);
}

// Buffer sizes around the value's length, names in another case, an empty value with no room at all.
TEST(EnvironmentVariables, BufferAndNameTable)
{
    ASSERT_TRUE(SetEnvironmentVariableW(L"W32P_Case", L"hello"));
    ASSERT_TRUE(SetEnvironmentVariableW(L"W32P_EMPTY", L""));
    struct
    {
        const wchar_t* name;
        DWORD size;
        DWORD result;
        const wchar_t* text; // the buffer afterwards
    } rows[] = {
        {L"W32P_Case", 8, 5, L"hello"}, {L"W32P_Case", 6, 5, L"hello"}, {L"W32P_Case", 5, 6, L"zzz"},
        {L"W32P_Case", 0, 6, L"zzz"},   {L"w32p_case", 8, 5, L"hello"}, {L"W32P_EMPTY", 8, 0, L""},
        {L"W32P_EMPTY", 0, 1, L"zzz"},
    };
    for (const auto& row : rows)
    {
        wchar_t buffer[8] = L"zzz";
        SetLastError(1234);
        EXPECT_EQ(GetEnvironmentVariableW(row.name, buffer, row.size), row.result) << (&row - rows);
        EXPECT_EQ(std::wstring(buffer), row.text) << (&row - rows);
        EXPECT_EQ(GetLastError(), 1234u) << (&row - rows);
    }
    // Setting another spelling updates the existing variable under its own name; deleting removes it.
    ASSERT_TRUE(SetEnvironmentVariableW(L"W32P_CASE", L"again"));
    EXPECT_STREQ(std::getenv("W32P_Case"), "again");
    EXPECT_EQ(std::getenv("W32P_CASE"), nullptr);
    ASSERT_TRUE(SetEnvironmentVariableW(L"w32p_case", nullptr));
    EXPECT_EQ(std::getenv("W32P_Case"), nullptr);
    EXPECT_W32_FAILS(SetEnvironmentVariableW(L"=C:", L"x"), FALSE, ERROR_INVALID_PARAMETER);
    SetEnvironmentVariableW(L"W32P_EMPTY", nullptr);
}
