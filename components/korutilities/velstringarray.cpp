#include "velstringarray.h"
#include "korutilitesbtracedef.h"
#include "velwin32.h"

#include <cstddef>
#include <cstdint>
#include <new>

namespace
{

// Whether a table of count buffers of length wide characters each can be asked of the allocator at all: its
// total size in bytes must be representable. Sizes that fit but exceed the memory still fail at allocation.
bool FitsInAddressSpace(long count, long length)
{
    const std::size_t limit = static_cast<std::size_t>(PTRDIFF_MAX);
    const std::size_t n = static_cast<std::size_t>(count);
    const std::size_t bufferBytes = static_cast<std::size_t>(length) * sizeof(wchar_t);
    if (static_cast<std::size_t>(length) > limit / sizeof(wchar_t) || n > limit / sizeof(wchar_t*))
        return false;
    const std::size_t perElement = bufferBytes + sizeof(wchar_t*);
    return perElement >= bufferBytes && n <= limit / perElement;
}

} // namespace

CVeLStringArray::CVeLStringArray(long numberOfElements, long maxStringLength)
    : m_table(nullptr), m_maxStringLength(maxStringLength)
{
    if (numberOfElements < 1 || maxStringLength < 1 || !FitsInAddressSpace(numberOfElements, maxStringLength))
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return;
    }
    // A size the memory cannot hold ends like an impossible one: no elements, nothing kept, nothing thrown.
    try
    {
        m_table = new wchar_t*[static_cast<std::size_t>(numberOfElements)];
        m_buffers.reserve(static_cast<std::size_t>(numberOfElements));
        for (long i = 0; i < numberOfElements; ++i)
        {
            std::shared_ptr<wchar_t[]> buffer(new wchar_t[static_cast<std::size_t>(maxStringLength)]());
            m_table[i] = buffer.get();
            m_buffers.push_back(std::move(buffer));
        }
    }
    catch (const std::bad_alloc&)
    {
        delete[] m_table;
        m_table = nullptr;
        std::vector<std::shared_ptr<wchar_t[]>>().swap(m_buffers);
        VEL_TRACE(VEL_ERR, "Invalid parameter");
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
