#include "velprocesshelper.h"
#include "velcalltrace.h"
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
    return VEL_FORWARD(m_impl, Start(info));
}

CVeLResult<ProcessStatusEnum> CVeLProcessHelper::Run(const VeLProcessStartInfo& info, DWORD timeout,
                                                     DWORD& exitCode) const
{
    return VEL_FORWARD(m_impl, Run(info, timeout, exitCode));
}

std::shared_ptr<CVeLProcess> CVeLProcessHelper::Open(DWORD processId) const
{
    return VEL_FORWARD(m_impl, Open(processId));
}

bool CVeLProcessHelper::ListProcesses(std::vector<VeLProcessInfo>& processes) const
{
    return VEL_FORWARD(m_impl, ListProcesses(processes));
}

bool CVeLProcessHelper::FindByName(const std::wstring& imageName,
                                   std::vector<VeLProcessInfo>& processes) const
{
    return VEL_FORWARD(m_impl, FindByName(imageName, processes));
}

bool CVeLProcessHelper::FindById(DWORD processId, VeLProcessInfo& process) const
{
    return VEL_FORWARD(m_impl, FindById(processId, process));
}

bool CVeLProcessHelper::IsRunning(DWORD processId) const
{
    return VEL_FORWARD(m_impl, IsRunning(processId));
}

bool CVeLProcessHelper::End(DWORD processId, DWORD timeout, UINT exitCode) const
{
    return VEL_FORWARD(m_impl, End(processId, timeout, exitCode));
}

bool CVeLProcessHelper::EndTree(DWORD processId, DWORD timeout, UINT exitCode) const
{
    return VEL_FORWARD(m_impl, EndTree(processId, timeout, exitCode));
}

bool CVeLProcessHelper::GetTopLevelWindows(DWORD processId, std::vector<HWND>& windows) const
{
    return VEL_FORWARD(m_impl, GetTopLevelWindows(processId, windows));
}

bool CVeLProcessHelper::GetForegroundWindow(HWND& window) const
{
    return VEL_FORWARD(m_impl, GetForegroundWindow(window));
}

bool CVeLProcessHelper::BuildCommandLine(const std::wstring& program,
                                         const std::vector<std::wstring>& arguments,
                                         std::wstring& commandLine)
{
    return CVeLProcessHelperImpl::BuildCommandLine(program, arguments, commandLine);
}
