#include "velcmdinterfacesharedmemoryhandler.h"
#include "korutilitesbtracedef.h"
#include "velcmdinterfacesharedmemimpl.h"
#include "velwinapiwrapper.h"

CVeLCmdInterfaceSharedMemoryHandler::CVeLCmdInterfaceSharedMemoryHandler(bool create,
                                                                         const std::wstring& name)
    : m_impl(std::make_shared<CVeLCmdInterfaceSharedMemoryImpl>(std::make_shared<CVeLWinAPIWrapper>(), create,
                                                                name))
{
}

CVeLCmdInterfaceSharedMemoryHandler::~CVeLCmdInterfaceSharedMemoryHandler() {}

std::wstring CVeLCmdInterfaceSharedMemoryHandler::GetSharedMemoryName()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access InterfaceSharedMemoryImpl!");
        return std::wstring();
    }
    return m_impl->GetSharedMemoryName();
}

bool CVeLCmdInterfaceSharedMemoryHandler::IsSharedMemoryAvailable() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access InterfaceSharedMemoryImpl!");
        return false;
    }
    return m_impl->IsSharedMemoryAvailable();
}

bool CVeLCmdInterfaceSharedMemoryHandler::ReadDataFromMemory(std::wstring& text) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access InterfaceSharedMemoryImpl!");
        return false;
    }
    return m_impl->ReadDataFromMemory(text);
}

bool CVeLCmdInterfaceSharedMemoryHandler::WriteDataToMemory(const std::wstring& text) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access InterfaceSharedMemoryImpl!");
        return false;
    }
    return m_impl->WriteDataToMemory(text);
}

bool CVeLCmdInterfaceSharedMemoryHandler::ClearDataMemory() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access InterfaceSharedMemoryImpl!");
        return false;
    }
    return m_impl->ClearDataMemory();
}
