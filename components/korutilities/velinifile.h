// CVeLIniFile: one INI file, read and written through the facade's profile operations. Owns its
// CVeLIniFileImpl and forwards every call to it; holds the path and the facade only, so one instance may be
// used from several threads, although concurrent writers of the same file (in this or another process)
// each replace the whole file and the last one wins. Every failure is traced at ERR and answered with false
// (reads: the default value); nothing throws. Without an implementation (a null facade at construction)
// every call traces "Can't access impl!".
//
// Encodings: a file with the UTF-16LE byte-order mark is read and kept in UTF-16LE, any other as 8-bit
// text. Windows reads a file without a byte-order mark in the ANSI code page of the machine, while
// win32posix reads it as UTF-8: write UTF-16LE files (or plain ASCII) when one file serves both platforms.
//
// Writes are crash-safe, which is stricter than Windows' own profile writes (they rewrite the file in
// place): the class reads the file once, makes the change in memory by the same rules the profile reads
// follow (CVeLIniText), and puts the result in place with the file helper's crash-safe whole-file write
// (a temporary file beside it, renamed over it), so the file holds its old or its new content whatever
// happens meanwhile. The path must name a folder ("app.ini" alone is refused: the profile reads would look
// for it in the Windows folder, not where the write puts it).
#pragma once

#include "ivelinifile.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <boost/filesystem/path.hpp>
#include <memory>

class CVeLIniFileImpl;

class KORUTILITIES_API CVeLIniFile : public IVeLIniFile
{
public:
    explicit CVeLIniFile(const boost::filesystem::path& file);
    CVeLIniFile(std::shared_ptr<IVeLWinAPIWrapper> api, const boost::filesystem::path& file);
    ~CVeLIniFile() override;
    CVeLIniFile(const CVeLIniFile&) = delete;
    CVeLIniFile& operator=(const CVeLIniFile&) = delete;

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
    std::unique_ptr<CVeLIniFileImpl> m_impl;
};
