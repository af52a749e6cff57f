#include "velfilestream.h"
#include "velpathconverter.h"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <atomic>
#include <string>

namespace
{

// Reads and writes are split into pieces the facade's 32-bit lengths can carry.
constexpr std::size_t kMaxTransfer = 1u << 30;

} // namespace

CVeLFileStream::CVeLFileStream(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

CVeLFileStream::~CVeLFileStream()
{
    Discard();
}

bool CVeLFileStream::Fail()
{
    m_lastError = m_api->WAPI_GetLastError();
    if (m_lastError == 0)
        m_lastError = ERROR_INVALID_FUNCTION;
    return false;
}

bool CVeLFileStream::Open(const boost::filesystem::path& file, DWORD access, DWORD disposition)
{
    Discard();
    const std::wstring name = CVeLPathConverter::ToWide(file);
    HANDLE handle =
        m_api->WAPI_CreateFile(name.c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE || handle == nullptr)
        return Fail();
    m_file = handle;
    return true;
}

bool CVeLFileStream::OpenRead(const boost::filesystem::path& file)
{
    return Open(file, GENERIC_READ, OPEN_EXISTING);
}

bool CVeLFileStream::OpenWrite(const boost::filesystem::path& file)
{
    return Open(file, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
}

bool CVeLFileStream::OpenPartial(const boost::filesystem::path& target)
{
    // Unique per process and call, so parallel writers of one target do not share a temporary file.
    static std::atomic<unsigned> counter{0};
    boost::filesystem::path partial = target;
    partial += "." + std::to_string(m_api->WAPI_GetCurrentProcessId()) + "." + std::to_string(++counter) +
               ".partial";
    if (!Open(partial, GENERIC_READ | GENERIC_WRITE, CREATE_NEW))
        return false;
    m_partial = partial;
    m_target = target;
    return true;
}

bool CVeLFileStream::Read(void* buffer, std::size_t size, std::size_t& read)
{
    read = 0;
    DWORD got = 0;
    const DWORD piece = static_cast<DWORD>(std::min(size, kMaxTransfer));
    if (!m_api->WAPI_ReadFile(m_file, buffer, piece, &got, nullptr))
        return Fail();
    read = got;
    return true;
}

bool CVeLFileStream::ReadExactly(void* buffer, std::size_t size)
{
    auto* at = static_cast<unsigned char*>(buffer);
    while (size > 0)
    {
        std::size_t got = 0;
        if (!Read(at, size, got))
            return false;
        if (got == 0)
        {
            m_lastError = ERROR_HANDLE_EOF;
            return false;
        }
        at += got;
        size -= got;
    }
    return true;
}

bool CVeLFileStream::Write(const void* buffer, std::size_t size)
{
    const auto* at = static_cast<const unsigned char*>(buffer);
    while (size > 0)
    {
        const DWORD piece = static_cast<DWORD>(std::min(size, kMaxTransfer));
        DWORD written = 0;
        if (!m_api->WAPI_WriteFile(m_file, at, piece, &written, nullptr))
            return Fail();
        if (written == 0)
        {
            m_lastError = ERROR_HANDLE_DISK_FULL;
            return false;
        }
        at += written;
        size -= written;
    }
    return true;
}

bool CVeLFileStream::Seek(std::int64_t distance, DWORD method, std::uint64_t& position)
{
    LARGE_INTEGER move;
    move.QuadPart = distance;
    LARGE_INTEGER now;
    now.QuadPart = 0;
    if (!m_api->WAPI_SetFilePointerEx(m_file, move, &now, method))
        return Fail();
    position = static_cast<std::uint64_t>(now.QuadPart);
    return true;
}

bool CVeLFileStream::Size(std::uint64_t& size)
{
    LARGE_INTEGER value;
    value.QuadPart = 0;
    if (!m_api->WAPI_GetFileSizeEx(m_file, &value))
        return Fail();
    size = static_cast<std::uint64_t>(value.QuadPart);
    return true;
}

bool CVeLFileStream::Commit()
{
    if (m_file == nullptr)
    {
        m_lastError = ERROR_INVALID_HANDLE;
        return false;
    }
    if (!Close())
    {
        Discard();
        return false;
    }
    if (m_partial.empty())
        return true;
    boost::system::error_code error;
    boost::filesystem::rename(m_partial, m_target, error);
    if (error)
    {
        m_lastError = static_cast<DWORD>(error.value()); // the system's own code for the rename
        Discard();
        return false;
    }
    m_partial.clear();
    return true;
}

bool CVeLFileStream::Close()
{
    HANDLE handle = m_file;
    m_file = nullptr;
    return handle == nullptr || m_api->WAPI_CloseHandle(handle) || Fail();
}

void CVeLFileStream::Discard()
{
    Close();
    if (!m_partial.empty())
    {
        const std::wstring name = CVeLPathConverter::ToWide(m_partial);
        m_api->WAPI_DeleteFile(name.c_str());
        m_partial.clear();
    }
}
