// CVeLIniFileImpl: the work of CVeLIniFile, all through the facade (see velinifile.h for the rules). Holds
// the facade and the path only.
#pragma once

#include "ivelinifile.h"
#include "ivelwinapiwrapper.h"

#include <boost/filesystem/path.hpp>
#include <memory>

class CVeLIniFileImpl : public IVeLIniFile
{
public:
    CVeLIniFileImpl(std::shared_ptr<IVeLWinAPIWrapper> api, const boost::filesystem::path& file);

    std::wstring GetString(const std::wstring& section, const std::wstring& key,
                           const std::wstring& defaultValue) const override;
    int GetInt(const std::wstring& section, const std::wstring& key, int defaultValue) const override;
    bool GetBool(const std::wstring& section, const std::wstring& key, bool defaultValue) const override;
    double GetReal(const std::wstring& section, const std::wstring& key, double defaultValue) const override;
    bool HasKey(const std::wstring& section, const std::wstring& key) const override;
    bool GetSectionNames(std::vector<std::wstring>& names) const override;
    bool GetKeyNames(const std::wstring& section, std::vector<std::wstring>& names) const override;

    bool WriteString(const std::wstring& section, const std::wstring& key,
                     const std::wstring& value) override;
    bool WriteInt(const std::wstring& section, const std::wstring& key, int value) override;
    bool WriteBool(const std::wstring& section, const std::wstring& key, bool value) override;
    bool WriteReal(const std::wstring& section, const std::wstring& key, double value) override;
    bool DeleteKey(const std::wstring& section, const std::wstring& key) override;
    bool DeleteSection(const std::wstring& section) override;

private:
    // The profile read with a buffer grown until the answer fits; list answers keep their terminators.
    std::wstring Read(const wchar_t* section, const wchar_t* key, const wchar_t* defaultValue,
                      bool list) const;
    bool ReadList(const wchar_t* section, std::vector<std::wstring>& names) const;
    // The crash-safe change: read, change in memory, replace (null key or value deletes).
    bool Change(const wchar_t* section, const wchar_t* key, const wchar_t* value);
    bool UsablePath() const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    boost::filesystem::path m_file;
    std::wstring m_wideFile;
};
