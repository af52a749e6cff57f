#include "veldirwatcherimpl.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"

#include <cstddef>
#include <cstring>
#include <exception>

namespace fs = boost::filesystem;

namespace
{

// Bytes of change records taken per request; 64 KiB is also the most a network share delivers at once.
const DWORD kBufferBytes = 64 * 1024;
const DWORD kRecordHeader = static_cast<DWORD>(offsetof(FILE_NOTIFY_INFORMATION, FileName));

std::string Utf8(const fs::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

DirChangeEnum KindOf(DWORD action)
{
    switch (action)
    {
    case FILE_ACTION_ADDED:
        return DirChangeAdded;
    case FILE_ACTION_REMOVED:
        return DirChangeRemoved;
    case FILE_ACTION_MODIFIED:
        return DirChangeModified;
    case FILE_ACTION_RENAMED_OLD_NAME:
        return DirChangeRenamedFrom;
    case FILE_ACTION_RENAMED_NEW_NAME:
        return DirChangeRenamedTo;
    default:
        return static_cast<DirChangeEnum>(0);
    }
}

// The record's name ("sub\file" below the folder) as a path below folder.
fs::path PathBelow(const fs::path& folder, const std::wstring& name)
{
    fs::path result = folder;
    std::size_t start = 0;
    while (start <= name.size())
    {
        const std::size_t end = name.find_first_of(L"\\/", start);
        const std::wstring element =
            name.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start);
        if (!element.empty())
            result /= CVeLPathConverter::FromWide(element);
        if (end == std::wstring::npos)
            break;
        start = end + 1;
    }
    return result;
}

} // namespace

CVeLDirWatcherImpl::CVeLDirWatcherImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                       std::shared_ptr<IVeLWaitHelper> waitHelper)
    : m_api(std::move(api)), m_waitHelper(std::move(waitHelper)), m_directory(m_api), m_changeEvent(m_api),
      m_stopEvent(m_api), m_endedEvent(m_api), m_buffer(kBufferBytes / sizeof(DWORD))
{
    std::memset(&m_overlapped, 0, sizeof m_overlapped);
}

CVeLDirWatcherImpl::~CVeLDirWatcherImpl()
{
    Stop(INFINITE);
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_thread.joinable())
        m_thread.join();
}

bool CVeLDirWatcherImpl::Start(const fs::path& folder, bool subtree, unsigned int changes,
                               DirChangeCallback callback)
{
    if (m_threadId.load() == std::this_thread::get_id())
    {
        VEL_TRACE(VEL_ERR, "Watcher already running");
        return false;
    }
    std::lock_guard<std::mutex> guard(m_lock);
    JoinFinishedLocked();
    if (m_thread.joinable())
    {
        VEL_TRACE(VEL_ERR, "Watcher already running");
        return false;
    }
    if (!callback || (changes & DirChangeAll) == 0 || folder.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    m_folder = folder;
    m_subtree = subtree;
    m_changes = changes;
    m_callback = std::move(callback);
    m_stopRequested = false;
    m_endReason = DirWatchNotEnded;
    m_endError = 0;
    if (!OpenLocked(folder))
        return false;
    if (!Request())
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "ReadDirectoryChanges for %s failed (code= 0x%08X)!", Utf8(folder).c_str(), error);
        m_directory = nullptr;
        return false;
    }
    VEL_TRACE(VEL_DBG1, "Watching %s", Utf8(folder).c_str());
    m_running = true;
    try
    {
        m_thread = std::thread(&CVeLDirWatcherImpl::Run, this);
    }
    catch (const std::exception&)
    {
        VEL_TRACE(VEL_ERR, "Can't start watcher thread!");
        m_running = false;
        m_api->WAPI_CancelIoEx(m_directory.GetHandle(), &m_overlapped);
        m_directory = nullptr;
        return false;
    }
    return true;
}

bool CVeLDirWatcherImpl::Stop(DWORD timeout)
{
    if (m_threadId.load() == std::this_thread::get_id())
    {
        // From the callback: the thread ends after the callback returns.
        m_stopRequested = true;
        m_api->WAPI_SetEvent(m_stopEvent.GetHandle());
        return true;
    }
    std::lock_guard<std::mutex> guard(m_lock);
    if (!m_thread.joinable())
        return true;
    m_stopRequested = true;
    m_api->WAPI_SetEvent(m_stopEvent.GetHandle());
    WaitStatusEnum status = WaitError;
    if (!m_waitHelper->WaitForEvent(m_endedEvent.GetHandle(), timeout, status) || status != WaitSignaled)
    {
        VEL_TRACE(VEL_ERR, "Watcher of %s did not end in time", Utf8(m_folder).c_str());
        return false;
    }
    m_thread.join();
    return true;
}

bool CVeLDirWatcherImpl::IsRunning() const
{
    return m_running;
}

DirWatchEndEnum CVeLDirWatcherImpl::GetEndReason() const
{
    return static_cast<DirWatchEndEnum>(m_endReason.load());
}

DWORD CVeLDirWatcherImpl::GetEndError() const
{
    return m_endError;
}

bool CVeLDirWatcherImpl::OpenLocked(const fs::path& folder)
{
    const std::wstring wide = CVeLPathConverter::ToWide(folder);
    HANDLE directory = m_api->WAPI_CreateFile(
        wide.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
    if (directory == INVALID_HANDLE_VALUE || directory == nullptr)
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "Can't open folder %s (code= 0x%08X)!", Utf8(folder).c_str(), error);
        return false;
    }
    m_directory = directory;
    m_changeEvent = m_api->WAPI_CreateEvent(nullptr, TRUE, FALSE, nullptr);
    m_stopEvent = m_api->WAPI_CreateEvent(nullptr, TRUE, FALSE, nullptr);
    m_endedEvent = m_api->WAPI_CreateEvent(nullptr, TRUE, FALSE, nullptr);
    if (!m_changeEvent.IsValid() || !m_stopEvent.IsValid() || !m_endedEvent.IsValid())
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "CreateEvent failed (code= 0x%08X)!", error);
        m_directory = nullptr;
        return false;
    }
    std::memset(&m_overlapped, 0, sizeof m_overlapped);
    m_overlapped.hEvent = m_changeEvent.GetHandle();
    return true;
}

bool CVeLDirWatcherImpl::Request()
{
    DWORD filter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME;
    if (m_changes & DirChangeModified)
        filter |= FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_SIZE;
    return m_api->WAPI_ReadDirectoryChangesW(m_directory.GetHandle(), m_buffer.data(), kBufferBytes,
                                             m_subtree ? TRUE : FALSE, filter, nullptr, &m_overlapped,
                                             nullptr) != FALSE;
}

// The watcher's thread: wait for a completed request or the stop event; hand the records to the callback;
// place the next request. A request still pending at the end is cancelled and its completion awaited, so
// that the system never writes into the buffer after the thread has left.
void CVeLDirWatcherImpl::Run()
{
    m_threadId = std::this_thread::get_id();
    for (;;)
    {
        int index = -1;
        WaitStatusEnum status = WaitError;
        if (!m_waitHelper->WaitForMultipleEvents({m_changeEvent.GetHandle(), m_stopEvent.GetHandle()},
                                                 INFINITE, index, status) ||
            status != WaitSignaled)
        {
            const DWORD error = m_api->WAPI_GetLastError();
            VEL_TRACE(VEL_ERR, "Waiting for changes in %s failed (code= 0x%08X)!", Utf8(m_folder).c_str(),
                      error);
            CancelPending();
            EndWith(DirWatchFailed, error);
            Report(DirChangeEnded, m_folder);
            break;
        }
        if (index != 0 || m_stopRequested)
        {
            CancelPending();
            EndWith(DirWatchStopped, 0);
            break;
        }
        DWORD bytes = 0;
        const BOOL done =
            m_api->WAPI_GetOverlappedResult(m_directory.GetHandle(), &m_overlapped, &bytes, FALSE);
        const DWORD error = done ? 0 : m_api->WAPI_GetLastError();
        if (!done && error != ERROR_NOTIFY_ENUM_DIR)
        {
            EndOnError(error);
            break;
        }
        if (bytes == 0)
        {
            VEL_TRACE(VEL_WRN, "Changes in %s were lost - rescan", Utf8(m_folder).c_str());
            Report(DirChangeLost, m_folder);
        }
        else
            Dispatch(bytes);
        if (m_stopRequested)
        {
            EndWith(DirWatchStopped, 0);
            break;
        }
        if (!Request())
        {
            EndOnError(m_api->WAPI_GetLastError());
            break;
        }
    }
    m_directory = nullptr;
    m_threadId = std::thread::id();
    m_running = false;
    m_api->WAPI_SetEvent(m_endedEvent.GetHandle());
}

void CVeLDirWatcherImpl::CancelPending()
{
    DWORD bytes = 0;
    m_api->WAPI_CancelIoEx(m_directory.GetHandle(), &m_overlapped);
    m_api->WAPI_GetOverlappedResult(m_directory.GetHandle(), &m_overlapped, &bytes, TRUE);
}

bool CVeLDirWatcherImpl::Dispatch(DWORD bytes)
{
    const BYTE* base = reinterpret_cast<const BYTE*>(m_buffer.data());
    bytes = bytes < kBufferBytes ? bytes : kBufferBytes;
    DWORD offset = 0;
    while (offset + kRecordHeader <= bytes)
    {
        const FILE_NOTIFY_INFORMATION* info = reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(base + offset);
        if (info->FileNameLength > bytes - offset - kRecordHeader)
        {
            VEL_TRACE(VEL_ERR, "Invalid change record at offset %d", offset);
            return true;
        }
        const std::wstring name(info->FileName, info->FileNameLength / sizeof(WCHAR));
        const DirChangeEnum kind = KindOf(info->Action);
        if (kind & m_changes)
            Report(kind, PathBelow(m_folder, name));
        if (m_stopRequested)
            return false;
        if (info->NextEntryOffset == 0)
            break;
        if (info->NextEntryOffset < kRecordHeader || info->NextEntryOffset % 4 != 0)
        {
            VEL_TRACE(VEL_ERR, "Invalid change record at offset %d", offset);
            break;
        }
        offset += info->NextEntryOffset;
    }
    return true;
}

void CVeLDirWatcherImpl::Report(DirChangeEnum kind, const fs::path& path)
{
    try
    {
        m_callback(kind, path);
    }
    catch (...)
    {
        // The host's callback must not end the watcher's thread (and with it the program).
        VEL_TRACE(VEL_ERR, "Change callback for %s failed with an exception", Utf8(path).c_str());
    }
}

void CVeLDirWatcherImpl::EndOnError(DWORD error)
{
    const DWORD attributes = m_api->WAPI_GetFileAttributes(CVeLPathConverter::ToWide(m_folder).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
    {
        VEL_TRACE(VEL_WRN, "Watched folder %s was removed - watch ended", Utf8(m_folder).c_str());
        EndWith(DirWatchFolderRemoved, error);
    }
    else
    {
        VEL_TRACE(VEL_ERR, "Watching %s failed (code= 0x%08X)!", Utf8(m_folder).c_str(), error);
        EndWith(DirWatchFailed, error);
    }
    Report(DirChangeEnded, m_folder);
}

void CVeLDirWatcherImpl::EndWith(DirWatchEndEnum reason, DWORD error)
{
    m_endError = error;
    m_endReason = reason;
}

void CVeLDirWatcherImpl::JoinFinishedLocked()
{
    if (m_thread.joinable() && !m_running)
        m_thread.join();
}
