#include "velsha256.h"
#include "korutilitesbtracedef.h"
#include "velsha256impl.h"
#include "velwinapiwrapper.h"
#include "velcalltrace.h"

CVeLSha256::CVeLSha256() : CVeLSha256(std::make_shared<CVeLWinAPIWrapper>()) {}

CVeLSha256::CVeLSha256(std::shared_ptr<IVeLWinAPIWrapper> api) : m_impl(new CVeLSha256Impl(std::move(api))) {}

CVeLSha256::~CVeLSha256() = default;

CVeLResult<CVeLByteArray> CVeLSha256::HashBytes(const unsigned char* data, ULONG size) const
{
    return VEL_FORWARD(m_impl, HashBytes(data, size));
}

CVeLResult<CVeLByteArray> CVeLSha256::HashBytes(const CVeLByteArray& data) const
{
    return VEL_FORWARD(m_impl, HashBytes(data));
}

CVeLResult<CVeLByteArray> CVeLSha256::HashString(const std::wstring& text) const
{
    return VEL_FORWARD(m_impl, HashString(text));
}

CVeLResult<CVeLByteArray> CVeLSha256::HashFile(const boost::filesystem::path& file) const
{
    return VEL_FORWARD(m_impl, HashFile(file));
}

CVeLResult<CVeLByteArray> CVeLSha256::HashFolder(const boost::filesystem::path& folder) const
{
    return VEL_FORWARD(m_impl, HashFolder(folder));
}

std::wstring CVeLSha256::ToHex(const CVeLByteArray& digest)
{
    static const wchar_t digits[] = L"0123456789abcdef";
    std::wstring text;
    if (!digest.IsValid())
        return text;
    text.reserve(digest.GetArrayLength() * 2);
    for (ULONG i = 0; i < digest.GetArrayLength(); ++i)
    {
        text += digits[digest.GetArrayBytes()[i] >> 4];
        text += digits[digest.GetArrayBytes()[i] & 0x0F];
    }
    return text;
}
