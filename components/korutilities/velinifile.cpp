#include "velinifile.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velinifileimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

CVeLIniFile::CVeLIniFile(const fs::path& file)
    : m_impl(new CVeLIniFileImpl(std::make_shared<CVeLWinAPIWrapper>(), file))
{
}

CVeLIniFile::CVeLIniFile(std::shared_ptr<IVeLWinAPIWrapper> api, const fs::path& file)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLIniFileImpl(std::move(api), file));
}

CVeLIniFile::~CVeLIniFile() {}

std::wstring CVeLIniFile::GetString(const std::wstring& section, const std::wstring& key,
                                    const std::wstring& defaultValue) const
{
    return VEL_FORWARD_OR(m_impl, defaultValue, GetString(section, key, defaultValue));
}

int CVeLIniFile::GetInt(const std::wstring& section, const std::wstring& key, int defaultValue) const
{
    return VEL_FORWARD_OR(m_impl, defaultValue, GetInt(section, key, defaultValue));
}

bool CVeLIniFile::GetBool(const std::wstring& section, const std::wstring& key, bool defaultValue) const
{
    return VEL_FORWARD_OR(m_impl, defaultValue, GetBool(section, key, defaultValue));
}

double CVeLIniFile::GetReal(const std::wstring& section, const std::wstring& key, double defaultValue) const
{
    return VEL_FORWARD_OR(m_impl, defaultValue, GetReal(section, key, defaultValue));
}

bool CVeLIniFile::HasKey(const std::wstring& section, const std::wstring& key) const
{
    return VEL_FORWARD(m_impl, HasKey(section, key));
}

bool CVeLIniFile::GetSectionNames(std::vector<std::wstring>& names) const
{
    return VEL_FORWARD(m_impl, GetSectionNames(names));
}

bool CVeLIniFile::GetKeyNames(const std::wstring& section, std::vector<std::wstring>& names) const
{
    return VEL_FORWARD(m_impl, GetKeyNames(section, names));
}

bool CVeLIniFile::WriteString(const std::wstring& section, const std::wstring& key, const std::wstring& value)
{
    return VEL_FORWARD(m_impl, WriteString(section, key, value));
}

bool CVeLIniFile::WriteInt(const std::wstring& section, const std::wstring& key, int value)
{
    return VEL_FORWARD(m_impl, WriteInt(section, key, value));
}

bool CVeLIniFile::WriteBool(const std::wstring& section, const std::wstring& key, bool value)
{
    return VEL_FORWARD(m_impl, WriteBool(section, key, value));
}

bool CVeLIniFile::WriteReal(const std::wstring& section, const std::wstring& key, double value)
{
    return VEL_FORWARD(m_impl, WriteReal(section, key, value));
}

bool CVeLIniFile::DeleteKey(const std::wstring& section, const std::wstring& key)
{
    return VEL_FORWARD(m_impl, DeleteKey(section, key));
}

bool CVeLIniFile::DeleteSection(const std::wstring& section)
{
    return VEL_FORWARD(m_impl, DeleteSection(section));
}
