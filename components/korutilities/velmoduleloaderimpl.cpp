#include "velmoduleloaderimpl.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"

CVeLModuleLoaderImpl::CVeLModuleLoaderImpl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

CVeLModuleLoaderImpl::~CVeLModuleLoaderImpl()
{
    if (m_module != nullptr)
        Unload();
}

bool CVeLModuleLoaderImpl::Load(const std::wstring& nameOrPath)
{
    if (nameOrPath.empty() || nameOrPath.find(L'\0') != std::wstring::npos)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    if (m_module != nullptr)
    {
        VEL_TRACE(VEL_ERR, "Module already loaded, unload it first!");
        return false;
    }
    HMODULE module = m_api->WAPI_LoadLibrary(nameOrPath.c_str());
    if (module == nullptr)
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "LoadLibrary %s failed (code=0x%08X)!",
                  CVeLStringConverter::ConvertStdWStringToStdString(nameOrPath).c_str(), error);
        return false;
    }
    m_module = module;
    return true;
}

FARPROC CVeLModuleLoaderImpl::GetFunction(const std::string& functionName) const
{
    if (functionName.empty() || functionName.find('\0') != std::string::npos)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return nullptr;
    }
    if (m_module == nullptr)
    {
        VEL_TRACE(VEL_ERR, "No module loaded!");
        return nullptr;
    }
    FARPROC address = m_api->WAPI_GetProcAddress(m_module, functionName.c_str());
    if (address == nullptr)
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "GetProcAddress failed (code=0x%08X)!", error);
        VEL_TRACE(VEL_DBG1, "Function not found: %s", functionName.c_str());
    }
    return address;
}

bool CVeLModuleLoaderImpl::Unload()
{
    if (m_module == nullptr)
    {
        VEL_TRACE(VEL_ERR, "No module loaded!");
        return false;
    }
    HMODULE module = m_module;
    m_module = nullptr; // released also when FreeLibrary fails: the handle is not ours to try again
    if (!m_api->WAPI_FreeLibrary(module))
    {
        const DWORD error = m_api->WAPI_GetLastError();
        VEL_TRACE(VEL_ERR, "FreeLibrary failed (code=0x%08X)!", error);
        return false;
    }
    return true;
}
