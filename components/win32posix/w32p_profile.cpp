// Profile (INI) file reading and writing.
// The contract, and where Linux differs from Windows, are in w32p_profile.h.
#include "w32p_profile.h"
#include "w32p_path.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <fstream>
#include <mutex>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

std::mutex g_writeLock; // serialises writers of this process

struct Line
{
    std::wstring text; // without the line ending
    bool section = false;
    std::wstring name;  // section name or key, trimmed
    std::wstring value; // for a key line: trimmed, quotes removed
    bool keyLine = false;
};

std::wstring Trim(const std::wstring& text)
{
    const std::size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring::npos)
        return std::wstring();
    const std::size_t last = text.find_last_not_of(L" \t");
    return text.substr(first, last - first + 1);
}

bool SameName(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::towlower(a[i]) != std::towlower(b[i]))
            return false;
    return true;
}

Line Parse(const std::wstring& raw)
{
    Line line;
    line.text = raw;
    const std::wstring trimmed = Trim(raw);
    if (trimmed.empty() || trimmed[0] == L';')
        return line;
    if (trimmed[0] == L'[')
    {
        const std::size_t close = trimmed.find(L']');
        line.section = true;
        line.name = Trim(trimmed.substr(1, close == std::wstring::npos ? std::wstring::npos : close - 1));
        return line;
    }
    const std::size_t equals = trimmed.find(L'=');
    if (equals == std::wstring::npos)
        return line;
    line.keyLine = true;
    line.name = Trim(trimmed.substr(0, equals));
    line.value = Trim(trimmed.substr(equals + 1));
    if (line.value.size() >= 2 && (line.value[0] == L'"' || line.value[0] == L'\'') &&
        line.value.back() == line.value[0])
        line.value = line.value.substr(1, line.value.size() - 2);
    return line;
}

// The file's lines; false (no lines) when it can't be read. crlf tells whether it uses "\r\n".
bool Load(const std::string& path, std::vector<Line>& lines, bool& crlf)
{
    lines.clear();
    crlf = false;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (content.compare(0, 3, "\xEF\xBB\xBF") == 0)
        content.erase(0, 3);
    std::size_t start = 0;
    while (start < content.size())
    {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos)
            end = content.size();
        std::string raw = content.substr(start, end - start);
        if (!raw.empty() && raw.back() == '\r')
        {
            raw.pop_back();
            crlf = true;
        }
        lines.push_back(Parse(W32pUtf8ToWide(raw)));
        start = end + 1;
    }
    return true;
}

// [begin, end) of the first section named name (begin is its header), or begin == lines.size().
void FindSection(const std::vector<Line>& lines, const std::wstring& name, std::size_t& begin,
                 std::size_t& end)
{
    begin = end = lines.size();
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        if (lines[i].section && SameName(lines[i].name, name))
        {
            begin = i;
            for (end = i + 1; end < lines.size() && !lines[end].section; ++end)
            {
            }
            return;
        }
    }
}

// Copies a list of names, each terminated, plus the final terminator. A list that does not fit is cut
// and ended with two terminators at the end of the buffer; the result is then size - 2.
DWORD CopyList(const std::vector<std::wstring>& names, LPWSTR buffer, DWORD size)
{
    if (size < 2)
    {
        buffer[0] = L'\0';
        return 0;
    }
    DWORD used = 0;
    for (const std::wstring& name : names)
    {
        if (used + name.size() + 2 > size)
        {
            const std::size_t room = size - 2 - used;
            name.copy(buffer + used, std::min(room, name.size()));
            buffer[size - 2] = L'\0';
            buffer[size - 1] = L'\0';
            return size - 2;
        }
        name.copy(buffer + used, name.size());
        used += static_cast<DWORD>(name.size());
        buffer[used++] = L'\0';
    }
    buffer[used] = L'\0';
    return used;
}

DWORD CopyValue(const std::wstring& value, LPWSTR buffer, DWORD size)
{
    const DWORD n = static_cast<DWORD>(std::min<std::size_t>(value.size(), size - 1));
    value.copy(buffer, n);
    buffer[n] = L'\0';
    return n;
}

// Looks up a value; false when the file, section or key is missing.
bool Lookup(const std::string& path, const std::wstring& section, const std::wstring& key,
            std::wstring& value)
{
    std::vector<Line> lines;
    bool crlf;
    if (!Load(path, lines, crlf))
        return false;
    std::size_t begin, end;
    FindSection(lines, section, begin, end);
    for (std::size_t i = begin + 1; i < end; ++i)
    {
        if (lines[i].keyLine && SameName(lines[i].name, key))
        {
            value = lines[i].value;
            return true;
        }
    }
    return false;
}

} // namespace

DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer, DWORD size,
                               LPCWSTR fileName)
{
    std::string path;
    if (buffer == nullptr || size == 0)
        return 0;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        buffer[0] = L'\0';
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    if (section == nullptr || key == nullptr)
    {
        std::vector<Line> lines;
        bool crlf;
        std::vector<std::wstring> names;
        if (!Load(path, lines, crlf))
            SetLastError(ERROR_FILE_NOT_FOUND);
        if (section == nullptr)
        {
            for (const Line& line : lines)
                if (line.section)
                    names.push_back(line.name);
        }
        else
        {
            std::size_t begin, end;
            FindSection(lines, section, begin, end);
            for (std::size_t i = begin + 1; i < end; ++i)
                if (lines[i].keyLine)
                    names.push_back(lines[i].name);
        }
        return CopyList(names, buffer, size);
    }
    std::wstring value;
    if (Lookup(path, section, key, value))
    {
        SetLastError(ERROR_SUCCESS);
        return CopyValue(value, buffer, size);
    }
    std::wstring fallback = defaultValue ? defaultValue : L"";
    fallback.erase(fallback.find_last_not_of(L" \t") + 1);
    SetLastError(ERROR_FILE_NOT_FOUND);
    return CopyValue(fallback, buffer, size);
}

UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT defaultValue, LPCWSTR fileName)
{
    std::string path;
    std::wstring value;
    if (section == nullptr || key == nullptr || !W32pPathToUtf8(fileName, path) ||
        !Lookup(path, section, key, value))
        return static_cast<UINT>(defaultValue);
    const std::string narrow = W32pWideToUtf8(value);
    const char* at = narrow.c_str();
    bool negative = false;
    if (*at == '-' || *at == '+')
        negative = *at++ == '-';
    int base = 10;
    if (at[0] == '0' && (at[1] == 'x' || at[1] == 'X'))
    {
        base = 16;
        at += 2;
    }
    const unsigned long long magnitude = std::strtoull(at, nullptr, base); // 0 when no digits follow
    const long long signedValue =
        negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude);
    return static_cast<UINT>(signedValue);
}

BOOL WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR fileName)
{
    std::string path;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (section == nullptr)
    {
        if (key == nullptr && value == nullptr)
            return TRUE; // the Windows "flush the cache" call; there is no cache
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(g_writeLock);
    struct stat st;
    const bool exists = stat(path.c_str(), &st) == 0;
    if (exists && (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0)
    {
        SetLastError(ERROR_ACCESS_DENIED); // read-only, also for root
        return FALSE;
    }
    std::vector<Line> lines;
    bool crlf = false;
    Load(path, lines, crlf);
    std::size_t begin, end;
    FindSection(lines, section, begin, end);
    if (key == nullptr)
    {
        if (begin < lines.size())
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(begin),
                        lines.begin() + static_cast<std::ptrdiff_t>(end));
    }
    else
    {
        std::size_t found = lines.size();
        for (std::size_t i = begin + 1; i < end && begin < lines.size(); ++i)
            if (lines[i].keyLine && SameName(lines[i].name, key))
            {
                found = i;
                break;
            }
        if (value == nullptr)
        {
            if (found < lines.size())
                lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(found));
        }
        else if (found < lines.size())
            lines[found].text = lines[found].name + L"=" + value;
        else
        {
            Line added;
            added.text = std::wstring(key) + L"=" + value;
            if (begin == lines.size())
            {
                Line header;
                header.text = L"[" + std::wstring(section) + L"]";
                lines.push_back(header);
                lines.push_back(added);
            }
            else
            {
                std::size_t at = end;
                while (at > begin + 1 && Trim(lines[at - 1].text).empty())
                    --at; // before the blank lines that separate sections
                lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), added);
            }
        }
    }
    std::string content;
    for (const Line& line : lines)
        content += W32pWideToUtf8(line.text) + (crlf ? "\r\n" : "\n");

    const std::string temporary = path + ".w32p-new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << content;
        if (!out.flush())
        {
            SetLastError(W32pPathErrorFromErrno(temporary, errno));
            std::remove(temporary.c_str());
            return FALSE;
        }
    }
    if (exists)
        chmod(temporary.c_str(), st.st_mode & 07777);
    if (rename(temporary.c_str(), path.c_str()) != 0)
    {
        W32pSetLastErrorFromErrno();
        std::remove(temporary.c_str());
        return FALSE;
    }
    return TRUE;
}
