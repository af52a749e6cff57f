#include "velresourcestringsimpl.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velstringconverter.h"

namespace fs = boost::filesystem;

CVeLResourceStringsImpl::CVeLResourceStringsImpl(std::shared_ptr<IVeLWinAPIWrapper> api, const fs::path& file)
    : m_api(std::move(api)), m_module(nullptr), m_owned(true), m_open(false)
{
    const std::wstring wide = CVeLPathConverter::ToWide(file);
    m_name = CVeLStringConverter::ConvertStdWStringToStdString(wide);
    // As a data file the module's code is never run, and its resources can be read whatever it was built
    // for.
    m_module = m_api->WAPI_LoadLibraryEx(wide.c_str(), nullptr,
                                         LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    m_open = m_module != nullptr;
    if (!m_open)
        VEL_TRACE(VEL_ERR, "Can't open %s for its resources (err = %ld)!", m_name.c_str(),
                  m_api->WAPI_GetLastError());
}

CVeLResourceStringsImpl::CVeLResourceStringsImpl(std::shared_ptr<IVeLWinAPIWrapper> api, HMODULE module)
    : m_api(std::move(api)), m_module(module), m_owned(false), m_open(true), m_name("module")
{
}

CVeLResourceStringsImpl::~CVeLResourceStringsImpl()
{
    if (m_owned && m_open && !m_api->WAPI_FreeLibrary(m_module))
        VEL_TRACE(VEL_ERR, "Can't free %s (err = %ld)!", m_name.c_str(), m_api->WAPI_GetLastError());
}

bool CVeLResourceStringsImpl::IsOpen() const
{
    return m_open;
}

bool CVeLResourceStringsImpl::GetString(unsigned int id, std::wstring& text) const
{
    if (!m_open)
    {
        VEL_TRACE(VEL_ERR, "Can't load string %u: %s is not open!", id, m_name.c_str());
        return false;
    }
    // A zero buffer size answers a read-only pointer to the text and its full length, so no text is cut.
    const wchar_t* found = nullptr;
    const int length = m_api->WAPI_LoadString(m_module, id, reinterpret_cast<LPWSTR>(&found), 0);
    if (length <= 0 || found == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Can't load string %u from %s (err = %ld)!", id, m_name.c_str(),
                  m_api->WAPI_GetLastError());
        return false;
    }
    text.assign(found, static_cast<std::size_t>(length));
    return true;
}
