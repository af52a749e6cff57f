// Profile (INI) files with the Windows lookup rules and return counts.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace
{

std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
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
    EXPECT_EQ(ReadText(dir.NarrowOf("c.ini")), "[S]\r\nk=w\r\nother=1\r\n[T]\r\nx=2\r\n");
    ASSERT_TRUE(WritePrivateProfileStringW(L"S", L"k", nullptr, file.c_str()));
    ASSERT_TRUE(WritePrivateProfileStringW(L"T", nullptr, nullptr, file.c_str()));
    EXPECT_EQ(ReadText(dir.NarrowOf("c.ini")), "[S]\r\nother=1\r\n");
    EXPECT_FALSE(WritePrivateProfileStringW(nullptr, L"k", L"v", file.c_str()));

    chmod(dir.NarrowOf("c.ini").c_str(), 0444);
    EXPECT_W32_FAILS(WritePrivateProfileStringW(L"S", L"k", L"v", file.c_str()), FALSE, ERROR_ACCESS_DENIED);
}

TEST(Profile, Utf16FilesAndEveryLineEndingKeepTheirFormOnWrite)
{
    ScratchDir dir;
    // "[S]\rk=\u00e9\U0001F600\r" in UTF-16LE with its mark, lines ended by CR alone.
    const std::string utf16("\xFF\xFE[\0S\0]\0\r\0k\0=\0\xE9\0\x3D\xD8\x00\xDE\r\0", 22);
    std::ofstream(dir.NarrowOf("u.ini"), std::ios::binary) << utf16;
    const std::wstring file = dir.Wide(L"u.ini");
    WCHAR buffer[16];
    EXPECT_EQ(GetPrivateProfileStringW(L"s", L"K", L"", buffer, 16, file.c_str()), 2u);
    EXPECT_EQ(std::wstring(buffer), std::wstring(L"\u00e9") + static_cast<wchar_t>(0x1F600));
    ASSERT_TRUE(WritePrivateProfileStringW(L"S", L"n", L"1", file.c_str()));
    EXPECT_EQ(ReadText(dir.NarrowOf("u.ini")), utf16 + std::string("n\0=\0"
                                                                   "1\0\r\0",
                                                                   8));

    std::ofstream(dir.NarrowOf("m.ini"), std::ios::binary) << "\xEF\xBB\xBF[A]\na=1\r\n[B]\rb=2";
    const std::wstring mixed = dir.Wide(L"m.ini");
    EXPECT_EQ(GetPrivateProfileIntW(L"A", L"a", 0, mixed.c_str()), 1u);
    EXPECT_EQ(GetPrivateProfileIntW(L"B", L"b", 0, mixed.c_str()), 2u);
    ASSERT_TRUE(WritePrivateProfileStringW(L"B", L"b", L"3", mixed.c_str()));
    EXPECT_EQ(ReadText(dir.NarrowOf("m.ini")), "\xEF\xBB\xBF[A]\na=1\n[B]\nb=3\n");
}

TEST(Profile, BareNamesLiveInTheSettingsFolderAndNoNameAnswersTheDefault)
{
    ScratchDir dir;
    const char* saved = std::getenv("XDG_CONFIG_HOME");
    const std::string previous = saved ? saved : "";
    setenv("XDG_CONFIG_HOME", dir.Narrow().c_str(), 1);
    ASSERT_TRUE(WritePrivateProfileStringW(L"S", L"k", L"v", L"bare.ini"));
    EXPECT_EQ(ReadText(dir.NarrowOf("bare.ini")), "[S]\r\nk=v\r\n");
    WCHAR buffer[8];
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"k", L"d", buffer, 8, L"bare.ini"), 1u);
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"k", L"dflt", buffer, 8, nullptr), 4u);
    EXPECT_STREQ(buffer, L"dflt");
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"k", L"dflt", buffer, 8, L""), 4u);
    EXPECT_EQ(GetPrivateProfileIntW(L"S", L"k", 9, nullptr), 9u);
    EXPECT_W32_FAILS(WritePrivateProfileStringW(L"S", L"k", L"v", L""), FALSE, ERROR_INVALID_PARAMETER);
    if (saved)
        setenv("XDG_CONFIG_HOME", previous.c_str(), 1);
    else
        unsetenv("XDG_CONFIG_HOME");
}
