// IVeLDirBasics: the directory primitives under CVeLDirHelper, held as a shared pointer so that a test or a
// host can put its own in place of the default CVeLDirBasics. The queries answer false both for "no" and
// when the answer can't be had; none throws. The order of the operations is fixed.
#pragma once

#include "velfilesystemerror.h"
#include "velresult.h"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

class IVeLDirBasics
{
public:
    virtual ~IVeLDirBasics() {}
    virtual bool Exists(const boost::filesystem::path& path) const = 0;
    // Creates one directory level; its parent must exist.
    virtual bool CreateDirectory(const boost::filesystem::path& path) const = 0;
    // Removes the whole tree and the directory itself. A failed result names the first element that could
    // not be removed and its system error code.
    virtual CVeLResult<CVeLFilesystemError> RemoveDirectory(const boost::filesystem::path& path) const = 0;
    // Removes everything inside the directory and keeps it; failures as RemoveDirectory.
    virtual CVeLResult<CVeLFilesystemError>
    RemoveDirectoryContents(const boost::filesystem::path& path) const = 0;
    // Whether the tree deletion follows links into their targets (the default never does).
    virtual bool FollowsLinks() const = 0;
    virtual bool IsDirectory(const boost::filesystem::path& path) const = 0;
    // Whether removing a directory waits for it to read empty (the default does).
    virtual bool WaitsForEmptyDirectory() const = 0;
    virtual bool IsRegularFile(const boost::filesystem::path& path) const = 0;
    // Exists and is none of regular file, directory and symbolic link.
    virtual bool IsOther(const boost::filesystem::path& path) const = 0;
    // The path itself (not followed) is a symbolic link.
    virtual bool IsSymlink(const boost::filesystem::path& path) const = 0;
    // An iterator over the directory's entries; the end iterator when the directory can't be opened.
    virtual boost::filesystem::directory_iterator
    CreateDirectoryIterator(const boost::filesystem::path& path) const = 0;
};
