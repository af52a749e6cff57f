// Parser of the ".reg" export format. A file is parsed into a copy of the tree and the copy replaces the
// tree only when the whole file was well-formed, so a bad file never leaves half of itself behind.
//
// Format: the header line "Windows Registry Editor Version 5.00"; then "[ROOT\path]" opens a key
// (created with its parents), "[-ROOT\path]" deletes a key and its sub-keys; within a key,
// "name"=data or @=data sets a value and "name"=- deletes it. data is "text" (REG_SZ, with \\ and \"
// escaped), dword:XXXXXXXX (REG_DWORD), hex:bytes (REG_BINARY) or hex(T):bytes (type T in hex; bytes are
// comma-separated pairs of hex digits, strings in UTF-16LE). A line ending in "\" continues on the next
// one. Blank lines and lines starting with ";" are ignored.
#include "w32p_registry_files.h"
#include "w32p_registry.h"

#include <cwctype>

namespace
{

struct LogicalLine
{
    std::wstring text;
    std::size_t number; // of its first physical line
};

std::wstring TrimBlanks(const std::wstring& text)
{
    const std::size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring::npos)
        return std::wstring();
    return text.substr(first, text.find_last_not_of(L" \t") - first + 1);
}

// Physical lines (CR, LF or CRLF), a wrapped hex list joined into one line.
std::vector<LogicalLine> JoinLines(const std::wstring& text)
{
    std::vector<LogicalLine> lines;
    std::size_t start = 0, number = 0;
    bool continued = false;
    while (start <= text.size())
    {
        std::size_t end = text.find_first_of(L"\r\n", start);
        if (end == std::wstring::npos)
            end = text.size();
        ++number;
        std::wstring piece =
            continued ? TrimBlanks(text.substr(start, end - start)) : text.substr(start, end - start);
        if (continued)
            lines.back().text += piece;
        else
            lines.push_back(LogicalLine{piece, number});
        std::wstring& current = lines.back().text;
        // Only hex lists are wrapped; a string value ends in its closing quote, never in a backslash.
        continued =
            !current.empty() && current.back() == L'\\' && current.find(L"=hex") != std::wstring::npos;
        if (continued)
            current.pop_back();
        if (end >= text.size())
            break;
        start = end + (text[end] == L'\r' && end + 1 < text.size() && text[end + 1] == L'\n' ? 2 : 1);
    }
    return lines;
}

void AppendWide(std::vector<BYTE>& data, const std::wstring& text)
{
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.c_str());
    data.insert(data.end(), bytes, bytes + (text.size() + 1) * sizeof(WCHAR));
}

// Reads "..." from text[at] (at is on the opening quote); \\ and \" are the only escapes.
bool ReadQuoted(const std::wstring& text, std::size_t& at, std::wstring& out)
{
    out.clear();
    for (++at; at < text.size(); ++at)
    {
        if (text[at] == L'"')
        {
            ++at;
            return true;
        }
        if (text[at] == L'\\' && at + 1 < text.size() && (text[at + 1] == L'\\' || text[at + 1] == L'"'))
            ++at;
        out.push_back(text[at]);
    }
    return false;
}

bool HexDigit(wchar_t c, unsigned& value)
{
    if (c >= L'0' && c <= L'9')
        value = static_cast<unsigned>(c - L'0');
    else if (c >= L'a' && c <= L'f')
        value = static_cast<unsigned>(c - L'a' + 10);
    else if (c >= L'A' && c <= L'F')
        value = static_cast<unsigned>(c - L'A' + 10);
    else
        return false;
    return true;
}

// "00,ff,1a" (blanks allowed around commas; empty allowed).
bool ParseHexBytes(const std::wstring& text, std::vector<BYTE>& bytes)
{
    std::size_t at = 0;
    const std::wstring list = TrimBlanks(text);
    while (at < list.size())
    {
        unsigned high, low;
        if (at + 1 >= list.size() || !HexDigit(list[at], high) || !HexDigit(list[at + 1], low))
            return false;
        bytes.push_back(static_cast<BYTE>(high << 4 | low));
        at = list.find_first_not_of(L" \t", at + 2);
        if (at == std::wstring::npos)
            break;
        if (list[at] != L',')
            return false;
        at = list.find_first_not_of(L" \t", at + 1);
        if (at == std::wstring::npos)
            return false; // a trailing comma
    }
    return true;
}

// UTF-16LE string bytes (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ in hex form) as WCHAR units of this platform.
std::vector<BYTE> WidenUtf16(const std::vector<BYTE>& utf16)
{
    std::wstring text;
    for (std::size_t at = 0; at + 1 < utf16.size(); at += 2)
    {
        unsigned unit = utf16[at] | static_cast<unsigned>(utf16[at + 1]) << 8;
        if (unit >= 0xD800 && unit < 0xDC00 && at + 3 < utf16.size())
        {
            const unsigned low = utf16[at + 2] | static_cast<unsigned>(utf16[at + 3]) << 8;
            if (low >= 0xDC00 && low < 0xE000)
            {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                at += 2;
            }
        }
        text.push_back(static_cast<wchar_t>(unit));
    }
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.data());
    return std::vector<BYTE>(bytes, bytes + text.size() * sizeof(WCHAR));
}

bool ParseHexData(const std::wstring& data, W32pRegValue& value)
{
    std::size_t colon = data.find(L':');
    value.type = REG_BINARY;
    if (data.compare(0, 4, L"hex(") == 0)
    {
        const std::size_t close = data.find(L')');
        if (close == std::wstring::npos || close + 1 != colon || close == 4)
            return false;
        value.type = 0;
        for (std::size_t at = 4; at < close; ++at)
        {
            unsigned digit;
            if (!HexDigit(data[at], digit) || at - 4 >= 8)
                return false;
            value.type = value.type << 4 | digit;
        }
    }
    else if (colon != 3)
        return false;
    if (!ParseHexBytes(data.substr(colon + 1), value.data))
        return false;
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ)
        value.data = WidenUtf16(value.data);
    return true;
}

// The data after "=": a string, a dword or hex bytes.
bool ParseData(const std::wstring& data, W32pRegValue& value)
{
    if (!data.empty() && data[0] == L'"')
    {
        std::size_t at = 0;
        std::wstring text;
        if (!ReadQuoted(data, at, text) || !TrimBlanks(data.substr(at)).empty())
            return false;
        value.type = REG_SZ;
        AppendWide(value.data, text);
        return true;
    }
    if (data.compare(0, 6, L"dword:") == 0)
    {
        const std::wstring digits = data.substr(6);
        DWORD number = 0;
        unsigned digit;
        if (digits.empty() || digits.size() > 8)
            return false;
        for (wchar_t c : digits)
        {
            if (!HexDigit(c, digit))
                return false;
            number = number << 4 | digit;
        }
        value.type = REG_DWORD;
        const BYTE* bytes = reinterpret_cast<const BYTE*>(&number);
        value.data.assign(bytes, bytes + sizeof number);
        return true;
    }
    return data.compare(0, 3, L"hex") == 0 && ParseHexData(data, value);
}

W32pRegKey* FindChild(W32pRegKey& key, const std::wstring& name, bool create)
{
    auto found = key.children.find(W32pRegFold(name));
    if (found != key.children.end())
        return found->second.get();
    if (!create)
        return nullptr;
    std::unique_ptr<W32pRegKey> child(new W32pRegKey);
    child->name = name;
    W32pRegKey* raw = child.get();
    key.children[W32pRegFold(name)] = std::move(child);
    return raw;
}

std::wstring RootName(const std::wstring& written)
{
    static const std::map<std::wstring, std::wstring> abbreviations = {{L"hklm", L"hkey_local_machine"},
                                                                       {L"hkcu", L"hkey_current_user"},
                                                                       {L"hkcr", L"hkey_classes_root"},
                                                                       {L"hku", L"hkey_users"},
                                                                       {L"hkcc", L"hkey_current_config"}};
    const std::wstring folded = W32pRegFold(written);
    auto found = abbreviations.find(folded);
    if (found != abbreviations.end())
        return found->second;
    for (const auto& known : abbreviations)
        if (known.second == folded)
            return folded;
    return std::wstring();
}

// "[ROOT\a\b]" or "[-ROOT\a\b]": the key to add values to (null after a deletion); false when malformed.
bool ApplyKeyLine(const std::wstring& line, W32pRegTree& tree, W32pRegKey*& current)
{
    if (line.back() != L']')
        return false;
    const bool remove = line.size() > 1 && line[1] == L'-';
    const std::wstring path = line.substr(remove ? 2 : 1, line.size() - (remove ? 3 : 2));
    std::vector<std::wstring> parts;
    for (std::size_t start = 0;;)
    {
        const std::size_t end = path.find(L'\\', start);
        const std::wstring part = path.substr(start, end == std::wstring::npos ? end : end - start);
        if (part.empty())
            return false;
        parts.push_back(part);
        if (end == std::wstring::npos)
            break;
        start = end + 1;
    }
    const std::wstring root = RootName(parts[0]);
    if (root.empty())
        return false;
    W32pRegKey* key = &tree.roots[root];
    for (std::size_t i = 1; i < parts.size() && key != nullptr; ++i)
    {
        if (remove && i + 1 == parts.size())
            key->children.erase(W32pRegFold(parts[i]));
        else
            key = FindChild(*key, parts[i], !remove);
    }
    current = remove ? nullptr : key;
    return !(remove && parts.size() == 1); // a root can't be deleted
}

// "name"=data, @=data or "name"=- within the current key.
bool ApplyValueLine(const std::wstring& line, W32pRegKey* current)
{
    W32pRegValue value;
    std::size_t at = 0;
    if (line[0] == L'@')
        at = 1;
    else if (!ReadQuoted(line, at, value.name))
        return false;
    at = line.find_first_not_of(L" \t", at);
    if (current == nullptr || at == std::wstring::npos || line[at] != L'=')
        return false;
    const std::wstring data = TrimBlanks(line.substr(at + 1));
    std::vector<W32pRegValue>& values = current->values;
    auto same = values.begin();
    while (same != values.end() && W32pRegFold(same->name) != W32pRegFold(value.name))
        ++same;
    if (data == L"-")
    {
        if (same != values.end())
            values.erase(same);
        return true;
    }
    if (!ParseData(data, value))
        return false;
    if (same != values.end())
        *same = value;
    else
        values.push_back(value);
    return true;
}

void CopyKey(const W32pRegKey& from, W32pRegKey& to)
{
    to.name = from.name;
    to.values = from.values;
    for (const auto& child : from.children)
    {
        std::unique_ptr<W32pRegKey> copy(new W32pRegKey);
        CopyKey(*child.second, *copy);
        to.children[child.first] = std::move(copy);
    }
}

} // namespace

std::wstring W32pRegFold(const std::wstring& name)
{
    std::wstring folded(name);
    for (wchar_t& c : folded)
        c = static_cast<wchar_t>(std::towlower(c));
    return folded;
}

bool W32pApplyRegText(const std::wstring& text, W32pRegTree& tree, std::size_t& badLine, std::string& reason)
{
    const std::vector<LogicalLine> lines = JoinLines(text);
    if (lines.empty() || TrimBlanks(lines[0].text) != L"Windows Registry Editor Version 5.00")
    {
        badLine = 1;
        reason = "no \"Windows Registry Editor Version 5.00\" header";
        return false;
    }
    W32pRegTree work;
    for (const auto& root : tree.roots)
        CopyKey(root.second, work.roots[root.first]);
    W32pRegKey* current = nullptr;
    for (std::size_t i = 1; i < lines.size(); ++i)
    {
        const std::wstring line = TrimBlanks(lines[i].text);
        if (line.empty() || line[0] == L';')
            continue;
        const bool good = line[0] == L'[' ? ApplyKeyLine(line, work, current) : ApplyValueLine(line, current);
        if (!good)
        {
            badLine = lines[i].number;
            reason = line[0] == L'[' ? "malformed key" : "malformed value or a value outside a key";
            return false;
        }
    }
    tree.roots.swap(work.roots);
    return true;
}
