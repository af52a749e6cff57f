#include "velfilebasics.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velwin32.h"

#include <boost/filesystem/operations.hpp>

namespace fs = boost::filesystem;

CVeLFileBasics::CVeLFileBasics() {}

CVeLFileBasics::~CVeLFileBasics() {}

bool CVeLFileBasics::IsRegularFile(const fs::path& path) const
{
    try
    {
        return fs::status(path).type() == fs::regular_file;
    }
    catch (const fs::filesystem_error& e)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::is_regular_file (%s) failed with exception: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), e.what());
    }
    return false;
}

bool CVeLFileBasics::Remove(const fs::path& path) const
{
    try
    {
        fs::remove(path);
        return true;
    }
    catch (const fs::filesystem_error& e)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::remove (%s) failed with exception: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), e.what());
    }
    catch (...)
    {
        VEL_TRACE(VEL_ERR, "Remove %s failed (unknown exception)!", CVeLPathConverter::ToUtf8(path).c_str());
    }
    return false;
}

bool CVeLFileBasics::Rename(const fs::path& from, const fs::path& to) const
{
    try
    {
        fs::rename(from, to);
        return true;
    }
    catch (const fs::filesystem_error& e)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::Rename (%s to %s) failed with exception: %s",
                  CVeLPathConverter::ToUtf8(from).c_str(), CVeLPathConverter::ToUtf8(to).c_str(), e.what());
    }
    return false;
}

bool CVeLFileBasics::Exists(const fs::path& path) const
{
    boost::system::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    return type != fs::status_error && type != fs::file_not_found;
}
