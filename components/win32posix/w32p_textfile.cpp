// Text-file decoding and encoding; see w32p_textfile.h.
#include "w32p_textfile.h"
#include "w32p_path.h"

namespace
{

unsigned UnitAt(const std::string& bytes, std::size_t at)
{
    return static_cast<unsigned char>(bytes[at]) |
           static_cast<unsigned>(static_cast<unsigned char>(bytes[at + 1])) << 8;
}

std::wstring DecodeUtf16(const std::string& bytes, std::size_t from)
{
    std::wstring text;
    text.reserve((bytes.size() - from) / 2);
    for (std::size_t at = from; at + 1 < bytes.size(); at += 2)
    {
        const unsigned unit = UnitAt(bytes, at);
        if (unit >= 0xD800 && unit < 0xDC00 && at + 3 < bytes.size())
        {
            const unsigned low = UnitAt(bytes, at + 2);
            if (low >= 0xDC00 && low < 0xE000)
            {
                text.push_back(static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
                at += 2;
                continue;
            }
        }
        text.push_back(static_cast<wchar_t>(unit));
    }
    return text;
}

void AppendUnit(std::string& bytes, unsigned unit)
{
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>((unit >> 8) & 0xFF));
}

} // namespace

std::wstring W32pDecodeText(const std::string& bytes, W32pTextEncoding& encoding)
{
    if (bytes.compare(0, 2, "\xFF\xFE") == 0)
    {
        encoding = W32pTextEncoding::Utf16Bom;
        return DecodeUtf16(bytes, 2);
    }
    if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0)
    {
        encoding = W32pTextEncoding::Utf8Bom;
        return W32pUtf8ToWide(bytes.substr(3));
    }
    encoding = W32pTextEncoding::Utf8;
    return W32pUtf8ToWide(bytes);
}

std::string W32pEncodeText(const std::wstring& text, W32pTextEncoding encoding)
{
    if (encoding == W32pTextEncoding::Utf8)
        return W32pWideToUtf8(text);
    if (encoding == W32pTextEncoding::Utf8Bom)
        return "\xEF\xBB\xBF" + W32pWideToUtf8(text);
    std::string bytes = "\xFF\xFE";
    bytes.reserve(2 + text.size() * 2);
    for (wchar_t c : text)
    {
        const unsigned code = static_cast<unsigned>(c);
        if (code >= 0x10000 && code <= 0x10FFFF)
        {
            AppendUnit(bytes, 0xD800 + ((code - 0x10000) >> 10));
            AppendUnit(bytes, 0xDC00 + ((code - 0x10000) & 0x3FF));
        }
        else
            AppendUnit(bytes, code > 0x10FFFF ? 0xFFFD : code);
    }
    return bytes;
}
