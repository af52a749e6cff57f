// The registry functions, which answer that the registry is not available.
// The contract, and where Linux differs from Windows, are in w32p_registry.h.
#include "w32p_registry.h"

LONG RegOpenKeyExW(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)
{
    return ERROR_CALL_NOT_IMPLEMENTED;
}

LONG RegQueryValueExW(HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD)
{
    return ERROR_CALL_NOT_IMPLEMENTED;
}

LONG RegQueryInfoKeyW(HKEY, LPWSTR, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD,
                      LPDWORD, PFILETIME)
{
    return ERROR_CALL_NOT_IMPLEMENTED;
}

LONG RegEnumKeyW(HKEY, DWORD, LPWSTR, DWORD)
{
    return ERROR_CALL_NOT_IMPLEMENTED;
}

LONG RegCloseKey(HKEY)
{
    return ERROR_INVALID_HANDLE;
}
