// CVeLRegistry: reads the registry through the facade: values of every common type, sub-key and value
// listings. Owns its CVeLRegistryImpl and forwards every call to it; holds only the facade and opens and
// closes a key within each call, so one instance may be used from any thread. Read-only.
//
// Every failure is traced and answered with false; nothing throws. A missing key or value is traced at
// WRN (it is a normal answer for optional settings), a value of another type than asked for and every
// other failure at ERR with the Win32 code. Without an implementation (a null facade at construction)
// every call traces "Can't access impl!". On Linux the registry is the one win32posix reads from ".reg"
// export files (see its w32p_registry.h).
#pragma once

#include "ivelregistry.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <memory>

class CVeLRegistryImpl;

class KORUTILITIES_API CVeLRegistry : public IVeLRegistry
{
public:
    CVeLRegistry();
    explicit CVeLRegistry(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLRegistry() override;
    CVeLRegistry(const CVeLRegistry&) = delete;
    CVeLRegistry& operator=(const CVeLRegistry&) = delete;

    bool ReadString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                    std::wstring& value) const override;
    bool ReadMultiString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                         std::vector<std::wstring>& values) const override;
    bool ReadDword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                   DWORD& value) const override;
    bool ReadQword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                   ULONGLONG& value) const override;
    bool ReadBinary(HKEY root, const std::wstring& subKey, const std::wstring& name,
                    std::vector<BYTE>& value) const override;
    bool ReadValue(HKEY root, const std::wstring& subKey, const std::wstring& name,
                   VeLRegistryValue& value) const override;
    bool EnumerateSubKeys(HKEY root, const std::wstring& subKey,
                          std::vector<std::wstring>& names) const override;
    bool EnumerateValues(HKEY root, const std::wstring& subKey,
                         std::vector<VeLRegistryValue>& values) const override;

    // The text of a REG_SZ, REG_EXPAND_SZ or REG_MULTI_SZ value's data: wide characters up to the first
    // terminator (MULTI_SZ: each string), a missing terminator tolerated.
    static std::vector<std::wstring> DataToStrings(const std::vector<BYTE>& data);

private:
    std::unique_ptr<CVeLRegistryImpl> m_impl;
};
