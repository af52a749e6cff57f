#include "velversion.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"

namespace
{

const WORD kMaxPart = 0xFFFF;

bool IsBlank(wchar_t c)
{
    return c == L' ' || c == L'\t';
}

// Reads one part of decimal digits from text[at]; false when there is no digit or the value is too big.
bool ReadPart(const std::wstring& text, std::size_t& at, std::size_t end, WORD& part)
{
    unsigned long value = 0;
    const std::size_t first = at;
    for (; at < end && text[at] >= L'0' && text[at] <= L'9'; ++at)
    {
        value = value * 10 + static_cast<unsigned long>(text[at] - L'0');
        if (value > kMaxPart)
            return false;
    }
    part = static_cast<WORD>(value);
    return at > first;
}

} // namespace

CVeLVersion::CVeLVersion() : m_parts{0, 0, 0, 0} {}

CVeLVersion::CVeLVersion(WORD major, WORD minor, WORD build, WORD revision)
    : m_parts{major, minor, build, revision}
{
}

CVeLVersion CVeLVersion::FromFixed(DWORD mostSignificant, DWORD leastSignificant)
{
    return CVeLVersion(static_cast<WORD>(mostSignificant >> 16), static_cast<WORD>(mostSignificant & 0xFFFF),
                       static_cast<WORD>(leastSignificant >> 16),
                       static_cast<WORD>(leastSignificant & 0xFFFF));
}

CVeLResult<CVeLVersion> CVeLVersion::Parse(const std::wstring& text)
{
    std::size_t at = 0, end = text.size();
    while (at < end && IsBlank(text[at]))
        ++at;
    while (end > at && IsBlank(text[end - 1]))
        --end;
    CVeLVersion version;
    for (int index = 0; index < 4; ++index)
    {
        if (!ReadPart(text, at, end, version.m_parts[index]))
            break;
        if (at == end)
            return CVeLResult<CVeLVersion>(true, version);
        if (text[at] != L'.')
            break;
        ++at;
    }
    VEL_TRACE(VEL_ERR, "Invalid version text '%s'!",
              CVeLStringConverter::ConvertStdWStringToStdString(text).c_str());
    return CVeLResult<CVeLVersion>();
}

int CVeLVersion::Compare(const CVeLVersion& other) const
{
    for (int index = 0; index < 4; ++index)
        if (m_parts[index] != other.m_parts[index])
            return m_parts[index] < other.m_parts[index] ? -1 : 1;
    return 0;
}

std::wstring CVeLVersion::ToString() const
{
    return std::to_wstring(m_parts[0]) + L"." + std::to_wstring(m_parts[1]) + L"." +
           std::to_wstring(m_parts[2]) + L"." + std::to_wstring(m_parts[3]);
}

std::wstring CVeLVersion::ToShortString() const
{
    std::wstring text = std::to_wstring(m_parts[0]) + L"." + std::to_wstring(m_parts[1]);
    if (m_parts[2] != 0 || m_parts[3] != 0)
        text += L"." + std::to_wstring(m_parts[2]);
    if (m_parts[3] != 0)
        text += L"." + std::to_wstring(m_parts[3]);
    return text;
}
