#include "veldirhelperimpl.h"
#include "korutilitesbtracedef.h"
#include "velfilehelperimpl.h"
#include "velpathconverter.h"
#include "velstringconverter.h"
#include "velwin32.h"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string_view>

namespace fs = boost::filesystem;

namespace
{

std::string Utf8(const fs::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

bool IsSeparator(wchar_t c)
{
    return c == L'/' || c == L'\\';
}

// A network path begins with two separators. Where the platform knows only "/" the backslash form is
// turned into slashes, so that the path library sees the server as the path's root name.
bool AsNetworkPath(const fs::path& path, fs::path& network)
{
    std::wstring text = CVeLPathConverter::ToWide(path);
    if (text.size() < 2 || !IsSeparator(text[0]) || !IsSeparator(text[1]))
        return false;
    if (fs::path::preferred_separator == '/')
        std::replace(text.begin(), text.end(), L'\\', L'/');
    network = CVeLPathConverter::FromWide(text);
    return true;
}

} // namespace

CVeLDirHelperImpl::CVeLDirHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                     std::shared_ptr<IVeLDirBasics> dirBasics,
                                     std::shared_ptr<IVeLFileBasics> fileBasics, fs::path path, bool flag)
    : m_api(std::move(api)), m_dirBasics(std::move(dirBasics)), m_fileBasics(std::move(fileBasics)),
      m_path(std::move(path)), m_flag(flag)
{
    if (!m_api)
        VEL_TRACE(VEL_ERR, "Can't access WinAPI");
    if (!m_dirBasics)
        VEL_TRACE(VEL_ERR, "Can't access DirBasics");
    if (!m_fileBasics)
        VEL_TRACE(VEL_ERR, "Can't access FileBasics");
}

CVeLDirHelperImpl::~CVeLDirHelperImpl() {}

bool CVeLDirHelperImpl::HasDirBasics() const
{
    if (m_dirBasics)
        return true;
    VEL_TRACE(VEL_ERR, "Can't access dir basics!");
    return false;
}

fs::path CVeLDirHelperImpl::GetPath()
{
    return m_path;
}

bool CVeLDirHelperImpl::Create(bool networkPath) const
{
    if (!HasDirBasics())
        return false;
    if (m_dirBasics->Exists(m_path))
    {
        if (m_dirBasics->IsDirectory(m_path))
        {
            VEL_TRACE(VEL_DBG1, "Directory %s already exists!", Utf8(m_path).c_str());
            return true;
        }
        VEL_TRACE(
            VEL_ERR,
            "A file system object '%s' already exists, but is not a directory - can't create or replace",
            Utf8(m_path).c_str());
        return false;
    }
    const bool created = networkPath ? CreateOnNetwork() : CreatePlain();
    if (created)
        VEL_TRACE(VEL_DBG1, "Directory %s created successful", Utf8(m_path).c_str());
    else
        VEL_TRACE(VEL_ERR, "Can't create directory %s", Utf8(m_path).c_str());
    return created;
}

bool CVeLDirHelperImpl::CreateLevels(const fs::path& start, const fs::path& rest) const
{
    fs::path level = start;
    for (const fs::path& element : rest)
    {
        if (element == "." || element.empty())
            continue;
        level /= element;
        if (m_dirBasics->Exists(level))
            continue;
        if (!m_dirBasics->CreateDirectory(level))
        {
            VEL_TRACE(VEL_ERR, "Can't create directory at %s!", Utf8(level).c_str());
            return false;
        }
    }
    return true;
}

bool CVeLDirHelperImpl::CreatePlain() const
{
    return CreateLevels(m_path.root_path(), m_path.relative_path());
}

bool CVeLDirHelperImpl::CreateOnNetwork() const
{
    fs::path network;
    if (!AsNetworkPath(m_path, network))
        return CreatePlain();
    const fs::path relative = network.relative_path();
    if (!network.has_root_name() || relative.empty())
    {
        VEL_TRACE(VEL_ERR, "Couldn't access network path %s!", Utf8(m_path).c_str());
        return false;
    }
    const fs::path share = *relative.begin();
    const fs::path shareRoot = network.root_path() / share;
    if (!m_dirBasics->Exists(shareRoot) || !m_dirBasics->IsDirectory(shareRoot))
    {
        VEL_TRACE(VEL_ERR, "Couldn't access network path %s!", Utf8(shareRoot).c_str());
        return false;
    }
    fs::path below;
    for (auto it = std::next(relative.begin()); it != relative.end(); ++it)
        below /= *it;
    return CreateLevels(shareRoot, below);
}

CVeLResult<CVeLFilesystemError> CVeLDirHelperImpl::Remove()
{
    if (!HasDirBasics())
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(m_path));
    if (!m_dirBasics->Exists(m_path) || !m_dirBasics->IsDirectory(m_path))
    {
        VEL_TRACE(VEL_ERR, "No directory element found at %s!", Utf8(m_path).c_str());
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(m_path, ERROR_PATH_NOT_FOUND));
    }
    if (m_dirBasics->IsSymlink(m_path))
    {
        VEL_TRACE(VEL_ERR, "Remove failed for %s!", Utf8(m_path).c_str());
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(true));
    }
    CVeLResult<CVeLFilesystemError> result = m_dirBasics->RemoveDirectory(m_path);
    if (!result.IsSuccess())
        VEL_TRACE(VEL_ERR, "Remove failed for %s!", Utf8(m_path).c_str());
    return result;
}

CVeLResult<CVeLFilesystemError> CVeLDirHelperImpl::RemoveSiblings()
{
    return RemoveContents();
}

CVeLResult<CVeLFilesystemError> CVeLDirHelperImpl::RemoveContents() const
{
    if (!HasDirBasics())
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(m_path));
    if (!m_dirBasics->Exists(m_path) || !m_dirBasics->IsDirectory(m_path))
    {
        VEL_TRACE(VEL_ERR, "Directory %s does not exists!", Utf8(m_path).c_str());
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(m_path, ERROR_PATH_NOT_FOUND));
    }
    if (m_dirBasics->IsSymlink(m_path))
    {
        VEL_TRACE(VEL_ERR, "RemoveSiblings failed for %s!", Utf8(m_path).c_str());
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(true));
    }
    CVeLResult<CVeLFilesystemError> result = m_dirBasics->RemoveDirectoryContents(m_path);
    if (!result.IsSuccess())
        VEL_TRACE(VEL_ERR, "RemoveSiblings failed for %s!", Utf8(m_path).c_str());
    return result;
}

bool CVeLDirHelperImpl::RemoveSiblingsAndCheck() const
{
    if (!RemoveContents().IsSuccess())
        return false;
    if (!HasSiblings())
        return true;
    VEL_TRACE(VEL_ERR, "Not all siblings removed");
    return false;
}

bool CVeLDirHelperImpl::RemoveFileSiblings(const std::wstring& mask, bool recursive) const
{
    std::vector<fs::path> files;
    if (!List(files, mask, recursive, false))
        return false;
    bool allDone = true;
    for (const fs::path& file : files)
    {
        if (!CVeLFileHelperImpl(m_api, m_fileBasics, file, m_flag).Remove())
        {
            VEL_TRACE(VEL_ERR, "ApplyElementTask failed!");
            allDone = false;
        }
    }
    if (allDone)
        VEL_TRACE(VEL_DBG1, "Delete at %s (mask=%s) successful done.", Utf8(m_path).c_str(),
                  CVeLStringConverter::ConvertStdWStringToStdString(mask).c_str());
    return allDone;
}

bool CVeLDirHelperImpl::Exists() const
{
    return HasDirBasics() && m_dirBasics->Exists(m_path);
}

bool CVeLDirHelperImpl::IsDirectory() const
{
    return HasDirBasics() && m_dirBasics->IsDirectory(m_path);
}

bool CVeLDirHelperImpl::HasSiblings() const
{
    return HasDirBasics() && m_dirBasics->CreateDirectoryIterator(m_path) != fs::directory_iterator();
}

bool CVeLDirHelperImpl::Copy(const fs::path& destination, const std::wstring& mask) const
{
    if (!HasDirBasics())
        return false;
    if (!m_dirBasics->Exists(m_path) || !m_dirBasics->IsDirectory(m_path))
    {
        VEL_TRACE(VEL_ERR, "Directory does not exist. Nothing to copy!");
        return false;
    }
    std::vector<fs::path> files;
    if (!List(files, mask, true, false))
    {
        VEL_TRACE(VEL_ERR, "error creating the TOC!");
        return false;
    }
    if (!CVeLDirHelperImpl(m_api, m_dirBasics, m_fileBasics, destination, m_flag).Create(false))
        return false;
    bool allDone = true;
    fs::path lastCreated = destination;
    for (const fs::path& file : files)
    {
        // Every listed path starts with the source path's text; the rest is repeated below destination.
        auto relative = file.native().substr(m_path.native().size());
        while (!relative.empty() &&
               (relative[0] == fs::path::separator || relative[0] == fs::path::preferred_separator))
            relative.erase(0, 1);
        const fs::path target = destination / fs::path(relative);
        const fs::path folder = target.parent_path();
        bool done = folder == lastCreated ||
                    CVeLDirHelperImpl(m_api, m_dirBasics, m_fileBasics, folder, m_flag).Create(false);
        if (done)
        {
            lastCreated = folder;
            done = CVeLFileHelperImpl(m_api, m_fileBasics, file, m_flag).Copy(target);
        }
        if (!done)
        {
            VEL_TRACE(VEL_ERR, "ApplyElementTask failed!");
            allDone = false;
        }
    }
    if (allDone)
        VEL_TRACE(VEL_DBG1, "Copy to %s successful done.", Utf8(destination).c_str());
    return allDone;
}

bool CVeLDirHelperImpl::Copy(const fs::path& destination) const
{
    return Copy(destination, L".*");
}

bool CVeLDirHelperImpl::GetTOC(std::vector<fs::path>& files) const
{
    return List(files, L".*", true, false);
}

bool CVeLDirHelperImpl::GetTOCByRegExp(std::vector<fs::path>& files, const std::wstring& regex,
                                       bool recursive)
{
    return List(files, regex, recursive, false);
}

bool CVeLDirHelperImpl::GetDirListByRegExp(std::vector<fs::path>& directories, const std::wstring& regex,
                                           bool recursive)
{
    return List(directories, regex, recursive, true);
}

namespace
{

// The pattern as a regular expression over wide names; false (traced) when it is not one.
bool CompilePattern(const std::wstring& pattern, std::wregex& regex)
{
    try
    {
        regex.assign(pattern);
        return true;
    }
    catch (const std::regex_error& e)
    {
        VEL_TRACE(VEL_ERR, "%s is not a valid regular expression: %s",
                  CVeLStringConverter::ConvertStdWStringToStdString(pattern).c_str(), e.what());
    }
    catch (...)
    {
        VEL_TRACE(VEL_ERR, "init regualr expression failed");
    }
    return false;
}

} // namespace

namespace
{

// The text of a path's last element, for paths of either path library.
template <typename Char>
std::basic_string_view<Char> LastElement(const std::basic_string<Char>& native)
{
    std::size_t start = native.size();
    while (start > 0 && native[start - 1] != static_cast<Char>('/') &&
           native[start - 1] != static_cast<Char>(fs::path::preferred_separator))
        --start;
    return std::basic_string_view<Char>(native).substr(start);
}

// The type of each entry of one folder as the directory read itself reports it. The path library's
// iterator in the Boost version we build with asks the file system for every entry's status (a lookup of
// the whole path per entry); the standard library's iterator keeps the type the read reported. Both reads
// of an unchanged folder give the same entries in the same order, so the two are walked in step. Where the
// names differ (the folder changed between the reads), the entry is a link or of another kind, or the read
// reported no type, the answer is "unknown" and the caller asks the entry's status as before.
class EntryTypes
{
public:
    explicit EntryTypes(const fs::path& folder) : m_it(std::filesystem::path(folder.native()), m_error) {}

    // The own type (links not followed) of entry, the next entry of the folder; fs::status_unknown when
    // the read did not report it.
    fs::file_type OwnType(const fs::path& entry)
    {
        if (m_error || m_it == std::filesystem::directory_iterator())
            return fs::status_unknown;
        if (LastElement(m_it->path().native()) != LastElement(entry.native()))
        {
            m_it = std::filesystem::directory_iterator(); // out of step: no more answers for this folder
            return fs::status_unknown;
        }
        std::error_code ignored;
        fs::file_type type = fs::status_unknown;
        if (!m_it->is_symlink(ignored))
        {
            if (m_it->is_directory(ignored))
                type = fs::directory_file;
            else if (m_it->is_regular_file(ignored))
                type = fs::regular_file;
        }
        m_it.increment(m_error);
        return type;
    }

private:
    std::error_code m_error;
    std::filesystem::directory_iterator m_it;
};

// Whether a name matches the listing's pattern. The pattern ".*", which every whole-tree listing and copy
// uses, matches exactly the names without a line terminator ("." stops at "\n", "\r", U+2028 and U+2029
// in the default grammar); those names are decided here, as the matcher costs more than the rest of an
// entry. Every other name and pattern goes through the matcher.
bool NameMatches(const std::wstring& name, const std::wregex& regex, bool anyName)
{
    if (anyName && name.find_first_of(L"\n\r\u2028\u2029") == std::wstring::npos)
        return true;
    return std::regex_match(name, regex);
}

} // namespace

bool CVeLDirHelperImpl::List(std::vector<fs::path>& found, const std::wstring& pattern, bool recursive,
                             bool directories) const
{
    found.clear();
    if (!HasDirBasics())
        return false;
    ListRequest request;
    if (!CompilePattern(pattern, request.regex))
        return false;
    request.anyName = pattern == L".*";
    request.recursive = recursive;
    request.directories = directories;
    if (!m_dirBasics->Exists(m_path) || !m_dirBasics->IsDirectory(m_path))
    {
        VEL_TRACE(VEL_ERR, "Can't Iterate over folder");
        return false;
    }
    std::vector<fs::path> pending{m_path};
    std::wstring name;
    while (!pending.empty())
    {
        const fs::path folder = std::move(pending.back());
        pending.pop_back();
        if (!ListFolder(folder, request, pending, found, name))
        {
            VEL_TRACE(VEL_ERR, "Can't Iterate over folder");
            return false;
        }
    }
    if (directories)
        VEL_TRACE(VEL_DBG1, "%d Folders found at %s", static_cast<int>(found.size()), Utf8(m_path).c_str());
    else
        VEL_TRACE(VEL_DBG1, "%d Files found at %s", static_cast<int>(found.size()), Utf8(m_path).c_str());
    return true;
}

bool CVeLDirHelperImpl::ListFolder(const fs::path& folder, const ListRequest& request,
                                   std::vector<fs::path>& pending, std::vector<fs::path>& found,
                                   std::wstring& name) const
{
    boost::system::error_code error;
    fs::directory_iterator it = m_dirBasics->CreateDirectoryIterator(folder);
    // The basics answer an end iterator also for a folder they could not open; only a folder that reads
    // empty is empty, or the listing would silently miss what lies below it.
    if (it == fs::directory_iterator() && !IsEmptyFolder(folder))
        return false;
    EntryTypes types(folder);
    for (fs::directory_iterator end; it != end; it.increment(error))
    {
        if (error)
            break;
        const fs::path& entry = it->path();
        // The type the directory read reported; a link (or an entry the read did not type) costs a look
        // at the entry itself and, for a file listing, at its target.
        fs::file_type ownType = types.OwnType(entry);
        const bool typed = ownType != fs::status_unknown;
        if (!typed)
            ownType = it->symlink_status(error).type();
        if (error)
            break;
        const bool isDirectory = ownType == fs::directory_file;
        if (isDirectory && request.recursive)
            pending.push_back(entry);
        bool candidate = isDirectory;
        if (!request.directories)
        {
            boost::system::error_code targetError; // a dangling link is simply no file
            candidate = !isDirectory && (typed ? ownType == fs::regular_file
                                               : it->status(targetError).type() == fs::regular_file);
        }
        if (!candidate)
            continue;
        CVeLPathConverter::LastElementToWide(entry, name);
        if (NameMatches(name, request.regex, request.anyName))
            found.push_back(entry);
    }
    return !error;
}

bool CVeLDirHelperImpl::IsEmptyFolder(const fs::path& folder) const
{
    return m_api && m_api->WAPI_PathIsDirectoryEmpty(CVeLPathConverter::ToWide(folder).c_str());
}

void CVeLDirHelperImpl::Reset(fs::path path, bool flag)
{
    m_path = std::move(path);
    m_flag = flag;
}

std::wstring CVeLDirHelperImpl::ToString()
{
    return CVeLPathConverter::ToWide(m_path);
}
