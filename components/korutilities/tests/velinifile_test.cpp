// INI files: typed reads with defaults, awkward values, listings, writes that keep what they don't change,
// and writes that survive a crash before the final rename.
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
    // The one rename is the one that puts the new content over the settings.
    api->OnMoveFileEx = [&renames](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL
    {
        if (++renames == 1)
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
    EXPECT_EQ(renames, 1);

    MakeReadOnly(Ini());
    CVeLIniFile readOnly(Ini());
    EXPECT_FALSE(readOnly.WriteString(L"S", L"k", L"new"));
    EXPECT_EQ(ReadFile(Ini()), "[S]\r\nk=old\r\n");
}

TEST_F(VeLIniFileTest, WritesChangeOnlyTheirLineAndKeepEncodingAndLineEnds)
{
    const std::string utf16Mark = "\xFF\xFE";
    const auto utf16 = [&utf16Mark](const std::string& ascii)
    {
        std::string bytes = utf16Mark;
        for (char c : ascii)
            bytes += std::string(1, c) + std::string(1, '\0');
        return bytes;
    };
    const struct
    {
        std::string before;
        const wchar_t* section;
        const wchar_t* key;
        const wchar_t* value; // null: delete
        std::string after;
    } cases[] = {
        {"[A]\nk=1\n", L"a", L"K", L"2", "[A]\nk=2\n"}, // LF kept, key spelling kept
        {"; k=0\n[A]\n;k=9\n k = 1 \n", L"A", L"k", L"2", "; k=0\n[A]\n;k=9\nk=2\n"}, // comments untouched
        {"[A]\nk=1\n[a]\nk=2\n", L"A", L"k", L"3", "[A]\nk=3\n[a]\nk=2\n"},           // first section only
        {"[A]\r\nx=1\r\n\r\n[B]\r\n", L"A", L"y", L"2", "[A]\r\nx=1\r\ny=2\r\n\r\n[B]\r\n"},
        {"[A]\rx=1\r", L"C", L"k", L"v", "[A]\rx=1\r[C]\rk=v\r"},       // CR kept, section added
        {"[A]\nx=1\n[B]\ny=2\n", L"A", nullptr, nullptr, "[B]\ny=2\n"}, // section deleted
        {"[A]\nx=1\ny=2\n", L"A", L"X", nullptr, "[A]\ny=2\n"},         // key deleted
        {"\xEF\xBB\xBF[A]\n", L"A", L"k", L"\u00e4", "\xEF\xBB\xBF[A]\nk=\xC3\xA4\n"}, // UTF-8 mark kept
        {utf16("[A]\r\nk=1\r\n"), L"A", L"k", L"22", utf16("[A]\r\nk=22\r\n")},
        {"", L"S", L"k", L"v", "[S]\r\nk=v\r\n"}, // no file yet: made with CRLF
    };
    for (const auto& c : cases)
    {
        boost::filesystem::remove(Ini());
        if (!c.before.empty())
            WriteFile(Ini(), c.before);
        CVeLIniFile ini(Ini());
        EXPECT_TRUE(c.value ? ini.WriteString(c.section, c.key, c.value)
                    : c.key ? ini.DeleteKey(c.section, c.key)
                            : ini.DeleteSection(c.section));
        EXPECT_EQ(ReadFile(Ini()), c.after) << c.before;
    }
}
