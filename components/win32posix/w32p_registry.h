// The registry, read-only, from text files in the standard export format ("Windows Registry Editor Version
// 5.00", UTF-16LE with its byte-order mark or UTF-8), so keys exported on a Windows machine can be dropped
// in.
//
// Where the files are: every "*.reg" file of the machine-wide folder /etc/win32posix/registry, then of the
// per-user folder $XDG_CONFIG_HOME/win32posix/registry (else ~/.config/win32posix/registry); the variable
// W32P_REGISTRY, when set, names one folder used instead of both (this layer's own setting). Within a
// folder the files are read in the byte order of their names; a value in a later file overrides the same
// value of an earlier one, and "[-KEY]" or "name"=- in a later file deletes what earlier files gave. Each
// key carries its root as in any export: HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT,
// HKEY_USERS, HKEY_CURRENT_CONFIG (or HKLM, HKCU, HKCR, HKU, HKCC).
//
// A malformed file (no header, a line that is neither a key, a value, a comment nor blank, bad hex or
// dword data) is skipped as a whole, never half-read, and a warning naming the file and line goes to the
// process's standard error ("win32posix: registry: ..."): this layer sits below the trace back-end and has
// no trace module of its own.
//
// The files are read again when one of them changes (name, size or modification time); an open key keeps
// the state in which it was opened. Strings come back as WCHAR units of this platform with their
// terminator, as a wide-character program expects them; REG_EXPAND_SZ is not expanded (as on Windows:
// ExpandEnvironmentStringsW does that). Opening a key for writing answers ERROR_ACCESS_DENIED; the registry
// functions return their Win32 code and leave the last error alone. Thread-safe.
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

#define HKEY_CURRENT_CONFIG (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000005))))
#define KEY_CREATE_SUB_KEY 0x0004
#define REG_DWORD_BIG_ENDIAN 5
#define REG_LINK 6
#define REG_RESOURCE_LIST 8

// ERROR_FILE_NOT_FOUND for a missing key; ERROR_INVALID_HANDLE for an unknown key handle.
W32P_API LONG RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired, PHKEY result);
W32P_API LONG RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                               LPDWORD dataSize);
W32P_API LONG RegQueryInfoKeyW(HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD reserved,
                               LPDWORD subKeys, LPDWORD maxSubKeyLength, LPDWORD maxClassLength,
                               LPDWORD values, LPDWORD maxValueNameLength, LPDWORD maxValueLength,
                               LPDWORD securityDescriptor, PFILETIME lastWriteTime);
// Sub-keys in the case-insensitive order of their names; ERROR_NO_MORE_ITEMS after the last.
W32P_API LONG RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD nameSize);
// Values in the order the files gave them; ERROR_MORE_DATA when the name or the data does not fit.
W32P_API LONG RegEnumValueW(HKEY key, DWORD index, LPWSTR valueName, LPDWORD valueNameSize, LPDWORD reserved,
                            LPDWORD type, LPBYTE data, LPDWORD dataSize);
W32P_API LONG RegCloseKey(HKEY key);
