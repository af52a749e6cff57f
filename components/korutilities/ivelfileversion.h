// IVeLFileVersion: the version resource of a Windows executable or DLL: its fixed file and product versions
// and the texts of its string table (CompanyName, ProductName, FileDescription, ...).
#pragma once

#include "velversion.h"

#include <boost/filesystem/path.hpp>
#include <string>

class IVeLFileVersion
{
public:
    virtual ~IVeLFileVersion() {}
    virtual bool GetFileVersion(const boost::filesystem::path& file, CVeLVersion& version) const = 0;
    virtual bool GetProductVersion(const boost::filesystem::path& file, CVeLVersion& version) const = 0;
    // The text of that name in the file's first language (the first translation the resource lists).
    virtual bool GetVersionString(const boost::filesystem::path& file, const std::wstring& name,
                                  std::wstring& value) const = 0;
};
