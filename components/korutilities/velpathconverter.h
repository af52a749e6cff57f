// CVeLPathConverter: the text forms of a boost::filesystem::path that the file and directory classes need
// (wide text for the facade, UTF-8 for trace arguments) and back. A path keeps its native text: UTF-8 on
// Linux, UTF-16 on Windows. The conversions go through CVeLStringConverter rather than the path's own
// locale-dependent codecvt, so non-ASCII names convert the same whatever locale the host process set.
// Stateless; any thread may call it.
#pragma once

#include "korutilities_export.h"

#include <boost/filesystem/path.hpp>

#include <string>

class KORUTILITIES_API CVeLPathConverter
{
public:
    static std::wstring ToWide(const boost::filesystem::path& path);
    static std::string ToUtf8(const boost::filesystem::path& path);
    static boost::filesystem::path FromWide(const std::wstring& text);
};
