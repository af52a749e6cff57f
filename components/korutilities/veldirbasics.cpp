#include "veldirbasics.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velstringconverter.h"
#include "velwaithelper.h"
#include "velwin32.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

namespace
{

constexpr int kRemoveTries = 1000;
constexpr DWORD kRemovePauseMs = 50;

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

// Joins a directory and an entry name with the platform's preferred separator (both separators are
// accepted by the facade, but the preferred one keeps traced paths readable).
std::wstring Join(const std::wstring& directory, const wchar_t* name)
{
    std::wstring joined;
    joined.reserve(directory.size() + 1 + std::wcslen(name));
    joined = directory;
    if (!joined.empty() && joined.back() != L'/' && joined.back() != L'\\')
        joined += static_cast<wchar_t>(fs::path::preferred_separator);
    joined += name;
    return joined;
}

bool IsDotEntry(const wchar_t* name)
{
    return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

} // namespace

CVeLDirBasics::CVeLDirBasics()
    : m_api(std::make_shared<CVeLWinAPIWrapper>()), m_waitHelper(std::make_shared<CVeLWaitHelper>(false))
{
}

CVeLDirBasics::CVeLDirBasics(std::shared_ptr<IVeLWinAPIWrapper> api,
                             std::shared_ptr<IVeLWaitHelper> waitHelper)
    : m_api(std::move(api)), m_waitHelper(std::move(waitHelper))
{
}

CVeLDirBasics::~CVeLDirBasics() {}

bool CVeLDirBasics::Exists(const fs::path& path) const
{
    try
    {
        return fs::exists(path);
    }
    catch (const fs::filesystem_error& e)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::exists (%s) failed with exception: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), e.what());
    }
    return false;
}

bool CVeLDirBasics::CreateDirectory(const fs::path& path) const
{
    try
    {
        fs::create_directory(path);
        return true;
    }
    catch (const fs::filesystem_error& e)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::create_directory (%s) failed with exception: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), e.what());
    }
    return false;
}

CVeLResult<CVeLFilesystemError> CVeLDirBasics::RemoveDirectory(const fs::path& path) const
{
    return RemoveTree(path, true);
}

CVeLResult<CVeLFilesystemError> CVeLDirBasics::RemoveDirectoryContents(const fs::path& path) const
{
    return RemoveTree(path, false);
}

CVeLResult<CVeLFilesystemError> CVeLDirBasics::RemoveTree(const fs::path& path, bool removeTop) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(path));
    }
    CVeLFilesystemError firstError;
    if (DeleteTree(CVeLPathConverter::ToWide(path), removeTop, firstError))
        return CVeLResult<CVeLFilesystemError>(true, CVeLFilesystemError());
    return CVeLResult<CVeLFilesystemError>(false, firstError);
}

void CVeLDirBasics::FirstFailure::Record(const std::wstring& element, DWORD code)
{
    if (complete)
        error = CVeLFilesystemError(CVeLPathConverter::FromWide(element), static_cast<LONG>(code));
    complete = false;
}

void CVeLDirBasics::FirstFailure::Adopt(const CVeLFilesystemError& nested)
{
    if (complete)
        error = nested;
    complete = false;
}

bool CVeLDirBasics::DeleteTree(const std::wstring& path, bool removeTop,
                               CVeLFilesystemError& firstError) const
{
    FirstFailure failure{firstError};
    if (!m_api->WAPI_PathIsDirectory(path.c_str()))
    {
        VEL_TRACE(VEL_ERR, "%s is not a directory - can't proceed", Utf8(path).c_str());
        failure.Record(path, ERROR_DIRECTORY);
        return false;
    }
    // A folder's read-only attribute does not protect its entries, as on Windows: it is cleared while the
    // entries go and, for a folder that stays, set again afterwards.
    const DWORD ownAttributes = m_api->WAPI_GetFileAttributes(path.c_str());
    const bool readOnly =
        ownAttributes != INVALID_FILE_ATTRIBUTES && (ownAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (readOnly && !m_api->WAPI_SetFileAttributes(path.c_str(), FILE_ATTRIBUTE_NORMAL))
        VEL_TRACE(VEL_ERR, "Resetting file attributs for %s failed: %d", Utf8(path).c_str(),
                  m_api->WAPI_GetLastError());
    if (!DeleteEntries(path, failure))
        return false;
    if (!failure.complete || !removeTop)
    {
        if (readOnly && !removeTop)
            m_api->WAPI_SetFileAttributes(path.c_str(), ownAttributes);
        return failure.complete;
    }
    DWORD error = 0;
    if (!RemoveEmptiedDirectory(path, error))
    {
        failure.Record(path, error);
        return false;
    }
    return true;
}

bool CVeLDirBasics::DeleteEntries(const std::wstring& path, FirstFailure& failure) const
{
    WIN32_FIND_DATAW data;
    HANDLE search = m_api->WAPI_FindFirstFile(Join(path, L"*").c_str(), &data);
    if (search == INVALID_HANDLE_VALUE)
    {
        const DWORD error = m_api->WAPI_GetLastError();
        if (error == ERROR_FILE_NOT_FOUND)
            return true;
        VEL_TRACE(VEL_ERR, "Finding files or subdirectories failed: %d", error);
        failure.Record(path, error);
        return false;
    }
    do
    {
        if (!IsDotEntry(data.cFileName))
            DeleteEntry(Join(path, data.cFileName), data.dwFileAttributes, failure);
    } while (m_api->WAPI_FindNextFile(search, &data));
    m_api->WAPI_FindClose(search);
    return true;
}

void CVeLDirBasics::DeleteEntry(const std::wstring& entry, DWORD attributes, FirstFailure& failure) const
{
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT))
    {
        // Read again right before descending: a folder replaced by a link since the listing is removed as
        // a link, never entered.
        attributes = m_api->WAPI_GetFileAttributes(entry.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
        {
            const DWORD error = m_api->WAPI_GetLastError();
            VEL_TRACE(VEL_ERR, "Deleting of %s failed: %d", Utf8(entry).c_str(), error);
            failure.Record(entry, error);
            return;
        }
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT))
    {
        CVeLFilesystemError nested;
        if (!DeleteTree(entry, true, nested))
            failure.Adopt(nested);
    }
    else if (attributes & FILE_ATTRIBUTE_REPARSE_POINT)
        RemoveLink(entry, attributes, failure);
    else
    {
        if (!m_api->WAPI_SetFileAttributes(entry.c_str(), FILE_ATTRIBUTE_NORMAL))
            VEL_TRACE(VEL_ERR, "Resetting file attributs for %s failed: %d", Utf8(entry).c_str(),
                      m_api->WAPI_GetLastError());
        if (!m_api->WAPI_DeleteFile(entry.c_str()))
        {
            const DWORD error = m_api->WAPI_GetLastError();
            VEL_TRACE(VEL_ERR, "Deleting of %s failed: %d", Utf8(entry).c_str(), error);
            failure.Record(entry, error);
        }
    }
}

void CVeLDirBasics::RemoveLink(const std::wstring& entry, DWORD attributes, FirstFailure& failure) const
{
    // A link is removed as a link; its target is never touched, not even its attributes.
    const bool removed = (attributes & FILE_ATTRIBUTE_DIRECTORY) ? m_api->WAPI_RemoveDirectory(entry.c_str())
                                                                 : m_api->WAPI_DeleteFile(entry.c_str());
    if (removed)
        return;
    const DWORD error = m_api->WAPI_GetLastError();
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        VEL_TRACE(VEL_ERR, "Deleting of %s (Link) failed: %d", Utf8(entry).c_str(), error);
    else
        VEL_TRACE(VEL_ERR, "Deleting of %s failed: %d", Utf8(entry).c_str(), error);
    failure.Record(entry, error);
}

bool CVeLDirBasics::RemoveEmptiedDirectory(const std::wstring& path, DWORD& error) const
{
    error = 0;
    if (!m_api || !m_waitHelper)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        error = ERROR_INVALID_HANDLE;
        return false;
    }
    bool empty = false;
    for (int attempt = 1; attempt <= kRemoveTries; ++attempt)
    {
        if (m_api->WAPI_PathIsDirectoryEmpty(path.c_str()))
        {
            empty = true;
            break;
        }
        VEL_TRACE(VEL_WRN, "Can't remove directory when it isn't empty yet - have to wait (try %d of %d)",
                  attempt, kRemoveTries);
        m_waitHelper->WaitTime(kRemovePauseMs);
    }
    if (!empty)
    {
        VEL_TRACE(VEL_ERR, "Directory %s is not empty - can't remove", Utf8(path).c_str());
        error = ERROR_DIR_NOT_EMPTY;
        return false;
    }
    if (!m_api->WAPI_SetFileAttributes(path.c_str(), FILE_ATTRIBUTE_NORMAL))
    {
        error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "Resetting file attributs for %s failed: %d", Utf8(path).c_str(), error);
        return false;
    }
    if (!m_api->WAPI_RemoveDirectory(path.c_str()))
    {
        error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "Deleting of %s failed: %d", Utf8(path).c_str(), error);
        return false;
    }
    return true;
}

bool CVeLDirBasics::FollowsLinks() const
{
    return false;
}

bool CVeLDirBasics::WaitsForEmptyDirectory() const
{
    return true;
}

bool CVeLDirBasics::IsDirectory(const fs::path& path) const
{
    boost::system::error_code error;
    const bool result = fs::is_directory(path, error);
    if (error)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::is_directory (%s) failed with error code: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), error.message().c_str());
        return false;
    }
    return result;
}

bool CVeLDirBasics::IsRegularFile(const fs::path& path) const
{
    boost::system::error_code error;
    const bool result = fs::is_regular_file(path, error);
    if (error)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::is_regular_file (%s) failed with error code: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), error.message().c_str());
        return false;
    }
    return result;
}

bool CVeLDirBasics::IsOther(const fs::path& path) const
{
    boost::system::error_code error;
    const bool result = fs::is_other(path, error);
    if (error)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::is_other (%s) failed with error code: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), error.message().c_str());
        return false;
    }
    return result;
}

bool CVeLDirBasics::IsSymlink(const fs::path& path) const
{
    boost::system::error_code error;
    const bool result = fs::is_symlink(path, error);
    if (error)
    {
        VEL_TRACE(VEL_ERR, "boost::filesystem::is_symlink (%s) failed with error code: %s",
                  CVeLPathConverter::ToUtf8(path).c_str(), error.message().c_str());
        return false;
    }
    return result;
}

fs::directory_iterator CVeLDirBasics::CreateDirectoryIterator(const fs::path& path) const
{
    try
    {
        return fs::directory_iterator(path);
    }
    catch (...)
    {
        VEL_TRACE(VEL_ERR, "Exception occured - Can't create directory iterator for %s",
                  CVeLPathConverter::ToUtf8(path).c_str());
    }
    return fs::directory_iterator();
}
