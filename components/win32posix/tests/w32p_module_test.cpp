// The built-in ntdll module and NtQuerySection, reached the way portable code reaches them.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

namespace
{

LONGLONG SectionSizeThroughNtdll(HANDLE section, NTSTATUS& status)
{
    HMODULE ntdll = LoadLibraryW(L"ntdll.dll");
    EXPECT_NE(ntdll, nullptr);
    auto query = reinterpret_cast<PFN_NtQuerySection>(
        reinterpret_cast<void*>(GetProcAddress(ntdll, "NtQuerySection")));
    EXPECT_NE(query, nullptr);
    SECTION_BASIC_INFORMATION info = {};
    status = query(section, SectionBasicInformation, &info, sizeof info, nullptr);
    FreeLibrary(ntdll);
    return info.MaximumSize.QuadPart;
}

} // namespace

TEST(W32pModule, SectionSizeIsRoundedToThePage)
{
    static_assert(sizeof(SECTION_BASIC_INFORMATION) == 24, "the record the caller passes");
    const std::wstring name = TestName(L"ntq");
    for (auto pair : {std::make_pair(4096u, 4096), std::make_pair(65537u, 69632), std::make_pair(1u, 4096)})
    {
        HANDLE section =
            CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, pair.first, name.c_str());
        ASSERT_NE(section, nullptr);
        NTSTATUS status = -1;
        EXPECT_EQ(SectionSizeThroughNtdll(section, status), pair.second);
        EXPECT_EQ(status, STATUS_SUCCESS);
        CloseHandle(section);
    }
    NTSTATUS status = 0;
    SectionSizeThroughNtdll(nullptr, status);
    EXPECT_EQ(status, STATUS_INVALID_HANDLE);
    HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 10, nullptr);
    SECTION_BASIC_INFORMATION info;
    EXPECT_EQ(NtQuerySection(section, SectionBasicInformation, &info, 16, nullptr),
              STATUS_INFO_LENGTH_MISMATCH);
    CloseHandle(section);
}

TEST(W32pModule, UnknownModulesAndFunctions)
{
    EXPECT_W32_FAILS(LoadLibraryW(L"no-such-library.so"), nullptr, ERROR_MOD_NOT_FOUND);
    HMODULE ntdll = LoadLibraryW(L"NTDLL.DLL");
    ASSERT_NE(ntdll, nullptr);
    EXPECT_W32_FAILS(GetProcAddress(ntdll, "NtNoSuchCall"), nullptr, ERROR_PROC_NOT_FOUND);
    HMODULE libc = LoadLibraryW(L"libc.so.6");
    ASSERT_NE(libc, nullptr);
    EXPECT_NE(GetProcAddress(libc, "getpid"), nullptr);
    EXPECT_TRUE(FreeLibrary(libc));
}

TEST(W32pModule, LoadsAreCountedAndNamed)
{
    HMODULE first = LoadLibraryW(L"libz.so.1");
    HMODULE second = LoadLibraryW(L"libz.so.1");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    WCHAR name[4096];
    const DWORD length = GetModuleFileNameExW(GetCurrentProcess(), first, name, 4096);
    EXPECT_NE(std::wstring(name, length).find(L"libz.so"), std::wstring::npos);
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_TRUE(FreeLibrary(second));
    EXPECT_W32_FAILS(FreeLibrary(first), FALSE, ERROR_INVALID_HANDLE); // never passed to dlclose again
    EXPECT_W32_FAILS(GetProcAddress(first, "zlibVersion"), nullptr, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(GetModuleFileNameExW(GetCurrentProcess(), first, name, 4096), 0u, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(LoadLibraryW(L""), nullptr, ERROR_MOD_NOT_FOUND);
    const DWORD ntdll = GetModuleFileNameExW(GetCurrentProcess(), LoadLibraryW(L"ntdll"), name, 4096);
    EXPECT_NE(std::wstring(name, ntdll).find(L"win32posix"), std::wstring::npos);
}
