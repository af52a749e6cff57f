// String resources read from the sample DLL opened as a data file: the Win32 buffer rules, the errors of a
// missing string, table or resource section, and the answers for Linux modules.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

const std::wstring kSample = []
{
    const std::string path = std::string(W32P_TEST_DATA) + "/pe/sample.dll";
    return std::wstring(path.begin(), path.end());
}();

class DataFile
{
public:
    explicit DataFile(const std::wstring& path)
        : m_module(LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE))
    {
    }
    ~DataFile()
    {
        if (m_module != nullptr)
            FreeLibrary(m_module);
    }
    HMODULE Get() const { return m_module; }

private:
    HMODULE m_module;
};

} // namespace

TEST(ResourceStrings, CopiesTextsWithTheWin32BufferRules)
{
    DataFile sample(kSample);
    ASSERT_NE(sample.Get(), nullptr);
    struct Case
    {
        UINT id;
        int bufferMax;
        int answer;
        const wchar_t* text;
    };
    const Case cases[] = {
        {1, 64, 12, L"First string"},
        {2, 64, 6, L"Second"},
        {17, 64, 11, L"Seventeen \u00fc"}, // second block
        {18, 64, 6, L"Pair \U0001F600"},   // a surrogate pair is one character here
        {4097, 64, 10, L"Last block"},     // a block far from the others
        {1, 6, 5, L"First"},               // truncated, terminated
        {1, 13, 12, L"First string"},      // exactly fits
        {1, 1, 0, L""},                    // room for the terminator only
    };
    for (const Case& c : cases)
    {
        wchar_t buffer[64];
        std::fill(buffer, buffer + 64, L'#');
        EXPECT_EQ(LoadStringW(sample.Get(), c.id, buffer, c.bufferMax), c.answer) << c.id;
        EXPECT_STREQ(buffer, c.text) << c.id;
    }
    // A zero size hands out the text itself.
    const wchar_t* text = nullptr;
    EXPECT_EQ(LoadStringW(sample.Get(), 17, reinterpret_cast<LPWSTR>(&text), 0), 11);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::wstring(text, 11), L"Seventeen \u00fc");
}

TEST(ResourceStrings, MissingTextsAndModulesWithoutResourcesFailCleanly)
{
    DataFile sample(kSample);
    wchar_t buffer[16];
    struct Case
    {
        HMODULE module;
        UINT id;
        DWORD error;
    };
    const Case cases[] = {
        {sample.Get(), 3, ERROR_RESOURCE_NAME_NOT_FOUND},   // absent in a present block
        {sample.Get(), 100, ERROR_RESOURCE_NAME_NOT_FOUND}, // empty text
        {sample.Get(), 300, ERROR_RESOURCE_NAME_NOT_FOUND}, // absent block
        {nullptr, 1, ERROR_RESOURCE_DATA_NOT_FOUND},        // the main program, a Linux file
        {LoadLibraryW(L"ntdll.dll"), 1, ERROR_RESOURCE_DATA_NOT_FOUND},
        {reinterpret_cast<HMODULE>(&buffer), 1, ERROR_INVALID_HANDLE},
    };
    for (const Case& c : cases)
        EXPECT_W32_FAILS(LoadStringW(c.module, c.id, buffer, 16), 0, c.error);
    EXPECT_W32_FAILS(LoadStringW(sample.Get(), 1, nullptr, 16), 0, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(LoadStringW(sample.Get(), 1, buffer, -1), 0, ERROR_INVALID_PARAMETER);

    EXPECT_W32_FAILS(LoadLibraryExW(L"/proc/self/exe", nullptr, LOAD_LIBRARY_AS_DATAFILE), nullptr,
                     ERROR_BAD_EXE_FORMAT);
    EXPECT_W32_FAILS(LoadLibraryExW(L"/nonexistent/x.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE), nullptr,
                     ERROR_PATH_NOT_FOUND);
    EXPECT_W32_FAILS(LoadLibraryExW(kSample.c_str(), buffer, LOAD_LIBRARY_AS_DATAFILE), nullptr,
                     ERROR_INVALID_PARAMETER);
    HMODULE twice = LoadLibraryExW(kSample.c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    ASSERT_NE(twice, nullptr);
    EXPECT_TRUE(FreeLibrary(twice));
    EXPECT_W32_FAILS(FreeLibrary(twice), FALSE, ERROR_INVALID_HANDLE);
}
