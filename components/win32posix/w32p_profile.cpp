// GetPrivateProfileStringW, GetPrivateProfileIntW and WritePrivateProfileStringW over plain files. The
// Linux differences are listed in w32p_profile.h.
#include "w32p_profile.h"
#include "w32p_folders.h"
#include "w32p_path.h"
#include "w32p_textfile.h"

#include <cerrno>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
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

// A parsed file with what it takes to write it back the same way.
struct Document
{
    std::vector<Line> lines;
    W32pTextEncoding encoding = W32pTextEncoding::Utf8;
    const char* ending = "\r\n"; // of the first line; CRLF for a new file
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

// Splits text at CR, LF and CRLF; records the ending of the first line.
void SplitLines(const std::wstring& text, Document& document)
{
    std::size_t start = 0;
    bool first = true;
    while (start < text.size())
    {
        std::size_t end = text.find_first_of(L"\r\n", start);
        if (end == std::wstring::npos)
            end = text.size();
        document.lines.push_back(Parse(text.substr(start, end - start)));
        std::size_t next = end;
        if (end < text.size())
            next = end + (text[end] == L'\r' && end + 1 < text.size() && text[end + 1] == L'\n' ? 2 : 1);
        if (first && end < text.size())
            document.ending = next - end == 2 ? "\r\n" : (text[end] == L'\r' ? "\r" : "\n");
        first = false;
        start = next;
    }
}

std::string Encode(const Document& document)
{
    std::wstring text;
    const std::wstring ending = W32pUtf8ToWide(document.ending);
    for (const Line& line : document.lines)
        text += line.text + ending;
    return W32pEncodeText(text, document.encoding);
}

// The Linux path of a profile file name: false for a null or empty name; a bare name lies in the
// settings folder that stands for the Windows folder.
bool ResolvePath(LPCWSTR fileName, std::string& path)
{
    if (!W32pPathToUtf8(fileName, path) || path.empty())
        return false;
    if (path.find('/') != std::string::npos)
        return true;
    PWSTR folder = nullptr;
    if (SHGetKnownFolderPath(FOLDERID_RoamingAppData, KF_FLAG_DEFAULT, nullptr, &folder) != S_OK)
        return false;
    std::string base;
    W32pPathToUtf8(folder, base);
    CoTaskMemFree(folder);
    path = base + "/" + path;
    return true;
}

// What identifies one state of a file for the read cache.
struct Stamp
{
    dev_t device;
    ino_t inode;
    off_t size;
    long long modifiedNs;
    bool operator==(const Stamp& o) const
    {
        return device == o.device && inode == o.inode && size == o.size && modifiedNs == o.modifiedNs;
    }
};

struct CacheEntry
{
    Stamp stamp;
    std::shared_ptr<const Document> document;
};

std::mutex g_cacheLock;                    // guards g_cache
std::map<std::string, CacheEntry> g_cache; // parsed files by Linux path
const std::size_t kCacheLimit = 16;        // paths kept; the whole cache is dropped beyond
const long long kSettledNs = 2000000000LL; // a file is cached once unchanged this long (2 s timestamps)

bool ReadBytes(const std::string& path, std::string& content)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    content.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// The parsed file, from the cache while the file is unchanged; null when it can't be read.
std::shared_ptr<const Document> Load(const std::string& path)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return nullptr;
    const Stamp stamp = {st.st_dev, st.st_ino, st.st_size,
                         static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec};
    {
        std::lock_guard<std::mutex> guard(g_cacheLock);
        auto found = g_cache.find(path);
        if (found != g_cache.end() && found->second.stamp == stamp)
            return found->second.document;
    }
    std::string content;
    if (!ReadBytes(path, content))
        return nullptr;
    auto document = std::make_shared<Document>();
    SplitLines(W32pDecodeText(content, document->encoding), *document);
    // A file changed within the last moments is not kept: a second change in the same tick of the file
    // system's clock (or to an inode number that was just freed and reused, with the same size) would leave
    // the stamp unchanged, and the cache would answer the old content.
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec - stamp.modifiedNs < kSettledNs)
        return document;
    std::lock_guard<std::mutex> guard(g_cacheLock);
    if (g_cache.size() >= kCacheLimit)
        g_cache.clear();
    g_cache[path] = CacheEntry{stamp, document};
    return document;
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

// The index of key's line within the section [begin, end), or lines.size().
std::size_t FindKey(const std::vector<Line>& lines, std::size_t begin, std::size_t end,
                    const std::wstring& key)
{
    for (std::size_t i = begin + 1; i < end && begin < lines.size(); ++i)
        if (lines[i].keyLine && SameName(lines[i].name, key))
            return i;
    return lines.size();
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

// The section names (section null) or the keys of section, in file order.
std::vector<std::wstring> ListNames(const Document* document, LPCWSTR section)
{
    std::vector<std::wstring> names;
    if (document == nullptr)
        return names;
    const std::vector<Line>& lines = document->lines;
    if (section == nullptr)
    {
        for (const Line& line : lines)
            if (line.section)
                names.push_back(line.name);
        return names;
    }
    std::size_t begin, end;
    FindSection(lines, section, begin, end);
    for (std::size_t i = begin + 1; i < end; ++i)
        if (lines[i].keyLine)
            names.push_back(lines[i].name);
    return names;
}

// Looks up a value; false when the file, section or key is missing.
bool Lookup(const std::string& path, const std::wstring& section, const std::wstring& key,
            std::wstring& value)
{
    const std::shared_ptr<const Document> document = Load(path);
    if (!document)
        return false;
    std::size_t begin, end;
    FindSection(document->lines, section, begin, end);
    const std::size_t found = FindKey(document->lines, begin, end, key);
    if (found == document->lines.size())
        return false;
    value = document->lines[found].value;
    return true;
}

// Sets, adds or deletes key in section (a null key deletes the section, a null value the key).
void ApplyChange(std::vector<Line>& lines, LPCWSTR section, LPCWSTR key, LPCWSTR value)
{
    std::size_t begin, end;
    FindSection(lines, section, begin, end);
    if (key == nullptr)
    {
        if (begin < lines.size())
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(begin),
                        lines.begin() + static_cast<std::ptrdiff_t>(end));
        return;
    }
    const std::size_t found = FindKey(lines, begin, end, key);
    if (value == nullptr)
    {
        if (found < lines.size())
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(found));
        return;
    }
    if (found < lines.size())
    {
        lines[found].text = lines[found].name + L"=" + value;
        return;
    }
    Line added;
    added.text = std::wstring(key) + L"=" + value;
    if (begin == lines.size())
    {
        Line header;
        header.text = L"[" + std::wstring(section) + L"]";
        lines.push_back(header);
        lines.push_back(added);
        return;
    }
    std::size_t at = end;
    while (at > begin + 1 && Trim(lines[at - 1].text).empty())
        --at; // before the blank lines that separate sections
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), added);
}

// Writes content to a new file beside path and renames it over path; mode (when not 0) is kept.
BOOL ReplaceFile(const std::string& path, const std::string& content, mode_t mode)
{
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
    if (mode != 0)
        chmod(temporary.c_str(), mode & 07777);
    if (rename(temporary.c_str(), path.c_str()) != 0)
    {
        W32pSetLastErrorFromErrno();
        std::remove(temporary.c_str());
        return FALSE;
    }
    return TRUE;
}

} // namespace

DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer, DWORD size,
                               LPCWSTR fileName)
{
    if (buffer == nullptr || size == 0)
        return 0;
    std::string path;
    const bool named = ResolvePath(fileName, path);
    if (section == nullptr || key == nullptr)
    {
        const std::shared_ptr<const Document> document = named ? Load(path) : nullptr;
        if (!document)
            SetLastError(ERROR_FILE_NOT_FOUND);
        return CopyList(ListNames(document.get(), section), buffer, size);
    }
    std::wstring value;
    if (named && Lookup(path, section, key, value))
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
    if (section == nullptr || key == nullptr || !ResolvePath(fileName, path) ||
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
    if (!ResolvePath(fileName, path))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (section == nullptr)
    {
        if (key == nullptr && value == nullptr)
            return TRUE; // the Windows "flush the cache" call; nothing is held back here
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
    Document document;
    if (exists)
    {
        const std::shared_ptr<const Document> current = Load(path);
        if (!current)
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE; // never replace a file that could not be read
        }
        document = *current;
    }
    ApplyChange(document.lines, section, key, value);
    return ReplaceFile(path, Encode(document), exists ? st.st_mode : 0);
}
