// The lossless mapping between Linux byte names and Windows names, and path conversion.
// The contract, and where Linux differs from Windows, are in w32p_path.h.
#include "w32p_path.h"
#include "w32p_namemap.h"
#include "w32p_string.h"

#include <cerrno>
#include <cstdint>
#include <cwchar>
#include <sys/stat.h>

std::wstring W32pNativeToWide(const char* text, std::size_t length)
{
    return w32p_namemap::NativeToWide(text, length);
}

std::string W32pWideToNative(const wchar_t* text, std::size_t length)
{
    return w32p_namemap::WideToNative(text, length);
}

bool W32pPathToUtf8(LPCWSTR path, std::string& utf8)
{
    utf8.clear();
    if (path == nullptr)
        return false;
    utf8 = W32pWideToNative(path, std::wcslen(path));
    return true;
}

std::string W32pWideToUtf8(const std::wstring& text)
{
    std::string out;
    if (text.empty())
        return out;
    const int length = static_cast<int>(text.size());
    int n = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return out;
    out.resize(static_cast<std::size_t>(n));
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, &out[0], n, nullptr, nullptr);
    return out;
}

std::wstring W32pUtf8ToWide(const std::string& text)
{
    std::wstring out;
    if (text.empty())
        return out;
    const int length = static_cast<int>(text.size());
    int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    if (n <= 0)
        return out;
    out.resize(static_cast<std::size_t>(n));
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, &out[0], n);
    return out;
}

DWORD W32pPathErrorFromErrno(const std::string& utf8Path, int error)
{
    if (error != ENOENT)
        return W32pErrorFromErrno(error);
    std::string parent = utf8Path;
    while (!parent.empty() && parent.back() == '/')
        parent.pop_back();
    const std::size_t slash = parent.rfind('/');
    if (slash == std::string::npos)
        return ERROR_FILE_NOT_FOUND; // the current directory exists
    parent.resize(slash == 0 ? 1 : slash);
    struct stat st;
    if (stat(parent.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return ERROR_PATH_NOT_FOUND;
    return ERROR_FILE_NOT_FOUND;
}

DWORD W32pCopyToBuffer(const std::wstring& text, LPWSTR buffer, DWORD size)
{
    if (buffer == nullptr || text.size() + 1 > size)
        return 0;
    std::wmemcpy(buffer, text.c_str(), text.size() + 1);
    return static_cast<DWORD>(text.size());
}
