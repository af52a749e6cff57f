// IVeLDirHelper: the operations on one directory that CVeLDirHelper offers and CVeLDirHelperImpl carries
// out. Every operation answers true (or a successful result) for success and false (or a failed result)
// after tracing the reason; none throws. The order of the operations is fixed.
#pragma once

#include "velfilesystemerror.h"
#include "velresult.h"
#include "velwin32.h"

#include <boost/filesystem/path.hpp>

#include <string>
#include <vector>

class IVeLDirHelper
{
public:
    virtual ~IVeLDirHelper() {}
    virtual boost::filesystem::path GetPath() = 0;
    virtual bool Create(bool networkPath) const = 0;
    virtual CVeLResult<CVeLFilesystemError> Remove() = 0;
    virtual CVeLResult<CVeLFilesystemError> RemoveSiblings() = 0;
    virtual bool RemoveSiblingsAndCheck() const = 0;
    virtual bool RemoveFileSiblings(const std::wstring& mask, bool recursive) const = 0;
    virtual bool Exists() const = 0;
    virtual bool IsDirectory() const = 0;
    virtual bool HasSiblings() const = 0;
    virtual bool Copy(const boost::filesystem::path& destination, const std::wstring& mask) const = 0;
    virtual bool Copy(const boost::filesystem::path& destination) const = 0;
    virtual bool GetTOC(std::vector<boost::filesystem::path>& files) const = 0;
    virtual bool GetTOCByRegExp(std::vector<boost::filesystem::path>& files, const std::wstring& regex,
                                bool recursive) = 0;
    virtual bool GetDirListByRegExp(std::vector<boost::filesystem::path>& directories,
                                    const std::wstring& regex, bool recursive) = 0;
    virtual void Reset(boost::filesystem::path path, bool flag) = 0;
    virtual std::wstring ToString() = 0;
};
