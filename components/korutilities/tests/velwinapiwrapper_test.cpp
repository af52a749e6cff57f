// The operating-system facade: the forwards reach the system unchanged, the three operations that do more
// behave as described, and the test double stands in for it one operation at a time.
#include "fakewinapiwrapper.h"
#include "korutilitesbtracedef.h"
#include "velwinapiwrapper.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace
{

// Raises the library's trace level for one test and restores it afterwards.
class TraceLevel
{
public:
    explicit TraceLevel(unsigned char level) : m_saved(g_korutilitiesTraceModule.level.load())
    {
        BTraceSetLevel(&g_korutilitiesTraceModule, level);
    }
    ~TraceLevel() { BTraceSetLevel(&g_korutilitiesTraceModule, m_saved); }

private:
    unsigned char m_saved;
};

std::wstring TempPath(const wchar_t* name)
{
    return (boost::filesystem::temp_directory_path() / (name + std::to_wstring(::GetCurrentProcessId())))
        .wstring();
}

} // namespace

TEST(CVeLWinAPIWrapper, ForwardsArgumentsAndResultsUnchanged)
{
    CVeLWinAPIWrapper api;
    const std::wstring path = TempPath(L"velwinapi");
    HANDLE file = api.WAPI_CreateFile(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    // A second exclusive open fails, and the error is read through the facade.
    EXPECT_EQ(api.WAPI_CreateFile(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(api.WAPI_GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    DWORD n = 0;
    EXPECT_TRUE(api.WAPI_WriteFile(file, "abc", 3, &n, nullptr));
    EXPECT_EQ(n, 3u);
    EXPECT_TRUE(api.WAPI_CloseHandle(file));
    EXPECT_EQ(api.WAPI_GetFileAttributes(path.c_str()), static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    EXPECT_TRUE(api.WAPI_DeleteFile(path.c_str()));
    EXPECT_FALSE(api.WAPI_DeleteFile(path.c_str()));
    EXPECT_EQ(api.WAPI_GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(api.WAPI_PostMessage(nullptr, 0, 0, 0));
    EXPECT_EQ(api.WAPI_GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
}

TEST(CVeLWinAPIWrapper, CryptographyStatusesFollowTheNtRule)
{
    CVeLWinAPIWrapper api;
    CVeLResult<LONG> random = api.WAPI_BCryptGenRandom(nullptr, nullptr, 0, 0);
    EXPECT_FALSE(random.IsSuccess());
    EXPECT_EQ(static_cast<DWORD>(random.GetValue()), 0xC0000008u); // the status survives the failure

    BCRYPT_ALG_HANDLE aes = nullptr;
    CVeLResult<LONG> opened = api.WAPI_BCryptOpenAlgorithmProvider(&aes, BCRYPT_AES_ALGORITHM, nullptr, 0);
    ASSERT_TRUE(opened.IsSuccess());
    EXPECT_EQ(opened.GetValue(), 0);
    unsigned char secret[15] = {};
    BCRYPT_KEY_HANDLE key = nullptr;
    CVeLResult<LONG> generated = api.WAPI_BCryptGenerateSymmetricKey(aes, &key, nullptr, 0, secret, 15, 0);
    EXPECT_FALSE(generated.IsSuccess());
    EXPECT_EQ(static_cast<DWORD>(generated.GetValue()), 0xC000000Du);
    EXPECT_TRUE(api.WAPI_BCryptCloseAlgorithmProvider(aes, 0).IsSuccess());
}

TEST(CVeLWinAPIWrapper, CreateProcessDumpListsEveryEntry)
{
    TraceLevel level(VEL_DBG3);
    BTraceCapture capture;
    CVeLWinAPIWrapper api;
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = 0x100;
    startup.lpDesktop = const_cast<LPWSTR>(L"desk");
    wchar_t commandLine[] = L"missing-program --flag";
    PROCESS_INFORMATION info = {};
    EXPECT_FALSE(api.WAPI_CreateProcess(L"/nonexistent/missing-program", commandLine, nullptr, nullptr, FALSE,
                                        0, nullptr, nullptr, &startup, &info));

    std::string dump;
    for (const BTraceRecord& record : capture.Records())
        if (record.text.rfind("CreateProcess: ", 0) == 0)
        {
            EXPECT_EQ(record.level, static_cast<unsigned>(VEL_DBG3));
            dump = record.text;
        }
    ASSERT_FALSE(dump.empty());
    // Every field, in this order, separated here by '|'.
    std::istringstream labels("lpApplicationName=/nonexistent/missing-program|lpCommandLine=missing-program "
                              "--flag|lpProcessAttributes=0x|lpThreadAttributes=0x|bInheritHandles=0|"
                              "dwCreationFlags=0|lpEnvironment=0x|lpCurrentDirectory=Null|lpStartupInfo=[|"
                              "lpReserved=Null|lpDesktop=desk|lpTitle=Null|dwX=|dwY=|dwXSize=|dwYSize=|"
                              "dwXCountChars=|dwYCountChars=|dwFillAttribute=|dwFlags=256|wShowWindow=|"
                              "cbReserved2=|lpReserved2=0x|hStdInput=0x|hStdOutput=0x|hStdError=0x|]|"
                              "lpProcessInformation=0x");
    std::size_t at = 0;
    for (std::string label; std::getline(labels, label, '|');)
    {
        const std::size_t found = dump.find(label, at);
        EXPECT_NE(found, std::string::npos) << "missing or out of order: " << label << " in " << dump;
        if (found != std::string::npos)
            at = found + 1;
    }
}

TEST(CVeLWinAPIWrapper, CreateProcessDumpCostsNothingBelowLevelThree)
{
    TraceLevel level(VEL_DBG2);
    BTraceCapture capture;
    CVeLWinAPIWrapper api;
    api.WAPI_CreateProcess(nullptr, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(capture.CountContaining("CreateProcess: "), 0u);
}

TEST(CVeLWinAPIWrapper, SharedMemorySizeIsTheSectionSizeAndRefusesANullHandle)
{
    TraceLevel level(VEL_ERR);
    BTraceCapture capture;
    CVeLWinAPIWrapper api;
    CVeLResult<__int64> size = api.WAPI_NTGetSizeOfSharedMemory(nullptr);
    EXPECT_FALSE(size.IsSuccess());
    EXPECT_EQ(size.GetValue(), 0);
    EXPECT_TRUE(capture.Contains(VEL_ERR, "No handle available!"));

    HANDLE mapping = api.WAPI_CreateFileMapping(INVALID_HANDLE_VALUE, nullptr, 0x04 /* PAGE_READWRITE */, 0,
                                                4096, nullptr);
    ASSERT_NE(mapping, nullptr);
    size = api.WAPI_NTGetSizeOfSharedMemory(mapping);
    EXPECT_TRUE(size.IsSuccess());
    EXPECT_EQ(size.GetValue(), 4096);
    api.WAPI_CloseHandle(mapping);
}

TEST(CFakeWinAPIWrapper, RecordsCallsAndFailsOnlyTheOverriddenOperation)
{
    auto fake = std::make_shared<CFakeWinAPIWrapper>();
    fake->OnCreateFile = [](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)
    {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    };
    std::shared_ptr<IVeLWinAPIWrapper> api = fake;
    EXPECT_EQ(api->WAPI_CreateFile(L"/tmp/anything", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(api->WAPI_GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    // not overridden: reaches the system
    EXPECT_TRUE(api->WAPI_PathIsDirectory(boost::filesystem::temp_directory_path().wstring().c_str()));
    EXPECT_FALSE(api->WAPI_BCryptGenRandom(nullptr, nullptr, 0, 0).IsSuccess());
    EXPECT_EQ(fake->Calls(),
              (std::vector<std::string>{"CreateFile", "GetLastError", "PathIsDirectory", "BCryptGenRandom"}));
    EXPECT_EQ(fake->CallCount("CreateFile"), 1u);
    fake->OnCreateFile = nullptr;
    fake->ClearCalls();
    EXPECT_TRUE(fake->Calls().empty());
}
