#include "velmoduleloader.h"
#include "velcalltrace.h"
#include "velmoduleloaderimpl.h"
#include "velwinapiwrapper.h"

CVeLModuleLoader::CVeLModuleLoader() : m_impl(new CVeLModuleLoaderImpl(std::make_shared<CVeLWinAPIWrapper>()))
{
}

CVeLModuleLoader::CVeLModuleLoader(std::shared_ptr<IVeLWinAPIWrapper> api)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLModuleLoaderImpl(std::move(api)));
}

CVeLModuleLoader::~CVeLModuleLoader() {}

bool CVeLModuleLoader::Load(const std::wstring& nameOrPath)
{
    return VEL_FORWARD(m_impl, Load(nameOrPath));
}

FARPROC CVeLModuleLoader::GetFunction(const std::string& functionName) const
{
    return VEL_FORWARD(m_impl, GetFunction(functionName));
}

bool CVeLModuleLoader::Unload()
{
    return VEL_FORWARD(m_impl, Unload());
}

bool CVeLModuleLoader::IsLoaded() const
{
    return VEL_FORWARD(m_impl, IsLoaded());
}
