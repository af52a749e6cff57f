// Environment variables of the calling process.
// The contract, and where Linux differs from Windows, are in w32p_environment.h.
#include "w32p_environment.h"
#include "w32p_string.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <cstdlib>
#include <cwchar>
#include <mutex>
#include <string>

extern char** environ;

namespace
{

std::mutex g_environmentLock; // serialises getenv/setenv/unsetenv made through this layer

bool ToUtf8(LPCWSTR text, std::string& out)
{
    out.clear();
    if (*text == L'\0')
        return true;
    int n = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return false;
    out.resize(static_cast<std::size_t>(n));
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], n, nullptr, nullptr);
    out.resize(static_cast<std::size_t>(n - 1));
    return true;
}

bool SameIgnoringCase(const char* entry, std::size_t length, const std::string& name)
{
    if (length != name.size())
        return false;
    for (std::size_t i = 0; i < length; ++i)
        if (std::tolower(static_cast<unsigned char>(entry[i])) !=
            std::tolower(static_cast<unsigned char>(name[i])))
            return false;
    return true;
}

// The name of a variable that equals name ignoring ASCII case but is spelt differently; empty when none.
std::string NameIgnoringCase(const std::string& name)
{
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
    {
        const char* equals = std::strchr(*entry, '=');
        const std::size_t length = equals ? static_cast<std::size_t>(equals - *entry) : 0;
        if (equals != nullptr && SameIgnoringCase(*entry, length, name) &&
            name.compare(0, length, *entry, length) != 0)
            return std::string(*entry, length);
    }
    return std::string();
}

// The value of a variable whose name equals name ignoring ASCII case; null when none.
const char* FindIgnoringCase(const std::string& name)
{
    const std::string other = NameIgnoringCase(name);
    return other.empty() ? nullptr : std::getenv(other.c_str());
}

} // namespace

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size)
{
    std::string narrowName;
    if (name == nullptr || *name == L'\0' || !ToUtf8(name, narrowName))
    {
        SetLastError(ERROR_ENVVAR_NOT_FOUND);
        return 0;
    }
    std::wstring value;
    {
        std::lock_guard<std::mutex> guard(g_environmentLock);
        const char* raw = std::getenv(narrowName.c_str());
        if (raw == nullptr)
            raw = FindIgnoringCase(narrowName);
        if (raw == nullptr)
        {
            SetLastError(ERROR_ENVVAR_NOT_FOUND);
            return 0;
        }
        if (*raw != '\0')
        {
            int n = MultiByteToWideChar(CP_UTF8, 0, raw, -1, nullptr, 0);
            value.resize(static_cast<std::size_t>(n));
            MultiByteToWideChar(CP_UTF8, 0, raw, -1, &value[0], n);
            value.resize(static_cast<std::size_t>(n - 1));
        }
    }
    // An empty value answers 0 with the last error unchanged, or 1 (room for the terminator) to a zero size.
    const DWORD needed = static_cast<DWORD>(value.size() + 1);
    if (buffer == nullptr || size < needed)
        return needed;
    std::wmemcpy(buffer, value.c_str(), value.size() + 1);
    return needed - 1;
}

BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
{
    std::string narrowName, narrowValue;
    if (name == nullptr || *name == L'\0' || std::wcschr(name, L'=') != nullptr ||
        !ToUtf8(name, narrowName) || (value != nullptr && !ToUtf8(value, narrowValue)))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(g_environmentLock);
    // One variable per name regardless of case: a variable spelt in another case keeps its spelling (on Linux
    // "PATH" must stay "PATH") and takes the value; a deletion removes every spelling.
    int rc = 0;
    if (value == nullptr)
        for (std::string other = NameIgnoringCase(narrowName); !other.empty() && rc == 0;
             other = NameIgnoringCase(narrowName))
            rc = unsetenv(other.c_str());
    else if (std::getenv(narrowName.c_str()) == nullptr && !NameIgnoringCase(narrowName).empty())
        narrowName = NameIgnoringCase(narrowName);
    if (rc == 0)
        rc = value == nullptr ? unsetenv(narrowName.c_str())
                              : setenv(narrowName.c_str(), narrowValue.c_str(), 1);
    if (rc != 0)
    {
        W32pSetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}

LPWCH GetEnvironmentStringsW()
{
    std::wstring block;
    {
        std::lock_guard<std::mutex> guard(g_environmentLock);
        for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
        {
            const int n = MultiByteToWideChar(CP_UTF8, 0, *entry, -1, nullptr, 0);
            if (n <= 1)
                continue;
            std::wstring wide(static_cast<std::size_t>(n), L'\0');
            MultiByteToWideChar(CP_UTF8, 0, *entry, -1, &wide[0], n);
            block.append(wide.c_str(), static_cast<std::size_t>(n)); // with its terminator
        }
    }
    block += L'\0';
    if (block.size() == 1)
        block += L'\0'; // an empty block is still two zeros
    auto* copy = static_cast<LPWCH>(std::malloc(block.size() * sizeof(WCHAR)));
    if (copy == nullptr)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    std::wmemcpy(copy, block.data(), block.size());
    return copy;
}

BOOL FreeEnvironmentStringsW(LPWCH block)
{
    std::free(block);
    return TRUE;
}

DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR buffer, DWORD size)
{
    if (source == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::wstring text = source;
    std::wstring expanded;
    std::size_t at = 0;
    while (at < text.size())
    {
        const std::size_t open = text.find(L'%', at);
        const std::size_t close = open == std::wstring::npos ? open : text.find(L'%', open + 1);
        if (close == std::wstring::npos)
            break;
        expanded += text.substr(at, open - at);
        const std::wstring name = text.substr(open + 1, close - open - 1);
        DWORD needed = name.empty() ? 0 : GetEnvironmentVariableW(name.c_str(), nullptr, 0);
        std::wstring value(needed, L'\0');
        if (needed > 0 && GetEnvironmentVariableW(name.c_str(), &value[0], needed) + 1 == needed)
        {
            value.resize(needed - 1);
            expanded += value;
            at = close + 1;
        }
        else
        {
            expanded +=
                text.substr(open, close - open); // not set: the "%NAME" stays, the "%" may open another
            at = close;
        }
    }
    expanded += text.substr(std::min(at, text.size()));
    const DWORD needed = static_cast<DWORD>(expanded.size() + 1);
    if (buffer != nullptr && size >= needed)
        std::wmemcpy(buffer, expanded.c_str(), needed);
    return needed;
}
