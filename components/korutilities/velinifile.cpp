#include "velinifile.h"
#include "korutilitesbtracedef.h"
#include "velinifileimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

// Each public call forwards to the implementation, or traces and answers failure.
#define VEL_INIFILE_FORWARD(failure, call)                                                                   \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return failure;                                                                                      \
    }                                                                                                        \
    return m_impl->call

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
    VEL_INIFILE_FORWARD(defaultValue, GetString(section, key, defaultValue));
}

int CVeLIniFile::GetInt(const std::wstring& section, const std::wstring& key, int defaultValue) const
{
    VEL_INIFILE_FORWARD(defaultValue, GetInt(section, key, defaultValue));
}

bool CVeLIniFile::GetBool(const std::wstring& section, const std::wstring& key, bool defaultValue) const
{
    VEL_INIFILE_FORWARD(defaultValue, GetBool(section, key, defaultValue));
}

double CVeLIniFile::GetReal(const std::wstring& section, const std::wstring& key, double defaultValue) const
{
    VEL_INIFILE_FORWARD(defaultValue, GetReal(section, key, defaultValue));
}

bool CVeLIniFile::HasKey(const std::wstring& section, const std::wstring& key) const
{
    VEL_INIFILE_FORWARD(false, HasKey(section, key));
}

bool CVeLIniFile::GetSectionNames(std::vector<std::wstring>& names) const
{
    VEL_INIFILE_FORWARD(false, GetSectionNames(names));
}

bool CVeLIniFile::GetKeyNames(const std::wstring& section, std::vector<std::wstring>& names) const
{
    VEL_INIFILE_FORWARD(false, GetKeyNames(section, names));
}

bool CVeLIniFile::WriteString(const std::wstring& section, const std::wstring& key, const std::wstring& value)
{
    VEL_INIFILE_FORWARD(false, WriteString(section, key, value));
}

bool CVeLIniFile::WriteInt(const std::wstring& section, const std::wstring& key, int value)
{
    VEL_INIFILE_FORWARD(false, WriteInt(section, key, value));
}

bool CVeLIniFile::WriteBool(const std::wstring& section, const std::wstring& key, bool value)
{
    VEL_INIFILE_FORWARD(false, WriteBool(section, key, value));
}

bool CVeLIniFile::WriteReal(const std::wstring& section, const std::wstring& key, double value)
{
    VEL_INIFILE_FORWARD(false, WriteReal(section, key, value));
}

bool CVeLIniFile::DeleteKey(const std::wstring& section, const std::wstring& key)
{
    VEL_INIFILE_FORWARD(false, DeleteKey(section, key));
}

bool CVeLIniFile::DeleteSection(const std::wstring& section)
{
    VEL_INIFILE_FORWARD(false, DeleteSection(section));
}
