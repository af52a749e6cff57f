#include "velinitext.h"
#include "velstringconverter.h"

#include <algorithm>
#include <cwctype>

namespace
{

struct Text
{
    std::vector<std::wstring> lines; // without their endings
    std::wstring ending = L"\r\n";   // of the first line
    bool utf16 = false;
    bool utf8Mark = false;
};

std::wstring Trim(const std::wstring& text)
{
    const std::size_t first = text.find_first_not_of(L" \t");
    return first == std::wstring::npos ? std::wstring()
                                       : text.substr(first, text.find_last_not_of(L" \t") - first + 1);
}

bool SameName(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(),
                      [](wchar_t x, wchar_t y) { return std::towlower(x) == std::towlower(y); });
}

// The section a header line opens, or false for any other line.
bool SectionOf(const std::wstring& line, std::wstring& name)
{
    const std::wstring trimmed = Trim(line);
    if (trimmed.empty() || trimmed[0] != L'[')
        return false;
    const std::size_t close = trimmed.find(L']');
    name = Trim(trimmed.substr(1, close == std::wstring::npos ? std::wstring::npos : close - 1));
    return true;
}

// The key of a key line, or false for a blank, comment or other line.
bool KeyOf(const std::wstring& line, std::wstring& key)
{
    const std::wstring trimmed = Trim(line);
    const std::size_t equals = trimmed.find(L'=');
    if (trimmed.empty() || trimmed[0] == L';' || trimmed[0] == L'[' || equals == std::wstring::npos)
        return false;
    key = Trim(trimmed.substr(0, equals));
    return true;
}

Text Decode(const unsigned char* bytes, std::size_t size)
{
    Text text;
    std::wstring whole;
    text.utf16 = size >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE;
    text.utf8Mark = size >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF;
    if (text.utf16)
        whole = CVeLStringConverter::ConvertUTF16LEToStdWString(bytes + 2, size - 2);
    else if (size > 0)
        CVeLStringConverter::ConvertUTF8Chars2StdWString(reinterpret_cast<const char*>(bytes) +
                                                             (text.utf8Mark ? 3 : 0),
                                                         size - (text.utf8Mark ? 3 : 0), whole);
    for (std::size_t start = 0; start < whole.size();)
    {
        const std::size_t end = std::min(whole.find_first_of(L"\r\n", start), whole.size());
        const std::size_t next =
            end == whole.size() ? end : end + (whole.compare(end, 2, L"\r\n") == 0 ? 2 : 1);
        if (text.lines.empty() && end < whole.size())
            text.ending = whole.substr(end, next - end);
        text.lines.push_back(whole.substr(start, end - start));
        start = next;
    }
    return text;
}

std::vector<unsigned char> Encode(const Text& text)
{
    std::wstring whole;
    for (const std::wstring& line : text.lines)
        whole += line + text.ending;
    if (text.utf16)
    {
        std::vector<unsigned char> bytes = {0xFF, 0xFE};
        const std::vector<unsigned char> units = CVeLStringConverter::ConvertStdWStringToUTF16LE(whole);
        bytes.insert(bytes.end(), units.begin(), units.end());
        return bytes;
    }
    const std::string utf8 =
        (text.utf8Mark ? "\xEF\xBB\xBF" : "") + CVeLStringConverter::ConvertStdWStringToStdString(whole);
    return std::vector<unsigned char>(utf8.begin(), utf8.end());
}

// Sets, adds or deletes in the lines; begin is the first section's header (lines.size() when missing), end
// the next header.
void Apply(std::vector<std::wstring>& lines, const std::wstring& section, const wchar_t* key,
           const wchar_t* value)
{
    std::size_t begin = lines.size(), end = lines.size();
    std::wstring name;
    for (std::size_t i = 0; i < lines.size() && end == lines.size(); ++i)
        if (SectionOf(lines[i], name))
        {
            if (begin < lines.size())
                end = i;
            else if (SameName(name, section))
                begin = i;
        }
    const auto at = [&lines](std::size_t i) { return lines.begin() + static_cast<std::ptrdiff_t>(i); };
    if (key == nullptr)
    {
        if (begin < lines.size())
            lines.erase(at(begin), at(end));
        return;
    }
    for (std::size_t i = begin + 1; i < end; ++i)
        if (KeyOf(lines[i], name) && SameName(name, key))
        {
            if (value == nullptr)
                lines.erase(at(i));
            else
                lines[i] = name + L"=" + value;
            return;
        }
    if (value == nullptr)
        return;
    if (begin == lines.size())
    {
        lines.push_back(L"[" + section + L"]");
        lines.push_back(std::wstring(key) + L"=" + value);
        return;
    }
    while (end > begin + 1 && Trim(lines[end - 1]).empty())
        --end; // before the blank lines that separate sections
    lines.insert(at(end), std::wstring(key) + L"=" + value);
}

} // namespace

std::vector<unsigned char> CVeLIniText::Change(const unsigned char* bytes, std::size_t size,
                                               const std::wstring& section, const wchar_t* key,
                                               const wchar_t* value)
{
    Text text = Decode(bytes, size);
    Apply(text.lines, section, key, value);
    return Encode(text);
}
