#include "velprocesshelper.h"
#include "velimplforward.h"
#include "velprocesshelperimpl.h"
#include "velwaithelper.h"
#include "velwinapiwrapper.h"

CVeLProcessHelper::CVeLProcessHelper()
    : m_impl(new CVeLProcessHelperImpl(std::make_shared<CVeLWinAPIWrapper>(),
                                       std::make_shared<CVeLWaitHelper>(false)))
{
}

CVeLProcessHelper::CVeLProcessHelper(std::shared_ptr<IVeLWinAPIWrapper> api,
                                     std::shared_ptr<IVeLWaitHelper> waitHelper)
{
    if (!api || !waitHelper)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    m_impl.reset(new CVeLProcessHelperImpl(std::move(api), std::move(waitHelper)));
}

CVeLProcessHelper::~CVeLProcessHelper() {}

std::shared_ptr<CVeLProcess> CVeLProcessHelper::Start(const VeLProcessStartInfo& info) const
{
    VEL_IMPL_FORWARD(nullptr, Start(info));
}

CVeLResult<ProcessStatusEnum> CVeLProcessHelper::Run(const VeLProcessStartInfo& info, DWORD timeout,
                                                     DWORD& exitCode) const
{
    VEL_IMPL_FORWARD(CVeLResult<ProcessStatusEnum>(), Run(info, timeout, exitCode));
}

std::shared_ptr<CVeLProcess> CVeLProcessHelper::Open(DWORD processId) const
{
    VEL_IMPL_FORWARD(nullptr, Open(processId));
}

bool CVeLProcessHelper::ListProcesses(std::vector<VeLProcessInfo>& processes) const
{
    VEL_IMPL_FORWARD(false, ListProcesses(processes));
}

bool CVeLProcessHelper::FindByName(const std::wstring& imageName,
                                   std::vector<VeLProcessInfo>& processes) const
{
    VEL_IMPL_FORWARD(false, FindByName(imageName, processes));
}

bool CVeLProcessHelper::FindById(DWORD processId, VeLProcessInfo& process) const
{
    VEL_IMPL_FORWARD(false, FindById(processId, process));
}

bool CVeLProcessHelper::IsRunning(DWORD processId) const
{
    VEL_IMPL_FORWARD(false, IsRunning(processId));
}

bool CVeLProcessHelper::End(DWORD processId, DWORD timeout, UINT exitCode) const
{
    VEL_IMPL_FORWARD(false, End(processId, timeout, exitCode));
}

bool CVeLProcessHelper::EndTree(DWORD processId, DWORD timeout, UINT exitCode) const
{
    VEL_IMPL_FORWARD(false, EndTree(processId, timeout, exitCode));
}

bool CVeLProcessHelper::GetTopLevelWindows(DWORD processId, std::vector<HWND>& windows) const
{
    VEL_IMPL_FORWARD(false, GetTopLevelWindows(processId, windows));
}

bool CVeLProcessHelper::GetForegroundWindow(HWND& window) const
{
    VEL_IMPL_FORWARD(false, GetForegroundWindow(window));
}

bool CVeLProcessHelper::BuildCommandLine(const std::wstring& program,
                                         const std::vector<std::wstring>& arguments,
                                         std::wstring& commandLine)
{
    return CVeLProcessHelperImpl::BuildCommandLine(program, arguments, commandLine);
}
