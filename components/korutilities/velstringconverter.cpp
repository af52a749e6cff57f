#include "velstringconverter.h"

#include <climits>
#include <cstring>

namespace
{

// UTF-8 bytes of text, or false when the system conversion fails.
bool ToUtf8(const std::wstring& text, std::string& out)
{
    out.clear();
    if (text.empty())
        return true;
    if (text.size() > static_cast<std::size_t>(INT_MAX))
        return false;
    const int count = static_cast<int>(text.size());
    int needed = WideCharToMultiByte(CP_UTF8, 0, text.data(), count, nullptr, 0, nullptr, nullptr);
    if (needed <= 0)
        return false;
    out.resize(static_cast<std::size_t>(needed));
    return WideCharToMultiByte(CP_UTF8, 0, text.data(), count, &out[0], needed, nullptr, nullptr) == needed;
}

} // namespace

bool CVeLStringConverter::ConvertStdWString2UTF8Chars(const std::wstring& text,
                                                      boost::shared_ptr<char>& buffer)
{
    std::string utf8;
    if (!ToUtf8(text, utf8))
    {
        buffer.reset();
        return false;
    }
    boost::shared_ptr<char> copy(new char[utf8.size() + 1], [](char* p) { delete[] p; });
    std::memcpy(copy.get(), utf8.c_str(), utf8.size() + 1);
    buffer = copy;
    return true;
}

std::string CVeLStringConverter::ConvertStdWStringToStdString(const std::wstring& text)
{
    std::string utf8;
    return ToUtf8(text, utf8) ? utf8 : std::string();
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
    const int count = static_cast<int>(length);
    int needed = MultiByteToWideChar(CP_UTF8, 0, utf8, count, nullptr, 0);
    if (needed <= 0)
        return false;
    text.resize(static_cast<std::size_t>(needed));
    if (MultiByteToWideChar(CP_UTF8, 0, utf8, count, &text[0], needed) != needed)
    {
        text.clear();
        return false;
    }
    return true;
}
