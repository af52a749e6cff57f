// Profile (INI) files with the Windows lookup rules and return counts.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <fstream>

namespace
{

std::string ReadText(const std::string& path)
{
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

TEST(Profile, CaseInsensitiveLookupTrimmingQuotesAndDefaults)
{
    ScratchDir dir;
    std::ofstream(dir.NarrowOf("a.ini")) << "; comment\n[Main]\n  Name =  \"quoted value\"  \nCount=0x1F\n"
                                            "Neg=-5\nWord=12abc\n[Other]\nk=v\n";
    const std::wstring file = dir.Wide(L"a.ini");
    WCHAR buffer[64];
    EXPECT_EQ(GetPrivateProfileStringW(L"MAIN", L"name", L"d", buffer, 64, file.c_str()), 12u);
    EXPECT_STREQ(buffer, L"quoted value");
    EXPECT_EQ(GetPrivateProfileStringW(L"Main", L"Name", L"d", buffer, 7, file.c_str()), 6u);
    EXPECT_STREQ(buffer, L"quoted");
    EXPECT_EQ(GetPrivateProfileStringW(L"Main", L"missing", L"dflt  ", buffer, 64, file.c_str()), 4u);
    EXPECT_STREQ(buffer, L"dflt");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(GetPrivateProfileStringW(L"Main", L"x", nullptr, buffer, 64, dir.Wide(L"none.ini").c_str()),
              0u);
    EXPECT_STREQ(buffer, L"");

    EXPECT_EQ(GetPrivateProfileIntW(L"main", L"COUNT", 7, file.c_str()), 31u);
    EXPECT_EQ(static_cast<INT>(GetPrivateProfileIntW(L"Main", L"Neg", 7, file.c_str())), -5);
    EXPECT_EQ(GetPrivateProfileIntW(L"Main", L"Word", 7, file.c_str()), 12u);
    EXPECT_EQ(GetPrivateProfileIntW(L"Main", L"Name", 7, file.c_str()), 0u);
    EXPECT_EQ(GetPrivateProfileIntW(L"Main", L"missing", 7, file.c_str()), 7u);
}

TEST(Profile, ListsOfSectionsAndKeysWithTheirCounts)
{
    ScratchDir dir;
    std::ofstream(dir.NarrowOf("b.ini")) << "[One]\na=1\nbb=2\n[Two]\n";
    const std::wstring file = dir.Wide(L"b.ini");
    WCHAR buffer[64];
    EXPECT_EQ(GetPrivateProfileStringW(nullptr, nullptr, nullptr, buffer, 64, file.c_str()), 8u);
    EXPECT_EQ(std::wstring(buffer, 9), std::wstring(L"One\0Two\0\0", 9));
    EXPECT_EQ(GetPrivateProfileStringW(L"one", nullptr, nullptr, buffer, 64, file.c_str()), 5u);
    EXPECT_EQ(std::wstring(buffer, 6), std::wstring(L"a\0bb\0\0", 6));
    EXPECT_EQ(GetPrivateProfileStringW(nullptr, nullptr, nullptr, buffer, 6, file.c_str()), 4u);
    EXPECT_EQ(std::wstring(buffer, 6),
              std::wstring(L"One\0T\0\0", 6).substr(0, 4) + std::wstring(L"\0\0", 2));
}

TEST(Profile, WritesReplaceAddAndDelete)
{
    ScratchDir dir;
    const std::wstring file = dir.Wide(L"c.ini");
    ASSERT_TRUE(WritePrivateProfileStringW(L"S", L"k", L"v", file.c_str()));
    ASSERT_TRUE(WritePrivateProfileStringW(L"s", L"K", L"w", file.c_str()));
    ASSERT_TRUE(WritePrivateProfileStringW(L"S", L"other", L"1", file.c_str()));
    ASSERT_TRUE(WritePrivateProfileStringW(L"T", L"x", L"2", file.c_str()));
    EXPECT_EQ(ReadText(dir.NarrowOf("c.ini")), "[S]\nk=w\nother=1\n[T]\nx=2\n");
    ASSERT_TRUE(WritePrivateProfileStringW(L"S", L"k", nullptr, file.c_str()));
    ASSERT_TRUE(WritePrivateProfileStringW(L"T", nullptr, nullptr, file.c_str()));
    EXPECT_EQ(ReadText(dir.NarrowOf("c.ini")), "[S]\nother=1\n");
    EXPECT_FALSE(WritePrivateProfileStringW(nullptr, L"k", L"v", file.c_str()));

    chmod(dir.NarrowOf("c.ini").c_str(), 0444);
    EXPECT_W32_FAILS(WritePrivateProfileStringW(L"S", L"k", L"v", file.c_str()), FALSE, ERROR_ACCESS_DENIED);
}
