#include "velpathconverter.h"
#include "velstringconverter.h"
#include "velwin32.h"

#include <type_traits>

namespace
{
// True where the path's native text is UTF-8 bytes rather than wide characters.
constexpr bool kNarrowNative = std::is_same<boost::filesystem::path::value_type, char>::value;
} // namespace

std::wstring CVeLPathConverter::ToWide(const boost::filesystem::path& path)
{
    if constexpr (kNarrowNative)
    {
        std::wstring text;
        const auto& native = path.native();
        CVeLStringConverter::ConvertUTF8Chars2StdWString(reinterpret_cast<const char*>(native.c_str()),
                                                         static_cast<unsigned __int64>(native.size()), text);
        return text;
    }
    else
        return std::wstring(path.native().begin(), path.native().end());
}

std::string CVeLPathConverter::ToUtf8(const boost::filesystem::path& path)
{
    if constexpr (kNarrowNative)
        return std::string(path.native().begin(), path.native().end());
    else
        return CVeLStringConverter::ConvertStdWStringToStdString(ToWide(path));
}

boost::filesystem::path CVeLPathConverter::FromWide(const std::wstring& text)
{
    if constexpr (kNarrowNative)
        return boost::filesystem::path(CVeLStringConverter::ConvertStdWStringToStdString(text));
    else
        return boost::filesystem::path(text);
}
