#include "velfilehelperimpl.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velhandle.h"
#include "velpathconverter.h"
#include "velstringconverter.h"
#include "velwin32.h"

#include <boost/filesystem/operations.hpp>

#include <cstring>
#include <limits>
#include <new>
#include <vector>

namespace fs = boost::filesystem;

namespace
{

constexpr DWORD kCopyChunk = 0x10000;

std::string Utf8(const fs::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

bool IsPathWriteable(const fs::path& path, bool& statFailed)
{
    boost::system::error_code error;
    const fs::file_status status = fs::status(path, error);
    statFailed = error || status.type() == fs::status_error || status.type() == fs::file_not_found;
    return !statFailed && (status.permissions() & fs::owner_write) != 0;
}

// A symbolic link itself: its read-only reset would reach the target, which removing or replacing the
// link must leave as it is.
bool IsLink(const fs::path& path)
{
    boost::system::error_code error;
    return fs::symlink_status(path, error).type() == fs::symlink_file && !error;
}

} // namespace

CVeLFileHelperImpl::CVeLFileHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                       std::shared_ptr<IVeLFileBasics> fileBasics, fs::path path, bool flag)
    : m_api(std::move(api)), m_fileBasics(std::move(fileBasics)), m_path(std::move(path)), m_flag(flag)
{
}

CVeLFileHelperImpl::~CVeLFileHelperImpl() {}

bool CVeLFileHelperImpl::HasApi() const
{
    if (m_api)
        return true;
    VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
    return false;
}

bool CVeLFileHelperImpl::HasFileBasics() const
{
    if (m_fileBasics)
        return true;
    VEL_TRACE(VEL_ERR, "Can't access file basics!");
    return false;
}

bool CVeLFileHelperImpl::SourceExists() const
{
    if (!HasFileBasics())
        return false;
    if (m_fileBasics->Exists(m_path))
        return true;
    VEL_TRACE(VEL_WRN, "Source file (%s) doesn't exist!", Utf8(m_path).c_str());
    return false;
}

fs::path CVeLFileHelperImpl::GetPath()
{
    return m_path;
}

fs::path CVeLFileHelperImpl::GetDirPath()
{
    return m_path.parent_path();
}

bool CVeLFileHelperImpl::QuerySize(unsigned long long& size) const
{
    size = 0;
    boost::system::error_code error;
    const boost::uintmax_t value = m_path.empty() ? 0 : fs::file_size(m_path, error);
    if (m_path.empty() || error)
    {
        VEL_TRACE(VEL_ERR, "Invalid file path= %s!", Utf8(m_path).c_str());
        return false;
    }
    size = static_cast<unsigned long long>(value);
    return true;
}

ULONG CVeLFileHelperImpl::GetSize() const
{
    unsigned long long size = 0;
    QuerySize(size);
    return static_cast<ULONG>(size);
}

bool CVeLFileHelperImpl::Exists() const
{
    return HasFileBasics() && m_fileBasics->Exists(m_path);
}

HANDLE CVeLFileHelperImpl::OpenFile(const fs::path& path, DWORD access, DWORD disposition) const
{
    return m_api->WAPI_CreateFile(CVeLPathConverter::ToWide(path).c_str(), access, 0, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool CVeLFileHelperImpl::Copy(fs::path destination) const
{
    if (!HasApi() || !SourceExists())
        return false;
    {
        CVeLHANDLE in(m_api, OpenFile(m_path, GENERIC_READ, OPEN_EXISTING));
        VEL_RETURN_IF_FAILED(m_api, in.IsValid(), false, VEL_ERR, "Cannot open file %s (err = %ld)",
                             Utf8(m_path).c_str());
        ResetReadOnlyIfNeeded(destination);
        CVeLHANDLE out(m_api, OpenFile(destination, GENERIC_WRITE, CREATE_ALWAYS));
        VEL_RETURN_IF_FAILED(m_api, out.IsValid(), false, VEL_ERR, "Cannot open file %s (err = %ld)",
                             Utf8(destination).c_str());
        // One buffer for the whole file, left uninitialised: every byte written was read first.
        const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kCopyChunk]);
        for (;;)
        {
            DWORD read = 0;
            if (!m_api->WAPI_ReadFile(in.GetHandle(), buffer.get(), kCopyChunk, &read, nullptr))
            {
                VEL_TRACE(VEL_ERR, "Read failed (hr = 0x%08X)!", m_api->WAPI_GetLastError());
                break;
            }
            if (read == 0)
                break;
            DWORD written = 0;
            if (!m_api->WAPI_WriteFile(out.GetHandle(), buffer.get(), read, &written, nullptr) ||
                written < read)
            {
                VEL_TRACE(VEL_ERR, "Write failed (hr = 0x%08X)!", m_api->WAPI_GetLastError());
                break;
            }
        }
    }
    // Failures of the loop above show up here as a size difference.
    unsigned long long sourceSize = 0, targetSize = 0;
    QuerySize(sourceSize);
    CVeLFileHelperImpl(m_api, m_fileBasics, destination, m_flag).QuerySize(targetSize);
    if (sourceSize != targetSize)
    {
        VEL_TRACE(VEL_ERR, "Invalid file size after copy! (src= %ld bytes, dest= %ld bytes)", sourceSize,
                  targetSize);
        return false;
    }
    VEL_TRACE(VEL_DBG1, "File %s copied successful to %s", Utf8(m_path).c_str(), Utf8(destination).c_str());
    return true;
}

bool CVeLFileHelperImpl::Rename(fs::path newPath)
{
    if (!SourceExists())
        return false;
    if (!m_fileBasics->Rename(m_path, newPath))
    {
        VEL_TRACE(VEL_ERR, "File %s renamed to %s failed", Utf8(m_path).c_str(), Utf8(newPath).c_str());
        return false;
    }
    VEL_TRACE(VEL_DBG1, "File %s renamed to %s", Utf8(m_path).c_str(), Utf8(newPath).c_str());
    m_path = std::move(newPath);
    return true;
}

bool CVeLFileHelperImpl::Create() const
{
    if (!HasApi())
        return false;
    ResetReadOnlyIfNeeded(m_path);
    CVeLHANDLE file(m_api, OpenFile(m_path, GENERIC_WRITE, CREATE_ALWAYS));
    VEL_RETURN_IF_FAILED(m_api, file.IsValid(), false, VEL_ERR, "Cannot create file %s (err = %ld)",
                         Utf8(m_path).c_str());
    return true;
}

bool CVeLFileHelperImpl::Remove() const
{
    if (!HasFileBasics())
        return false;
    if (!m_fileBasics->Exists(m_path))
    {
        VEL_TRACE(VEL_DBG1, "%s doesn't exist, skip", Utf8(m_path).c_str());
        return true;
    }
    if (!ResetReadOnlyIfNeeded(m_path))
        return false;
    return m_fileBasics->Remove(m_path);
}

bool CVeLFileHelperImpl::Deflate() const
{
    if (!HasApi() || !SourceExists())
        return false;
    CVeLHANDLE file(m_api, OpenFile(m_path, GENERIC_WRITE, TRUNCATE_EXISTING));
    VEL_RETURN_IF_FAILED(m_api, file.IsValid(), false, VEL_ERR, "Cannot create file %s (err = %ld)",
                         Utf8(m_path).c_str());
    return true;
}

bool CVeLFileHelperImpl::WriteContent(const unsigned char* content, ULONG length)
{
    if (!HasApi())
        return false;
    if (content == nullptr || length == 0)
    {
        VEL_TRACE(VEL_ERR, "No writeable content available!");
        return false;
    }
    if (!SourceExists())
        return false;
    if (!IsWriteable())
    {
        VEL_TRACE(VEL_WRN, "Source file (%s) isn't writeable!", Utf8(m_path).c_str());
        return false;
    }
    CVeLHANDLE file(m_api, OpenFile(m_path, GENERIC_WRITE, CREATE_ALWAYS));
    VEL_RETURN_IF_FAILED(m_api, file.IsValid(), false, VEL_ERR, "Cannot create file %s (err = %ld)",
                         Utf8(m_path).c_str());
    DWORD written = 0;
    const bool wrote = m_api->WAPI_WriteFile(file.GetHandle(), content, length, &written, nullptr);
    VEL_RETURN_IF_FAILED(m_api, wrote && written == length, false, VEL_ERR, "Write failed (hr = 0x%08X)!");
    return true;
}

bool CVeLFileHelperImpl::WriteContent(const std::wstring& content)
{
    if (content.size() > std::numeric_limits<ULONG>::max() / 4)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    const std::vector<unsigned char> bytes = CVeLStringConverter::ConvertStdWStringToUTF16LE(content);
    return WriteContent(bytes.data(), static_cast<ULONG>(bytes.size()));
}

bool CVeLFileHelperImpl::ReadContent(boost::shared_ptr<unsigned char>& buffer, ULONG& size) const
{
    if (!HasApi() || !SourceExists())
        return false;
    CVeLHANDLE file(m_api, OpenFile(m_path, GENERIC_READ, OPEN_EXISTING));
    VEL_RETURN_IF_FAILED(m_api, file.IsValid(), false, VEL_ERR, "Cannot open file %s (err = %ld)",
                         Utf8(m_path).c_str());
    unsigned long long fileSize = 0;
    QuerySize(fileSize);
    unsigned char* memory = fileSize <= std::numeric_limits<ULONG>::max()
                                ? new (std::nothrow) unsigned char[static_cast<std::size_t>(fileSize) + 1]
                                : nullptr;
    if (memory == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Could not allocate memory with size %llu", fileSize);
        return false;
    }
    boost::shared_ptr<unsigned char> content(memory, [](unsigned char* p) { delete[] p; });
    DWORD read = 0;
    VEL_RETURN_IF_FAILED(
        m_api, m_api->WAPI_ReadFile(file.GetHandle(), memory, static_cast<DWORD>(fileSize), &read, nullptr),
        false, VEL_ERR, "Read file failed (hr = 0x%08X)!");
    buffer = content;
    size = read;
    return true;
}

bool CVeLFileHelperImpl::ReadContent(std::wstring& content) const
{
    boost::shared_ptr<unsigned char> buffer;
    ULONG size = 0;
    if (!ReadContent(buffer, size))
    {
        VEL_TRACE(VEL_ERR, "Read content failed");
        return false;
    }
    content = CVeLStringConverter::ConvertUTF16LEToStdWString(buffer.get(), size);
    return true;
}

bool CVeLFileHelperImpl::WriteUtf8Content(const std::wstring& content)
{
    // Every byte of the text is written, embedded zeros included: the length is the converted text's,
    // never the distance to its first zero.
    const std::string utf8 = CVeLStringConverter::ConvertStdWStringToStdString(content);
    if (utf8.empty() && !content.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid conversion!");
        return false;
    }
    if (utf8.size() > std::numeric_limits<ULONG>::max())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    return WriteContent(reinterpret_cast<const unsigned char*>(utf8.data()), static_cast<ULONG>(utf8.size()));
}

bool CVeLFileHelperImpl::ReadUtf8Content(std::wstring& content) const
{
    boost::shared_ptr<unsigned char> buffer;
    ULONG size = 0;
    if (!ReadContent(buffer, size))
    {
        VEL_TRACE(VEL_ERR, "Read content failed");
        return false;
    }
    if (size == 0)
    {
        VEL_TRACE(VEL_ERR, "No writeable content available!");
        return false;
    }
    if (!CVeLStringConverter::ConvertUTF8Chars2StdWString(reinterpret_cast<const char*>(buffer.get()), size,
                                                          content))
    {
        VEL_TRACE(VEL_ERR, "Invalid conversion!");
        return false;
    }
    return true;
}

bool CVeLFileHelperImpl::IsWriteable() const
{
    if (m_path.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid file path= %s!", Utf8(m_path).c_str());
        return false;
    }
    bool statFailed = false;
    const bool writeable = IsPathWriteable(m_path, statFailed);
    if (statFailed)
        VEL_TRACE(VEL_ERR, "Can't obtain file stat for path= %s!", Utf8(m_path).c_str());
    return writeable;
}

bool CVeLFileHelperImpl::IsRegularFile() const
{
    if (m_path.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid file path= %s!", Utf8(m_path).c_str());
        return false;
    }
    return HasFileBasics() && m_fileBasics->IsRegularFile(m_path);
}

bool CVeLFileHelperImpl::ResetReadOnly(const fs::path& path) const
{
    if (!HasApi())
        return false;
    if (m_api->WAPI_SetFileAttributes(CVeLPathConverter::ToWide(path).c_str(), FILE_ATTRIBUTE_NORMAL))
        return true;
    VEL_TRACE(VEL_ERR, "Can't reset read-only flag on file %s!", Utf8(path).c_str());
    return false;
}

bool CVeLFileHelperImpl::ResetReadOnlyIfNeeded(const fs::path& path) const
{
    if (IsLink(path))
        return true;
    bool statFailed = false;
    if (IsPathWriteable(path, statFailed) || statFailed)
        return true;
    return ResetReadOnly(path);
}

fs::path CVeLFileHelperImpl::GetFileName()
{
    return m_path.filename();
}

std::wstring CVeLFileHelperImpl::GetFileNameWithoutExtension()
{
    return CVeLPathConverter::ToWide(m_path.stem());
}

std::wstring CVeLFileHelperImpl::GetFileExtension()
{
    return CVeLPathConverter::ToWide(m_path.extension());
}

std::wstring CVeLFileHelperImpl::GetFileExtensionWithoutLeadingDot()
{
    std::wstring extension = GetFileExtension();
    if (!extension.empty() && extension[0] == L'.')
        extension.erase(0, 1);
    return extension;
}

void CVeLFileHelperImpl::Reset(fs::path path, bool flag)
{
    m_path = std::move(path);
    m_flag = flag;
}

std::wstring CVeLFileHelperImpl::ToString()
{
    return CVeLPathConverter::ToWide(m_path);
}

// Crash-safe whole-file write.

#include <algorithm>
#include <atomic>

namespace
{

// Names the temporary files of this process apart; the process id sets processes apart.
std::atomic<unsigned long> g_temporaryCounter{0};
constexpr int kTemporaryAttempts = 64;
constexpr DWORD kWriteChunk = 0x40000000;

} // namespace

bool CVeLFileHelperImpl::ReplaceContentAtomically(const unsigned char* content, size_t length)
{
    if (!HasApi())
        return false;
    if (content == nullptr && length != 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    if (!CheckReplaceableTarget())
        return false;
    fs::path temporary;
    CVeLHANDLE file(m_api, CreateTemporaryBeside(temporary));
    if (!file.IsValid())
        return false;
    bool done = WriteAllAndFlush(file.GetHandle(), content, length);
    // Closed before the rename: Windows renames no file that is open without delete sharing.
    file = INVALID_HANDLE_VALUE;
    const std::wstring from = CVeLPathConverter::ToWide(temporary);
    if (done && !m_api->WAPI_MoveFileEx(from.c_str(), CVeLPathConverter::ToWide(m_path).c_str(),
                                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    {
        VEL_TRACE(VEL_ERR, "File %s renamed to %s failed (err = %ld)", Utf8(temporary).c_str(),
                  Utf8(m_path).c_str(), m_api->WAPI_GetLastError());
        done = false;
    }
    if (!done)
        m_api->WAPI_DeleteFile(from.c_str());
    return done;
}

bool CVeLFileHelperImpl::CheckReplaceableTarget() const
{
    boost::system::error_code error;
    const fs::file_status status = fs::symlink_status(m_path, error);
    const bool missing = status.type() == fs::file_not_found;
    if (m_path.empty() || !m_path.has_filename() || m_path.filename() == "." || m_path.filename() == ".." ||
        (error && !missing) ||
        !(missing || status.type() == fs::regular_file || status.type() == fs::symlink_file))
    {
        VEL_TRACE(VEL_ERR, "Invalid file path= %s!", Utf8(m_path).c_str());
        return false;
    }
    if (status.type() == fs::regular_file && (status.permissions() & fs::owner_write) == 0)
    {
        VEL_TRACE(VEL_WRN, "Source file (%s) isn't writeable!", Utf8(m_path).c_str());
        return false;
    }
    return true;
}

HANDLE CVeLFileHelperImpl::CreateTemporaryBeside(fs::path& temporary) const
{
    const DWORD process = m_api->WAPI_GetCurrentProcessId();
    for (int attempt = 0; attempt < kTemporaryAttempts; ++attempt)
    {
        // Short and fixed in form, so that even a file whose name is at the length limit gets one.
        temporary = m_path.parent_path() / (".kor-" + std::to_string(process) + "-" +
                                            std::to_string(g_temporaryCounter.fetch_add(1)) + ".tmp");
        HANDLE file = OpenFile(temporary, GENERIC_WRITE, CREATE_NEW);
        if (file != INVALID_HANDLE_VALUE)
        {
            // The new file starts as private as the one it replaces, before any content reaches it.
            boost::system::error_code statusError, error;
            const fs::file_status status = fs::symlink_status(m_path, statusError);
            if (!statusError && status.type() == fs::regular_file)
                fs::permissions(temporary, status.permissions() & fs::perms_mask, error);
            if (!error)
                return file;
            VEL_TRACE(VEL_ERR, "Can't set permissions of file %s!", Utf8(temporary).c_str());
            m_api->WAPI_CloseHandle(file);
            m_api->WAPI_DeleteFile(CVeLPathConverter::ToWide(temporary).c_str());
            return INVALID_HANDLE_VALUE;
        }
        const DWORD error = m_api->WAPI_GetLastError();
        if (error != ERROR_FILE_EXISTS && error != ERROR_ALREADY_EXISTS)
        {
            VEL_TRACE(VEL_ERR, "Cannot create file %s (err = %ld)", Utf8(temporary).c_str(), error);
            return INVALID_HANDLE_VALUE;
        }
    }
    VEL_TRACE(VEL_ERR, "Cannot create file %s (err = %ld)", Utf8(temporary).c_str(),
              static_cast<long>(ERROR_FILE_EXISTS));
    return INVALID_HANDLE_VALUE;
}

bool CVeLFileHelperImpl::WriteAllAndFlush(HANDLE file, const unsigned char* content, size_t length) const
{
    for (size_t offset = 0; offset < length;)
    {
        const DWORD chunk = static_cast<DWORD>(std::min<size_t>(length - offset, kWriteChunk));
        DWORD written = 0;
        const bool wrote = m_api->WAPI_WriteFile(file, content + offset, chunk, &written, nullptr);
        VEL_RETURN_IF_FAILED(m_api, wrote && written == chunk, false, VEL_ERR, "Write failed (hr = 0x%08X)!");
        offset += chunk;
    }
    VEL_RETURN_IF_FAILED(m_api, m_api->WAPI_FlushFileBuffers(file), false, VEL_ERR,
                         "Flush of file %s failed (err = %ld)", Utf8(m_path).c_str());
    return true;
}
