// Well-known folders over the XDG base directories; the header lists where Linux differs from Windows.
#include "w32p_folders.h"
#include "w32p_path.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

const KNOWNFOLDERID FOLDERID_RoamingAppData = {
    0x3EB685DB, 0x65F9, 0x4CF6, {0xA0, 0x3A, 0xE3, 0xEF, 0x65, 0x72, 0x9F, 0x3D}};
const KNOWNFOLDERID FOLDERID_LocalAppData = {
    0xF1B32785, 0x6FBA, 0x4FCF, {0x9D, 0x55, 0x7B, 0x8E, 0x7F, 0x15, 0x70, 0x91}};
const KNOWNFOLDERID FOLDERID_ProgramData = {
    0x62AB5D82, 0xFDC1, 0x4DC3, {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};
const KNOWNFOLDERID FOLDERID_Documents = {
    0xFDD39AD0, 0x238F, 0x46AF, {0xAD, 0xB4, 0x6C, 0x85, 0x48, 0x03, 0x69, 0xC7}};

namespace
{

bool SameId(const GUID& a, const GUID& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// An absolute value of the environment variable, or empty.
std::string AbsoluteEnv(const char* name)
{
    const char* value = std::getenv(name);
    return value && value[0] == '/' ? std::string(value) : std::string();
}

std::string Home()
{
    std::string home = AbsoluteEnv("HOME");
    if (home.empty())
    {
        struct passwd entry;
        struct passwd* found = nullptr;
        char text[4096];
        if (getpwuid_r(getuid(), &entry, text, sizeof text, &found) == 0 && found && found->pw_dir)
            home = found->pw_dir;
    }
    return home;
}

std::string WithoutTrailingSeparators(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// XDG_DOCUMENTS_DIR from user-dirs.dirs: a line XDG_DOCUMENTS_DIR="$HOME/Documents" or an absolute path.
std::string DocumentsFolder(const std::string& home, const std::string& config)
{
    std::ifstream dirs(config + "/user-dirs.dirs");
    std::string line;
    const std::string key = "XDG_DOCUMENTS_DIR=\"";
    while (std::getline(dirs, line))
    {
        if (line.compare(0, key.size(), key) != 0 || line.back() != '"')
            continue;
        std::string value = line.substr(key.size(), line.size() - key.size() - 1);
        if (value.compare(0, 5, "$HOME") == 0)
            value = home + value.substr(5);
        if (!value.empty() && value[0] == '/')
            return value;
    }
    return home + "/Documents";
}

// The folder's path, or empty when it can't be told (unknown id, no home).
std::string FolderPath(REFKNOWNFOLDERID id, bool& perUser)
{
    perUser = true;
    if (SameId(id, FOLDERID_ProgramData))
    {
        perUser = false;
        const char* dirs = std::getenv("XDG_DATA_DIRS");
        const std::string list = dirs ? dirs : "";
        const std::string first = list.substr(0, list.find(':'));
        return first.empty() || first[0] != '/' ? std::string("/usr/local/share") : first;
    }
    const std::string home = Home();
    std::string config = AbsoluteEnv("XDG_CONFIG_HOME");
    if (config.empty() && !home.empty())
        config = home + "/.config";
    if (SameId(id, FOLDERID_RoamingAppData))
        return config;
    if (SameId(id, FOLDERID_LocalAppData))
    {
        const std::string data = AbsoluteEnv("XDG_DATA_HOME");
        return !data.empty() || home.empty() ? data : home + "/.local/share";
    }
    if (SameId(id, FOLDERID_Documents))
        return home.empty() ? std::string() : DocumentsFolder(home, config);
    return std::string();
}

bool CreateTree(const std::string& path)
{
    for (std::size_t at = path.find('/', 1);; at = path.find('/', at + 1))
    {
        const std::string part = path.substr(0, at);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
        if (at == std::string::npos)
            return true;
    }
}

} // namespace

DWORD GetModuleFileNameW(HMODULE module, LPWSTR fileName, DWORD size)
{
    if (module != nullptr)
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    char target[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", target, sizeof target - 1);
    if (n < 0)
    {
        W32pSetLastErrorFromErrno();
        return 0;
    }
    const std::wstring wide = W32pUtf8ToWide(std::string(target, static_cast<std::size_t>(n)));
    if (fileName == nullptr || size == 0)
    {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    if (wide.size() >= size)
    {
        wide.copy(fileName, size - 1);
        fileName[size - 1] = L'\0';
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    SetLastError(ERROR_SUCCESS);
    return W32pCopyToBuffer(wide, fileName, size);
}

DWORD GetTempPathW(DWORD size, LPWSTR buffer)
{
    std::string temp = WithoutTrailingSeparators(AbsoluteEnv("TMPDIR"));
    if (temp.empty())
        temp = "/tmp";
    if (temp.back() != '/')
        temp += '/';
    const std::wstring wide = W32pUtf8ToWide(temp);
    if (buffer == nullptr || wide.size() + 1 > size)
        return static_cast<DWORD>(wide.size() + 1);
    return W32pCopyToBuffer(wide, buffer, size);
}

HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID folderId, DWORD flags, HANDLE token, PWSTR* path)
{
    if (path == nullptr)
        return E_INVALIDARG;
    *path = nullptr;
    if (token != nullptr)
        return E_INVALIDARG;
    bool perUser = true;
    const std::string folder = WithoutTrailingSeparators(FolderPath(folderId, perUser));
    if (folder.empty())
        return SameId(folderId, FOLDERID_ProgramData) || SameId(folderId, FOLDERID_RoamingAppData) ||
                       SameId(folderId, FOLDERID_LocalAppData) || SameId(folderId, FOLDERID_Documents)
                   ? E_FAIL
                   : E_INVALIDARG;
    struct stat st;
    if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    {
        if (!(flags & KF_FLAG_CREATE) || !perUser || !CreateTree(folder))
            return E_FAIL;
    }
    const std::wstring wide = W32pUtf8ToWide(folder);
    PWSTR copy = static_cast<PWSTR>(std::malloc((wide.size() + 1) * sizeof(WCHAR)));
    if (copy == nullptr)
        return HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY);
    wide.copy(copy, wide.size());
    copy[wide.size()] = L'\0';
    *path = copy;
    return S_OK;
}
