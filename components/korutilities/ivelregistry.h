// IVeLRegistry: reading registry values and listing keys under the predefined roots (HKEY_LOCAL_MACHINE,
// HKEY_CURRENT_USER, ...). Sub-key paths are separated by "\".
#pragma once

#include "velwin32.h"

#include <string>
#include <vector>

// One value as stored: its name ("" for the default value), REG_ type and raw data.
struct VeLRegistryValue
{
    std::wstring name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

class IVeLRegistry
{
public:
    virtual ~IVeLRegistry() {}
    // REG_SZ as it is; REG_EXPAND_SZ with its %NAME% references expanded.
    virtual bool ReadString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                            std::wstring& value) const = 0;
    virtual bool ReadMultiString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                 std::vector<std::wstring>& values) const = 0;
    virtual bool ReadDword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                           DWORD& value) const = 0;
    virtual bool ReadQword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                           ULONGLONG& value) const = 0;
    virtual bool ReadBinary(HKEY root, const std::wstring& subKey, const std::wstring& name,
                            std::vector<BYTE>& value) const = 0;
    virtual bool ReadValue(HKEY root, const std::wstring& subKey, const std::wstring& name,
                           VeLRegistryValue& value) const = 0;
    virtual bool EnumerateSubKeys(HKEY root, const std::wstring& subKey,
                                  std::vector<std::wstring>& names) const = 0;
    virtual bool EnumerateValues(HKEY root, const std::wstring& subKey,
                                 std::vector<VeLRegistryValue>& values) const = 0;
};
