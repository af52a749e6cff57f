#include "velbytearray.h"
#include "korutilitesbtracedef.h"

#include <cstring>

CVeLByteArray::CVeLByteArray() : m_length(0) {}

CVeLByteArray::CVeLByteArray(std::shared_ptr<unsigned char> data, ULONG length)
    : m_data(std::move(data)), m_length(length)
{
}

CVeLByteArray::CVeLByteArray(const CVeLByteArray& other) = default;

CVeLByteArray& CVeLByteArray::operator=(const CVeLByteArray& other) = default;

CVeLByteArray::~CVeLByteArray() {}

unsigned char* CVeLByteArray::GetArrayBytes() const
{
    if (!m_data)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return nullptr;
    }
    return m_data.get();
}

ULONG CVeLByteArray::GetArrayLength() const
{
    return m_length;
}

bool CVeLByteArray::IsValid() const
{
    return m_data && m_length != 0;
}

bool CVeLByteArray::operator==(const CVeLByteArray& other) const
{
    if (!IsValid())
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    if (!other.IsValid())
    {
        VEL_TRACE(VEL_INF, "Other is not initialized");
        return false;
    }
    if (m_length != other.m_length)
        return false;
    return std::memcmp(m_data.get(), other.m_data.get(), m_length) == 0;
}

bool CVeLByteArray::operator!=(const CVeLByteArray& other) const
{
    return !(*this == other);
}

std::wstring CVeLByteArray::GetAsString() const
{
    if (!IsValid())
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return std::wstring();
    }
    static const wchar_t kDigits[] = L"0123456789abcdef";
    std::wstring text(static_cast<std::size_t>(m_length) * 2, L'0');
    const unsigned char* bytes = m_data.get();
    for (ULONG i = 0; i < m_length; ++i)
    {
        text[2 * i] = kDigits[bytes[i] >> 4];
        text[2 * i + 1] = kDigits[bytes[i] & 0x0F];
    }
    return text;
}
