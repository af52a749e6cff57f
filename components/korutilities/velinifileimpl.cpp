#include "velinifileimpl.h"
#include "korutilitesbtracedef.h"
#include "velfilebasics.h"
#include "velfilehelper.h"
#include "velinitext.h"
#include "velpathconverter.h"
#include "velstringconverter.h"

#include <cerrno>
#include <climits>
#include <cwchar>
#include <cwctype>
#include <locale>
#include <sstream>

namespace fs = boost::filesystem;

namespace
{

const DWORD kFirstBufferSize = 256;
const DWORD kLargestBufferSize = 1u << 24; // a value of 16 million characters is no setting

std::wstring Trimmed(const std::wstring& text)
{
    const std::size_t first = text.find_first_not_of(L" \t");
    return first == std::wstring::npos ? std::wstring()
                                       : text.substr(first, text.find_last_not_of(L" \t") - first + 1);
}

std::wstring Lower(std::wstring text)
{
    for (wchar_t& c : text)
        c = static_cast<wchar_t>(std::towlower(c));
    return text;
}

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

// The whole text as a number of the classic locale; false when anything else is left.
template <typename Number>
bool ParseWhole(const std::wstring& text, Number& value)
{
    std::istringstream in(Utf8(text));
    in.imbue(std::locale::classic());
    in >> value;
    return !in.fail() && in.peek() == std::char_traits<char>::eof();
}

std::wstring RealToText(double value)
{
    for (int precision : {15, 17})
    {
        std::ostringstream out;
        out.imbue(std::locale::classic());
        out.precision(precision);
        out << value;
        double back = 0;
        std::istringstream in(out.str());
        in.imbue(std::locale::classic());
        const std::string text = out.str(); // digits, sign, ".", "e": plain ASCII
        if ((in >> back) && back == value)
            return std::wstring(text.begin(), text.end());
    }
    return std::wstring();
}

} // namespace

CVeLIniFileImpl::CVeLIniFileImpl(std::shared_ptr<IVeLWinAPIWrapper> api, const fs::path& file)
    : m_api(std::move(api)), m_file(file), m_wideFile(CVeLPathConverter::ToWide(file))
{
}

bool CVeLIniFileImpl::UsablePath() const
{
    if (m_file.empty() || !m_file.has_parent_path() || !m_file.has_filename())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    return true;
}

std::wstring CVeLIniFileImpl::Read(const wchar_t* section, const wchar_t* key, const wchar_t* defaultValue,
                                   bool list) const
{
    // The profile read cuts an answer that does not fit at size - 1 (size - 2 for lists) and gives no
    // other sign; a larger buffer is tried until the answer is shorter than that.
    for (DWORD size = kFirstBufferSize; size <= kLargestBufferSize; size *= 4)
    {
        std::wstring buffer(size, L'\0');
        const DWORD length = m_api->WAPI_GetPrivateProfileString(section, key, defaultValue, &buffer[0], size,
                                                                 m_wideFile.c_str());
        if (length < size - (list ? 2 : 1))
        {
            buffer.resize(length);
            return buffer;
        }
    }
    VEL_TRACE(VEL_ERR, "Value too large in %s!", Utf8(m_wideFile).c_str());
    return defaultValue ? defaultValue : L"";
}

bool CVeLIniFileImpl::ReadList(const wchar_t* section, std::vector<std::wstring>& names) const
{
    names.clear();
    if (!UsablePath())
        return false;
    const std::wstring list = Read(section, nullptr, L"", true);
    for (std::size_t start = 0; start < list.size();)
    {
        const std::size_t end = list.find(L'\0', start);
        names.push_back(list.substr(start, end - start));
        start = end == std::wstring::npos ? list.size() : end + 1;
    }
    return true;
}

std::wstring CVeLIniFileImpl::GetString(const std::wstring& section, const std::wstring& key,
                                        const std::wstring& defaultValue) const
{
    if (!UsablePath())
        return defaultValue;
    return Read(section.c_str(), key.c_str(), defaultValue.c_str(), false);
}

int CVeLIniFileImpl::GetInt(const std::wstring& section, const std::wstring& key, int defaultValue) const
{
    const std::wstring text = Trimmed(GetString(section, key, L""));
    if (text.empty())
        return defaultValue;
    const bool negative = text[0] == L'-';
    const std::size_t digits = text[0] == L'-' || text[0] == L'+' ? 1 : 0;
    const bool hex = text.compare(digits, 2, L"0x") == 0 || text.compare(digits, 2, L"0X") == 0;
    wchar_t* end = nullptr;
    errno = 0;
    const std::wstring magnitude = text.substr(digits + (hex ? 2 : 0));
    const unsigned long long value = std::wcstoull(magnitude.c_str(), &end, hex ? 16 : 10);
    const unsigned long long limit = negative ? 0x80000000ull : static_cast<unsigned long long>(INT_MAX);
    if (magnitude.empty() || !std::iswxdigit(magnitude[0]) || *end != L'\0' || errno == ERANGE ||
        value > limit)
    {
        VEL_TRACE(VEL_WRN, "Value '%s' of %s is no whole number!", Utf8(text).c_str(), Utf8(key).c_str());
        return defaultValue;
    }
    return negative ? static_cast<int>(-static_cast<long long>(value)) : static_cast<int>(value);
}

bool CVeLIniFileImpl::GetBool(const std::wstring& section, const std::wstring& key, bool defaultValue) const
{
    const std::wstring text = Lower(Trimmed(GetString(section, key, L"")));
    if (text == L"1" || text == L"true" || text == L"yes" || text == L"on")
        return true;
    if (text == L"0" || text == L"false" || text == L"no" || text == L"off")
        return false;
    if (!text.empty())
        VEL_TRACE(VEL_WRN, "Value '%s' of %s is no boolean!", Utf8(text).c_str(), Utf8(key).c_str());
    return defaultValue;
}

double CVeLIniFileImpl::GetReal(const std::wstring& section, const std::wstring& key,
                                double defaultValue) const
{
    const std::wstring text = Trimmed(GetString(section, key, L""));
    double value = 0;
    if (!text.empty() && ParseWhole(text, value))
        return value;
    if (!text.empty())
        VEL_TRACE(VEL_WRN, "Value '%s' of %s is no number!", Utf8(text).c_str(), Utf8(key).c_str());
    return defaultValue;
}

bool CVeLIniFileImpl::HasKey(const std::wstring& section, const std::wstring& key) const
{
    std::vector<std::wstring> keys;
    if (!GetKeyNames(section, keys))
        return false;
    const std::wstring wanted = Lower(key);
    for (const std::wstring& name : keys)
        if (Lower(name) == wanted)
            return true;
    return false;
}

bool CVeLIniFileImpl::GetSectionNames(std::vector<std::wstring>& names) const
{
    return ReadList(nullptr, names);
}

bool CVeLIniFileImpl::GetKeyNames(const std::wstring& section, std::vector<std::wstring>& names) const
{
    return ReadList(section.c_str(), names);
}

bool CVeLIniFileImpl::WriteString(const std::wstring& section, const std::wstring& key,
                                  const std::wstring& value)
{
    return Change(section.c_str(), key.c_str(), value.c_str());
}

bool CVeLIniFileImpl::WriteInt(const std::wstring& section, const std::wstring& key, int value)
{
    return WriteString(section, key, std::to_wstring(value));
}

bool CVeLIniFileImpl::WriteBool(const std::wstring& section, const std::wstring& key, bool value)
{
    return WriteString(section, key, value ? L"1" : L"0");
}

bool CVeLIniFileImpl::WriteReal(const std::wstring& section, const std::wstring& key, double value)
{
    const std::wstring text = RealToText(value);
    if (text.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    return WriteString(section, key, text);
}

bool CVeLIniFileImpl::DeleteKey(const std::wstring& section, const std::wstring& key)
{
    return Change(section.c_str(), key.c_str(), nullptr);
}

bool CVeLIniFileImpl::DeleteSection(const std::wstring& section)
{
    return Change(section.c_str(), nullptr, nullptr);
}

bool CVeLIniFileImpl::Change(const wchar_t* section, const wchar_t* key, const wchar_t* value)
{
    if (!UsablePath() || section == nullptr || *section == L'\0')
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    // One read of the file, the change made in memory, one crash-safe replace: the file holds its old or
    // its new content whatever happens in between.
    CVeLFileHelper file(m_api, std::make_shared<CVeLFileBasics>(), m_file, false);
    boost::shared_ptr<unsigned char> content;
    ULONG size = 0;
    if (file.Exists() && !file.ReadContent(content, size))
        return false;
    const std::vector<unsigned char> changed = CVeLIniText::Change(content.get(), size, section, key, value);
    if (!file.ReplaceContentAtomically(changed.data(), changed.size()))
    {
        VEL_TRACE(VEL_ERR, "Can't write %s (err = %ld)!", Utf8(m_wideFile).c_str(),
                  m_api->WAPI_GetLastError());
        return false;
    }
    return true;
}
