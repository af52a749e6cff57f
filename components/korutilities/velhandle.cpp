#include "velhandle.h"
#include "korutilitesbtracedef.h"
#include "velwinapiwrapper.h"

CVeLHANDLE::CVeLHANDLE() : m_api(std::make_shared<CVeLWinAPIWrapper>()), m_handle(nullptr) {}

CVeLHANDLE::CVeLHANDLE(void* handle) : m_api(std::make_shared<CVeLWinAPIWrapper>()), m_handle(handle) {}

CVeLHANDLE::CVeLHANDLE(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)), m_handle(nullptr) {}

CVeLHANDLE::CVeLHANDLE(std::shared_ptr<IVeLWinAPIWrapper> api, void* handle)
    : m_api(std::move(api)), m_handle(handle)
{
}

CVeLHANDLE::~CVeLHANDLE()
{
    CloseHandle();
}

void CVeLHANDLE::operator=(void* handle)
{
    CloseHandle();
    m_handle = handle;
}

void* const* CVeLHANDLE::operator&()
{
    return m_handle == nullptr ? nullptr : &m_handle;
}

void* CVeLHANDLE::GetHandle() const
{
    return m_handle;
}

bool CVeLHANDLE::IsValid() const
{
    return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE;
}

void CVeLHANDLE::CloseHandle()
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Can't access api wrapper!");
        return;
    }
    if (IsValid())
    {
        m_api->WAPI_CloseHandle(m_handle);
        m_handle = nullptr;
    }
}
