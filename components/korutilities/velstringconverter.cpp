#include "velstringconverter.h"

#include <climits>
#include <cstring>

namespace
{

// Converts text to UTF-8 into storage that allocate(size) provides (size bytes plus one for a terminator,
// which is written). Most text is ASCII, one byte per character, so the first attempt converts into room
// for that in one pass; only text that needs more is measured and converted again. The number of bytes
// written, or -1 when the system conversion fails.
template <typename Allocate>
int ToUtf8(const std::wstring& text, Allocate allocate)
{
    if (text.empty())
    {
        *allocate(0) = '\0';
        return 0;
    }
    if (text.size() > static_cast<std::size_t>(INT_MAX))
        return -1;
    const int count = static_cast<int>(text.size());
    char* out = allocate(text.size());
    int written = WideCharToMultiByte(CP_UTF8, 0, text.data(), count, out, count, nullptr, nullptr);
    if (written == 0 && GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        const int needed = WideCharToMultiByte(CP_UTF8, 0, text.data(), count, nullptr, 0, nullptr, nullptr);
        if (needed <= 0)
            return -1;
        out = allocate(static_cast<std::size_t>(needed));
        written = WideCharToMultiByte(CP_UTF8, 0, text.data(), count, out, needed, nullptr, nullptr);
    }
    if (written <= 0)
        return -1;
    out[written] = '\0';
    return written;
}

} // namespace

bool CVeLStringConverter::ConvertStdWString2UTF8Chars(const std::wstring& text,
                                                      boost::shared_ptr<char>& buffer)
{
    boost::shared_ptr<char> converted;
    const bool ok = ToUtf8(text,
                           [&](std::size_t size)
                           {
                               converted.reset(new char[size + 1], [](char* p) { delete[] p; });
                               return converted.get();
                           }) >= 0;
    if (ok)
        buffer = converted;
    else
        buffer.reset();
    return ok;
}

std::string CVeLStringConverter::ConvertStdWStringToStdString(const std::wstring& text)
{
    std::string utf8;
    const int written = ToUtf8(text,
                               [&](std::size_t size)
                               {
                                   utf8.resize(size + 1);
                                   return &utf8[0];
                               });
    utf8.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
    return utf8;
}

bool CVeLStringConverter::ConvertUTF8Chars2StdWString(const char* utf8, std::wstring& text)
{
    if (utf8 == nullptr)
    {
        text.clear();
        return false;
    }
    return ConvertUTF8Chars2StdWString(utf8, std::strlen(utf8), text);
}

bool CVeLStringConverter::ConvertUTF8Chars2StdWString(const char* utf8, unsigned __int64 length,
                                                      std::wstring& text)
{
    text.clear();
    if (length == 0)
        return true;
    if (utf8 == nullptr || length > static_cast<unsigned __int64>(INT_MAX))
        return false;
    // UTF-8 never has fewer bytes than characters, so one pass into room for length characters does it.
    const int count = static_cast<int>(length);
    text.resize(static_cast<std::size_t>(count));
    const int written = MultiByteToWideChar(CP_UTF8, 0, utf8, count, &text[0], count);
    text.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
    return written > 0;
}
