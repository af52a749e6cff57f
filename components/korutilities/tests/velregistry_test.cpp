// Registry reading through the facade: every common type, expansion of REG_EXPAND_SZ, listings, missing
// keys and values, and a type mismatch. On Linux the registry is read from a ".reg" file made here.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "velregistry.h"

#include <memory>

namespace
{

class VeLRegistryTest : public kortest::FileSystemTest
{
protected:
    void SetUp() override
    {
        kortest::FileSystemTest::SetUp();
        WriteFile(Root() / "test.reg",
                  "Windows Registry Editor Version 5.00\r\n\r\n"
                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\KorTest]\r\n"
                  "\"Name\"=\"Mill \\\"A\\\"\"\r\n"
                  "\"Home\"=hex(2):25,00,4b,00,4f,00,52,00,5f,00,54,00,45,00,53,00,54,00,25,00,2f,00,78,00,"
                  "00,00\r\n"
                  "\"List\"=hex(7):6f,00,6e,00,65,00,00,00,74,00,77,00,6f,00,00,00,00,00\r\n"
                  "\"Count\"=dword:00000010\r\n"
                  "\"Big\"=hex(b):ff,ff,ff,ff,ff,ff,ff,7f\r\n"
                  "\"Blob\"=hex:01,02,\\\r\n  03\r\n"
                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\KorTest\\Axis X]\r\n"
                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\KorTest\\axis-y]\r\n");
        SetEnvironmentVariableW(L"W32P_REGISTRY", Root().wstring().c_str());
        SetEnvironmentVariableW(L"KOR_TEST", L"/opt/kor");
    }
    void TearDown() override
    {
        SetEnvironmentVariableW(L"W32P_REGISTRY", nullptr);
        SetEnvironmentVariableW(L"KOR_TEST", nullptr);
        kortest::FileSystemTest::TearDown();
    }
    const std::wstring m_key = L"SOFTWARE\\KorTest";
};

} // namespace

TEST_F(VeLRegistryTest, ReadsEveryCommonType)
{
    CVeLRegistry registry;
    std::wstring text;
    EXPECT_TRUE(registry.ReadString(HKEY_LOCAL_MACHINE, m_key, L"name", text));
    EXPECT_EQ(text, L"Mill \"A\"");
    EXPECT_TRUE(registry.ReadString(HKEY_LOCAL_MACHINE, m_key, L"Home", text));
    EXPECT_EQ(text, L"/opt/kor/x");
    std::vector<std::wstring> list;
    EXPECT_TRUE(registry.ReadMultiString(HKEY_LOCAL_MACHINE, m_key, L"List", list));
    EXPECT_EQ(list, (std::vector<std::wstring>{L"one", L"two"}));
    DWORD count = 0;
    EXPECT_TRUE(registry.ReadDword(HKEY_LOCAL_MACHINE, m_key, L"Count", count));
    EXPECT_EQ(count, 16u);
    ULONGLONG big = 0;
    EXPECT_TRUE(registry.ReadQword(HKEY_LOCAL_MACHINE, m_key, L"Big", big));
    EXPECT_EQ(big, 0x7fffffffffffffffull);
    std::vector<BYTE> blob;
    EXPECT_TRUE(registry.ReadBinary(HKEY_LOCAL_MACHINE, m_key, L"Blob", blob));
    EXPECT_EQ(blob, (std::vector<BYTE>{1, 2, 3}));
}

TEST_F(VeLRegistryTest, ListsKeysAndValuesAndRefusesWhatIsMissingOrMistyped)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    CVeLRegistry registry(api);
    std::vector<std::wstring> keys;
    EXPECT_TRUE(registry.EnumerateSubKeys(HKEY_LOCAL_MACHINE, m_key, keys));
    EXPECT_EQ(keys, (std::vector<std::wstring>{L"Axis X", L"axis-y"}));
    std::vector<VeLRegistryValue> values;
    EXPECT_TRUE(registry.EnumerateValues(HKEY_LOCAL_MACHINE, m_key, values));
    ASSERT_EQ(values.size(), 6u);
    EXPECT_EQ(values[3].name, L"Count");
    EXPECT_EQ(values[3].type, static_cast<DWORD>(REG_DWORD));

    BTraceCapture capture;
    DWORD number = 0;
    std::wstring text;
    EXPECT_FALSE(registry.ReadDword(HKEY_LOCAL_MACHINE, m_key, L"Name", number));
    EXPECT_FALSE(registry.ReadString(HKEY_LOCAL_MACHINE, m_key, L"Missing", text));
    EXPECT_FALSE(registry.ReadString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Nowhere", L"Name", text));
    EXPECT_EQ(capture.CountContaining("not found"), 2u);
    EXPECT_EQ(capture.CountContaining("has type"), 1u);
    // Every key opened was closed again.
    EXPECT_EQ(api->CallCount("RegOpenKeyEx"), api->CallCount("RegCloseKey") + 1);
}

TEST_F(VeLRegistryTest, AMalformedFileIsSkippedWithAWarningInTheTrace)
{
    WriteFile(Root() / "zz-bad.reg", "Windows Registry Editor Version 5.00\r\n"
                                     "[HKEY_LOCAL_MACHINE\\SOFTWARE\\KorTest]\r\n\"Count\"=dword:xyz\r\n");
    BTraceCapture capture;
    DWORD count = 0;
    EXPECT_TRUE(CVeLRegistry().ReadDword(HKEY_LOCAL_MACHINE, m_key, L"Count", count));
    EXPECT_EQ(count, 16u); // the good file still counts, none of the bad one
    EXPECT_EQ(capture.CountContaining("zz-bad.reg line 3"), 1u);
}
