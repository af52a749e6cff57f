#include "velfileversionimpl.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velstringconverter.h"

#include <cstdio>
#include <cstring>

namespace fs = boost::filesystem;

namespace
{

const DWORD kFixedSignature = 0xFEEF04BD;
// US English, Unicode: the table to look in when the resource lists no translation.
const wchar_t kDefaultTable[] = L"040904b0";

std::string Utf8(const fs::path& file)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(CVeLPathConverter::ToWide(file));
}

} // namespace

CVeLFileVersionImpl::CVeLFileVersionImpl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

bool CVeLFileVersionImpl::ReadBlock(const fs::path& file, std::vector<BYTE>& block) const
{
    const std::wstring name = CVeLPathConverter::ToWide(file);
    DWORD handle = 0;
    const DWORD size = m_api->WAPI_GetFileVersionInfoSize(name.c_str(), &handle);
    if (size == 0)
    {
        VEL_TRACE(VEL_ERR, "No version resource in %s (err = %ld)!", Utf8(file).c_str(),
                  m_api->WAPI_GetLastError());
        return false;
    }
    block.assign(size, 0);
    if (!m_api->WAPI_GetFileVersionInfo(name.c_str(), handle, size, block.data()))
    {
        VEL_TRACE(VEL_ERR, "Can't read version resource of %s (err = %ld)!", Utf8(file).c_str(),
                  m_api->WAPI_GetLastError());
        return false;
    }
    return true;
}

bool CVeLFileVersionImpl::ReadFixed(const fs::path& file, bool product, CVeLVersion& version) const
{
    std::vector<BYTE> block;
    if (!ReadBlock(file, block))
        return false;
    LPVOID value = nullptr;
    UINT length = 0;
    VS_FIXEDFILEINFO fixed;
    if (!m_api->WAPI_VerQueryValue(block.data(), L"\\", &value, &length) || value == nullptr ||
        length < sizeof fixed)
    {
        VEL_TRACE(VEL_ERR, "No fixed version in %s!", Utf8(file).c_str());
        return false;
    }
    std::memcpy(&fixed, value, sizeof fixed); // the block gives no alignment promise
    if (fixed.dwSignature != kFixedSignature)
    {
        VEL_TRACE(VEL_ERR, "No fixed version in %s!", Utf8(file).c_str());
        return false;
    }
    version = product ? CVeLVersion::FromFixed(fixed.dwProductVersionMS, fixed.dwProductVersionLS)
                      : CVeLVersion::FromFixed(fixed.dwFileVersionMS, fixed.dwFileVersionLS);
    return true;
}

bool CVeLFileVersionImpl::GetFileVersion(const fs::path& file, CVeLVersion& version) const
{
    return ReadFixed(file, false, version);
}

bool CVeLFileVersionImpl::GetProductVersion(const fs::path& file, CVeLVersion& version) const
{
    return ReadFixed(file, true, version);
}

bool CVeLFileVersionImpl::GetVersionString(const fs::path& file, const std::wstring& name,
                                           std::wstring& value) const
{
    std::vector<BYTE> block;
    if (!ReadBlock(file, block))
        return false;
    std::wstring table = kDefaultTable;
    LPVOID data = nullptr;
    UINT length = 0;
    if (m_api->WAPI_VerQueryValue(block.data(), L"\\VarFileInfo\\Translation", &data, &length) &&
        data != nullptr && length >= 4)
    {
        WORD pair[2];
        std::memcpy(pair, data, sizeof pair);
        wchar_t text[16];
        std::swprintf(text, 16, L"%04x%04x", pair[0], pair[1]);
        table = text;
    }
    const std::wstring path = L"\\StringFileInfo\\" + table + L"\\" + name;
    if (!m_api->WAPI_VerQueryValue(block.data(), path.c_str(), &data, &length) || data == nullptr)
    {
        VEL_TRACE(VEL_ERR, "No version text %s in %s!",
                  CVeLStringConverter::ConvertStdWStringToStdString(name).c_str(), Utf8(file).c_str());
        return false;
    }
    const wchar_t* text = static_cast<const wchar_t*>(data);
    std::size_t count = 0;
    while (count < length && text[count] != L'\0')
        ++count;
    value.assign(text, count);
    return true;
}
