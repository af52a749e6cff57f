#include "velpathconverter.h"
#include "velstringconverter.h"
#include "velwin32.h"
#include "w32p_namemap.h"

#include <type_traits>

namespace
{

// True where the path's native text is bytes rather than wide characters.
constexpr bool kNarrowNative = std::is_same<boost::filesystem::path::value_type, char>::value;

template <typename Char>
bool IsSeparator(Char c)
{
    return c == static_cast<Char>('/') ||
           c == static_cast<Char>(boost::filesystem::path::preferred_separator);
}

} // namespace

std::wstring CVeLPathConverter::NativeBytesToWide(const std::string& text)
{
    return w32p_namemap::NativeToWide(text.data(), text.size());
}

std::string CVeLPathConverter::WideToNativeBytes(const std::wstring& text)
{
    return w32p_namemap::WideToNative(text.data(), text.size());
}

std::wstring CVeLPathConverter::ToWide(const boost::filesystem::path& path)
{
    if constexpr (kNarrowNative)
        return NativeBytesToWide(std::string(path.native().begin(), path.native().end()));
    else
        return std::wstring(path.native().begin(), path.native().end());
}

void CVeLPathConverter::LastElementToWide(const boost::filesystem::path& path, std::wstring& name)
{
    const auto& native = path.native();
    std::size_t start = native.size();
    while (start > 0 && !IsSeparator(native[start - 1]))
        --start;
    if constexpr (kNarrowNative)
        w32p_namemap::AssignNativeToWide(native.data() + start, native.size() - start, name);
    else
        name.assign(native.begin() + static_cast<std::ptrdiff_t>(start), native.end());
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
        return boost::filesystem::path(WideToNativeBytes(text));
    else
        return boost::filesystem::path(text);
}
