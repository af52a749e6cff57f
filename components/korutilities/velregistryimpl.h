// CVeLRegistryImpl: the work of CVeLRegistry, all through the facade (see velregistry.h). Holds the facade
// only.
#pragma once

#include "ivelregistry.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class CVeLRegistryImpl : public IVeLRegistry
{
public:
    explicit CVeLRegistryImpl(std::shared_ptr<IVeLWinAPIWrapper> api);

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

private:
    // Opens subKey for reading; the key is closed through the facade when the holder ends.
    class KeyHolder;
    bool Open(HKEY root, const std::wstring& subKey, HKEY& key) const;
    bool ReadTyped(HKEY root, const std::wstring& subKey, const std::wstring& name, DWORD wantedType,
                   std::vector<BYTE>& data) const;
    bool ExpandText(const std::wstring& text, std::wstring& expanded) const;
    bool ReadValueAt(HKEY key, DWORD index, DWORD longestName, VeLRegistryValue& value) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
