#include "velmoduleloader.h"
#include "velimplforward.h"
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
    VEL_IMPL_FORWARD(false, Load(nameOrPath));
}

FARPROC CVeLModuleLoader::GetFunction(const std::string& functionName) const
{
    VEL_IMPL_FORWARD(nullptr, GetFunction(functionName));
}

bool CVeLModuleLoader::Unload()
{
    VEL_IMPL_FORWARD(false, Unload());
}

bool CVeLModuleLoader::IsLoaded() const
{
    VEL_IMPL_FORWARD(false, IsLoaded());
}
