// INI files: typed reads with defaults, awkward values, listings, and writes that survive a crash before
// the final rename.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "velinifile.h"

#include <memory>

namespace
{

class VeLIniFileTest : public kortest::FileSystemTest
{
protected:
    boost::filesystem::path Ini() const { return Root() / "settings.ini"; }
};

} // namespace

TEST_F(VeLIniFileTest, TypedReadsAnswerValuesOrDefaults)
{
    WriteFile(Ini(), "[Main]\r\nText = a=b;c \r\nNum=0x1F\r\nNeg=-12\r\nBad=12abc\r\nFlag=Yes\r\nOff=off\r\n"
                     "Real=2.5e3\r\nHuge=99999999999\r\n[Dup]\r\nk=first\r\n[dup]\r\nk=second\r\n");
    CVeLIniFile ini(Ini());
    EXPECT_EQ(ini.GetString(L"main", L"TEXT", L"d"), L"a=b;c");
    EXPECT_EQ(ini.GetString(L"Main", L"Missing", L"d"), L"d");
    EXPECT_EQ(ini.GetString(L"Main", L"Missing", L""), L"");
    EXPECT_EQ(ini.GetString(L"Dup", L"k", L""), L"first");
    EXPECT_EQ(ini.GetInt(L"Main", L"Num", 0), 31);
    EXPECT_EQ(ini.GetInt(L"Main", L"Neg", 0), -12);
    EXPECT_EQ(ini.GetInt(L"Main", L"Bad", 7), 7);
    EXPECT_EQ(ini.GetInt(L"Main", L"Huge", 7), 7);
    EXPECT_EQ(ini.GetInt(L"Main", L"Missing", 7), 7);
    EXPECT_TRUE(ini.GetBool(L"Main", L"Flag", false));
    EXPECT_FALSE(ini.GetBool(L"Main", L"Off", true));
    EXPECT_TRUE(ini.GetBool(L"Main", L"Text", true));
    EXPECT_DOUBLE_EQ(ini.GetReal(L"Main", L"Real", 0), 2500.0);
    EXPECT_DOUBLE_EQ(ini.GetReal(L"Main", L"Bad", 1.5), 1.5);
    EXPECT_TRUE(ini.HasKey(L"MAIN", L"flag"));
    EXPECT_FALSE(ini.HasKey(L"Main", L"nope"));

    CVeLIniFile missing(Root() / "none.ini");
    EXPECT_EQ(missing.GetString(L"S", L"k", L"d"), L"d");
    std::vector<std::wstring> names;
    EXPECT_TRUE(missing.GetSectionNames(names));
    EXPECT_TRUE(names.empty());
}

TEST_F(VeLIniFileTest, ListsAndWritesRoundTripIncludingLongValues)
{
    CVeLIniFile ini(Ini());
    const std::wstring longValue(5000, L'x');
    ASSERT_TRUE(ini.WriteString(L"A", L"long", longValue));
    ASSERT_TRUE(ini.WriteInt(L"A", L"n", -5));
    ASSERT_TRUE(ini.WriteBool(L"B", L"b", true));
    ASSERT_TRUE(ini.WriteReal(L"B", L"r", 0.1));
    EXPECT_EQ(ini.GetString(L"A", L"long", L""), longValue);
    EXPECT_EQ(ini.GetInt(L"A", L"n", 0), -5);
    EXPECT_DOUBLE_EQ(ini.GetReal(L"B", L"r", 0), 0.1);
    std::vector<std::wstring> names;
    ASSERT_TRUE(ini.GetSectionNames(names));
    EXPECT_EQ(names, (std::vector<std::wstring>{L"A", L"B"}));
    ASSERT_TRUE(ini.GetKeyNames(L"b", names));
    EXPECT_EQ(names, (std::vector<std::wstring>{L"b", L"r"}));
    ASSERT_TRUE(ini.DeleteKey(L"A", L"long"));
    ASSERT_TRUE(ini.DeleteSection(L"B"));
    EXPECT_EQ(ReadFile(Ini()), "[A]\r\nn=-5\r\n");
    EXPECT_FALSE(boost::filesystem::exists(Root() / "settings.ini.kor-ini-edit"));
    EXPECT_FALSE(CVeLIniFile(boost::filesystem::path("bare.ini")).WriteString(L"S", L"k", L"v"));
}

TEST_F(VeLIniFileTest, CrashBeforeTheRenameLeavesTheOldFile)
{
    WriteFile(Ini(), "[S]\r\nk=old\r\n");
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    int renames = 0;
    // The scratch copy is put in place by a rename too; the second rename is the one over the settings.
    api->OnMoveFileEx = [&renames](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL
    {
        if (++renames == 2)
        {
            SetLastError(ERROR_DISK_FULL);
            return FALSE;
        }
        return CVeLWinAPIWrapper().WAPI_MoveFileEx(from, to, flags);
    };
    CVeLIniFile ini(api, Ini());
    EXPECT_FALSE(ini.WriteString(L"S", L"k", L"new"));
    EXPECT_EQ(ReadFile(Ini()), "[S]\r\nk=old\r\n");
    EXPECT_EQ(ini.GetString(L"S", L"k", L""), L"old");
    EXPECT_EQ(api->CallCount("WritePrivateProfileString"), 1u);

    MakeReadOnly(Ini());
    CVeLIniFile readOnly(Ini());
    EXPECT_FALSE(readOnly.WriteString(L"S", L"k", L"new"));
    EXPECT_EQ(ReadFile(Ini()), "[S]\r\nk=old\r\n");
}
