// The registry: not available on Linux yet. Every function returns ERROR_CALL_NOT_IMPLEMENTED (120), as
// its result (registry functions do not use the last error); out-parameters are left untouched.
// RegCloseKey answers ERROR_INVALID_HANDLE, since no key can have been opened.
#pragma once

#include "w32p_base.h"

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000))))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002))))
#define HKEY_USERS (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000003))))

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_READ 0x20019
#define KEY_WRITE 0x20006
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200

typedef BYTE* LPBYTE; // repeated typedefs of the same type are allowed

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_MULTI_SZ 7
#define REG_QWORD 11

W32P_API LONG RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired, PHKEY result);
W32P_API LONG RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                               LPDWORD dataSize);
W32P_API LONG RegQueryInfoKeyW(HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD reserved,
                               LPDWORD subKeys, LPDWORD maxSubKeyLength, LPDWORD maxClassLength,
                               LPDWORD values, LPDWORD maxValueNameLength, LPDWORD maxValueLength,
                               LPDWORD securityDescriptor, PFILETIME lastWriteTime);
W32P_API LONG RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD nameSize);
W32P_API LONG RegCloseKey(HKEY key);
