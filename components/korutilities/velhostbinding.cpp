#include "velhostbinding.h"
#include "korutilitesbtracedef.h"
#include "velsha256impl.h"
#include "velsha256.h"
#include "velwinapiwrapper.h"

#include <cwctype>
#include <vector>

CVeLHostBinding::CVeLHostBinding() : CVeLHostBinding(std::make_shared<CVeLWinAPIWrapper>()) {}

CVeLHostBinding::CVeLHostBinding(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

CVeLHostBinding::~CVeLHostBinding() = default;

CVeLResult<std::wstring> CVeLHostBinding::ReadMachineGuid() const
{
    const DWORD flags = RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY;
    const wchar_t* key = L"SOFTWARE\\Microsoft\\Cryptography";
    DWORD size = 0;
    LONG status =
        m_api->WAPI_RegGetValue(HKEY_LOCAL_MACHINE, key, L"MachineGuid", flags, nullptr, nullptr, &size);
    std::vector<WCHAR> buffer(size / sizeof(WCHAR) + 1, 0);
    if (status == ERROR_SUCCESS)
    {
        size = static_cast<DWORD>(buffer.size() * sizeof(WCHAR));
        status = m_api->WAPI_RegGetValue(HKEY_LOCAL_MACHINE, key, L"MachineGuid", flags, nullptr,
                                         buffer.data(), &size);
    }
    std::wstring guid(buffer.data());
    if (status != ERROR_SUCCESS || guid.empty())
    {
        VEL_TRACE(VEL_ERR, "Reading the machine identifier failed (error code: %d)!", status);
        return CVeLResult<std::wstring>();
    }
    for (wchar_t& c : guid)
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return CVeLResult<std::wstring>(true, guid);
}

CVeLResult<std::wstring> CVeLHostBinding::GetChecksum() const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return CVeLResult<std::wstring>();
    }
    const CVeLResult<std::wstring> guid = ReadMachineGuid();
    if (!guid.IsSuccess())
        return CVeLResult<std::wstring>();
    const CVeLResult<CVeLByteArray> digest =
        CVeLSha256Impl(m_api).HashString(L"korutilities host binding\n" + guid.GetValue());
    if (!digest.IsSuccess())
        return CVeLResult<std::wstring>();
    return CVeLResult<std::wstring>(true, CVeLSha256::ToHex(digest.GetValue()));
}

bool CVeLHostBinding::IsThisHost(const std::wstring& checksum) const
{
    const CVeLResult<std::wstring> own = GetChecksum();
    if (!own.IsSuccess() || own.GetValue().size() != checksum.size())
        return false;
    for (std::size_t i = 0; i < checksum.size(); ++i)
        if (std::towlower(static_cast<wint_t>(checksum[i])) != static_cast<wint_t>(own.GetValue()[i]))
            return false;
    return true;
}
