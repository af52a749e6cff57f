// The registry read from ".reg" export files: value types, escapes, wrapped hex lists, file order and
// overrides, malformed files skipped whole, and the Win32 return codes.
#include "w32p_test_util.h"
#include "w32p_warning.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace
{

// Points W32P_REGISTRY at a scratch folder for one test.
class RegistryFolder
{
public:
    RegistryFolder()
    {
        const char* saved = std::getenv("W32P_REGISTRY");
        m_had = saved != nullptr;
        m_saved = saved ? saved : "";
        setenv("W32P_REGISTRY", m_dir.Narrow().c_str(), 1);
    }
    ~RegistryFolder()
    {
        if (m_had)
            setenv("W32P_REGISTRY", m_saved.c_str(), 1);
        else
            unsetenv("W32P_REGISTRY");
    }
    void Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(m_dir.NarrowOf(name), std::ios::binary) << bytes;
    }

private:
    ScratchDir m_dir;
    bool m_had;
    std::string m_saved;
};

const char kHeader[] = "Windows Registry Editor Version 5.00\r\n\r\n";

std::wstring StringValue(HKEY key, const wchar_t* name, DWORD expectedType)
{
    WCHAR buffer[128];
    DWORD type = 0, size = sizeof buffer;
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<LPBYTE>(buffer), &size) !=
            ERROR_SUCCESS ||
        type != expectedType)
        return L"<failed>";
    return std::wstring(buffer, size / sizeof(WCHAR));
}

} // namespace

TEST(Registry, ReadsEveryValueTypeWithEscapesAndWrappedHex)
{
    RegistryFolder folder;
    folder.Write("a.reg", std::string(kHeader) + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Maker\\Product]\r\n"
                                                 "@=\"default\"\r\n"
                                                 "\"Path\"=\"C:\\\\Program Files\\\\\\\"q\\\"\"\r\n"
                                                 "\"Count\"=dword:0000002a\r\n"
                                                 "\"Big\"=hex(b):01,00,00,00,02,00,00,00\r\n"
                                                 "\"Blob\"=hex:de,ad,\\\r\n  be,ef\r\n"
                                                 "\"Exp\"=hex(2):25,00,41,00,25,00,00,00\r\n"
                                                 "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n"
                                                 "; a comment\r\n"
                                                 "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Maker\\Product\\Sub]\r\n");
    HKEY key;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"software\\MAKER\\Product", 0, KEY_READ, &key),
              ERROR_SUCCESS);
    EXPECT_EQ(StringValue(key, nullptr, REG_SZ), std::wstring(L"default\0", 8));
    EXPECT_EQ(StringValue(key, L"path", REG_SZ), std::wstring(L"C:\\Program Files\\\"q\"\0", 21));
    EXPECT_EQ(StringValue(key, L"Exp", REG_EXPAND_SZ), std::wstring(L"%A%\0", 4));
    EXPECT_EQ(StringValue(key, L"Multi", REG_MULTI_SZ), std::wstring(L"a\0b\0\0", 5));
    DWORD type, count = 0, size = sizeof count;
    EXPECT_EQ(RegQueryValueExW(key, L"Count", nullptr, &type, reinterpret_cast<LPBYTE>(&count), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(count, 42u);
    ULONGLONG big = 0;
    size = sizeof big;
    EXPECT_EQ(RegQueryValueExW(key, L"Big", nullptr, &type, reinterpret_cast<LPBYTE>(&big), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(big, 0x200000001ull);
    BYTE blob[4];
    size = 2;
    EXPECT_EQ(RegQueryValueExW(key, L"Blob", nullptr, &type, blob, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(RegQueryValueExW(key, L"Blob", nullptr, &type, blob, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
    EXPECT_EQ(blob[3], 0xef);
    EXPECT_EQ(RegQueryValueExW(key, L"Missing", nullptr, &type, blob, &size), ERROR_FILE_NOT_FOUND);

    WCHAR name[8];
    EXPECT_EQ(RegEnumKeyW(key, 0, name, 8), ERROR_SUCCESS);
    EXPECT_STREQ(name, L"Sub");
    EXPECT_EQ(RegEnumKeyW(key, 1, name, 8), ERROR_NO_MORE_ITEMS);
    DWORD nameSize = 8;
    EXPECT_EQ(RegEnumValueW(key, 1, name, &nameSize, nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(name, L"Path");
    EXPECT_EQ(nameSize, 4u);
    nameSize = 3;
    EXPECT_EQ(RegEnumValueW(key, 1, name, &nameSize, nullptr, &type, nullptr, nullptr), ERROR_MORE_DATA);
    DWORD subKeys = 0, values = 0;
    EXPECT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values, nullptr,
                               nullptr, nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(subKeys, 1u);
    EXPECT_EQ(values, 7u);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
}

TEST(Registry, LaterFilesOverrideAndMalformedFilesAreSkippedWhole)
{
    RegistryFolder folder;
    // UTF-16LE with its mark, read first by name order.
    const std::string first =
        std::string(kHeader) + "[HKEY_CURRENT_USER\\App]\r\n\"A\"=\"1\"\r\n\"B\"=\"1\"\r\n";
    std::string utf16 = "\xFF\xFE";
    for (char c : first)
        utf16 += std::string(1, c) + std::string(1, '\0');
    folder.Write("10-base.reg", utf16);
    folder.Write("20-override.reg",
                 std::string(kHeader) + "[HKEY_CURRENT_USER\\App]\n\"A\"=\"2\"\n\"B\"=-\n");
    folder.Write("30-bad.reg",
                 std::string(kHeader) + "[HKEY_CURRENT_USER\\App]\n\"A\"=\"3\"\n\"C\"=dword:xyz\n");
    folder.Write("40-noheader.reg", "[HKEY_CURRENT_USER\\App]\n\"A\"=\"4\"\n");
    folder.Write("50-gone.reg", std::string(kHeader) + "[-HKEY_CURRENT_USER\\Other]\n");
    folder.Write("ignored.txt", "not a registry file");

    static std::string warnings; // each skipped file is named, with the line, to the installed hook
    const W32pWarningHook previous = W32pSetWarningHook([](const char* message) { warnings += message; });
    HKEY key;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"App", 0, KEY_READ, &key), ERROR_SUCCESS);
    W32pSetWarningHook(previous);
    EXPECT_NE(warnings.find("30-bad.reg line 5"), std::string::npos) << warnings;
    EXPECT_NE(warnings.find("40-noheader.reg line 1"), std::string::npos) << warnings;
    EXPECT_EQ(StringValue(key, L"A", REG_SZ), std::wstring(L"2\0", 2));
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"B", nullptr, nullptr, nullptr, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryValueExW(key, L"C", nullptr, nullptr, nullptr, &size), ERROR_FILE_NOT_FOUND);
    RegCloseKey(key);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Nowhere", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"App", 0, KEY_WRITE, &key), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegOpenKeyExW(reinterpret_cast<HKEY>(0x4242), L"App", 0, KEY_READ, &key), ERROR_INVALID_HANDLE);
}

TEST(Registry, ExpandEnvironmentStringsKeepsUnknownNames)
{
    setenv("W32P_TEST_EXPAND", "value", 1);
    WCHAR buffer[64];
    EXPECT_EQ(ExpandEnvironmentStringsW(L"a%W32P_TEST_EXPAND%b%NOT_SET_ANYWHERE%c%", buffer, 64), 28u);
    EXPECT_STREQ(buffer, L"avalueb%NOT_SET_ANYWHERE%c%");
    EXPECT_EQ(ExpandEnvironmentStringsW(L"%W32P_TEST_EXPAND%", buffer, 3), 6u);
    unsetenv("W32P_TEST_EXPAND");
}
