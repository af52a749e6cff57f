#include "velpathhelperimpl.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"

#include <vector>

namespace fs = boost::filesystem;

namespace
{

std::string Utf8(const fs::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

// The elements of a normalised path below its root.
std::vector<fs::path> Elements(const fs::path& normalised)
{
    std::vector<fs::path> elements;
    for (const fs::path& element : normalised.relative_path())
        elements.push_back(element);
    return elements;
}

} // namespace

CVeLPathHelperImpl::CVeLPathHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

fs::path CVeLPathHelperImpl::Normalize(const fs::path& path) const
{
    std::vector<fs::path> kept;
    for (const fs::path& element : path.relative_path())
    {
        if (element.empty() || element == ".")
            continue;
        if (element == "..")
        {
            if (!kept.empty() && kept.back() != "..")
                kept.pop_back();
            else if (!path.has_root_directory())
                kept.push_back(element); // nothing left to climb out of: keep it for a relative path
            continue;
        }
        kept.push_back(element);
    }
    fs::path result = path.root_path();
    for (const fs::path& element : kept)
        result /= element;
    if (result.empty() && !path.empty())
        result = ".";
    return result;
}

bool CVeLPathHelperImpl::Join(const fs::path& base, const fs::path& relative, fs::path& result) const
{
    if (relative.has_root_path())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    const fs::path tail = Normalize(relative);
    if (!tail.empty() && *tail.begin() == "..")
    {
        VEL_TRACE(VEL_ERR, "%s leads out of %s", Utf8(relative).c_str(), Utf8(base).c_str());
        return false;
    }
    result = Normalize(tail.empty() || tail == "." ? base : base / tail);
    return true;
}

bool CVeLPathHelperImpl::MakeRelative(const fs::path& target, const fs::path& base, fs::path& result) const
{
    const fs::path to = Normalize(target);
    const fs::path from = Normalize(base);
    if (to.root_path() != from.root_path())
    {
        VEL_TRACE(VEL_ERR, "No relative path from %s to %s", Utf8(base).c_str(), Utf8(target).c_str());
        return false;
    }
    const std::vector<fs::path> toElements = Elements(to);
    const std::vector<fs::path> fromElements = Elements(from);
    std::size_t common = 0;
    while (common < toElements.size() && common < fromElements.size() &&
           toElements[common] == fromElements[common] && toElements[common] != ".")
        ++common;
    fs::path relative;
    for (std::size_t i = common; i < fromElements.size(); ++i)
    {
        if (fromElements[i] == ".." || fromElements[i] == ".")
        {
            VEL_TRACE(VEL_ERR, "No relative path from %s to %s", Utf8(base).c_str(), Utf8(target).c_str());
            return false; // the way back out of a climbing base is unknown without the file system
        }
        relative /= "..";
    }
    for (std::size_t i = common; i < toElements.size(); ++i)
        if (toElements[i] != ".")
            relative /= toElements[i];
    result = relative.empty() ? fs::path(".") : relative;
    return true;
}

bool CVeLPathHelperImpl::GetProgramFolder(fs::path& folder) const
{
    // The buffer grows until the name fits: a result equal to the size means it was cut.
    for (DWORD size = MAX_PATH; size <= 32768 * 2; size *= 2)
    {
        std::vector<WCHAR> buffer(size);
        const DWORD length = m_api->WAPI_GetModuleFileName(nullptr, buffer.data(), size);
        if (length == 0)
        {
            const DWORD error = m_api->WAPI_GetLastError();
            VEL_TRACE(VEL_ERR, "GetModuleFileName failed (code= 0x%08X)!", error);
            return false;
        }
        if (length < size)
        {
            folder = CVeLPathConverter::FromWide(std::wstring(buffer.data(), length)).parent_path();
            return true;
        }
    }
    VEL_TRACE(VEL_ERR, "GetModuleFileName failed (code= 0x%08X)!",
              static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    return false;
}

bool CVeLPathHelperImpl::GetTempFolder(fs::path& folder) const
{
    const DWORD needed = m_api->WAPI_GetTempPath(0, nullptr);
    std::vector<WCHAR> buffer(needed + 1);
    const DWORD length = needed == 0 ? 0 : m_api->WAPI_GetTempPath(needed + 1, buffer.data());
    if (length == 0 || length > needed)
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "GetTempPath failed (code= 0x%08X)!", error);
        return false;
    }
    std::wstring text(buffer.data(), length);
    while (text.size() > 1 && (text.back() == L'\\' || text.back() == L'/') && text[text.size() - 2] != L':')
        text.pop_back();
    folder = CVeLPathConverter::FromWide(text);
    return true;
}

bool CVeLPathHelperImpl::GetKnownFolder(REFKNOWNFOLDERID id, const char* what, bool create,
                                        fs::path& folder) const
{
    PWSTR text = nullptr;
    const HRESULT result = m_api->WAPI_SHGetKnownFolderPath(id, create ? KF_FLAG_CREATE : 0, nullptr, &text);
    if (FAILED(result) || text == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Can't get the %s folder (hr= 0x%08X)!", what, static_cast<DWORD>(result));
        if (text != nullptr)
            m_api->WAPI_CoTaskMemFree(text);
        return false;
    }
    folder = CVeLPathConverter::FromWide(text);
    m_api->WAPI_CoTaskMemFree(text);
    return true;
}
