// IVeLIniFile: typed reads and writes of one INI (profile) file: sections of "key=value" lines, names
// compared without regard to case.
#pragma once

#include <string>
#include <vector>

class IVeLIniFile
{
public:
    virtual ~IVeLIniFile() {}
    // The value, or defaultValue when the file, section or key is missing.
    virtual std::wstring GetString(const std::wstring& section, const std::wstring& key,
                                   const std::wstring& defaultValue) const = 0;
    // Decimal or "0x" hexadecimal with an optional sign; defaultValue when missing or not a whole number.
    virtual int GetInt(const std::wstring& section, const std::wstring& key, int defaultValue) const = 0;
    // "1", "true", "yes", "on" and "0", "false", "no", "off" in any case; defaultValue for anything else.
    virtual bool GetBool(const std::wstring& section, const std::wstring& key, bool defaultValue) const = 0;
    // A decimal number with "." as the separator whatever the locale; defaultValue when not one.
    virtual double GetReal(const std::wstring& section, const std::wstring& key,
                           double defaultValue) const = 0;
    virtual bool HasKey(const std::wstring& section, const std::wstring& key) const = 0;
    virtual bool GetSectionNames(std::vector<std::wstring>& names) const = 0;
    virtual bool GetKeyNames(const std::wstring& section, std::vector<std::wstring>& names) const = 0;

    virtual bool WriteString(const std::wstring& section, const std::wstring& key,
                             const std::wstring& value) = 0;
    virtual bool WriteInt(const std::wstring& section, const std::wstring& key, int value) = 0;
    virtual bool WriteBool(const std::wstring& section, const std::wstring& key, bool value) = 0;
    virtual bool WriteReal(const std::wstring& section, const std::wstring& key, double value) = 0;
    virtual bool DeleteKey(const std::wstring& section, const std::wstring& key) = 0;
    virtual bool DeleteSection(const std::wstring& section) = 0;
};
