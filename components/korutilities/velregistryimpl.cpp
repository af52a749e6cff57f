#include "velregistryimpl.h"
#include "korutilitesbtracedef.h"
#include "velregistry.h"
#include "velstringconverter.h"

#include <cstring>

namespace
{

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

// Copies a number value of exactly size bytes; any other size is a damaged value.
bool CopyFixedSize(const std::vector<BYTE>& data, const std::wstring& name, void* value, std::size_t size)
{
    if (data.size() != size)
    {
        VEL_TRACE(VEL_ERR, "Invalid size of registry value %s!", Utf8(name).c_str());
        return false;
    }
    std::memcpy(value, data.data(), size);
    return true;
}

} // namespace

// Closes an opened key through the facade on every way out.
class CVeLRegistryImpl::KeyHolder
{
public:
    KeyHolder(const IVeLWinAPIWrapper& api, HKEY key) : m_api(api), m_key(key) {}
    ~KeyHolder() { m_api.WAPI_RegCloseKey(m_key); }
    KeyHolder(const KeyHolder&) = delete;
    KeyHolder& operator=(const KeyHolder&) = delete;

private:
    const IVeLWinAPIWrapper& m_api;
    HKEY m_key;
};

CVeLRegistryImpl::CVeLRegistryImpl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

bool CVeLRegistryImpl::Open(HKEY root, const std::wstring& subKey, HKEY& key) const
{
    const LONG status = m_api->WAPI_RegOpenKeyEx(root, subKey.c_str(), 0, KEY_READ, &key);
    if (status == ERROR_SUCCESS)
        return true;
    if (status == ERROR_FILE_NOT_FOUND)
        VEL_TRACE(VEL_WRN, "Registry key %s not found", Utf8(subKey).c_str());
    else
        VEL_TRACE(VEL_ERR, "Can't open registry key %s (err = %ld)!", Utf8(subKey).c_str(), status);
    return false;
}

bool CVeLRegistryImpl::ReadValue(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                 VeLRegistryValue& value) const
{
    HKEY key = nullptr;
    if (!Open(root, subKey, key))
        return false;
    KeyHolder holder(*m_api, key);
    value.name = name;
    // The value may grow between the size query and the read (another writer): ask again then.
    for (int attempt = 0; attempt < 4; ++attempt)
    {
        DWORD size = static_cast<DWORD>(value.data.size());
        LONG status = m_api->WAPI_RegQueryValueEx(key, name.c_str(), nullptr, &value.type,
                                                  value.data.empty() ? nullptr : value.data.data(), &size);
        if (status == ERROR_SUCCESS && (size <= value.data.size() || size == 0))
        {
            value.data.resize(size);
            return true;
        }
        if (status == ERROR_SUCCESS || status == ERROR_MORE_DATA)
        {
            value.data.resize(size);
            continue;
        }
        if (status == ERROR_FILE_NOT_FOUND)
            VEL_TRACE(VEL_WRN, "Registry value %s not found", Utf8(name).c_str());
        else
            VEL_TRACE(VEL_ERR, "Can't read registry value %s (err = %ld)!", Utf8(name).c_str(), status);
        return false;
    }
    VEL_TRACE(VEL_ERR, "Can't read registry value %s (err = %ld)!", Utf8(name).c_str(), ERROR_MORE_DATA);
    return false;
}

bool CVeLRegistryImpl::ReadTyped(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                 DWORD wantedType, std::vector<BYTE>& data) const
{
    VeLRegistryValue value;
    if (!ReadValue(root, subKey, name, value))
        return false;
    if (value.type != wantedType)
    {
        VEL_TRACE(VEL_ERR, "Registry value %s has type %lu, not %lu!", Utf8(name).c_str(), value.type,
                  wantedType);
        return false;
    }
    data.swap(value.data);
    return true;
}

bool CVeLRegistryImpl::ExpandText(const std::wstring& text, std::wstring& expanded) const
{
    DWORD size = m_api->WAPI_ExpandEnvironmentStrings(text.c_str(), nullptr, 0);
    for (int attempt = 0; attempt < 4 && size > 0; ++attempt)
    {
        std::wstring buffer(size, L'\0');
        const DWORD needed = m_api->WAPI_ExpandEnvironmentStrings(text.c_str(), &buffer[0], size);
        if (needed > 0 && needed <= size)
        {
            expanded.assign(buffer.c_str());
            return true;
        }
        size = needed; // the environment changed in between
    }
    VEL_TRACE(VEL_ERR, "Can't expand %s (err = %ld)!", Utf8(text).c_str(), m_api->WAPI_GetLastError());
    return false;
}

bool CVeLRegistryImpl::ReadString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                  std::wstring& value) const
{
    VeLRegistryValue raw;
    if (!ReadValue(root, subKey, name, raw))
        return false;
    if (raw.type != REG_SZ && raw.type != REG_EXPAND_SZ)
    {
        VEL_TRACE(VEL_ERR, "Registry value %s has type %lu, not a string!", Utf8(name).c_str(), raw.type);
        return false;
    }
    const std::vector<std::wstring> strings = CVeLRegistry::DataToStrings(raw.data);
    const std::wstring text = strings.empty() ? std::wstring() : strings[0];
    if (raw.type == REG_EXPAND_SZ)
        return ExpandText(text, value);
    value = text;
    return true;
}

bool CVeLRegistryImpl::ReadMultiString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                       std::vector<std::wstring>& values) const
{
    std::vector<BYTE> data;
    if (!ReadTyped(root, subKey, name, REG_MULTI_SZ, data))
        return false;
    values = CVeLRegistry::DataToStrings(data);
    return true;
}

bool CVeLRegistryImpl::ReadDword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                 DWORD& value) const
{
    std::vector<BYTE> data;
    return ReadTyped(root, subKey, name, REG_DWORD, data) && CopyFixedSize(data, name, &value, sizeof value);
}

bool CVeLRegistryImpl::ReadQword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                 ULONGLONG& value) const
{
    std::vector<BYTE> data;
    return ReadTyped(root, subKey, name, REG_QWORD, data) && CopyFixedSize(data, name, &value, sizeof value);
}

bool CVeLRegistryImpl::ReadBinary(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                  std::vector<BYTE>& value) const
{
    return ReadTyped(root, subKey, name, REG_BINARY, value);
}

bool CVeLRegistryImpl::EnumerateSubKeys(HKEY root, const std::wstring& subKey,
                                        std::vector<std::wstring>& names) const
{
    names.clear();
    HKEY key = nullptr;
    if (!Open(root, subKey, key))
        return false;
    KeyHolder holder(*m_api, key);
    std::wstring buffer(256, L'\0'); // the longest key name Windows allows is 255 characters
    for (DWORD index = 0;; ++index)
    {
        const LONG status = m_api->WAPI_RegEnumKey(key, index, &buffer[0], static_cast<DWORD>(buffer.size()));
        if (status == ERROR_NO_MORE_ITEMS)
            return true;
        if (status != ERROR_SUCCESS)
        {
            VEL_TRACE(VEL_ERR, "Can't list registry key %s (err = %ld)!", Utf8(subKey).c_str(), status);
            return false;
        }
        names.push_back(buffer.c_str());
    }
}

bool CVeLRegistryImpl::ReadValueAt(HKEY key, DWORD index, DWORD longestName, VeLRegistryValue& value) const
{
    std::wstring name(longestName + 1, L'\0');
    DWORD nameSize = longestName + 1, size = 0;
    LONG status =
        m_api->WAPI_RegEnumValue(key, index, &name[0], &nameSize, nullptr, &value.type, nullptr, &size);
    if (status == ERROR_SUCCESS)
    {
        value.data.resize(size);
        nameSize = longestName + 1;
        status = m_api->WAPI_RegEnumValue(key, index, &name[0], &nameSize, nullptr, &value.type,
                                          value.data.empty() ? nullptr : value.data.data(), &size);
        value.data.resize(size);
    }
    if (status != ERROR_SUCCESS)
        return false;
    value.name = name.c_str();
    return true;
}

bool CVeLRegistryImpl::EnumerateValues(HKEY root, const std::wstring& subKey,
                                       std::vector<VeLRegistryValue>& values) const
{
    values.clear();
    HKEY key = nullptr;
    if (!Open(root, subKey, key))
        return false;
    KeyHolder holder(*m_api, key);
    DWORD count = 0, longestName = 0;
    LONG status = m_api->WAPI_RegQueryInfoKey(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                              &count, &longestName, nullptr, nullptr, nullptr);
    for (DWORD index = 0; status == ERROR_SUCCESS && index < count; ++index)
    {
        VeLRegistryValue value;
        if (!ReadValueAt(key, index, longestName, value))
            status = ERROR_MORE_DATA; // the key changed while it was listed
        else
            values.push_back(value);
    }
    if (status == ERROR_SUCCESS)
        return true;
    VEL_TRACE(VEL_ERR, "Can't list registry values of %s (err = %ld)!", Utf8(subKey).c_str(), status);
    return false;
}
