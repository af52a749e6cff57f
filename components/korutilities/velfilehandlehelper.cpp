#include "velfilehandlehelper.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
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
    return VEL_FORWARD(m_impl, GetFileLockingProcesses(file, processes));
}
