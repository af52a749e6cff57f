#include "velregistry.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velregistryimpl.h"
#include "velwinapiwrapper.h"

#include <cstring>

CVeLRegistry::CVeLRegistry() : m_impl(new CVeLRegistryImpl(std::make_shared<CVeLWinAPIWrapper>())) {}

CVeLRegistry::CVeLRegistry(std::shared_ptr<IVeLWinAPIWrapper> api)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLRegistryImpl(std::move(api)));
}

CVeLRegistry::~CVeLRegistry() {}

bool CVeLRegistry::ReadString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                              std::wstring& value) const
{
    return VEL_FORWARD(m_impl, ReadString(root, subKey, name, value));
}

bool CVeLRegistry::ReadMultiString(HKEY root, const std::wstring& subKey, const std::wstring& name,
                                   std::vector<std::wstring>& values) const
{
    return VEL_FORWARD(m_impl, ReadMultiString(root, subKey, name, values));
}

bool CVeLRegistry::ReadDword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                             DWORD& value) const
{
    return VEL_FORWARD(m_impl, ReadDword(root, subKey, name, value));
}

bool CVeLRegistry::ReadQword(HKEY root, const std::wstring& subKey, const std::wstring& name,
                             ULONGLONG& value) const
{
    return VEL_FORWARD(m_impl, ReadQword(root, subKey, name, value));
}

bool CVeLRegistry::ReadBinary(HKEY root, const std::wstring& subKey, const std::wstring& name,
                              std::vector<BYTE>& value) const
{
    return VEL_FORWARD(m_impl, ReadBinary(root, subKey, name, value));
}

bool CVeLRegistry::ReadValue(HKEY root, const std::wstring& subKey, const std::wstring& name,
                             VeLRegistryValue& value) const
{
    return VEL_FORWARD(m_impl, ReadValue(root, subKey, name, value));
}

bool CVeLRegistry::EnumerateSubKeys(HKEY root, const std::wstring& subKey,
                                    std::vector<std::wstring>& names) const
{
    return VEL_FORWARD(m_impl, EnumerateSubKeys(root, subKey, names));
}

bool CVeLRegistry::EnumerateValues(HKEY root, const std::wstring& subKey,
                                   std::vector<VeLRegistryValue>& values) const
{
    return VEL_FORWARD(m_impl, EnumerateValues(root, subKey, values));
}

std::vector<std::wstring> CVeLRegistry::DataToStrings(const std::vector<BYTE>& data)
{
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    if (!text.empty())
        std::memcpy(&text[0], data.data(), text.size() * sizeof(wchar_t));
    std::vector<std::wstring> strings;
    for (std::size_t start = 0; start < text.size();)
    {
        const std::size_t end = std::min(text.find(L'\0', start), text.size());
        if (end == start)
            break; // the empty string that ends a list
        strings.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return strings;
}
