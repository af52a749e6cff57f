#include "velstringarray.h"
#include "korutilitesbtracedef.h"
#include "velwin32.h"

CVeLStringArray::CVeLStringArray(long numberOfElements, long maxStringLength)
    : m_table(nullptr), m_maxStringLength(maxStringLength)
{
    if (numberOfElements < 1 || maxStringLength < 1)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return;
    }
    m_table = new wchar_t*[static_cast<std::size_t>(numberOfElements)];
    m_buffers.reserve(static_cast<std::size_t>(numberOfElements));
    for (long i = 0; i < numberOfElements; ++i)
    {
        std::shared_ptr<wchar_t[]> buffer(new wchar_t[static_cast<std::size_t>(maxStringLength)]());
        m_table[i] = buffer.get();
        m_buffers.push_back(std::move(buffer));
    }
}

CVeLStringArray::~CVeLStringArray()
{
    delete[] m_table;
}

long CVeLStringArray::GetNumberOfElements() const
{
    return static_cast<long>(m_buffers.size());
}

long CVeLStringArray::GetMaxStringLength() const
{
    return m_maxStringLength;
}

const wchar_t** CVeLStringArray::GetReadableStringArray() const
{
    return const_cast<const wchar_t**>(m_table);
}

wchar_t** CVeLStringArray::GetWritableStringArray() const
{
    return m_table;
}

bool CVeLStringArray::IsValidIndex(long index) const
{
    return index >= 0 && index < GetNumberOfElements();
}

std::wstring CVeLStringArray::GetString(long index)
{
    if (!IsValidIndex(index))
    {
        VEL_TRACE(VEL_ERR, "Invalid string array index");
        return std::wstring();
    }
    const wchar_t* buffer = m_table[index];
    std::size_t length = 0;
    while (length < static_cast<std::size_t>(m_maxStringLength) && buffer[length] != L'\0')
        ++length;
    return std::wstring(buffer, length);
}

bool CVeLStringArray::SetString(long index, const std::wstring& text)
{
    if (!IsValidIndex(index))
    {
        VEL_TRACE(VEL_ERR, "Invalid string array index");
        return false;
    }
    errno_t error = wcscpy_s(m_table[index], static_cast<rsize_t>(m_maxStringLength), text.c_str());
    if (error != 0)
    {
        VEL_TRACE(VEL_ERR, "Could not copy string to array index %d (error code: %d)", index, error);
        return false;
    }
    return true;
}
