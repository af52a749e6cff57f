// Local time, and the areas that behave as on a machine without windows or registry.
#include "w32p_test_util.h"
#include "win32posix.h"

#include <gtest/gtest.h>

#include <ctime>

TEST(LocalTime, MatchesTheCClock)
{
    SYSTEMTIME now = {};
    GetLocalTime(&now);
    const std::time_t t = std::time(nullptr);
    struct tm local;
    localtime_r(&t, &local);
    EXPECT_EQ(now.wYear, local.tm_year + 1900);
    EXPECT_EQ(now.wMonth, local.tm_mon + 1);
    EXPECT_EQ(now.wDayOfWeek, local.tm_wday);
    EXPECT_LT(now.wMilliseconds, 1000);
}

BOOL CALLBACK CountWindow(HWND, LPARAM counter)
{
    ++*reinterpret_cast<int*>(counter);
    return TRUE;
}

TEST(Windows, NoneExistAndMessagesFail)
{
    int count = 0;
    EXPECT_W32_FAILS(EnumWindows(CountWindow, reinterpret_cast<LPARAM>(&count)), FALSE, ERROR_NOT_SUPPORTED);
    EXPECT_W32_FAILS(EnumChildWindows(nullptr, CountWindow, reinterpret_cast<LPARAM>(&count)), FALSE,
                     ERROR_NOT_SUPPORTED);
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(IsWindow(reinterpret_cast<HWND>(0x10010)));
    EXPECT_W32_FAILS(PostMessageW(reinterpret_cast<HWND>(0x10010), WM_CLOSE, 0, 0), FALSE,
                     ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_W32_FAILS(GetForegroundWindow(), nullptr, ERROR_NOT_SUPPORTED);
    DWORD pid = 1;
    EXPECT_EQ(GetWindowThreadProcessId(reinterpret_cast<HWND>(0x10010), &pid), 0u);
    EXPECT_EQ(pid, 0u);
}
