// The registry functions over the tree read from ".reg" files (w32p_registry_files.*). The rules and the
// Linux differences are in w32p_registry.h.
//
// How a read works: RegOpenKeyExW takes the current tree (reading the files again when their list, sizes
// or times changed since the last read) and hands out a key handle that holds that tree and one key in it,
// so every later call on the handle sees one consistent state. Predefined roots used directly resolve to
// the current tree on each call.
#include "w32p_registry.h"
#include "w32p_warning.h"
#include "w32p_folders.h"
#include "w32p_path.h"
#include "w32p_registry_files.h"
#include "w32p_textfile.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <mutex>
#include <sys/stat.h>

namespace
{

// One ".reg" file as last seen.
struct FileStamp
{
    std::string path;
    off_t size;
    long long modifiedNs;
    bool operator==(const FileStamp& o) const
    {
        return path == o.path && size == o.size && modifiedNs == o.modifiedNs;
    }
};

// An open key: the tree it was opened in and the key itself.
struct OpenKey
{
    std::shared_ptr<const W32pRegTree> tree;
    const W32pRegKey* key;
};

std::mutex g_lock;                         // guards every variable below
std::vector<FileStamp> g_stamps;           // the files g_tree was read from
std::shared_ptr<const W32pRegTree> g_tree; // the current state; null until first read
std::map<ULONG_PTR, OpenKey> g_open;       // open key handles
ULONG_PTR g_nextHandle = 0x1000;           // steps of 4, as kernel handles do

std::vector<std::string> Folders()
{
    const char* single = std::getenv("W32P_REGISTRY");
    if (single != nullptr && *single != '\0')
        return {single};
    std::vector<std::string> folders = {"/etc/win32posix/registry"};
    PWSTR config = nullptr;
    if (SHGetKnownFolderPath(FOLDERID_RoamingAppData, KF_FLAG_DEFAULT, nullptr, &config) == S_OK)
    {
        std::string base;
        W32pPathToUtf8(config, base);
        folders.push_back(base + "/win32posix/registry");
    }
    CoTaskMemFree(config);
    return folders;
}

// The "*.reg" files of every folder: folder by folder, names in byte order.
std::vector<FileStamp> ListFiles()
{
    std::vector<FileStamp> files;
    for (const std::string& folder : Folders())
    {
        std::vector<std::string> names;
        if (DIR* dir = opendir(folder.c_str()))
        {
            while (dirent* entry = readdir(dir))
            {
                const std::string name = entry->d_name;
                if (name.size() > 4 && name.compare(name.size() - 4, 4, ".reg") == 0)
                    names.push_back(name);
            }
            closedir(dir);
        }
        std::sort(names.begin(), names.end());
        for (const std::string& name : names)
        {
            struct stat st;
            const std::string path = folder + "/" + name;
            if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode))
                files.push_back(
                    FileStamp{path, st.st_size,
                              static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec});
        }
    }
    return files;
}

void ReadFileInto(const std::string& path, W32pRegTree& tree)
{
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    W32pTextEncoding encoding;
    std::size_t line = 0;
    std::string reason;
    if (!in.bad() && W32pApplyRegText(W32pDecodeText(bytes, encoding), tree, line, reason))
        return;
    if (in.bad())
        reason = "can't be read";
    W32pWarn("registry: %s line %zu: %s; file skipped", path.c_str(), line, reason.c_str());
}

// The current tree; caller holds g_lock.
std::shared_ptr<const W32pRegTree> CurrentTreeLocked()
{
    std::vector<FileStamp> files = ListFiles();
    if (g_tree && files == g_stamps)
        return g_tree;
    auto tree = std::make_shared<W32pRegTree>();
    for (const FileStamp& file : files)
        ReadFileInto(file.path, *tree);
    g_stamps.swap(files);
    g_tree = tree;
    return g_tree;
}

const wchar_t* PredefinedRoot(HKEY key)
{
    switch (reinterpret_cast<ULONG_PTR>(key))
    {
    case static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000)):
        return L"hkey_classes_root";
    case static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001)):
        return L"hkey_current_user";
    case static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002)):
        return L"hkey_local_machine";
    case static_cast<ULONG_PTR>(static_cast<LONG>(0x80000003)):
        return L"hkey_users";
    case static_cast<ULONG_PTR>(static_cast<LONG>(0x80000005)):
        return L"hkey_current_config";
    default:
        return nullptr;
    }
}

// The key a handle stands for; false for an unknown handle. A root missing from every file is empty.
bool Resolve(HKEY key, OpenKey& open)
{
    static const W32pRegKey empty;
    std::lock_guard<std::mutex> guard(g_lock);
    if (const wchar_t* root = PredefinedRoot(key))
    {
        open.tree = CurrentTreeLocked();
        auto found = open.tree->roots.find(root);
        open.key = found == open.tree->roots.end() ? &empty : &found->second;
        return true;
    }
    auto found = g_open.find(reinterpret_cast<ULONG_PTR>(key));
    if (found == g_open.end())
        return false;
    open = found->second;
    return true;
}

const W32pRegValue* FindValue(const W32pRegKey& key, LPCWSTR name)
{
    const std::wstring wanted = W32pRegFold(name ? name : L"");
    for (const W32pRegValue& value : key.values)
        if (W32pRegFold(value.name) == wanted)
            return &value;
    return nullptr;
}

// The Win32 data-buffer rule: the size always; the bytes when they fit, else ERROR_MORE_DATA.
LONG CopyData(const W32pRegValue& value, LPDWORD type, LPBYTE data, LPDWORD dataSize)
{
    if (data != nullptr && dataSize == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (type != nullptr)
        *type = value.type;
    if (dataSize == nullptr)
        return ERROR_SUCCESS;
    const DWORD needed = static_cast<DWORD>(value.data.size());
    const DWORD room = *dataSize;
    *dataSize = needed;
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (room < needed)
        return ERROR_MORE_DATA;
    if (needed != 0)
        std::memcpy(data, value.data.data(), needed);
    return ERROR_SUCCESS;
}

// Copies name with its terminator into a buffer of room characters; ERROR_MORE_DATA when it doesn't fit.
LONG CopyName(const std::wstring& name, LPWSTR buffer, DWORD room)
{
    if (buffer == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (name.size() + 1 > room)
        return ERROR_MORE_DATA;
    std::wmemcpy(buffer, name.c_str(), name.size() + 1);
    return ERROR_SUCCESS;
}

} // namespace

LONG RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD, REGSAM desired, PHKEY result)
{
    if (result == nullptr)
        return ERROR_INVALID_PARAMETER;
    OpenKey open;
    if (!Resolve(key, open))
        return ERROR_INVALID_HANDLE;
    if (desired & (KEY_SET_VALUE | KEY_CREATE_SUB_KEY))
        return ERROR_ACCESS_DENIED; // read-only through these functions
    const std::wstring path = subKey ? subKey : L"";
    for (std::size_t start = 0; start < path.size() && open.key != nullptr;)
    {
        std::size_t end = path.find(L'\\', start);
        if (end == std::wstring::npos)
            end = path.size();
        if (end > start)
        {
            auto child = open.key->children.find(W32pRegFold(path.substr(start, end - start)));
            open.key = child == open.key->children.end() ? nullptr : child->second.get();
        }
        start = end + 1;
    }
    if (open.key == nullptr)
        return ERROR_FILE_NOT_FOUND;
    std::lock_guard<std::mutex> guard(g_lock);
    const ULONG_PTR handle = g_nextHandle;
    g_nextHandle += 4;
    g_open[handle] = open;
    *result = reinterpret_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

LONG RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                      LPDWORD dataSize)
{
    OpenKey open;
    if (reserved != nullptr)
        return ERROR_INVALID_PARAMETER;
    if (!Resolve(key, open))
        return ERROR_INVALID_HANDLE;
    const W32pRegValue* value = FindValue(*open.key, valueName);
    return value ? CopyData(*value, type, data, dataSize) : static_cast<LONG>(ERROR_FILE_NOT_FOUND);
}

LONG RegQueryInfoKeyW(HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD, LPDWORD subKeys,
                      LPDWORD maxSubKeyLength, LPDWORD maxClassLength, LPDWORD values,
                      LPDWORD maxValueNameLength, LPDWORD maxValueLength, LPDWORD securityDescriptor,
                      PFILETIME lastWriteTime)
{
    OpenKey open;
    if (!Resolve(key, open))
        return ERROR_INVALID_HANDLE;
    DWORD longestKey = 0, longestName = 0, longestData = 0;
    for (const auto& child : open.key->children)
        longestKey = std::max(longestKey, static_cast<DWORD>(child.second->name.size()));
    for (const W32pRegValue& value : open.key->values)
    {
        longestName = std::max(longestName, static_cast<DWORD>(value.name.size()));
        longestData = std::max(longestData, static_cast<DWORD>(value.data.size()));
    }
    if (className != nullptr && classLength != nullptr && *classLength > 0)
        className[0] = L'\0';
    const DWORD answers[] = {0,
                             static_cast<DWORD>(open.key->children.size()),
                             longestKey,
                             0,
                             static_cast<DWORD>(open.key->values.size()),
                             longestName,
                             longestData,
                             0};
    LPDWORD targets[] = {classLength,        subKeys,        maxSubKeyLength,   maxClassLength, values,
                         maxValueNameLength, maxValueLength, securityDescriptor};
    for (std::size_t i = 0; i < sizeof answers / sizeof answers[0]; ++i)
        if (targets[i] != nullptr)
            *targets[i] = answers[i];
    if (lastWriteTime != nullptr)
        *lastWriteTime = FILETIME{0, 0}; // exports carry no times
    return ERROR_SUCCESS;
}

LONG RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD nameSize)
{
    OpenKey open;
    if (!Resolve(key, open))
        return ERROR_INVALID_HANDLE;
    if (index >= open.key->children.size())
        return ERROR_NO_MORE_ITEMS;
    auto child = open.key->children.begin();
    std::advance(child, index);
    return CopyName(child->second->name, name, nameSize);
}

LONG RegEnumValueW(HKEY key, DWORD index, LPWSTR valueName, LPDWORD valueNameSize, LPDWORD reserved,
                   LPDWORD type, LPBYTE data, LPDWORD dataSize)
{
    OpenKey open;
    if (valueNameSize == nullptr || reserved != nullptr)
        return ERROR_INVALID_PARAMETER;
    if (!Resolve(key, open))
        return ERROR_INVALID_HANDLE;
    if (index >= open.key->values.size())
        return ERROR_NO_MORE_ITEMS;
    const W32pRegValue& value = open.key->values[index];
    const LONG named = CopyName(value.name, valueName, *valueNameSize);
    if (named != ERROR_SUCCESS)
        return named;
    *valueNameSize = static_cast<DWORD>(value.name.size());
    return CopyData(value, type, data, dataSize);
}

LONG RegCloseKey(HKEY key)
{
    if (PredefinedRoot(key) != nullptr)
        return ERROR_SUCCESS;
    std::lock_guard<std::mutex> guard(g_lock);
    return g_open.erase(reinterpret_cast<ULONG_PTR>(key)) == 1 ? static_cast<LONG>(ERROR_SUCCESS)
                                                               : static_cast<LONG>(ERROR_INVALID_HANDLE);
}
