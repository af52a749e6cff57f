#include "velapplicationrestarter.h"
#include "velapplicationrestarterimpl.h"
#include "velimplforward.h"
#include "velwaithelper.h"
#include "velwinapiwrapper.h"

CVeLApplicationRestarter::CVeLApplicationRestarter()
    : m_impl(new CVeLApplicationRestarterImpl(std::make_shared<CVeLWinAPIWrapper>(),
                                              std::make_shared<CVeLWaitHelper>(false)))
{
}

CVeLApplicationRestarter::CVeLApplicationRestarter(std::shared_ptr<IVeLWinAPIWrapper> api,
                                                   std::shared_ptr<IVeLWaitHelper> waitHelper)
{
    if (!api || !waitHelper)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    m_impl.reset(new CVeLApplicationRestarterImpl(std::move(api), std::move(waitHelper)));
}

CVeLApplicationRestarter::~CVeLApplicationRestarter() {}

bool CVeLApplicationRestarter::AddResources(const std::vector<boost::filesystem::path>& filesOrFolders)
{
    VEL_IMPL_FORWARD(false, AddResources(filesOrFolders));
}

bool CVeLApplicationRestarter::GetApplications(std::vector<VeLApplicationInfo>& applications) const
{
    VEL_IMPL_FORWARD(false, GetApplications(applications));
}

bool CVeLApplicationRestarter::Shutdown(DWORD timeout, std::vector<VeLApplicationInfo>& failed)
{
    VEL_IMPL_FORWARD(false, Shutdown(timeout, failed));
}

bool CVeLApplicationRestarter::Restart(std::vector<VeLApplicationInfo>& failed)
{
    VEL_IMPL_FORWARD(false, Restart(failed));
}
