// IVeLFileBasics: the single-file primitives under CVeLFileHelper, held as a shared pointer so that a test
// or a host can put its own in place of the default CVeLFileBasics. Each answers true for success (or
// "yes") and false for failure (or "no"); none throws. The order of the operations is fixed.
#pragma once

#include <boost/filesystem/path.hpp>

class IVeLFileBasics
{
public:
    virtual ~IVeLFileBasics() {}
    virtual bool IsRegularFile(const boost::filesystem::path& path) const = 0;
    virtual bool Remove(const boost::filesystem::path& path) const = 0;
    virtual bool Rename(const boost::filesystem::path& from, const boost::filesystem::path& to) const = 0;
    virtual bool Exists(const boost::filesystem::path& path) const = 0;
};
