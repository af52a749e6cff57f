// RegGetValueW, with the one value this layer answers itself: the machine GUID
// (HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Cryptography, "MachineGuid"), which Windows creates at
// installation and Linux keeps as /etc/machine-id (or /var/lib/dbus/machine-id on older systems). It is
// given in the Windows form, 36 lower-case characters "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx". Every other
// value is read through RegOpenKeyExW and RegQueryValueExW, so it answers whatever the registry area does.
// Stateless; any thread may call it.
#pragma once

#include "w32p_base.h"
#include "w32p_registry.h"

#define RRF_RT_REG_NONE 0x00000001
#define RRF_RT_REG_SZ 0x00000002
#define RRF_RT_REG_EXPAND_SZ 0x00000004
#define RRF_RT_REG_BINARY 0x00000008
#define RRF_RT_REG_DWORD 0x00000010
#define RRF_RT_REG_MULTI_SZ 0x00000020
#define RRF_RT_REG_QWORD 0x00000040
#define RRF_RT_ANY 0x0000ffff
#define RRF_SUBKEY_WOW6464KEY 0x00010000 // accepted; Linux has one registry view

#ifndef ERROR_UNSUPPORTED_TYPE
#define ERROR_UNSUPPORTED_TYPE 1630L
#endif

// ERROR_SUCCESS with the type and data; with a null data pointer only the size in bytes (terminator
// included); ERROR_MORE_DATA and the size when the buffer is too small; ERROR_FILE_NOT_FOUND when the
// machine GUID cannot be read; ERROR_UNSUPPORTED_TYPE when the value's type is not among the flags.
W32P_API LONG RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type, PVOID data,
                           LPDWORD dataSize);
