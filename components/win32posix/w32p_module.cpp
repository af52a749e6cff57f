// Modules: the built-in "ntdll.dll" and dlopen for everything else.
// The contract, and where Linux differs from Windows, are in w32p_module.h.
#include "w32p_module.h"
#include "w32p_path.h"
#include "w32p_resource.h"

#include "w32p_mapping.h"
#include "w32p_string.h"

#include <cstring>
#include <cwctype>
#include <dlfcn.h>
#include <link.h>
#include <map>
#include <mutex>
#include <string>
#include <unistd.h>

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

// Modules loaded through LoadLibraryW and not yet freed as often, so that a handle that never came from
// dlopen is refused instead of being handed to dlclose or dlinfo.
struct LoadedModules
{
    std::mutex lock;                  // guards counts
    std::map<void*, unsigned> counts; // dlopen handle -> loads not yet freed
};

LoadedModules& Loaded()
{
    static LoadedModules* loaded = new LoadedModules; // never destroyed: modules may be freed during exit
    return *loaded;
}

bool IsLoaded(void* module)
{
    LoadedModules& loaded = Loaded();
    std::lock_guard<std::mutex> guard(loaded.lock);
    return loaded.counts.count(module) != 0;
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
    if (narrow.empty())
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    void* module = dlopen(narrow.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr)
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    LoadedModules& loaded = Loaded();
    std::lock_guard<std::mutex> guard(loaded.lock);
    ++loaded.counts[module];
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
    else if (IsLoaded(module))
        symbol = dlsym(module, procName);
    else
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
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
    if (module == NtdllModule() || W32pFreeDataModule(module))
        return TRUE;
    {
        LoadedModules& loaded = Loaded();
        std::lock_guard<std::mutex> guard(loaded.lock);
        auto known = loaded.counts.find(module);
        if (known == loaded.counts.end())
        {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        if (--known->second == 0)
            loaded.counts.erase(known);
    }
    if (dlclose(module) != 0)
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

bool W32pModulePath(HMODULE module, std::string& path)
{
    path.clear();
    if (module == NtdllModule())
    {
        Dl_info info = {};
        if (dladdr(&s_ntdll, &info) == 0 || info.dli_fname == nullptr)
            return false;
        path = info.dli_fname; // the built-in module lives in this layer's own library
        return true;
    }
    if (!IsLoaded(module))
        return false;
    struct link_map* map = nullptr;
    if (dlinfo(module, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr || map->l_name == nullptr)
        return false;
    path = map->l_name;
    if (path.empty()) // the main program
    {
        char buffer[4096];
        const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer);
        if (n <= 0)
            return false;
        path.assign(buffer, static_cast<std::size_t>(n));
    }
    return true;
}
