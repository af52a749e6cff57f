#include "velfilehandlehelper.h"
#include "korutilitesbtracedef.h"
#include "velfilehandlehelperimpl.h"
#include "velwinapiwrapper.h"

CVeLFileHandleHelper::CVeLFileHandleHelper()
    : m_impl(std::make_shared<CVeLFileHandleHelperImpl>(std::make_shared<CVeLWinAPIWrapper>()))
{
}

CVeLFileHandleHelper::CVeLFileHandleHelper(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_impl(std::make_shared<CVeLFileHandleHelperImpl>(std::move(api)))
{
}

CVeLFileHandleHelper::CVeLFileHandleHelper(const CVeLFileHandleHelper& other) : m_impl(other.m_impl) {}

CVeLFileHandleHelper& CVeLFileHandleHelper::operator=(const CVeLFileHandleHelper& other)
{
    m_impl = other.m_impl;
    return *this;
}

CVeLFileHandleHelper::~CVeLFileHandleHelper() {}

bool CVeLFileHandleHelper::GetFileLockingProcesses(const boost::filesystem::path& file,
                                                   std::list<VeLFileHandleInfo>& processes)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->GetFileLockingProcesses(file, processes);
}
