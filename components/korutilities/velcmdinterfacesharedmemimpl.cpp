#include "velcmdinterfacesharedmemimpl.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velstringconverter.h"

#include <cstring>
#include <memory>

namespace
{
constexpr DWORD kLengthFieldSize = 2;
constexpr std::size_t kMaxTextBytes = 65535;
} // namespace

const DWORD CVeLCmdInterfaceSharedMemoryImpl::kBlockSize;

CVeLCmdInterfaceSharedMemoryImpl::CVeLCmdInterfaceSharedMemoryImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                                                   bool create, const std::wstring& name)
    : m_name(name), m_api(std::move(api)), m_mapping(m_api)
{
    if (!m_api)
        return;
    HANDLE mapping = create ? m_api->WAPI_CreateFileMapping(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                            kBlockSize, m_name.c_str())
                            : m_api->WAPI_OpenFileMapping(FILE_MAP_ALL_ACCESS, FALSE, m_name.c_str());
    m_mapping = mapping;
    VEL_RETURN_IF_FAILED(m_api, m_mapping.IsValid(), , VEL_ERR,
                         "Shared Memory could not be created or opened (code = 0x%08X!)");
    RefuseSmallBlock();
}

CVeLCmdInterfaceSharedMemoryImpl::~CVeLCmdInterfaceSharedMemoryImpl() {}

void CVeLCmdInterfaceSharedMemoryImpl::RefuseSmallBlock()
{
    // An object of this name made by someone else may be smaller than the block; mapping it whole and
    // writing a long text would then run past its end.
    CVeLResult<__int64> size = m_api->WAPI_NTGetSizeOfSharedMemory(m_mapping.GetHandle());
    if (!size.IsSuccess())
    {
        VEL_TRACE(VEL_WRN, "Size of Shared Memory unknown, used as it is");
        return;
    }
    if (size.GetValue() < static_cast<__int64>(kBlockSize))
    {
        VEL_TRACE(VEL_ERR, "Shared Memory is smaller than the command block (%d bytes)!",
                  static_cast<LONG>(size.GetValue()));
        m_mapping = nullptr;
        return;
    }
    m_viewLength = 0;
}

std::wstring CVeLCmdInterfaceSharedMemoryImpl::GetSharedMemoryName()
{
    return m_name;
}

bool CVeLCmdInterfaceSharedMemoryImpl::IsSharedMemoryAvailable() const
{
    return m_mapping.IsValid();
}

unsigned char* CVeLCmdInterfaceSharedMemoryImpl::MapBlock(DWORD access) const
{
    if (!IsSharedMemoryAvailable())
    {
        VEL_TRACE(VEL_ERR, "Shared Memory Handle is not valid");
        return nullptr;
    }
    void* view = m_api->WAPI_MapViewOfFile(m_mapping.GetHandle(), access, 0, 0, m_viewLength);
    VEL_RETURN_IF_FAILED(m_api, view != nullptr, nullptr, VEL_ERR, "MapViewOfFile failed (code= 0x%08X)!");
    return static_cast<unsigned char*>(view);
}

bool CVeLCmdInterfaceSharedMemoryImpl::UnmapBlock(unsigned char* view) const
{
    VEL_RETURN_IF_FAILED(m_api, m_api->WAPI_UnmapViewOfFile(view), false, VEL_ERR,
                         "UnMapViewOfFile failed (code= 0x%08X)!");
    return true;
}

bool CVeLCmdInterfaceSharedMemoryImpl::WriteDataToMemory(const std::wstring& text) const
{
    unsigned char* view = MapBlock(FILE_MAP_WRITE);
    if (view == nullptr)
        return false;
    boost::shared_ptr<char> utf8;
    // The length ends at the first zero byte, so a text with a zero character is cut there.
    const std::size_t length = CVeLStringConverter::ConvertStdWString2UTF8Chars(text, utf8)
                                   ? std::strlen(utf8.get())
                                   : kMaxTextBytes + 1;
    if (length > kMaxTextBytes)
    {
        VEL_TRACE(VEL_ERR, "Too many data to write");
        UnmapBlock(view);
        return false;
    }
    view[0] = static_cast<unsigned char>(length & 0xFF);
    view[1] = static_cast<unsigned char>(length >> 8);
    if (length != 0)
        std::memcpy(view + kLengthFieldSize, utf8.get(), length);
    return UnmapBlock(view);
}

bool CVeLCmdInterfaceSharedMemoryImpl::ReadDataFromMemory(std::wstring& text) const
{
    const unsigned char* view = MapBlock(FILE_MAP_READ);
    if (view == nullptr)
        return false;
    const std::size_t length = static_cast<std::size_t>(view[0]) | (static_cast<std::size_t>(view[1]) << 8);
    // Copied out first: the other process may write while the text is converted.
    std::unique_ptr<char[]> copy(new char[length + 1]);
    std::memcpy(copy.get(), view + kLengthFieldSize, length);
    CVeLStringConverter::ConvertUTF8Chars2StdWString(copy.get(), length, text);
    return UnmapBlock(const_cast<unsigned char*>(view));
}

bool CVeLCmdInterfaceSharedMemoryImpl::ClearDataMemory() const
{
    unsigned char* view = MapBlock(FILE_MAP_WRITE);
    if (view == nullptr)
        return false;
    std::memset(view, 0, kBlockSize);
    return true;
}
