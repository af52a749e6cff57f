// The operating-system facade: the three operations that do more than forward behave as described.
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

// Sets the library's trace level for one test and puts the default back afterwards.
struct TraceLevel
{
    explicit TraceLevel(unsigned char level) { BTraceSetLevel(&g_korutilitiesTraceModule, level); }
    ~TraceLevel() { BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN); }
};

} // namespace

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

// The dump of every argument is written at level 3 only, and costs nothing below it.
TEST(CVeLWinAPIWrapper, CreateProcessDumpListsEveryEntry)
{
    CVeLWinAPIWrapper api;
    {
        TraceLevel level(VEL_DBG2);
        BTraceCapture capture;
        api.WAPI_CreateProcess(nullptr, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, nullptr,
                               nullptr);
        EXPECT_EQ(capture.CountContaining("CreateProcess: "), 0u);
    }
    TraceLevel level(VEL_DBG3);
    BTraceCapture capture;
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

TEST(CVeLWinAPIWrapper, SharedMemorySizeIsTheSectionSizeAndRefusesANullHandle)
{
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
