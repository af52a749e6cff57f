// Modules: the built-in "ntdll.dll" and dlopen for everything else.
// The contract, and where Linux differs from Windows, are in w32p_module.h.
#include "w32p_module.h"
#include "w32p_path.h"

#include "w32p_mapping.h"
#include "w32p_string.h"

#include <cstring>
#include <cwctype>
#include <dlfcn.h>
#include <string>

namespace
{

// The built-in module's handle: the address of this object, which no dlopen handle can equal.
const char s_ntdll = 0;

HMODULE NtdllModule()
{
    return const_cast<char*>(&s_ntdll);
}

bool IsNtdll(LPCWSTR name)
{
    std::wstring lower;
    for (const WCHAR* p = name; *p != L'\0'; ++p)
        lower += static_cast<WCHAR>(std::towlower(*p));
    return lower == L"ntdll.dll" || lower == L"ntdll";
}

} // namespace

HMODULE LoadLibraryW(LPCWSTR fileName)
{
    if (fileName == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (IsNtdll(fileName))
        return NtdllModule();
    std::string narrow;
    W32pPathToUtf8(fileName, narrow);
    void* module = dlopen(narrow.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr)
        SetLastError(ERROR_MOD_NOT_FOUND);
    return module;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR procName)
{
    if (module == nullptr)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (procName == nullptr)
    {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void* symbol = nullptr;
    if (module == NtdllModule())
    {
        if (std::strcmp(procName, "NtQuerySection") == 0)
            symbol = reinterpret_cast<void*>(&NtQuerySection);
    }
    else
        symbol = dlsym(module, procName);
    if (symbol == nullptr)
    {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(symbol);
}

BOOL FreeLibrary(HMODULE module)
{
    if (module == nullptr)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (module != NtdllModule() && dlclose(module) != 0)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

NTSTATUS NtQuerySection(HANDLE section, SECTION_INFORMATION_CLASS informationClass, PVOID information,
                        ULONG length, PULONG resultLength)
{
    ULONGLONG size = 0;
    if (!W32pQuerySectionSize(section, size))
        return STATUS_INVALID_HANDLE;
    if (informationClass != SectionBasicInformation)
        return STATUS_INVALID_INFO_CLASS;
    if (length != sizeof(SECTION_BASIC_INFORMATION))
        return STATUS_INFO_LENGTH_MISMATCH;
    if (information == nullptr)
        return STATUS_INVALID_PARAMETER;
    SECTION_BASIC_INFORMATION basic = {};
    basic.BaseAddress = nullptr;
    basic.AllocationAttributes = SEC_COMMIT;
    basic.MaximumSize.QuadPart = static_cast<LONGLONG>(size);
    std::memcpy(information, &basic, sizeof basic);
    if (resultLength != nullptr)
        *resultLength = sizeof basic;
    return STATUS_SUCCESS;
}
